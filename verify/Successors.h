#pragma once

#include "verify/ListSets.h"

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

// For every packet the line of a list that decides it, and what would decide it without that line, as far as
// this differs. One diagram answers which lines are reached, which could go, and whose order matters.

namespace verify {

// What deciding does to a packet, beyond who decides.
struct Effect {
  bool permit = false;
  bool log = false;
  bool operator==(const Effect&) const = default;
};

class Successors {
public:
  // Builds the diagram. The list has lines and is of the space's family; both outlive this.
  Successors(PacketSpace& space, const agent::AccessList& list, const Tick& tick = {});

  // Leaves of ListLeaves.
  struct Pair {
    uint32_t first = 0;
    uint32_t second = 0; // sameEffect, or what would decide in another way
    auto operator<=>(const Pair&) const = default;
  };
  static constexpr uint32_t sameEffect = 0xFFFFFFFF;

  // Its leaves are numbers for pair(); 0 for packets that cannot be.
  const Diagram& diagram() const { return diagram_; }
  const Pair& pair(uint32_t number) const { return pairs_[number]; }
  const ListLeaves& leaves() const { return leaves_; }
  Effect effect(uint32_t leaf) const; // of a leaf of ListLeaves

private:
  struct Follow;
  uint32_t numberOf(const Pair& pair);

  ListLeaves leaves_;
  std::vector<Pair> pairs_; // by number; 0 is no pair
  std::map<Pair, uint32_t> numbers_;
  Diagram diagram_;
};

} // namespace verify
