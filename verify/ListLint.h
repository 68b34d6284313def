#pragma once

#include "packet/Packet.h"
#include "verify/ListSets.h"
#include "verify/PortForms.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// What is odd about a list, found exactly: every answer holds for all packets that can be, and nothing that
// fits a definition is left out. Two lines do the same to a packet when both its verdict and whether it is
// logged are equal.

namespace verify {

// No packet reaches the line, because lines before it decide all that it matches.
struct Unreachable {
  std::size_t line = 0;
  std::vector<std::size_t> hiddenBy; // each decides some of them; empty when nothing can match the line
  bool sameAction = true;            // all of those do what the line would do
};

// The line could go, alone, and every packet would fare as before.
struct Removable {
  std::size_t line = 0;
  bool reached = false; // packets reach it: a later line does the same to them
};

// Two lines with different verdicts that overlap, neither of which matches all that the other one matches;
// some packet is decided by the first and would otherwise be decided by the second. The one with the smaller
// number wins only because it stands first.
struct Contradiction {
  std::size_t first = 0;
  std::size_t second = 0;
  packet::Packet witness; // that the first decides and the second would
};

// The ports of one side of a line take many rows, and other ports would do the same with fewer.
struct CostlyRange {
  std::size_t line = 0;
  bool source = false;
  agent::PortSet ports;    // as configured
  std::size_t rows = 0;    // of the line as configured
  agent::PortSet cheaper;  // in place of `ports`
  agent::PortSet excluded; // a line in front with the other action, the same otherwise, takes these out first
  std::size_t cheaperRows = 0; // of the line and that in front of it
};

struct ListFindings {
  std::vector<Unreachable> unreachable;
  std::vector<Removable> removable;
  std::vector<Contradiction> contradictions;
  std::vector<CostlyRange> ranges;
};

// Lines with fewer rows than this are cheap enough.
constexpr std::size_t manyRows = 4;

// Rows that a line takes by its port ranges: source blocks times destination blocks of every alternative.
std::size_t portRows(const agent::Rule& rule);

// The list is of the space's family. `tick` counts lines.
ListFindings lint(PacketSpace& space, const agent::AccessList& list, const Tick& tick = {});

} // namespace verify
