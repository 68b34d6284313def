#pragma once

#include "agent/Agent.h"
#include "agent/config/ConfigModel.h"
#include "sim/System.h"
#include "tool/Session.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// A change of configuration as the chips see it: what they held, which ports lead where before and after, and
// every write in its order. What is proven about a change is proven about this record.

namespace tool {

// One write to a chip, by what it puts there. Bytes, numbers little endian:
//   writeKeyMask                key, then as many ignore-mask bytes
//   writeData                   u8 copy, u32 data word
//   setEntryValid               u8 1 or 0
//   portConfigWrite             u8 PAclId, u8 aclEnBits, u8 macAclEn
//   portVlanAdd, portVlanWrite  u16 VLAN, u16 VIF, u8 id, u8 enables
//   egressAdd, egressWrite      u16 BD, u16 VIF, u8 port ACL id, u8 IPv4 and u8 IPv6 enable, u8 routed ACL
//   id,
//                               u8 IPv4 and u8 IPv6 enable
//   portVlanRemove, egressRemove   none
struct ChipWrite {
  sim::Op op = sim::Op::writeKeyMask;
  uint8_t chip = 0;
  XpXdk::xpIaclType_e table = XpXdk::TACL_V4_IACL; // of rows
  uint32_t index = 0;                              // row, port, or index in a keyed table
  std::string bytes;

  bool operator==(const ChipWrite&) const = default;
};

constexpr bool isRowWrite(sim::Op op) {
  return op == sim::Op::writeKeyMask || op == sim::Op::writeData || op == sim::Op::setEntryValid;
}

// How many bytes such a write has.
std::size_t numBytes(sim::Op op, XpXdk::xpIaclType_e table);

// "setEntryValid d0 TACL_V4_IACL 3 1", as in the log of calls. Requires as many bytes.
std::string writeText(const ChipWrite& write);

// A write that the chip cannot execute: no such chip, row, port or index, or bytes of another length.
class BadWrite : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// What stands where `call` has just written.
ChipWrite writeOf(const sim::System& system, const sim::Call& call);
// Puts it there, without the SDK. Raises BadWrite and changes nothing.
void applyWrite(sim::System& system, const ChipWrite& write);
// The entries that a write of the port tables puts there. Raise BadWrite.
XpXdk::xpPortConfigEntry portConfigOf(const ChipWrite& write);
XpXdk::xpPortVlanIvifEntry portVlanOf(const ChipWrite& write);
XpXdk::xpEgressBdEvifEntry egressOf(const ChipWrite& write);

// The writes that make chips without any entry what they are, rows first.
std::vector<ChipWrite> writesThatMake(const sim::System& system);

// The lists of an interface, by name.
using BoundLists = std::map<std::pair<agent::Direction, agent::Family>, std::string>;

// Where the ports lead while one configuration is in force.
struct Topology {
  struct Port {
    std::string name;
    uint8_t chip = 0;
    uint32_t number = 0; // the chip's
    uint16_t vif = sim::noVif;
    uint16_t accessVlan = 0;             // 0: none
    std::vector<agent::PortRange> vlans; // that it carries; sorted, disjoint
    BoundLists lists;
    bool carries(uint16_t vlan) const;
    bool operator==(const Port&) const = default;
  };
  struct Vlan {
    std::string name; // of the VLAN interface
    uint16_t vlan = 0;
    BoundLists lists;
    bool operator==(const Vlan&) const = default;
  };
  std::vector<Port> ports;
  std::vector<Vlan> vlans;
  bool operator==(const Topology&) const = default;
};

Topology topologyOf(Session& session);

using ChipSizes = std::map<uint8_t, sim::DeviceConfig>;

// Chips of these sizes, empty, and with what `content` says. Entries of keyed tables stand at their indexes
// whatever their order. Raises BadWrite.
std::unique_ptr<sim::System> emptyChips(const ChipSizes& sizes);
std::unique_ptr<sim::System> chipsOf(const ChipSizes& sizes, const std::vector<ChipWrite>& content);

struct Change {
  ChipSizes chips;
  std::vector<ChipWrite> start; // make the chips what they were before the change
  Topology old;
  Topology fresh;
  std::vector<ChipWrite> writes;
};

// Changes the session to `config` and records how. A change that does not fit has no writes; `result` tells.
Change recordChange(Session& session, const agent::Config& config, agent::ApplyResult& result);

} // namespace tool
