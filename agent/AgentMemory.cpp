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
constexpr std::size_t bytesOfPair = 1024;                     // a (port, VLAN) pair that joins a chip
constexpr std::size_t bytesOfEntry = 512;                     // an entry of a VIF table that is added
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

// An interface that moves has its entry written for each of its pairs, those of `pairs` and those that
// stand.
std::size_t Agent::bytesToMove(Ovnet::IntfId intf, const WantedPairs& pairs) const {
  std::size_t entries = 0;
  if (Ovnet::EthIntfId::isEthIntfId(intf)) {
    const auto wanted = pairs.find(intf);
    entries =
        (wanted == pairs.end() ? 0 : wanted->second.size()) + portVlanVifStatus_->vlansOfIntf(intf).size();
  } else {
    const auto vlan = static_cast<uint16_t>(intf.number());
    entries = portVlanVifStatus_->intfsOfVlan(Bridging::VlanId(vlan)).size() +
              static_cast<std::size_t>(std::count_if(pairs.begin(), pairs.end(), [vlan](const auto& port) {
                return port.second.count(vlan) != 0;
              }));
  }
  return bytesOfInterface + entries * bytesOfEntry;
}

std::size_t Agent::bytesToFinish(const Change& change) const {
  std::size_t bytes = bytesOfChange + change.bytesToCommit;
  std::set<uint8_t> joining;
  std::map<Ovnet::IntfId, const Interface*> ports;
  for (const Interface& intf : change.config.interfaces) {
    if (intf.kind == InterfaceKind::ethernet) {
      ports[intfId(intf)] = &intf;
      if (active_.count(intf.chip) == 0) {
        joining.insert(intf.chip);
      }
    }
  }
  for (const auto& [intf, vlans] : change.pairs) {
    const Interface& port = *ports.at(intf);
    const auto channel = channelOf_.find(intf);
    const Ovnet::IntfId wanted =
        port.channelGroup ? Ovnet::IntfId(Ovnet::IntfId::portChannel, *port.channelGroup) : Ovnet::IntfId();
    const Ovnet::IntfId held = channel == channelOf_.end() ? Ovnet::IntfId() : channel->second;
    const bool anew = active_.count(port.chip) == 0 || !(wanted == held) ||
                      !(systemStatus_->intfToChipPort(intf).chip() == Plex::Central::DeviceId(port.chip));
    for (const uint16_t vlan : vlans) {
      if (anew ||
          !portVlanVifStatus_->portVlanToVifMapHas(XpLib::PortAndVlanId(intf, Bridging::VlanId(vlan)))) {
        bytes += bytesOfPair;
      }
    }
  }
  for (const auto& [attachment, key] : attachments_) {
    const auto wanted = change.desired.attachments.find(attachment);
    if (!joining.empty() || wanted == change.desired.attachments.end() || !(wanted->second == key)) {
      bytes += bytesToMove(attachment.intf, change.pairs);
    }
  }
  for (const auto& [attachment, key] : change.desired.attachments) {
    if (attachments_.count(attachment) == 0) {
      bytes += bytesToMove(attachment.intf, change.pairs);
    }
  }
  return bytes + joining.size() * bytesOfChip + change.config.interfaces.size() * bytesOfInterface;
}

} // namespace agent
