#pragma once

#include "agent/config/ConfigModel.h"

#include <cstdint>
#include <vector>

namespace agent {

// One aligned block of ports: those that agree with `value` in the 1 bits of `mask`. Mask 0 with value 0
// is any port, and then low and high are 0 as the chip library wants it.
struct PortBlock {
  uint16_t value = 0;
  uint16_t mask = 0;
  uint16_t low = 0;
  uint16_t high = 0;
  bool operator==(const PortBlock&) const = default;
};

// The fewest aligned blocks that cover exactly `ports`, ascending. A range of n ports takes at most 30
// blocks; an empty set takes none.
std::vector<PortBlock> portBlocks(const PortSet& ports);
// The same in place of what `blocks` holds, in its memory.
void portBlocks(const PortSet& ports, std::vector<PortBlock>& blocks);

} // namespace agent
