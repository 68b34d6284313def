// Precompiled for the tool: the entities and the large header-only library that it reads and writes JSON
// with.
#pragma once
#include "machines.h"

#include <nlohmann/json.hpp>
