#pragma once

#include "agent/config/EntryParser.h"

#include <utility>
#include <vector>

namespace agent {

// The part of parseEntry for MAC lists; the cursor stands behind the action.
void parseMacEntry(Cursor& cursor, const EntryContext& context, Findings& findings, Rule& rule,
                   std::vector<std::pair<size_t, size_t>>& skipped);

} // namespace agent
