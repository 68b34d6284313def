// Precompiled once for the test programs that link the library.
#pragma once
#include "tests.h"

#include "machines.h"
