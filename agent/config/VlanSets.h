#pragma once

#include "agent/config/ConfigModel.h"

#include <bitset>
#include <cstdint>
#include <vector>

// Sets of VLANs, by number. VLANs are 1 to 4094 (IEEE 802.1Q); the bits of 0 and 4095 say nothing.

namespace agent {

using VlanSet = std::bitset<4096>;

VlanSet vlansOf(const std::vector<PortRange>& ranges);
// Sorted, disjoint and not adjacent.
std::vector<PortRange> rangesOf(const VlanSet& vlans);
std::vector<uint16_t> numbersOf(const VlanSet& vlans); // ascending

} // namespace agent
