#pragma once

#include "verify/LineEvaluator.h"
#include "verify/PacketSet.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

// A list as sets of packets: for every packet the line that decides it. Knows what was configured and nothing
// of rows.

namespace verify {

// Counts up as work is done, for progress bars. May be empty.
using Tick = std::function<void()>;

// What decides, as leaves of a diagram; 0 is for packets that cannot be. Lines of the list, from 0, come
// first.
class ListLeaves {
public:
  explicit ListLeaves(const agent::AccessList* list);

  static uint32_t line(std::size_t index) { return static_cast<uint32_t>(index) + 1; }
  uint32_t neighbourDiscovery() const { return lines_ + 1; }
  uint32_t implicitDeny() const { return lines_ + 2; }
  uint32_t noList() const { return lines_ + 3; }

  Judgement judgement(uint32_t leaf) const; // of a leaf but 0
  bool permit(uint32_t leaf) const { return judgement(leaf).permit; }
  // The rule of a line's leaf, or null.
  const agent::Rule* rule(uint32_t leaf) const;

private:
  const agent::AccessList* list_;
  uint32_t lines_;
};

// The packets that one line matches, wherever it stands: `number` for those, 0 for others. Packets that
// cannot be are not taken out.
Diagram matching(PacketSpace& space, const agent::Criteria& criteria, uint32_t number = 1);
Diagram matching(PacketSpace& space, const agent::Rule& rule, uint32_t number = 1);

// The same with other conditions for one side's ports.
Diagram matchingPorts(PacketSpace& space, agent::Criteria criteria, bool source, const agent::PortSet& ports);

// Lists are combined two halves at a time, so that most of the work is done on small diagrams.
template <typename Join>
Diagram joined(std::size_t first, std::size_t last, const std::function<Diagram(std::size_t)>& one,
               const Join& join) {
  if (last - first == 1) {
    return one(first);
  }
  const std::size_t middle = first + (last - first) / 2;
  const Diagram front = joined(first, middle, one, join);
  return join(front, joined(middle, last, one, join));
}

// For every packet of the space the leaf of what decides it, 0 for packets that cannot be. Null, or a list
// without lines: everything is permitted. The list's family is that of the space.
Diagram decisions(PacketSpace& space, const agent::AccessList* list, const Tick& tick = {});

// What follows the lines of a list.
Diagram implicitDecisions(PacketSpace& space, const agent::AccessList* list);

PacketSet permitted(PacketSpace& space, const agent::AccessList* list, const Tick& tick = {});

// Whether lines ask for the ports of protocols that have none on the wire, as filter sets do: packets then
// come from header traces.
Traffic trafficOf(const agent::AccessList* list);

} // namespace verify
