#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

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
  bool operator==(const Ingress&) const = default;
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

// A lookup that a packet is to meet.
struct WayLookup {
  Device* device = nullptr;
  XpXdk::xpIaclType_e table = XpXdk::TACL_V4_IACL;
  uint8_t aclId = 0;
  Role role = Role::port;
};

// The way through the chips that all packets share which come and leave at the same ports with the same tag
// and family: what port tables and VLANs say.
struct Way {
  Fate fate = Fate::permitted; // when no lookup denies
  uint16_t vlan = 0;           // this and the next as in Verdict
  uint16_t vif = noVif;
  uint16_t outVlan = 0;
  uint16_t outVif = noVif;
  unsigned numLookups = 0;
  std::array<WayLookup, Verdict::maxLookups> lookups;
};

// Packets judged together, so that their searches in the same table overlap: add() each, then finish().
// The verdicts are those of judge(). Memory is kept for the next burst; some hundred packets at a time do.
class Burst {
public:
  explicit Burst(System& system) : system_(system) {} // outlives the burst

  // The packet may go after the call; `verdict` stays where it is and is whole after finish(), before which
  // nothing about the chips is changed.
  void add(const packet::Packet& packet, const Ingress& ingress, Verdict& verdict);
  void finish();

private:
  struct Searches { // in one table, in the order in which they were asked for
    Device* device;
    XpXdk::xpIaclType_e table;
    std::vector<TcamKeyBytes> keys;
    std::vector<Device::Asked> asked;
    std::vector<Verdict*> verdicts;
    std::vector<uint32_t> rows; // found
  };
  struct KnownWay { // for packets like one of this burst
    bool known = false;
    Ingress ingress;
    uint16_t tag = 0;
    packet::L3 l3 = packet::L3::none;
    Way way;
    std::array<unsigned, Verdict::maxLookups> searches; // of each lookup: its place in searches_
  };
  static constexpr std::size_t numKnownWays = 64;
  const KnownWay& knownWay(const packet::Packet& packet, const Ingress& ingress);
  unsigned searches(Device& device, XpXdk::xpIaclType_e table);

  System& system_;
  std::vector<Searches> searches_;
  std::array<KnownWay, numKnownWays> ways_; // where port, tag and family tell
};

// "permit: TACL_V4_IACL port id 1 row 5 permit; ..." for logs and tests.
std::string verdictText(const Verdict& verdict);

} // namespace sim
