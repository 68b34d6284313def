#include "agent/Agent.h"

#include <algorithm>

// Chips, ports and (port, VLAN) pairs: what the chips' port tables are programmed from.

namespace agent {

namespace {

constexpr uint16_t maxVif = 65534;
constexpr uint16_t nativeVlan = 1;

// The VLANs that a port is a member of. A port without switchport lines carries every VLAN; pairs are kept
// for those that the configuration knows.
std::set<uint16_t> vlansOf(const Interface& intf, const Config& config) {
  if (intf.accessVlan) {
    return {*intf.accessVlan};
  }
  std::set<uint16_t> vlans;
  if (intf.trunk) {
    for (const PortRange& range : intf.allowedVlans) {
      for (uint32_t vlan = range.low; vlan <= range.high; ++vlan) {
        vlans.insert(static_cast<uint16_t>(vlan));
      }
    }
    return vlans;
  }
  vlans.insert(nativeVlan);
  vlans.insert(config.vlans.begin(), config.vlans.end());
  for (const Interface& other : config.interfaces) {
    if (other.kind == InterfaceKind::vlan) {
      vlans.insert(other.vlan);
    }
  }
  return vlans;
}

Plex::Central::ChipPort chipPort(const Interface& intf) {
  return Plex::Central::ChipPort(Plex::Central::DeviceId(intf.chip),
                                 Plex::Central::PortId(static_cast<Vane::U16>(intfId(intf).number())));
}

} // namespace

std::set<uint8_t> Agent::wantedChips(const Config& config) const {
  std::set<uint8_t> chips = firstChips(config.numChips);
  chips.insert(extraChips_.begin(), extraChips_.end());
  for (const uint8_t chip : removedChips_) {
    chips.erase(chip);
  }
  return chips;
}

void Agent::makeMachine() {
  if (!machine_) {
    machine_ = XpAcl::tcamHwAclIdSmFactory(portVlanVifStatus_, portVifStatus_, systemStatus_, xpcsd_, dal_,
                                           partition_, aclIdMapping_, blockedIntfColl_, activeXpDeviceColl_);
  }
}

// A chip that joins is given the ids, the blocked interfaces and then the index keys that the others hold
// already; its rows are in place by now.
void Agent::activateChips(const std::set<uint8_t>& wanted) {
  bool joined = false;
  for (const uint8_t chip : wanted) {
    if (active_.insert(chip).second) {
      activeXpDeviceColl_->deviceIdIs(XpXdk::XpDeviceId(chip), true);
      joined = true;
    }
  }
  if (joined) {
    renotify();
  }
}

void Agent::renotify() {
  for (const auto& entry : aclIdMapping_->keyToAclIdMappingAll()) {
    aclIdMapping_->keyToAclIdMappingNotify(entry.key());
  }
  for (const auto& entry : blockedIntfColl_->intfAll()) {
    blockedIntfColl_->intfNotify(entry.key());
  }
  for (const auto& entry : aclIdMapping_->intfDirectionToIndexKeyAll()) {
    aclIdMapping_->intfDirectionToIndexKeyNotify(entry.key());
  }
}

void Agent::deactivateChips(const std::set<uint8_t>& wanted) {
  for (auto chip = active_.begin(); chip != active_.end();) {
    if (wanted.count(*chip) == 0) {
      activeXpDeviceColl_->deviceIdDel(XpXdk::XpDeviceId(*chip));
      chip = active_.erase(chip);
    } else {
      ++chip;
    }
  }
}

ApplyResult Agent::chipAdd(uint8_t chip) {
  const auto extra = extraChips_;
  const auto removed = removedChips_;
  removedChips_.erase(chip);
  if (chip >= config_.numChips) {
    extraChips_.insert(chip);
  }
  const ApplyResult result = apply(Config(config_));
  if (!result.ok) {
    extraChips_ = extra;
    removedChips_ = removed;
  }
  return result;
}

ApplyResult Agent::chipRemove(uint8_t chip) {
  extraChips_.erase(chip);
  if (chip < config_.numChips) {
    removedChips_.insert(chip);
  }
  return apply(Config(config_));
}

void Agent::blockIntf(Ovnet::IntfId intf, bool block) {
  if (block) {
    operatorBlocks_.insert(intf);
  } else {
    operatorBlocks_.erase(intf);
  }
  helpers_.begin()->second->blockIntf(intf, block, 0);
}

// A port that moves to another chip is another port there: it leaves its old chip without lists and pairs.
void Agent::unpublishMovedPorts(const Config& config) {
  for (const Interface& intf : config.interfaces) {
    const Ovnet::IntfId id = intf.kind == InterfaceKind::ethernet ? intfId(intf) : Ovnet::IntfId();
    if (id.isNone() || !systemStatus_->intfToChipPortHas(id) ||
        systemStatus_->intfToChipPort(id) == chipPort(intf)) {
      continue;
    }
    for (const Acl::AclDirection direction : {Acl::ingress, Acl::egress}) {
      const Attachment attachment{id, direction};
      if (attachments_.count(attachment) != 0) {
        publish(attachment, XpAcl::HwAclIndexKey(), true);
        attachments_.erase(attachment);
      }
    }
    for (const Bridging::VlanId vlan : portVlanVifStatus_->vlansOfIntf(id)) {
      pairDel(id, vlan.value());
    }
  }
}

void Agent::addPorts(const Config& config) {
  for (const Interface& intf : config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet) {
      systemStatus_->intfToChipPortIs(intfId(intf), chipPort(intf));
    }
  }
}

