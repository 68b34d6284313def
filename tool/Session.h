#pragma once

#include "agent/Agent.h"
#include "agent/config/ConfigModel.h"
#include "packet/Packet.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "tool/Common.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
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
  // does not fit. `spareChips`: devices beyond those of the configuration.
  Session(const agent::Config& config, const CommonOptions& options, bool load = true,
          unsigned spareChips = 0);

  agent::Agent& agent() { return *agent_; }
  const agent::Agent& agent() const { return *agent_; }
  sim::System& system() { return *system_; }

  // Makes `config` the running configuration; ends the command with status 1 when it does not fit.
  void apply(const agent::Config& config);
  // The simulated switch's own view of its ports follows the agent's: which VLANs they carry, and their VIFs.
  void attachPorts();

  // The port named by the operator: its configured name, an abbreviation, the system's name, or a VLAN
  // interface, which stands for a port of that VLAN. Ends the command with status 2 for an unknown name.
  PortRef port(const std::string& name, const char* option);
  // Both names of an interface: "GigabitEthernet1/0/1 (Ethernet1)", or the one it has.
  std::string portName(Ovnet::IntfId intf) const;
  // The one interface that has an ingress list; ends the command with status 2 when it is not exactly one.
  PortRef onlyIngressPort();

  // What every lookup of a frame says.
  sim::Verdict judge(const packet::Packet& packet, const PortRef& in, const PortRef* out,
                     std::optional<uint16_t> vlan, bool count = true);

private:
  PortRef portOf(const agent::Interface& intf);
  PortRef portOfVlan(uint16_t vlan);

  std::unique_ptr<sim::System> system_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
  agent::Config config_;
};

// Whether a lookup hit a row, and whose row it was; null for the default row and for no row.
inline bool isHit(const sim::LookupResult& lookup) {
  return lookup.row != sim::TcamTable::noRow;
}
const agent::RowOwner* ownerOf(const Session& session, const sim::LookupResult& lookup, const PortRef& in,
                               const PortRef* out);

// The table of the library's books for a table of the chip.
XpAcl::TcamType tcamType(XpXdk::xpIaclType_e table);

} // namespace tool
