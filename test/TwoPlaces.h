#pragma once

#include "tool/UpdateProofWrites.h"

#include <vector>

// A packet that meets two lists on its way, and changes that do not stop it meanwhile.

namespace test {

// Enters where list A judges it and leaves where list B does.
constexpr const char* entranceAndExit = R"(interface Ethernet1
 switchport access vlan 1
 ip access-group A in
interface Ethernet2
 switchport access vlan 1
 ip access-group B out
)";

// A write that makes an interface drop everything while its lists change.
inline bool isBlock(const tool::ChipWrite& write) {
  switch (write.op) {
  case sim::Op::portConfigWrite: {
    const XpXdk::xpPortConfigEntry entry = tool::portConfigOf(write);
    return entry.portAclId == 0 && (entry.aclEnBits != 0 || entry.macAclEn != 0);
  }
  case sim::Op::egressWrite: {
    const XpXdk::xpEgressBdEvifEntry entry = tool::egressOf(write);
    return (entry.ePaclId == 0 && entry.ePaclIpV4En != 0) || (entry.eRaclId == 0 && entry.eRaclIpV4En != 0);
  }
  case sim::Op::portVlanWrite: {
    const XpXdk::xpPortVlanIvifEntry entry = tool::portVlanOf(write);
    return entry.routeAclId == 0 && entry.routeAclEn != 0;
  }
  default:
    return false;
  }
}

// Then places change one after the other while packets pass.
inline void dropBlocks(std::vector<tool::ChipWrite>& writes) {
  std::erase_if(writes, isBlock);
}

} // namespace test
