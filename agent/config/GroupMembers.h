#pragma once

#include "agent/config/ObjectGroups.h"

#include <vector>

namespace agent {

// Whether an unindented line can be a member of a group of this kind, rather than a new command.
bool looksLikeGroupMember(GroupKind kind, const std::vector<Token>& tokens);

// Takes one member that is not a nested group and adds what it stands for to the content; the cursor
// stands at its first word. False when it cannot be read.
bool takeGroupMember(GroupKind kind, PortProtocols portProtocols, bool v6, Cursor& cursor, Findings& findings,
                     GroupContent& content);

// Adds everything of a nested group.
void addContent(const GroupContent& from, GroupContent& to);
// Members that say the same become one, ports of one protocol become one set.
void removeDuplicates(GroupContent& content);

} // namespace agent
