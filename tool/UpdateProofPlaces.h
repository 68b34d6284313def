#pragma once

#include "sim/System.h"
#include "tool/ChipSets.h"
#include "tool/UpdateProofWrites.h"

#include <cstdint>
#include <string>
#include <vector>

// The places where packets are judged during a change: each entry of a port table that packets can come to,
// with the lists that ought to decide there before and after.

namespace tool {

// What one configuration says of a place.
struct PlaceSide {
  bool there = false; // packets come to the place
  std::string list;   // empty: none, everything is permitted
};

struct ProofPlace {
  std::string interface; // whose lists decide: a port, or the VLAN interface of routed lookups
  agent::Direction direction = agent::Direction::in;
  agent::Family family = agent::Family::ipv4;
  sim::Role role = sim::Role::port;
  uint8_t chip = 0;
  // Ingress lookups of a port are told by its number alone; the others by the key of their entry, and `port`
  // is the first that leads there.
  uint32_t port = 0;
  uint16_t vif = sim::noVif;
  uint16_t vlan = 0;
  PlaceSide old;
  PlaceSide fresh;
  uint16_t accessVlan = 0;             // of the port
  std::vector<agent::PortRange> vlans; // that frames at this place are in, before or after

  bool isPortEntry() const { return direction == agent::Direction::in && role == sim::Role::port; }
  XpXdk::xpIaclType_e table() const;
  // "Ethernet1 in ipv4"
  std::string text() const;
  // "chip 0 port 1", "chip 0 VIF 3 VLAN 10"
  std::string entryText() const;
  // The verdict is the old or the new one from the first write to the last. Otherwise packets come here only
  // before the change, or only after it: a port joins and leaves VLANs, and chips, while no packet uses it.
  bool isLasting() const { return old.there && fresh.there; }
};

// What the chip does at a place.
struct PlaceState {
  bool enabled = false; // else everything is permitted
  uint8_t aclId = 0;    // 0: the interface is blocked
  bool blocked() const { return enabled && aclId == 0; }
  bool operator==(const PlaceState&) const = default;
};
PlaceState stateAt(const sim::System& system, const ProofPlace& place);
ChipLookup lookupAt(const ProofPlace& place, uint8_t aclId);

// Every place where either configuration has a list, or where the chips look up at any time. In a fixed
// order.
std::vector<ProofPlace> proofPlaces(const Change& change);

} // namespace tool
