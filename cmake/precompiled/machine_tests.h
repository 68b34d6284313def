// Precompiled once for the test programs that link the library; most of them drive it through the agent.
#pragma once
#include "tests.h"

#include "machines.h"

#include "agent/Agent.h"
