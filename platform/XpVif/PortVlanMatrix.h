#pragma once

#include "Vane/Vane.h"

#include <array>
#include <memory>
#include <unordered_map>
#include <vector>

namespace XpVif {

// Which port carries which VLAN, a bit for each of the two: for 64 ports a word for each VLAN. It answers for
// a port and for a VLAN alike, and a pair that comes or goes changes one bit.
class PortVlanMatrix {
public:
  // Of a port (its interface code) and a VLAN below 4096. Sets or clears; no change when it is so already.
  // Setting raises std::bad_alloc and then changes nothing.
  void pairIs(Vane::U32 port, Vane::U16 vlan);
  void pairDel(Vane::U32 port, Vane::U16 vlan);

  std::vector<Vane::U16> vlansOf(Vane::U32 port) const; // ascending
  std::vector<Vane::U32> portsOf(Vane::U16 vlan) const; // ascending

private:
  static constexpr Vane::U32 vlans = 4096;
  static constexpr Vane::U32 groupPorts = 64;
  static constexpr Vane::U32 none = ~Vane::U32{0};
  using Group = std::array<Vane::U64, vlans>; // a word for each VLAN, a bit for each port of the group

  struct Port {
    Vane::U32 code = 0;
    Vane::U32 count = 0;   // VLANs; 0: the place is free
    Vane::U16 low = vlans; // the VLANs are among these
    Vane::U16 high = 0;
  };

  static Vane::U64 bitOf(Vane::U32 place) { return Vane::U64{1} << (place % groupPorts); }
  Vane::U64& wordOf(Vane::U32 place, Vane::U16 vlan) { return (*groups_[place / groupPorts])[vlan]; }
  Vane::U32 placeOf(Vane::U32 port) const;
  Vane::U32 placeFor(Vane::U32 port);

  std::vector<std::unique_ptr<Group>> groups_;
  std::vector<Port> ports_; // by place
  std::vector<Vane::U32> freePlaces_;
  std::unordered_map<Vane::U32, Vane::U32> places_; // by code
  // The port that was asked for last; pairs mostly come port by port.
  mutable Vane::U32 lastPort_ = 0;
  mutable Vane::U32 lastPlace_ = none;
};

} // namespace XpVif
