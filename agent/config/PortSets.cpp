#include "agent/config/PortSets.h"

#include <algorithm>

namespace agent {

PortSet normalized(PortSet ports) {
  if (ports.size() == 1 && ports[0].low <= ports[0].high)
    return ports;
  ports.eraseIf([](const PortRange& range) { return range.low > range.high; });
  std::sort(ports.begin(), ports.end(), [](const PortRange& a, const PortRange& b) { return a.low < b.low; });
  PortSet result;
  for (const PortRange& range : ports) {
    if (!result.empty() && uint32_t{range.low} <= uint32_t{result.back().high} + 1)
      result.back().high = std::max(result.back().high, range.high);
    else
      result.push_back(range);
  }
  return result;
}

PortSet unionOf(const PortSet& a, const PortSet& b) {
  PortSet all = a;
  all.append(b);
  return normalized(std::move(all));
}

PortSet complementOf(const PortSet& ports) {
  PortSet result;
  uint32_t next = 0;
  for (const PortRange& range : ports) {
    if (range.low > next)
      result.push_back({static_cast<uint16_t>(next), static_cast<uint16_t>(range.low - 1)});
    next = uint32_t{range.high} + 1;
  }
  if (next <= 65535)
    result.push_back({static_cast<uint16_t>(next), 65535});
  return result;
}

PortSet portRange(uint32_t low, uint32_t high) {
  if (low > high)
    return {};
  return {PortRange{static_cast<uint16_t>(low), static_cast<uint16_t>(high)}};
}

} // namespace agent
