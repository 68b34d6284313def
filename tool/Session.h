#pragma once

#include "agent/Agent.h"
#include "agent/config/ConfigModel.h"
#include "packet/Packet.h"
#include "sim/Faults.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "tool/Common.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// A simulated switch with the reference agent on it, programmed with one configuration.

namespace tool {

// A port of the switch as the operator names it.
struct PortRef {
  Ovnet::IntfId intf;
  uint8_t chip = 0;
  uint32_t number = 0; // the chip's port
  std::string name;    // "GigabitEthernet1/0/1 (Ethernet1)"
  // Frames without a tag are in this VLAN, whatever the port says: set when a VLAN interface was named.
  std::optional<uint16_t> vlan;
};

class Session {
public:
  // Starts the switch with the table sizes of `config` and loads it. Ends the command with status 1 when it
  // does not fit. `later`: configurations that may follow; the switch has the ports and entries that those
  // need, too.
  Session(const agent::Config& config, const CommonOptions& options,
          const std::vector<const agent::Config*>& later = {});

  agent::Agent& agent() { return *agent_; }
  const agent::Agent& agent() const { return *agent_; }
  sim::System& system() { return *system_; }
  // The configuration in force, and the spare port that port() may have added to it.
  const agent::Config& config() const { return config_; }
  // Between the agent and the chips; faults can be set here.
  sim::FaultySdk& faults() { return *faults_; }

  // Makes `config` the running configuration; ends the command with status 1 when it does not fit.
  agent::ApplyResult apply(const agent::Config& config);
  // The agent has moved to `config`: the simulated switch's own view of its ports follows, which VLANs they
  // carry, and their VIFs.
  void configIs(const agent::Config& config);
  // Devices for the chips of `config` that are not there yet.
  void addDevices(const agent::Config& config);

  // `config` and the spare ports that port() has added so far, so that packets can enter them after a change.
  agent::Config withSparePorts(agent::Config config) const;

  // What operators do while the system runs. Each ends the command with status 1 when it cannot be done, and
  // nothing has changed then. Pairs beyond those of the configuration last until the next change of it, or
  // of the chips.
  void blockIs(const std::string& name, bool block); // a port-channel: all its members
  agent::ApplyResult chipAdd(uint64_t chip);
  agent::ApplyResult chipRemove(uint64_t chip);
  void pairAdd(const std::string& port, uint64_t vlan);
  void pairDel(const std::string& port, uint64_t vlan);

  // The port named by the operator: its configured name, an abbreviation, the system's name, or a VLAN
  // interface, which stands for a port of that VLAN. Ends the command with status 2 for an unknown name, or
  // when the port's chip is not active.
  PortRef port(const std::string& name, const char* option);
  // Both names of an interface: "GigabitEthernet1/0/1 (Ethernet1)", or the one it has.
  std::string portName(Ovnet::IntfId intf) const;
  // The one interface that has an ingress list; ends the command with status 2 when it is not exactly one.
  PortRef onlyIngressPort();

  // A frame's way in and out for the chips. `vlan`: that of frames without a tag where the port says none.
  sim::Ingress ingress(const PortRef& in, const PortRef* out, std::optional<uint16_t> vlan,
                       bool count = true) const;
  // What every lookup of a frame says.
  sim::Verdict judge(const packet::Packet& packet, const PortRef& in, const PortRef* out,
                     std::optional<uint16_t> vlan, bool count = true);

private:
  using Pair = std::pair<Ovnet::IntfId, uint16_t>;

  void attachPorts();
  void checkApplied(const agent::ApplyResult& result, const std::string& refused);
  const agent::Interface& interface(const std::string& name, const std::string& place, int status) const;
  Pair pairOf(const std::string& port, uint64_t vlan) const;
  bool isActive(uint8_t chip) const { return agent_->activeChips().count(chip) != 0; }
  PortRef portOf(const agent::Interface& intf) const;
  PortRef portOfVlan(uint16_t vlan);

  sim::DeviceConfig device_;    // every chip's
  uint32_t firstSparePort_ = 1; // a number that no configured port has
  std::unique_ptr<sim::System> system_;
  std::unique_ptr<sim::FaultySdk> faults_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
  agent::Config config_;
  std::set<Pair> deletedPairs_; // of those that the configuration has
};

// A session that lasts as long as the process, whose end gives everything back at once: taking it apart
// piece by piece is a fifth of what a short command costs. To be asked for once.
Session& lastingSession(const agent::Config& config, const CommonOptions& options);

// The table of the library's books for a table of the chip.
inline XpAcl::TcamType tcamType(XpXdk::xpIaclType_e table) {
  static constexpr auto types = [] {
    std::array<XpAcl::TcamType, XpXdk::TACL_MAC_ACL + 1> types{};
    for (const XpAcl::TcamTableInfo& info : XpAcl::tcamTables) {
      types[info.table] = info.tcamType;
    }
    return types;
  }();
  return table < types.size() ? types[table] : XpAcl::ingressV4;
}

// Whether a lookup hit a row, and whose row it was; null for the default row and for no row.
inline bool isHit(const sim::LookupResult& lookup) {
  return lookup.row != sim::TcamTable::noRow;
}
// Of the two chips of a way, the one whose table it is.
inline uint8_t chipOf(XpAcl::TcamType table, const PortRef& in, const PortRef* out) {
  return out != nullptr && XpAcl::tcamTables[table].direction == Acl::egress ? out->chip : in.chip;
}
const agent::RowOwner* ownerOf(const Session& session, const sim::LookupResult& lookup, const PortRef& in,
                               const PortRef* out);

// Whether some lookup was made for a blocked interface: those have ACL id 0, which no list has.
bool metBlock(const sim::Verdict& verdict);

// Rows in use, without the one that holds the default entry.
uint32_t usedRows(const sim::TcamTable& table);

} // namespace tool
