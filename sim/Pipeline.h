#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "packet/Packet.h"
#include "sim/Device.h"
#include "sim/System.h"

// A frame's way through the chip, judged by nothing but the chip's tables.
//
//  1. The frame's VLAN is that of its tag, else the access VLAN of its port, else the caller's default.
//     A port that does not carry it drops the frame; no lookup is made.
//  2. Ingress port lookups (role 0), by the port-config entry: the MAC table for every frame when the MAC
//     enable is set, the table of its family for an IP packet when the family's enable bit is set.
//  3. Ingress routed lookup (role 1), for IP packets, by the port-VLAN entry of (VIF of port and VLAN,
//     VLAN) when it stands and enables the family.
//  4. When an output port is given: the output VLAN is the access VLAN of that port, else the frame's;
//     the port must carry it. Then, for IP packets, the egress port lookup (role 0) and the egress routed
//     lookup (role 1) by the egress entry of (output VLAN, VIF of output port and VLAN).
//
// Every enabled lookup is made and every hit row counts, whatever the others say; the packet is dropped
// if one of them drops. A frame without any enabled lookup is permitted.

namespace sim {

struct PortRef { // a port of a chip
  uint8_t device = 0;
  uint32_t port = 0; // the chip's port number
  bool operator==(const PortRef&) const = default;
};

struct Ingress { // where a frame enters, and leaves
  PortRef in;
  std::optional<PortRef> out;
  uint16_t defaultVlan = 1; // of untagged frames on a port without access VLAN
  bool count = true;        // false: look without counting
};

enum class Fate : uint8_t { // what becomes of a frame, and why
  permitted,
  denied,         // by a lookup
  unknownPort,    // the device or port does not exist
  vlanNotCarried, // by the input port
  outVlanNotCarried,
};
const char* fateText(Fate fate); // "permit", "deny", and why for the others

struct Verdict { // the fate of a frame, and its lookups
  static constexpr unsigned maxLookups = 6;

  Fate fate = Fate::permitted;
  uint16_t vlan = 0;    // that the frame is in
  uint16_t vif = noVif; // of the input port in that VLAN
  uint16_t outVlan = 0; // 0 without output port
  uint16_t outVif = noVif;
  unsigned numLookups = 0;
  std::array<LookupResult, maxLookups> lookupArray;

  bool permit() const { return fate == Fate::permitted; }
  std::span<const LookupResult> lookups() const { return {lookupArray.data(), numLookups}; }
};

// Sends one packet through `system`. Allocates nothing.
Verdict judge(System& system, const packet::Packet& packet, const Ingress& ingress);

// "permit: TACL_V4_IACL port id 1 row 5 permit; ..." for logs and tests.
std::string verdictText(const Verdict& verdict);

} // namespace sim
