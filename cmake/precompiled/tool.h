// Precompiled for the tool: the entities and the two large header-only libraries it reads and writes with.
#pragma once
#include "machines.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
