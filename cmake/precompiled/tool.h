// Precompiled for the agent and the tool: the entities, the library's own classes, and the large header-only
// library that the tool reads and writes JSON with.
#pragma once
#include "machines.h"

#include <nlohmann/json.hpp>
