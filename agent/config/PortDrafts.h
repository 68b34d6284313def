#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/InterfaceNames.h"
#include "agent/config/VlanSets.h"

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

// What every reader keeps of an interface before it stands in the configuration, whatever form it reads.

namespace agent {

struct PortDraft {
  explicit PortDraft(InterfaceName interfaceName) : name(std::move(interfaceName)) {}
  InterfaceName name;
  std::optional<uint16_t> accessVlan;
  std::optional<VlanSet> trunkVlans; // nothing: it is no trunk
  std::optional<uint32_t> channelGroup;
  uint8_t chip = 0;
};

// The interface without what is applied to it.
Interface interfaceOf(const PortDraft& draft, SourceLoc loc);

// The names under which the chips know the ports: "Ethernet7" keeps its own, all others get what is free.
void namePorts(std::vector<Interface>& interfaces);

// The ports of each port-channel, by its number. `drafts` must stay where they are.
template <class Draft>
std::unordered_map<uint32_t, std::vector<Draft*>> channelMembers(std::vector<Draft>& drafts) {
  std::unordered_map<uint32_t, std::vector<Draft*>> members;
  for (Draft& draft : drafts)
    if (draft.channelGroup && draft.name.kind() == InterfaceKind::ethernet)
      members[*draft.channelGroup].push_back(&draft);
  return members;
}

} // namespace agent