void Agent::removePorts(const Config& config) {
  std::set<uint32_t> present;
  for (const Interface& intf : config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet) {
      present.insert(intfId(intf).code());
    }
  }
  std::vector<Ovnet::IntfId> gone;
  for (const auto& port : systemStatus_->intfToChipPortAll()) {
    if (present.count(port.key().code()) == 0) {
      gone.push_back(port.key());
    }
  }
  for (const Ovnet::IntfId intf : gone) {
    systemStatus_->intfToChipPortDel(intf);
  }
}

std::optional<uint16_t> Agent::vifOf(Ovnet::IntfId intf) const {
  const auto channel = channelOf_.find(intf);
  const auto vif = vifs_.find(channel == channelOf_.end() ? intf.code() : channel->second.code());
  return vif == vifs_.end() ? std::nullopt : std::optional<uint16_t>(vif->second);
}

void Agent::pairAdd(Ovnet::IntfId intf, uint16_t vlan) {
  const auto channel = channelOf_.find(intf);
  const uint32_t owner = channel == channelOf_.end() ? intf.code() : channel->second.code();
  auto vif = vifs_.find(owner);
  if (vif == vifs_.end()) {
    std::set<uint16_t> used;
    for (const auto& entry : vifs_) {
      used.insert(entry.second);
    }
    uint16_t number = 1;
    while (used.count(number) != 0 && number < maxVif) {
      ++number;
    }
    vif = vifs_.emplace(owner, number).first;
  }
  portVlanVifStatus_->portVlanToVifMapIs(XpLib::PortAndVlanId(intf, Bridging::VlanId(vlan)),
                                         XpVif::VifId(vif->second));
}

void Agent::pairDel(Ovnet::IntfId intf, uint16_t vlan) {
  portVlanVifStatus_->portVlanToVifMapDel(XpLib::PortAndVlanId(intf, Bridging::VlanId(vlan)));
}

void Agent::alignPairs(const Config& config) {
  std::map<Ovnet::IntfId, std::set<uint16_t>> wanted;
  std::map<Ovnet::IntfId, Ovnet::IntfId> channels;
  const std::set<uint8_t> chips = wantedChips(config);
  for (const Interface& intf : config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet && chips.count(intf.chip) != 0) {
      const Ovnet::IntfId id = intfId(intf);
      wanted[id] = vlansOf(intf, config);
      if (intf.channelGroup) {
        channels[id] = Ovnet::IntfId(Ovnet::IntfId::portChannel, *intf.channelGroup);
      }
    }
  }
  std::vector<XpLib::PortAndVlanId> gone;
  for (const auto& pair : portVlanVifStatus_->portVlanToVifMapAll()) {
    const auto port = wanted.find(pair.key().intf());
    if (port == wanted.end() || port->second.count(pair.key().vlanId().value()) == 0) {
      gone.push_back(pair.key());
    }
  }
  for (const XpLib::PortAndVlanId& pair : gone) {
    pairDel(pair.intf(), pair.vlanId().value());
  }
  channelOf_ = channels;
  for (const auto& [intf, vlans] : wanted) {
    for (const uint16_t vlan : vlans) {
      pairAdd(intf, vlan);
    }
  }
  std::set<uint32_t> owners;
  for (const auto& [intf, vlans] : wanted) {
    const auto channel = channels.find(intf);
    owners.insert(channel == channels.end() ? intf.code() : channel->second.code());
  }
  std::erase_if(vifs_, [&](const auto& entry) { return owners.count(entry.first) == 0; });
}

} // namespace agent
