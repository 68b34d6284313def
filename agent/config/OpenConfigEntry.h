#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/OpenConfigNames.h"
#include "agent/config/OpenConfigSets.h"
#include "agent/config/OpenConfigTree.h"

namespace agent::openconfig {

struct EntryContext {
  SetType type = SetType::ipv4;
  Family family = Family::ipv4; // of the list that the entry becomes a line of
  DefinedSets& sets;
  ExpansionBudget& budget;
};

// Reads what one acl-entry matches and does into a rule that has its place and sequence number already. With
// problems the rule is of no use.
void parseEntry(const JsonValue& value, const Place& place, const EntryContext& context, Problems& problems,
                Rule& rule);

// The families of packets that an entry of an ACL_MIXED set can match; both when it names neither.
struct EntryFamilies {
  bool v4 = true;
  bool v6 = true;
};
EntryFamilies familiesOf(const JsonValue& entry);

} // namespace agent::openconfig
