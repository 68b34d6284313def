#pragma once

#include "agent/config/EntryParser.h"

namespace agent {

// The addresses of one side of an entry: one match, or those of a group.
struct AddressSet {
  V4Match v4;
  V6Match v6;
  const GroupContent* group = nullptr; // outlives the entry
  Token wildcard;                      // the word that was read as the wildcard of the address before it

  size_t size(bool isV6) const { return group == nullptr ? 1 : isV6 ? group->v6.size() : group->v4.size(); }
  const V4Match& v4At(size_t i) const { return group == nullptr ? v4 : group->v4[i]; }
  const V6Match& v6At(size_t i) const { return group == nullptr ? v6 : group->v6[i]; }
};

// Takes the content of the group that the next word names; refuses a group that is undefined, unreadable or
// of none of the kinds that `mayBe` accepts ("addresses", for the message).
const GroupContent* takeGroup(Cursor& cursor, const EntryContext& context, Findings& findings,
                              bool (*mayBe)(GroupKind), const char* what);

// Takes "any", "host A", "A WILDCARD", "A/length", "A" or a group; `side` is "source" or "destination".
bool takeIpAddress(Cursor& cursor, const EntryContext& context, const char* side, Findings& findings,
                   AddressSet& addresses);

} // namespace agent
