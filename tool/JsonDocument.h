#pragma once

#include "tool/Common.h"

#include <string>

// The documents that commands print with --json. Each names its schema, "xpacl/<command>/<version>", as its
// first member; docs/json.md describes them and docs/schema/ has the schemas. The version goes up when a
// member goes away or changes its meaning; members may be added without.

namespace tool {

constexpr int jsonVersion = 1;

// "xpacl/plan/1"
std::string jsonSchemaName(const std::string& command);
// `body`, an object, with its schema in front.
Json jsonDocument(const std::string& command, Json body);
// Prints that as one line on standard output.
void printJson(const std::string& command, Json body);

} // namespace tool
