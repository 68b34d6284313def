#include "agent/config/PortDrafts.h"

#include <string>

namespace agent {

Interface interfaceOf(const PortDraft& draft, SourceLoc loc) {
  Interface result;
  result.name = draft.name.text();
  result.kind = draft.name.kind();
  result.loc = std::move(loc);
  result.accessVlan = draft.accessVlan;
  result.channelGroup = draft.channelGroup;
  result.chip = draft.chip;
  if (result.kind == InterfaceKind::vlan)
    result.vlan = static_cast<uint16_t>(*draft.name.plainNumber());
  if (draft.trunkVlans) {
    result.trunk = true;
    result.allowedVlans = rangesOf(*draft.trunkVlans);
  }
  return result;
}

void namePorts(std::vector<Interface>& interfaces) {
  constexpr uint32_t maxPort = 65534;
  std::vector<bool> taken(maxPort + 1, false);
  for (Interface& interface : interfaces) {
    if (interface.kind != InterfaceKind::ethernet)
      continue;
    const auto name = InterfaceName::fromText(interface.name);
    const auto number = name && name->isPlainEthernet() ? name->plainNumber() : std::nullopt;
    if (!number || *number < 1 || *number > maxPort)
      continue;
    taken[*number] = true;
    interface.portName = "Ethernet" + std::to_string(*number);
  }
  uint32_t next = 1;
  for (Interface& interface : interfaces) {
    if (interface.kind != InterfaceKind::ethernet || !interface.portName.empty())
      continue;
    while (taken[next])
      ++next; // ends, because there are fewer interfaces than port numbers
    taken[next] = true;
    interface.portName = "Ethernet" + std::to_string(next);
  }
}

} // namespace agent
