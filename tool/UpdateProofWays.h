#pragma once

#include "agent/config/VlanSets.h"
#include "packet/Packet.h"
#include "tool/UpdateProofPlaces.h"
#include "tool/UpdateProofWrites.h"
#include "verify/PacketSet.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Ways through several places. A packet meets the lists of the port where it enters (MAC and IP), of the VLAN
// interface there, of the port where it leaves and of the VLAN interface there; it passes when all of them
// permit it. Places change one after the other, so every place may be as some list says while the packet,
// on its whole way, is permitted by the new list of one place and the old list of another, though neither
// configuration permits it.
//
// When every place P is between its lists (Old and New <= P <= Old or New, less at a blocked one), then a
// packet that both configurations permit is dropped by blocked places only. What is left to prove of a way is
//   all P  <=  (all Old) or (all New)
// and that can fail only while some place permits beyond its old list and some place beyond its new one.

namespace tool {

// Where packets enter or leave, for those that are there before and after: one port, in all VLANs in which
// the same places judge.
struct WayEnd {
  uint8_t chip = 0;
  uint32_t port = 0;
  std::string name;             // of the port
  uint16_t accessVlan = 0;      // of the port; an access port sends what it is given into that VLAN
  std::vector<uint32_t> places; // none: nothing judges there
  agent::VlanSet vlans;         // where frames enter; where they leave, unless it is an access port
};

struct Way {
  const WayEnd* in = nullptr;
  const WayEnd* out = nullptr; // null: not told
  agent::VlanSet vlans;        // that frames can be in when they enter
  std::vector<uint32_t> places() const;
};

// What a place permits now, and what its lists do.
struct PlaceSets {
  const verify::PacketSet* now = nullptr;
  const verify::PacketSet* old = nullptr;
  const verify::PacketSet* fresh = nullptr;
};

class WayProof {
public:
  // Of a lasting place, by its number, as it stands.
  using SetsAt = std::function<PlaceSets(uint32_t place)>;
  using SpaceOf = std::function<verify::PacketSpace&(agent::Family family)>;

  struct Finding {
    Way way;
    packet::Packet witness;
    uint16_t vlan = 0; // that it is in when it enters
  };

  // `change` and `places` must outlive this.
  WayProof(const Change& change, const std::vector<ProofPlace>& places, SetsAt setsAt, SpaceOf spaceOf);

  // To be called for every lasting place before the first write, and when one may permit something else.
  void placeMoves(uint32_t place);
  // Looks at the ways that may have changed since the last time. Nothing: none permits what neither
  // configuration does. Each place is one that is between its lists.
  std::optional<Finding> check();

  bool isMixed() const { return !beyondOld_.empty() && !beyondNew_.empty(); }
  uint64_t numMixed() const { return mixed_; } // checks while it was
  uint64_t numWays() const { return looked_; } // that were looked at then

private:
  struct Ends {
    std::vector<WayEnd> in;
    std::vector<WayEnd> out;
  };

  void findEnds();
  void addEnds(const Topology::Port& port, const agent::VlanSet& vlans, agent::Family family, Ends& ends);
  std::optional<Finding> checkWay(agent::Family family, const WayEnd& in, const WayEnd* out);
  std::optional<Finding> strayOn(agent::Family family, const Way& way);
  bool isBeyond(const verify::PacketSet& now, const verify::PacketSet& list);

  const Change& change_;
  const std::vector<ProofPlace>& places_;
  SetsAt setsAt_;
  SpaceOf spaceOf_;
  std::set<uint32_t> beyondOld_;
  std::set<uint32_t> beyondNew_;
  std::set<uint32_t> moved_;           // since the last check
  bool all_ = true;                    // every way is to be looked at
  std::map<agent::Family, Ends> ends_; // of IPv4 and IPv6 packets, made when they are needed
  uint64_t mixed_ = 0;
  uint64_t looked_ = 0;
};

} // namespace tool
