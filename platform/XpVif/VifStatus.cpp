#include "XpVif/VifStatus.h"

namespace XpVif {

// The matrix is in step before the notification goes out, because a reactor may walk it.
void PortVlanVifStatus::portVlanToVifMapIs(const XpLib::PortAndVlanId& pair, const VifId& vif) {
  matrix_.pairIs(pair.intf().code(), pair.vlanId().value());
  PortVlanVifMap::portVlanToVifMapIs(pair, vif);
}

void PortVlanVifStatus::portVlanToVifMapDel(const XpLib::PortAndVlanId& pair) {
  matrix_.pairDel(pair.intf().code(), pair.vlanId().value());
  PortVlanVifMap::portVlanToVifMapDel(pair);
}

void PortVlanVifStatus::portVlanToVifMapDelAll() {
  std::vector<XpLib::PortAndVlanId> pairs;
  for (const auto& pair : portVlanToVifMapAll()) {
    pairs.push_back(pair.key());
  }
  for (const XpLib::PortAndVlanId& pair : pairs) {
    portVlanToVifMapDel(pair);
  }
}

std::vector<Bridging::VlanId> PortVlanVifStatus::vlansOfIntf(const Ovnet::IntfId& intf) const {
  const std::vector<Vane::U16> found = matrix_.vlansOf(intf.code());
  return std::vector<Bridging::VlanId>(found.begin(), found.end());
}

std::vector<Ovnet::IntfId> PortVlanVifStatus::intfsOfVlan(const Bridging::VlanId& vlan) const {
  std::vector<Ovnet::IntfId> intfs;
  for (const Vane::U32 code : matrix_.portsOf(vlan.value())) {
    intfs.push_back(Ovnet::IntfId::fromCode(code));
  }
  return intfs;
}

VANE_REGISTERED(PortVlanVifStatus)
VANE_REGISTERED(PortVifStatus)

} // namespace XpVif
