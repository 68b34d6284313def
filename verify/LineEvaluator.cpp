#include "verify/LineEvaluator.h"

#include <algorithm>

namespace verify {

namespace {

using agent::Criteria;
using agent::Family;

// ICMPv6 types of neighbour discovery (RFC 4861): addresses are resolved with them, so that an IPv6 list that
// forgot them would cut its hosts off.
constexpr uint8_t neighbourSolicitation = 135;
constexpr uint8_t neighbourAdvertisement = 136;

bool matchesAddress(const agent::V4Match& match, uint32_t address) {
  for (unsigned bit = 0; bit < 32; ++bit) {
    const bool ignored = match.wildcard >> bit & 1;
    if (!ignored && (match.address >> bit & 1) != (address >> bit & 1))
      return false;
  }
  return true;
}

bool matchesAddress(const agent::V6Match& match, const std::array<uint8_t, 16>& address) {
  for (unsigned bit = 0; bit < match.prefixLength; ++bit) {
    const unsigned shift = 7 - bit % 8;
    if ((match.address[bit / 8] >> shift & 1) != (address[bit / 8] >> shift & 1))
      return false;
  }
  return true;
}

bool matchesAddress(const agent::MacMatch& match, const packet::MacAddr& address) {
  for (unsigned bit = 0; bit < 48; ++bit) {
    const bool ignored = match.wildcard[bit / 8] >> bit % 8 & 1;
    if (!ignored && (match.address[bit / 8] >> bit % 8 & 1) != (address[bit / 8] >> bit % 8 & 1))
      return false;
  }
  return true;
}

bool contains(const agent::PortSet& ports, uint16_t port) {
  return std::any_of(ports.begin(), ports.end(), [port](const agent::PortRange& range) {
    return port >= range.low && port <= range.high;
  });
}

// What only IPv4 lists can ask.
bool matchesV4Only(const Criteria& criteria, const packet::Packet& packet) {
  if (criteria.fragments && !packet.nonInitialFragment)
    return false;
  return !criteria.ttl || *criteria.ttl == packet.ttl;
}

bool matchesUpperLayer(const Criteria& criteria, const packet::Packet& packet) {
  if (criteria.protocol && *criteria.protocol != packet.protocol)
    return false;
  if (criteria.established && !packet.established())
    return false;
  // A line for fragments asks for packets that have no ports and no type to compare.
  if (criteria.fragments)
    return true;
  // Without an L4 header the chip reads zeros, and so do these. A filter set may ask for the ports of a
  // protocol that has none; there the ICMP type stands for the destination port and the code for the source
  // port.
  if (!contains(criteria.srcPorts, packet.l4Src()) || !contains(criteria.dstPorts, packet.l4Dst()))
    return false;
  if (criteria.icmpType && *criteria.icmpType != packet.l4Dst())
    return false;
  return !criteria.icmpCode || *criteria.icmpCode == packet.l4Src();
}

bool matchesMac(const Criteria& criteria, const packet::Packet& packet, uint16_t effectiveVlan) {
  return matchesAddress(criteria.srcMac, packet.srcMac) && matchesAddress(criteria.dstMac, packet.dstMac) &&
         (!criteria.etherType || *criteria.etherType == packet.etherType) &&
         (!criteria.vlan || *criteria.vlan == effectiveVlan);
}

bool sees(Family family, const packet::Packet& packet) {
  switch (family) {
  case Family::ipv4:
    return packet.l3 == packet::L3::ipv4;
  case Family::ipv6:
    return packet.l3 == packet::L3::ipv6;
  case Family::mac:
    return true;
  }
  return false;
}

bool isNeighbourDiscovery(const packet::Packet& packet) {
  return packet.protocol == packet::protoIcmpV6 &&
         (packet.l4Dst() == neighbourSolicitation || packet.l4Dst() == neighbourAdvertisement);
}

} // namespace

bool matches(const Criteria& criteria, Family family, const packet::Packet& packet, uint16_t effectiveVlan) {
  switch (family) {
  case Family::ipv4:
    return matchesAddress(criteria.srcV4, packet.srcV4()) && matchesAddress(criteria.dstV4, packet.dstV4()) &&
           matchesV4Only(criteria, packet) && matchesUpperLayer(criteria, packet);
  case Family::ipv6:
    return matchesAddress(criteria.srcV6, packet.src) && matchesAddress(criteria.dstV6, packet.dst) &&
           matchesUpperLayer(criteria, packet);
  case Family::mac:
    return matchesMac(criteria, packet, effectiveVlan);
  }
  return false;
}

bool matches(const agent::Rule& rule, Family family, const packet::Packet& packet, uint16_t effectiveVlan) {
  return std::any_of(rule.alternatives.begin(), rule.alternatives.end(), [&](const Criteria& criteria) {
    return matches(criteria, family, packet, effectiveVlan);
  });
}

Judgement evaluate(const agent::AccessList& list, const packet::Packet& packet, uint16_t effectiveVlan) {
  if (list.rules.empty())
    return {true, Decider::noList, 0};
  if (!sees(list.family, packet))
    return {true, Decider::otherFamily, 0};
  for (size_t i = 0; i < list.rules.size(); ++i)
    if (matches(list.rules[i], list.family, packet, effectiveVlan))
      return {list.rules[i].permit, Decider::line, i};
  if (list.family == Family::ipv6 && isNeighbourDiscovery(packet))
    return {true, Decider::neighbourDiscovery, 0};
  return {false, Decider::implicitDeny, 0};
}

} // namespace verify
