#pragma once

#include "packet/Packet.h"
#include "verify/ListSets.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// What changes for packets when one list takes the place of another, exactly: every packet whose verdict
// changes is found, with the lines that decide it before and after.

namespace verify {

// One line, or end of list, that decides before, and one that decides after: their verdicts differ, and some
// packet is decided by both.
struct LineChange {
  Judgement before;
  Judgement after;
  double packets = 0; // counted by the fields that rows compare
  packet::Packet witness;
};

struct VerdictChange {
  PacketSet packets;             // whose verdict changes in this direction
  packet::Packet witness;        // one of them, if there is one
  std::vector<LineChange> lines; // most packets first; their packets together are the set
};

struct ListDiff {
  VerdictChange denied;    // permitted before, denied after
  VerdictChange permitted; // denied before, permitted after

  bool isEmpty() const { return denied.packets.isEmpty() && permitted.packets.isEmpty(); }
};

// Null, or a list without lines: everything is permitted. Both are of the space's family and outlive the
// call. Witnesses are taken from `preferred` wherever that has some. `tick` counts lines. An empty answer
// says that no packet of the space changes its verdict.
ListDiff diff(PacketSpace& space, const agent::AccessList* before, const agent::AccessList* after,
              const PacketSet& preferred, const Tick& tick = {});

} // namespace verify
