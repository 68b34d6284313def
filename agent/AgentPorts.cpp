#include "agent/Agent.h"

#include <algorithm>
#include <bitset>

// Chips, ports and (port, VLAN) pairs: what the chips' port tables are programmed from.

namespace agent {

namespace {

constexpr uint16_t maxVif = 65534;
constexpr uint16_t nativeVlan = 1;
constexpr uint16_t maxVlan = 4094;

bool hasEgressList(const Interface& intf) {
  const auto isEgress = [](const Binding& binding) { return binding.direction == Direction::out; };
  return std::any_of(intf.bindings.begin(), intf.bindings.end(), isEgress) ||
         std::any_of(intf.refusedBindings.begin(), intf.refusedBindings.end(), isEgress);
}

// The VLANs that a port is a member of. A port without switchport lines carries every VLAN. Pairs are kept
// for those that the configuration knows, because only their VLAN interfaces can have lists; but the port's
// own egress list is looked up by pairs too, so a port that has one gets a pair in every VLAN.
std::vector<uint16_t> vlansOf(const Interface& intf, const Config& config) {
  if (intf.accessVlan) {
    return {*intf.accessVlan};
  }
  std::bitset<maxVlan + 1> carried;
  if (intf.trunk) {
    for (const PortRange& range : intf.allowedVlans) {
      for (uint32_t vlan = range.low; vlan <= range.high; ++vlan) {
        carried.set(vlan);
      }
    }
  } else if (hasEgressList(intf)) {
    carried.set();
    carried.reset(0);
  } else {
    carried.set(nativeVlan);
    for (const uint16_t vlan : config.vlans) {
      carried.set(vlan);
    }
    for (const Interface& other : config.interfaces) {
      if (other.kind == InterfaceKind::vlan) {
        carried.set(other.vlan);
      }
    }
  }
  std::vector<uint16_t> vlans;
  vlans.reserve(carried.count());
  for (std::size_t vlan = carried._Find_first(); vlan < carried.size(); vlan = carried._Find_next(vlan)) {
    vlans.push_back(static_cast<uint16_t>(vlan));
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
  std::set<uint8_t> joined;
  for (const uint8_t chip : wanted) {
    if (active_.insert(chip).second) {
      activeXpDeviceColl_->deviceIdIs(XpXdk::XpDeviceId(chip), true);
      joined.insert(chip);
    }
  }
  if (!joined.empty()) {
    clearPorts(joined);
    renotify();
  }
}

// A chip that comes back may still drop at ports that were blocked when it left and are not any more:
// nobody told it. One block and unblock writes each such port's entry anew.
void Agent::clearPorts(const std::set<uint8_t>& joined) {
  std::vector<Ovnet::IntfId> ports;
  for (const auto& port : systemStatus_->intfToChipPortAll()) {
    const auto chip = static_cast<uint8_t>(port.value().chip().value());
    // Ports that were closed at a restart stay so until their lists stand.
    const auto closed = adopted_.find(chip);
    const bool stays =
        closed != adopted_.end() && closed->second.ports.count(port.value().port().value()) != 0;
    if (joined.count(chip) != 0 && blocks_.count(port.key()) == 0 && !stays) {
      ports.push_back(port.key());
    }
  }
  for (const Ovnet::IntfId intf : ports) {
    helpers_.begin()->second->blockIntf(intf, true, 0);
    helpers_.begin()->second->blockIntf(intf, false, 0);
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

namespace {

// What was there before comes back unless the change is made.
template <typename Value>
class Restored {
public:
  explicit Restored(Value& value) : value_(value), before_(value) {}
  ~Restored() {
    if (!kept_) {
      value_.swap(before_);
    }
  }
  Restored(const Restored&) = delete;
  Restored& operator=(const Restored&) = delete;
  void keep() { kept_ = true; }

private:
  Value& value_;
  Value before_;
  bool kept_ = false;
};

} // namespace

ApplyResult Agent::chipAdd(uint8_t chip) {
  Restored extra(extraChips_);
  Restored removed(removedChips_);
  removedChips_.erase(chip);
  if (chip >= config_.numChips) {
    extraChips_.insert(chip);
  }
  ApplyResult result = apply(Config(config_));
  if (result.ok) {
    extra.keep();
    removed.keep();
  }
  return result;
}

ApplyResult Agent::chipRemove(uint8_t chip) {
  Restored extra(extraChips_);
  Restored removed(removedChips_);
  extraChips_.erase(chip);
  removedChips_.insert(chip); // also for configurations to come
  ApplyResult result = apply(Config(config_));
  extra.keep();
  removed.keep();
  return result;
}

void Agent::blockIntf(Ovnet::IntfId intf, bool block) {
  reserveAtLeast(bytesToMove({intf}));
  if (block) {
    operatorBlocks_.insert(intf);
  } else {
    operatorBlocks_.erase(intf);
  }
  const MemoryReserve::Use use(reserve_);
  if (block) {
    blockWanted();
  } else {
    unblockUnwanted();
  }
}

// The members of a port-channel share their egress entries, so one that is blocked takes the others of its
// chip along: otherwise the next write for one of them would open the entry for it too.
std::set<Ovnet::IntfId> Agent::wantedBlocks() const {
  std::set<Ovnet::IntfId> wanted;
  std::set<VifOwner> owners;
  for (const Ovnet::IntfId intf : operatorBlocks_) {
    if (!Ovnet::EthIntfId::isEthIntfId(intf)) {
      wanted.insert(intf);
    } else if (systemStatus_->intfToChipPortHas(intf)) {
      wanted.insert(intf);
      owners.insert(vifOwner(intf));
    }
  }
  for (const auto& [member, channel] : channelOf_) {
    if (owners.count(vifOwner(member)) != 0 && systemStatus_->intfToChipPortHas(member)) {
      wanted.insert(member);
    }
  }
  return wanted;
}

void Agent::blockWanted() {
  for (const Ovnet::IntfId intf : wantedBlocks()) {
    if (blocks_.insert(intf).second) {
      helpers_.begin()->second->blockIntf(intf, true, 0);
    }
  }
}

void Agent::unblockUnwanted() {
  const std::set<Ovnet::IntfId> wanted = wantedBlocks();
  for (auto intf = blocks_.begin(); intf != blocks_.end();) {
    if (wanted.count(*intf) == 0) {
      helpers_.begin()->second->blockIntf(*intf, false, 0);
      intf = blocks_.erase(intf);
    } else {
      ++intf;
    }
  }
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
    if (blocks_.erase(id) != 0) {
      helpers_.begin()->second->blockIntf(id, false, 0);
    }
  }
}

void Agent::addPorts(const Config& config) {
  for (const Interface& intf : config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet) {
      systemStatus_->intfToChipPortIs(intfId(intf), chipPort(intf));
    }
  }
  // A block outlives the port's absence and its move to another chip.
  blockWanted();
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
    // Its entry in the chip is left as if it had never been blocked.
    if (blocks_.erase(intf) != 0) {
      helpers_.begin()->second->blockIntf(intf, false, 0);
    }
    systemStatus_->intfToChipPortDel(intf);
  }
}

// The members of a port-channel share a VIF, but never beyond their chip: the driver finds an entry of any
// chip by its VLAN and VIF alone.
Agent::VifOwner Agent::vifOwner(Ovnet::IntfId intf) const {
  const auto channel = channelOf_.find(intf);
  return {channel == channelOf_.end() ? intf.code() : channel->second.code(), chipOf(intf)};
}

std::optional<uint16_t> Agent::vifOf(Ovnet::IntfId intf) const {
  const auto vif = vifs_.find(vifOwner(intf));
  return vif == vifs_.end() ? std::nullopt : std::optional<uint16_t>(vif->second);
}

void Agent::pairAdd(Ovnet::IntfId intf, uint16_t vlan) {
  const VifOwner owner = vifOwner(intf);
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

Agent::WantedPairs Agent::wantedPairs(const Config& config) const {
  WantedPairs wanted;
  const std::set<uint8_t> chips = wantedChips(config);
  for (const Interface& intf : config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet && chips.count(intf.chip) != 0) {
      wanted[intfId(intf)] = vlansOf(intf, config);
    }
  }
  return wanted;
}

// Pairs join before the lists move, so that a list which takes over from another one meets every pair that
// it is to stand at.
void Agent::joinPairs(const Config& config, const WantedPairs& wanted) {
  channelOf_.clear();
  for (const Interface& intf : config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet && intf.channelGroup) {
      channelOf_[intfId(intf)] = Ovnet::IntfId(Ovnet::IntfId::portChannel, *intf.channelGroup);
    }
  }
  blockWanted();
  for (const auto& [intf, vlans] : wanted) {
    for (const uint16_t vlan : pairsToJoin(intf, vlans)) {
      pairAdd(intf, vlan);
    }
  }
  unblockUnwanted();
}

// Those of the wanted VLANs whose pair does not stand, or stands with another VIF. Most stand already. The
// pairs of a port have one VIF between them: all are moved when the port gets another one.
std::vector<uint16_t> Agent::pairsToJoin(Ovnet::IntfId intf, const std::vector<uint16_t>& wanted) const {
  const auto vif = vifs_.find(vifOwner(intf));
  const std::vector<Bridging::VlanId> standing = portVlanVifStatus_->vlansOfIntf(intf);
  if (vif == vifs_.end() || standing.empty() ||
      !(portVlanVifStatus_->portVlanToVifMap(XpLib::PortAndVlanId(intf, standing.front())) ==
        XpVif::VifId(vif->second))) {
    return wanted;
  }
  std::vector<uint16_t> joining;
  auto held = standing.begin();
  for (const uint16_t vlan : wanted) {
    while (held != standing.end() && held->value() < vlan) {
      ++held;
    }
    if (held == standing.end() || held->value() != vlan) {
      joining.push_back(vlan);
    }
  }
  return joining;
}

// The wanted pairs have joined: without more pairs than these none is to leave.
void Agent::removePairs(const WantedPairs& wanted) {
  std::size_t count = 0;
  for (const auto& [intf, vlans] : wanted) {
    count += vlans.size();
  }
  std::vector<XpLib::PortAndVlanId> gone;
  if (portVlanVifStatus_->portVlanToVifMapCount() != count) {
    for (const auto& pair : portVlanVifStatus_->portVlanToVifMapAll()) {
      const auto port = wanted.find(pair.key().intf());
      if (port == wanted.end() ||
          !std::binary_search(port->second.begin(), port->second.end(), pair.key().vlanId().value())) {
        gone.push_back(pair.key());
      }
    }
  }
  for (const XpLib::PortAndVlanId& pair : gone) {
    pairDel(pair.intf(), pair.vlanId().value());
  }
  std::set<VifOwner> owners;
  for (const auto& [intf, vlans] : wanted) {
    owners.insert(vifOwner(intf));
  }
  std::erase_if(vifs_, [&](const auto& entry) { return owners.count(entry.first) == 0; });
}

} // namespace agent
