#pragma once

#include "Bridging/VlanId.h"
#include "Vane/Vane.h"

#include <cstdint>
#include <ostream>

namespace Ovnet {

// An interface of the switch: a kind and a number in one 32-bit word, so that a key that holds it
// stays small. The name is derived: "Ethernet3", "Vlan10", "Port-Channel2", "Loopback0", "Tunnel1",
// "Management1". The empty (default) interface has the empty name.
class IntfId {
public:
  enum Kind : uint8_t { // stands in the upper 8 bits of the code
    none = 0,
    ethernet = 1,
    vlan = 2,
    portChannel = 3,
    loopback = 4,
    tunnel = 5,
    management = 6
  };

  IntfId() = default;
  // From a kind and a number below 2^24; larger numbers raise Vane::RangeException.
  IntfId(Kind kind, uint32_t number);
  // From a name in its one spelling: the kind's word, then a decimal number without leading zeros.
  // Raises Vane::RangeException for any other text.
  explicit IntfId(const Vane::String& name);

  Kind kind() const { return static_cast<Kind>(code_ >> 24); }
  uint32_t number() const { return code_ & 0xFFFFFFu; }
  bool isNone() const { return code_ == 0; }
  Vane::String stringValue() const;
  uint32_t code() const { return code_; }
  static IntfId fromCode(uint32_t code); // the way back from code(); not checked

  uint32_t hash() const;
  uint32_t vaneNumber() const { return code_; } // for hash maps
  bool operator==(const IntfId& other) const { return code_ == other.code_; }
  bool operator<(const IntfId& other) const { return code_ < other.code_; }

private:
  uint32_t code_ = 0;
};

Vane::String valueToStrep(const IntfId& intf); // the name in single quotes
std::ostream& operator<<(std::ostream& out, const IntfId& intf);

// VLAN (routed) interfaces: "Vlan<decimal>".
struct VlanIntfId {
  static bool isVlanIntfId(IntfId intf) { return intf.kind() == IntfId::vlan; } // by its kind
  // Raises "VlanId::value < 1 or > 4094 not allowed" for a number that is no VLAN.
  static Bridging::VlanId vlanId(IntfId intf);
  static IntfId intfId(Bridging::VlanId vlan) { return IntfId(IntfId::vlan, vlan.value()); }
};

struct EthIntfId { // Ethernet ports: "Ethernet<decimal>"
  static bool isEthIntfId(IntfId intf) { return intf.kind() == IntfId::ethernet; } // by its kind
};

struct PortChannelIntfId { // port-channels: "Port-Channel<decimal>"
  static bool isPortChannelIntfId(IntfId intf) { return intf.kind() == IntfId::portChannel; } // by its kind
};

} // namespace Ovnet
