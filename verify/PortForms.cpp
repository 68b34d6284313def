#include "verify/PortForms.h"

#include <algorithm>

namespace verify {

namespace {

constexpr uint32_t impossible = 1u << 24; // more blocks than there can be; sums of it do not overflow

// Every aligned block of ports is a node of a complete binary tree: node 1 is all ports, nodes 2n and 2n+1
// the halves of node n, and node numPorts + p the port p.
class Blocks {
public:
  explicit Blocks(const PortNeeds& needs)
      : needed_(2 * numPorts), harmful_(2 * numPorts), excludable_(2 * numPorts), outside_(2 * numPorts),
        inside_(2 * numPorts) {
    for (std::size_t port = 0; port < numPorts; ++port) {
      const std::size_t at = numPorts + port;
      needed_[at] = needs.needed[port];
      harmful_[at] = needs.harmful[port];
      excludable_[at] = needs.excludable[port];
      inside_[at] = !needs.harmful[port] ? 0 : needs.excludable[port] ? 1 : impossible;
      outside_[at] = needs.needed[port] ? 1 : 0;
    }
    for (std::size_t at = numPorts; at-- > 1;) {
      weigh(at);
    }
  }

  PortForm form() {
    PortForm form;
    form.blocks = outside_[1];
    takeOutside(1, 0, numPorts, form);
    return form;
  }

private:
  void weigh(std::size_t at) {
    const std::size_t lo = 2 * at;
    const std::size_t hi = lo + 1;
    needed_[at] = needed_[lo] || needed_[hi];
    harmful_[at] = harmful_[lo] || harmful_[hi];
    excludable_[at] = excludable_[lo] && excludable_[hi];
    inside_[at] = !harmful_[at] ? 0 : excludable_[at] ? 1 : std::min(inside_[lo] + inside_[hi], impossible);
    outside_[at] = !needed_[at] ? 0 : std::min(1 + inside_[at], outside_[lo] + outside_[hi]);
  }

  static void add(agent::PortSet& ports, std::size_t low, std::size_t size) {
    const auto first = static_cast<uint16_t>(low);
    const auto last = static_cast<uint16_t>(low + size - 1);
    if (!ports.empty() && ports.back().high + 1u == first) {
      ports.back().high = last;
    } else {
      ports.push_back({first, last});
    }
  }

  void takeOutside(std::size_t at, std::size_t low, std::size_t size, PortForm& form) {
    if (!needed_[at]) {
      return;
    }
    if (outside_[at] == 1 + inside_[at]) {
      add(form.ports, low, size);
      takeInside(at, low, size, form);
      return;
    }
    takeOutside(2 * at, low, size / 2, form);
    takeOutside(2 * at + 1, low + size / 2, size / 2, form);
  }

  void takeInside(std::size_t at, std::size_t low, std::size_t size, PortForm& form) {
    if (!harmful_[at]) {
      return;
    }
    if (excludable_[at]) {
      add(form.excluded, low, size);
      return;
    }
    takeInside(2 * at, low, size / 2, form);
    takeInside(2 * at + 1, low + size / 2, size / 2, form);
  }

  std::vector<bool> needed_;      // some port of the block
  std::vector<bool> harmful_;     // some port of the block
  std::vector<bool> excludable_;  // every port of the block
  std::vector<uint32_t> outside_; // fewest blocks for the needed ports of the block
  std::vector<uint32_t> inside_;  // fewest blocks to take out of it when it is matched as a whole
};

} // namespace

std::size_t blocksOf(const agent::PortSet& ports) {
  std::size_t blocks = 0;
  for (const agent::PortRange& range : ports) {
    for (uint32_t low = range.low; low <= range.high; ++blocks) {
      // The largest aligned block that begins here and does not pass the end.
      uint32_t size = low == 0 ? numPorts : low & (~low + 1);
      while (low + size - 1 > range.high) {
        size /= 2;
      }
      low += size;
    }
  }
  return blocks;
}

PortForm cheapestForm(const PortNeeds& needs) {
  return Blocks(needs).form();
}

} // namespace verify
