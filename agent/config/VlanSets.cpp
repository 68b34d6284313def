#include "agent/config/VlanSets.h"

#include "agent/config/InterfaceNames.h"

namespace agent {

VlanSet vlansOf(const std::vector<PortRange>& ranges) {
  VlanSet vlans;
  for (const PortRange& range : ranges)
    for (uint32_t vlan = range.low; vlan <= range.high && vlan <= maxVlan; ++vlan)
      vlans.set(vlan);
  return vlans;
}

std::vector<PortRange> rangesOf(const VlanSet& vlans) {
  std::vector<PortRange> ranges;
  for (const uint16_t vlan : numbersOf(vlans)) {
    if (!ranges.empty() && ranges.back().high + 1u == vlan)
      ranges.back().high = vlan;
    else
      ranges.push_back({vlan, vlan});
  }
  return ranges;
}

std::vector<uint16_t> numbersOf(const VlanSet& vlans) {
  std::vector<uint16_t> numbers;
  for (uint32_t vlan = 1; vlan <= maxVlan; ++vlan)
    if (vlans.test(vlan))
      numbers.push_back(static_cast<uint16_t>(vlan));
  return numbers;
}

} // namespace agent
