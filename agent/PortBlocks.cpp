#include "agent/PortBlocks.h"

namespace agent {

std::vector<PortBlock> portBlocks(const PortSet& ports) {
  std::vector<PortBlock> blocks;
  portBlocks(ports, blocks);
  return blocks;
}

void portBlocks(const PortSet& ports, std::vector<PortBlock>& blocks) {
  blocks.clear();
  if (isAnyPort(ports)) {
    blocks.push_back({});
    return;
  }
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
}

} // namespace agent
