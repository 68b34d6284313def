#include "XpVif/VifStatus.h"

#include <algorithm>

namespace XpVif {

// The indexes are in step before the notification goes out, because a reactor may walk them.
void PortVlanVifStatus::portVlanToVifMapIs(const XpLib::PortAndVlanId& pair, const VifId& vif) {
  VlanSet& vlans = vlansByIntf_[pair.intf().code()];
  if (!vlans.test(pair.vlanId().value())) {
    vlans.set(pair.vlanId().value());
    std::vector<uint32_t>& intfs = intfsByVlan_[pair.vlanId().value()];
    intfs.insert(std::lower_bound(intfs.begin(), intfs.end(), pair.intf().code()), pair.intf().code());
  }
  PortVlanVifMap::portVlanToVifMapIs(pair, vif);
}

void PortVlanVifStatus::portVlanToVifMapDel(const XpLib::PortAndVlanId& pair) {
  const auto vlans = vlansByIntf_.find(pair.intf().code());
  if (vlans != vlansByIntf_.end() && vlans->second.test(pair.vlanId().value())) {
    vlans->second.reset(pair.vlanId().value());
    if (vlans->second.none()) {
      vlansByIntf_.erase(vlans);
    }
    const auto intfs = intfsByVlan_.find(pair.vlanId().value());
    auto& codes = intfs->second;
    codes.erase(std::lower_bound(codes.begin(), codes.end(), pair.intf().code()));
    if (codes.empty()) {
      intfsByVlan_.erase(intfs);
    }
  }
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
  std::vector<Bridging::VlanId> vlans;
  const auto found = vlansByIntf_.find(intf.code());
  if (found != vlansByIntf_.end()) {
    const VlanSet& set = found->second;
    for (std::size_t vlan = set._Find_first(); vlan < set.size(); vlan = set._Find_next(vlan)) {
      vlans.emplace_back(static_cast<uint16_t>(vlan));
    }
  }
  return vlans;
}

std::vector<Ovnet::IntfId> PortVlanVifStatus::intfsOfVlan(const Bridging::VlanId& vlan) const {
  std::vector<Ovnet::IntfId> intfs;
  const auto found = intfsByVlan_.find(vlan.value());
  if (found != intfsByVlan_.end()) {
    for (const uint32_t code : found->second) {
      intfs.push_back(Ovnet::IntfId::fromCode(code));
    }
  }
  return intfs;
}

} // namespace XpVif
