#include "test/RandomLists.h"

#include <algorithm>

namespace test {

namespace {
constexpr uint32_t bases[] = {0x0A000000, 0x0A010200, 0xC0A80000, 0xAC100000};
constexpr uint8_t protocols[] = {6, 17, 132, 1, 47, 89};
constexpr uint16_t edges[] = {0, 1, 22, 53, 80, 443, 1023, 1024, 32767, 32768, 65534, 65535};
} // namespace

agent::V4Match RandomLists::v4() {
  const uint32_t address = bases[random_.below(4)] | random_.below(0x400);
  switch (random_.below(6)) {
  case 0:
    return {};
  case 1:
    return {address, 0}; // host
  case 2:
    return {address, random_.oneIn(2) ? 0x0000FF00u : random_.below(0x10000)}; // holes in the mask
  default: {
    static constexpr unsigned lengths[] = {1, 8, 9, 12, 16, 20, 22, 24, 25, 30, 31, 32};
    const unsigned length = lengths[random_.below(12)];
    return {address, length == 32 ? 0 : 0xFFFFFFFFu >> length};
  }
  }
}

agent::V6Match RandomLists::v6() {
  agent::V6Match match;
  if (random_.oneIn(4)) {
    return match;
  }
  match.address = {0x20, 0x01, 0x0d, 0xb8, 0, static_cast<uint8_t>(random_.below(3))};
  match.address[15] = static_cast<uint8_t>(random_.below(4));
  static constexpr uint8_t lengths[] = {1, 7, 8, 9, 31, 32, 33, 47, 48, 63, 64, 65, 127, 128};
  match.prefixLength = lengths[random_.below(14)];
  return match;
}

agent::MacMatch RandomLists::mac() {
  agent::MacMatch match;
  if (random_.oneIn(3)) {
    return match;
  }
  match.address = {
      0x02, 0, 0, 0, static_cast<uint8_t>(random_.below(2)), static_cast<uint8_t>(random_.below(4))};
  match.wildcard = {};
  if (random_.oneIn(2)) {
    match.wildcard[random_.below(6)] = random_.oneIn(2) ? 0xFF : static_cast<uint8_t>(1u << random_.below(8));
  }
  return match;
}

agent::PortSet RandomLists::ports() {
  switch (random_.below(5)) {
  case 0: {
    uint16_t low = edges[random_.below(12)];
    uint16_t high = edges[random_.below(12)];
    if (low > high) {
      std::swap(low, high);
    }
    return {{low, high}};
  }
  case 1: {
    const uint16_t port = edges[random_.below(12)];
    return {{port, port}};
  }
  case 2:
    return random_.oneIn(20) ? agent::PortSet{} : agent::PortSet{{20, 21}, {80, 80}, {8000, 8100}};
  default:
    return agent::anyPort();
  }
}

agent::Criteria RandomLists::criteria(agent::Family family) {
  agent::Criteria criteria;
  if (family == agent::Family::mac) {
    criteria.srcMac = mac();
    criteria.dstMac = mac();
    if (random_.oneIn(2)) {
      static constexpr uint16_t types[] = {0x0800, 0x86DD, 0x0806, 0x88CC};
      criteria.etherType = types[random_.below(4)];
    }
    if (random_.oneIn(4)) {
      criteria.vlan = static_cast<uint16_t>(1 + random_.below(3));
    }
    return criteria;
  }
  const bool isV4 = family == agent::Family::ipv4;
  criteria.srcV4 = v4();
  criteria.dstV4 = v4();
  criteria.srcV6 = v6();
  criteria.dstV6 = v6();
  if (!random_.oneIn(4)) {
    criteria.protocol = protocols[random_.below(6)];
    if (criteria.protocol == packet::protoIcmp && !isV4) {
      criteria.protocol = packet::protoIcmpV6;
    }
  }
  const uint8_t protocol = criteria.protocol.value_or(0);
  if (protocol == packet::protoTcp || protocol == packet::protoUdp || protocol == packet::protoSctp) {
    criteria.srcPorts = random_.oneIn(3) ? ports() : agent::anyPort();
    criteria.dstPorts = ports();
    criteria.established = protocol == packet::protoTcp && random_.oneIn(4);
  }
  if ((protocol == packet::protoIcmp || protocol == packet::protoIcmpV6) && random_.oneIn(2)) {
    criteria.icmpType = static_cast<uint8_t>(random_.oneIn(2) ? 134 + random_.below(4) : random_.below(4));
    if (random_.oneIn(2)) {
      criteria.icmpCode = static_cast<uint8_t>(random_.below(3));
    }
  }
  if (isV4) {
    criteria.fragments = !criteria.established && !criteria.icmpType && random_.oneIn(8);
    if (random_.oneIn(8)) {
      static constexpr uint8_t ttls[] = {0, 1, 2, 64, 254, 255};
      criteria.ttl = ttls[random_.below(6)];
    }
  }
  return criteria;
}

agent::AccessList RandomLists::list(const std::string& name, agent::Family family, unsigned maxRules) {
  agent::AccessList list;
  list.name = name;
  list.family = family;
  const unsigned rules = 1 + random_.below(maxRules);
  for (unsigned i = 0; i < rules; ++i) {
    agent::Rule rule;
    rule.loc = {"random", i + 1, 1};
    rule.sequence = 10 * (i + 1);
    rule.permit = random_.oneIn(2);
    rule.log = random_.oneIn(4);
    rule.text = "line " + std::to_string(random_.below(1000000));
    for (unsigned n = random_.oneIn(6) ? 3 : 1; n != 0; --n) {
      rule.alternatives.push_back(criteria(family));
    }
    list.rules.edit().push_back(rule);
  }
  return list;
}

uint32_t RandomLists::nearV4(const agent::V4Match& match) {
  const uint32_t inside =
      (match.address & ~match.wildcard) | (static_cast<uint32_t>(random_.next()) & match.wildcard);
  switch (random_.below(6)) {
  case 0:
    return (match.address & ~match.wildcard) - 1; // below the prefix
  case 1:
    return (match.address | match.wildcard) + 1; // above it
  case 2:
    return inside ^ (1u << random_.below(32)); // one bit off
  default:
    return inside;
  }
}

std::array<uint8_t, 16> RandomLists::nearV6(const agent::V6Match& match) {
  std::array<uint8_t, 16> address = match.address;
  for (unsigned bit = match.prefixLength; bit < 128; ++bit) {
    if (random_.oneIn(4)) {
      address[bit / 8] ^= static_cast<uint8_t>(0x80 >> (bit % 8));
    }
  }
  if (random_.oneIn(3) && match.prefixLength > 0) {
    const unsigned last = match.prefixLength - 1u;
    address[last / 8] ^= static_cast<uint8_t>(0x80 >> (last % 8)); // the last compared bit
  }
  return address;
}

std::array<uint8_t, 6> RandomLists::nearMac(const agent::MacMatch& match) {
  std::array<uint8_t, 6> address = match.address;
  for (unsigned i = 0; i < 6; ++i) {
    address[i] =
        static_cast<uint8_t>((address[i] & ~match.wildcard[i]) | (random_.byte() & match.wildcard[i]));
  }
  if (random_.oneIn(3)) {
    address[random_.below(6)] ^= static_cast<uint8_t>(1u << random_.below(8));
  }
  return address;
}

uint16_t RandomLists::nearPort(const agent::PortSet& ports) {
  if (ports.empty()) {
    return edges[random_.below(12)];
  }
  const agent::PortRange& range = ports[random_.below(static_cast<uint32_t>(ports.size()))];
  const uint16_t edge = random_.oneIn(2) ? range.low : range.high;
  return static_cast<uint16_t>(edge + random_.below(3) - 1);
}

void RandomLists::fillL4(const agent::Criteria& criteria, packet::Packet& packet) {
  packet.nonInitialFragment = criteria.fragments ? !random_.oneIn(4) : random_.oneIn(12);
  packet.hasL4 = !packet.nonInitialFragment && !random_.oneIn(20);
  if (!packet.hasL4) {
    return;
  }
  if (packet.protocol == packet::protoIcmp || packet.protocol == packet::protoIcmpV6) {
    packet.icmpType = random_.oneIn(3)
                          ? static_cast<uint8_t>(133 + random_.below(5))
                          : static_cast<uint8_t>(criteria.icmpType.value_or(8) + random_.below(2));
    packet.icmpCode = static_cast<uint8_t>(criteria.icmpCode.value_or(0) + random_.below(2));
  } else if (packet.protocol == packet::protoTcp || packet.protocol == packet::protoUdp ||
             packet.protocol == packet::protoSctp) {
    packet.srcPort = nearPort(criteria.srcPorts);
    packet.dstPort = nearPort(criteria.dstPorts);
    if (packet.protocol == packet::protoTcp) {
      static constexpr uint8_t flags[] = {0x02, 0x10, 0x04, 0x12, 0x01, 0x18, 0x08, 0x00};
      packet.tcpFlags = flags[random_.below(8)];
    }
  }
}

packet::Packet RandomLists::packet(const agent::AccessList& list) {
  const agent::Rule& rule = list.rules[random_.below(static_cast<uint32_t>(list.rules.size()))];
  const agent::Criteria& criteria =
      rule.alternatives[random_.below(static_cast<uint32_t>(rule.alternatives.size()))];
  packet::Packet packet;
  packet.length = 64;
  packet.srcMac = nearMac(criteria.srcMac);
  packet.dstMac = nearMac(criteria.dstMac);
  packet.vlan = static_cast<uint16_t>(random_.oneIn(2) ? 0 : 1 + random_.below(4));
  const bool isV4 = list.family == agent::Family::ipv4;
  const bool isV6 = list.family == agent::Family::ipv6;
  if (list.family == agent::Family::mac && !random_.oneIn(3)) {
    packet.etherType =
        static_cast<uint16_t>(criteria.etherType.value_or(0x0806) + (random_.oneIn(6) ? 1 : 0));
    if (packet.etherType == 0x0800 || packet.etherType == 0x86DD) {
      packet.etherType = 0x0806;
    }
    return packet;
  }
  if (isV6 || (!isV4 && random_.oneIn(2))) {
    packet.l3 = packet::L3::ipv6;
    packet.etherType = 0x86DD;
    packet.src = nearV6(criteria.srcV6);
    packet.dst = nearV6(criteria.dstV6);
  } else {
    packet.l3 = packet::L3::ipv4;
    packet.etherType = 0x0800;
    packet.srcV4Is(nearV4(criteria.srcV4));
    packet.dstV4Is(nearV4(criteria.dstV4));
  }
  packet.protocol = random_.oneIn(8) ? protocols[random_.below(6)] : criteria.protocol.value_or(6);
  if (packet.protocol == 0) {
    packet.protocol = 6;
  }
  packet.ttl = static_cast<uint8_t>(criteria.ttl.value_or(64) + random_.below(3) - 1);
  fillL4(criteria, packet);
  return packet;
}

uint16_t vlanOf(const packet::Packet& packet) {
  return packet.vlan != 0 ? packet.vlan : uint16_t{1};
}

bool isOf(agent::Family family, const packet::Packet& packet) {
  return family == agent::Family::mac ||
         packet.l3 == (family == agent::Family::ipv4 ? packet::L3::ipv4 : packet::L3::ipv6);
}

} // namespace test
