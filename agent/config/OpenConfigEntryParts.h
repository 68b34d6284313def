#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/OpenConfigSets.h"
#include "agent/config/OpenConfigTree.h"

#include <string>
#include <vector>

// The containers of an acl-entry that say which packets it matches.

namespace agent::openconfig {

struct EntryMatch {
  Criteria base; // all but the IP addresses
  std::vector<V4Match> v4Sources{V4Match{}};
  std::vector<V4Match> v4Destinations{V4Match{}};
  std::vector<V6Match> v6Sources{V6Match{}};
  std::vector<V6Match> v6Destinations{V6Match{}};
  std::string sourceSet; // of prefixes; empty: one prefix, or any
  std::string destinationSet;
};

// Each takes its containers of the entry, and says what a row cannot compare.
void readIp(Container& entry, bool v6, DefinedSets& sets, Problems& problems, EntryMatch& match);
// Behind readIp(): ports and flags depend on the protocol.
void readTransport(Container& entry, bool v6, bool permit, DefinedSets& sets, Problems& problems,
                   EntryMatch& match);
void readL2(Container& entry, Problems& problems, EntryMatch& match);

} // namespace agent::openconfig
