#pragma once

#include "agent/config/ConfigModel.h"
#include "sim/Device.h"
#include "verify/ListSets.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// What the chips do, as exact sets of packets: the rows of one lookup become the set that they permit. And
// where lookups are made: the entries of the port tables, each with the list that ought to decide there.

namespace tool {

class Session;

// One lookup of a chip's TCAM table.
struct ChipLookup {
  XpXdk::xpIaclType_e table = XpXdk::TACL_V4_IACL;
  uint8_t aclId = 0;
  sim::Role role = sim::Role::port;
  uint32_t ingressPort = 0; // names the copy of the data words
};

agent::Family familyOf(XpXdk::xpIaclType_e table);

// The bit vectors that hit the row in this lookup are `number`, the others 0; all 0 when the row is for
// another ACL id or role. Packets that cannot be are not taken out. Requires the family of the table.
verify::Diagram rowMatches(verify::PacketSpace& space, const ChipLookup& lookup, const sim::TcamRow& row,
                           uint32_t number = 1);

// The packets that the lookup forwards: of the valid rows that a packet hits, the first decides; a packet
// that hits none is dropped. `rows` gets the number of rows that can be hit.
verify::PacketSet chipPermitted(verify::PacketSpace& space, const sim::Device& device,
                                const ChipLookup& lookup, std::size_t* rows = nullptr,
                                const verify::Tick& tick = {});

// One place where a list is to decide, or where a chip looks up although no list is to.
struct ChipPlace {
  std::string interface; // as configured
  agent::InterfaceKind kind = agent::InterfaceKind::ethernet;
  agent::Direction direction = agent::Direction::in;
  const agent::AccessList* list = nullptr; // null: everything is to be permitted
  uint8_t chip = 0;
  bool enabled = false; // else the chip makes no lookup, and permits
  ChipLookup lookup;
  uint32_t port = 0; // the chip's port, or that of one that leads there
  uint16_t vlan = 0; // of an entry that is for one VLAN
};

// Every place of the running configuration, each combination of interface, direction, family, list and lookup
// once: the port-config entry of each port, and the port-VLAN and egress entries of each port and VLAN that
// it carries. A VLAN interface that no port leads to is there by the ACL id that its lists stand under.
// Places with neither list nor lookup are left out.
std::vector<ChipPlace> chipPlaces(Session& session);

} // namespace tool
