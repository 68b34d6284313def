#include "agent/Agent.h"

#include "agent/AgentChange.h"

#include <algorithm>

// How much memory a change takes after its first write. The figures are upper bounds, measured with margin;
// too small a one shows in the test that lets memory run out at every allocation.

namespace agent {

namespace {

constexpr std::size_t bytesOfChange = std::size_t{256} << 10; // whatever its size
constexpr std::size_t bytesOfChip = std::size_t{256} << 10;   // one that joins: its machine and its books
constexpr std::size_t bytesOfRow = 1024;                      // counter, label, the index of its line
constexpr std::size_t bytesOfWarning = 1024;                  // of a row that finds its counter taken
constexpr std::size_t bytesOfPair = 144;                      // a (port, VLAN) pair that joins a chip
constexpr std::size_t bytesOfEntry = 40;                      // an entry of a VIF table that is added
constexpr std::size_t bytesOfSlots = 16;                      // of each member of a map that grows
constexpr std::size_t mapsOfPairs = 4;                        // two statuses, cache and users of a chip
constexpr std::size_t mapsOfEntries = 2;                      // of both VIF tables
constexpr std::size_t bytesOfInterface = 4096;                // published keys, blocks

} // namespace

// IPv4 tables share their counters with none, so that no row of theirs is warned of.
std::size_t Agent::bytesToCommit(XpAcl::TcamType table, std::size_t rows) {
  const bool shared = XpAcl::tcamTable(table).aclType != Acl::ipv4;
  return rows * (bytesOfRow + (shared ? bytesOfWarning : 0));
}

void Agent::reserveAtLeast(std::size_t bytes) {
  if (bytes > reserve_.bytes()) {
    reserve_.grow(bytes - reserve_.bytes());
  }
}

// The pairs that come, and those whose port comes anew: to another chip, to another port-channel.
Agent::WantedPairs Agent::joiningPairs(const Change& change) const {
  std::map<Ovnet::IntfId, const Interface*> ports;
  for (const Interface& intf : change.config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet) {
      ports[intfId(intf)] = &intf;
    }
  }
  WantedPairs joining;
  for (const auto& [intf, vlans] : change.pairs) {
    const Interface& port = *ports.at(intf);
    const auto channel = channelOf_.find(intf);
    const Ovnet::IntfId wanted =
        port.channelGroup ? Ovnet::IntfId(Ovnet::IntfId::portChannel, *port.channelGroup) : Ovnet::IntfId();
    const Ovnet::IntfId held = channel == channelOf_.end() ? Ovnet::IntfId() : channel->second;
    const bool anew = active_.count(port.chip) == 0 || !(wanted == held) ||
                      !(systemStatus_->intfToChipPort(intf).chip() == Plex::Central::DeviceId(port.chip));
    joining[intf] = anew ? vlans : pairsToJoin(intf, vlans);
  }
  return joining;
}

// An interface that moves has an entry written for each of its pairs. Those that join bring memory for their
// entries with them, and an entry that stands takes none: no more are added than there are pairs without one
// (after a restart, entries may stand that no pair has).
std::size_t Agent::bytesToMove(const std::set<Ovnet::IntfId>& intfs) const {
  std::size_t egress = 0;
  std::size_t ingress = 0;
  for (const Ovnet::IntfId intf : intfs) {
    if (Ovnet::EthIntfId::isEthIntfId(intf)) {
      egress += portVlanVifStatus_->vlansOfIntf(intf).size();
    } else {
      const Bridging::VlanId vlan(static_cast<uint16_t>(intf.number()));
      const std::size_t ports = portVlanVifStatus_->intfsOfVlan(vlan).size();
      egress += ports;
      ingress += ports;
    }
  }
  const std::size_t pairs = portVlanVifStatus_->portVlanToVifMapCount();
  const auto bytesToAdd = [&](std::size_t written, const XpAcl::VlanVifIndexMap& entries) {
    const std::size_t lacking = adopted_.empty() ? pairs - std::min(pairs, entries.count()) : pairs;
    const std::size_t added = std::min(written, lacking);
    return added == 0 ? 0 : added * bytesOfEntry + (entries.count() + added) * bytesOfSlots;
  };
  return intfs.size() * 2 * bytesOfInterface + bytesToAdd(egress, *xpcsd_->egressVlanVifKeyAndIndexMap()) +
         bytesToAdd(ingress, *xpcsd_->portVlanIvifKeyAndIndexMap());
}

std::size_t Agent::bytesToFinish(const Change& change) const {
  std::size_t bytes = bytesOfChange + change.bytesToCommit;
  std::set<uint8_t> chips;
  for (const Interface& intf : change.config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet && active_.count(intf.chip) == 0) {
      chips.insert(intf.chip);
    }
  }
  const WantedPairs joining = joiningPairs(change);
  std::size_t pairs = 0;
  for (const auto& [intf, vlans] : joining) {
    pairs += vlans.size();
  }
  if (pairs != 0) {
    const std::size_t members = portVlanVifStatus_->portVlanToVifMapCount() + pairs;
    bytes += pairs * (bytesOfPair + mapsOfEntries * bytesOfEntry) +
             members * (mapsOfPairs + mapsOfEntries) * bytesOfSlots;
  }
  std::set<Ovnet::IntfId> moving;
  for (const auto& [attachment, key] : attachments_) {
    const auto wanted = change.desired.attachments.find(attachment);
    if (!chips.empty() || wanted == change.desired.attachments.end() || !(wanted->second == key)) {
      moving.insert(attachment.intf);
    }
  }
  for (const auto& [attachment, key] : change.desired.attachments) {
    if (attachments_.count(attachment) == 0) {
      moving.insert(attachment.intf);
    }
  }
  bytes += bytesToMove(moving);
  return bytes + chips.size() * bytesOfChip + change.config.interfaces.size() * bytesOfInterface;
}

} // namespace agent
