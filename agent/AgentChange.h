#pragma once

#include "agent/Agent.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>

// Private to the agent's own files.

namespace agent {

// What is known of the change under way. All of it that grows with the configuration is made before the first
// write.
struct Agent::Change {
  Config config;
  Desired desired;
  WantedPairs pairs;
  std::map<XpAcl::HwAclIndexKey, uint16_t> newIds;       // 0: none was found
  std::map<uint8_t, std::set<Plex::AclKey>> pendingKeys; // by chip
  std::set<Plex::AclKey> newAclData;
  std::size_t bytesToCommit = 0; // what the staged rows take when they are written
  ApplyResult result;
};

} // namespace agent
