#include "agent/PortBlocks.h"

namespace agent {

std::vector<PortBlock> portBlocks(const PortSet& ports) {
  if (isAnyPort(ports)) {
    return {PortBlock{}};
  }
  std::vector<PortBlock> blocks;
  for (const PortRange& range : ports) {
    uint32_t low = range.low;
    const uint32_t end = uint32_t{range.high} + 1;
    while (low < end) {
      // The largest block that starts at `low`, is aligned and does not pass the end.
      uint32_t size = low == 0 ? 0x10000u : low & (~low + 1);
      while (low + size > end) {
        size /= 2;
      }
      blocks.push_back({static_cast<uint16_t>(low), static_cast<uint16_t>(~(size - 1)),
                        static_cast<uint16_t>(low), static_cast<uint16_t>(low + size - 1)});
      low += size;
    }
  }
  return blocks;
}

} // namespace agent
