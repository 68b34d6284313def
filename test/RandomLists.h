#pragma once

#include "agent/config/ConfigModel.h"
#include "packet/Packet.h"
#include "test/Random.h"

// Random lists of every family, and packets that stand on the edges of their lines.

namespace test {

// The VLAN that the packet is in: its tag's, or 1, in which untagged ones are here.
uint16_t vlanOf(const packet::Packet& packet);
// Whether lists of the family judge the packet; MAC lists judge every one.
bool isOf(agent::Family family, const packet::Packet& packet);

class RandomLists {
public:
  explicit RandomLists(Random& random) : random_(random) {}

  agent::AccessList list(const std::string& name, agent::Family family, unsigned maxRules);
  // A packet that meets some line of the list, or misses it by one: prefix and port edges, TTL, fragments.
  packet::Packet packet(const agent::AccessList& list);

private:
  agent::Criteria criteria(agent::Family family);
  agent::V4Match v4();
  agent::V6Match v6();
  agent::MacMatch mac();
  agent::PortSet ports();
  uint32_t nearV4(const agent::V4Match& match);
  std::array<uint8_t, 16> nearV6(const agent::V6Match& match);
  std::array<uint8_t, 6> nearMac(const agent::MacMatch& match);
  uint16_t nearPort(const agent::PortSet& ports);
  void fillL4(const agent::Criteria& criteria, packet::Packet& packet);

  Random& random_;
};

} // namespace test
