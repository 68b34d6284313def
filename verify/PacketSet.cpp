#include "verify/PacketSet.h"

#include <algorithm>
#include <array>

namespace verify {

namespace {

// Protocols whose L4 header the chip reads (IANA numbers).
constexpr std::array<uint8_t, 3> portProtocols{packet::protoTcp, packet::protoUdp, packet::protoSctp};
constexpr std::array<uint8_t, 2> icmpProtocols{packet::protoIcmp, packet::protoIcmpV6};
constexpr uint16_t maxIcmp = 255;
constexpr uint16_t firstVlan = 1;
constexpr uint16_t lastVlan = 4094;

bool isIcmp(uint8_t protocol) {
  return protocol == packet::protoIcmp || protocol == packet::protoIcmpV6;
}

uint64_t numberOf(const std::vector<bool>& bits, const FieldPlace& place) {
  uint64_t number = 0;
  for (unsigned i = 0; i < place.width; ++i) {
    number = number << 1 | (bits[place.first + i] ? 1u : 0u);
  }
  return number;
}

void bytesOf(const std::vector<bool>& bits, const FieldPlace& place, uint8_t* bytes) {
  for (unsigned i = 0; i < place.width; ++i) {
    if (bits[place.first + i]) {
      bytes[i / 8] |= static_cast<uint8_t>(0x80u >> i % 8);
    }
  }
}

// What is read at the place of the ports becomes an ICMP type and code where it can.
void fillL4(uint16_t l4Dst, uint16_t l4Src, bool established, packet::Packet& packet) {
  const bool known =
      std::find(portProtocols.begin(), portProtocols.end(), packet.protocol) != portProtocols.end() ||
      isIcmp(packet.protocol);
  packet.hasL4 = !packet.nonInitialFragment && (known || l4Dst != 0 || l4Src != 0);
  if (!packet.hasL4) {
    return;
  }
  if (isIcmp(packet.protocol) && l4Dst <= maxIcmp && l4Src <= maxIcmp) {
    packet.icmpType = static_cast<uint8_t>(l4Dst);
    packet.icmpCode = static_cast<uint8_t>(l4Src);
    return;
  }
  packet.dstPort = l4Dst;
  packet.srcPort = l4Src;
  if (packet.protocol == packet::protoTcp) {
    packet.tcpFlags = established ? 0x10 : 0x02; // ACK, SYN
  }
}

} // namespace

PacketSpace::PacketSpace(agent::Family family, Traffic traffic, std::size_t memoryLimit)
    : layout_(fieldLayout(family)), diagrams_(layout_.numVariables, memoryLimit),
      universe_(makeUniverse(traffic)) {}

Diagram PacketSpace::makeUniverse(Traffic traffic) {
  if (family() == agent::Family::mac) {
    return where({Condition::within(Field::vlan, {{firstVlan, lastVlan}})});
  }
  const auto protocol = [](uint8_t number) { return Condition::equals(Field::protocol, number, 8); };
  const Condition noDst = Condition::equals(Field::l4Dst, 0, 16);
  const Condition noSrc = Condition::equals(Field::l4Src, 0, 16);
  const Condition whole = Condition::equals(Field::fragment, 0, 1);
  const Condition notEstablished = Condition::equals(Field::established, 0, 1);
  // A cut packet has no L4 header either, and reads like one with zeros in it.
  std::vector<Diagram> kinds{where({notEstablished, noDst, noSrc}),
                             where({whole, protocol(packet::protoTcp)})};
  if (traffic == Traffic::headers) {
    kinds.push_back(where({whole, notEstablished}));
  } else {
    for (const uint8_t number : portProtocols) {
      kinds.push_back(where({whole, notEstablished, protocol(number)}));
    }
    for (const uint8_t number : icmpProtocols) {
      kinds.push_back(
          where({whole, notEstablished, protocol(number), Condition::within(Field::l4Dst, {{0, maxIcmp}}),
                 Condition::within(Field::l4Src, {{0, maxIcmp}})}));
    }
  }
  Diagram all(diagrams_, emptyLeaf);
  for (const Diagram& kind : kinds) {
    all = diagrams_.combine(all, kind, FirstOf());
  }
  return all;
}

NodeRef PacketSpace::rangeNode(const FieldPlace& place, const agent::PortSet& ranges, unsigned bit,
                               uint32_t low, NodeRef inside) {
  const uint32_t high = low + (uint32_t{1} << (place.width - bit)) - 1;
  bool meets = false;
  for (const agent::PortRange& range : ranges) {
    if (range.low <= low && high <= range.high) {
      return inside;
    }
    meets = meets || (range.low <= high && low <= range.high);
  }
  if (!meets) {
    return emptyLeaf;
  }
  const uint32_t half = uint32_t{1} << (place.width - bit - 1);
  const NodeRef lo = rangeNode(place, ranges, bit + 1, low, inside);
  const NodeRef hi = rangeNode(place, ranges, bit + 1, low + half, inside);
  return diagrams_.node(place.first + bit, lo, hi);
}

NodeRef PacketSpace::chain(const FieldPlace& place, const Condition& condition, NodeRef inside) {
  if (condition.isRange) {
    return rangeNode(place, condition.ranges, 0, 0, inside);
  }
  for (unsigned bit = place.width; bit-- > 0;) {
    if (condition.compared[bit]) {
      inside = condition.value[bit] ? diagrams_.node(place.first + bit, emptyLeaf, inside)
                                    : diagrams_.node(place.first + bit, inside, emptyLeaf);
    }
  }
  return inside;
}

Diagram PacketSpace::where(std::vector<Condition> conditions, uint32_t number) {
  NodeRef inside = leaf(number);
  // From the last variable up, so that each node is made once and never moved.
  std::sort(conditions.begin(), conditions.end(), [this](const Condition& a, const Condition& b) {
    return layout_.place(a.field).first > layout_.place(b.field).first;
  });
  for (const Condition& condition : conditions) {
    inside = chain(layout_.place(condition.field), condition, inside);
  }
  return Diagram(diagrams_, inside);
}

uint32_t PacketSpace::leafOf(const Diagram& diagram, const packet::Packet& packet, uint16_t vlan) const {
  std::vector<bool> bits(layout_.numVariables);
  for (const FieldPlace& place : layout_.places) {
    const FieldBits field = fieldOf(packet, vlan, place);
    for (unsigned i = 0; i < place.width; ++i) {
      bits[place.first + i] = field[i];
    }
  }
  return diagrams_.leafOf(diagram, [&](unsigned variable) { return bool{bits[variable]}; });
}

// A packet that looks like one: TCP from a client to a server, between private addresses.
std::vector<bool> PacketSpace::wantedBits() const {
  packet::Packet packet;
  packet.protocol = packet::protoTcp;
  packet.ttl = 64;
  packet.hasL4 = true;
  packet.srcPort = 40000;
  packet.dstPort = 80;
  packet.srcMac = {0x02, 0, 0, 0, 0, 1};
  packet.dstMac = {0x02, 0, 0, 0, 0, 2};
  packet.etherType = packet::etherTypeArp;
  if (family() == agent::Family::ipv6) {
    packet.src = {0x20, 0x01, 0x0d, 0xb8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}; // RFC 3849
    packet.dst = {0x20, 0x01, 0x0d, 0xb8, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  } else {
    packet.srcV4Is(0x0A010001);
    packet.dstV4Is(0x0A020001);
  }
  std::vector<bool> bits(layout_.numVariables);
  for (const FieldPlace& place : layout_.places) {
    const FieldBits field = fieldOf(packet, firstVlan, place);
    for (unsigned i = 0; i < place.width; ++i) {
      bits[place.first + i] = field[i];
    }
  }
  return bits;
}

packet::Packet PacketSpace::packetOn(const Diagrams::Way& way) const {
  std::vector<bool> bits = wantedBits();
  for (std::size_t i = 0; i < way.size(); ++i) {
    if (way[i] != Diagrams::anyBit) {
      bits[i] = way[i] != 0;
    }
  }
  const auto number = [&](Field field) { return numberOf(bits, layout_.place(field)); };
  packet::Packet packet;
  if (family() == agent::Family::mac) {
    packet.vlan = static_cast<uint16_t>(number(Field::vlan));
    packet.etherType = static_cast<uint16_t>(number(Field::etherType));
    bytesOf(bits, layout_.place(Field::srcMac), packet.srcMac.data());
    bytesOf(bits, layout_.place(Field::dstMac), packet.dstMac.data());
    return packet;
  }
  const bool isV4 = family() == agent::Family::ipv4;
  packet.l3 = isV4 ? packet::L3::ipv4 : packet::L3::ipv6;
  packet.etherType = isV4 ? packet::etherTypeIpv4 : packet::etherTypeIpv6;
  packet.protocol = static_cast<uint8_t>(number(Field::protocol));
  packet.ttl = static_cast<uint8_t>(number(Field::ttl));
  packet.nonInitialFragment = number(Field::fragment) != 0;
  bytesOf(bits, layout_.place(Field::src), packet.src.data());
  bytesOf(bits, layout_.place(Field::dst), packet.dst.data());
  fillL4(static_cast<uint16_t>(number(Field::l4Dst)), static_cast<uint16_t>(number(Field::l4Src)),
         number(Field::established) != 0, packet);
  return packet;
}

std::map<uint32_t, packet::Packet> PacketSpace::packetsAt(const Diagram& diagram) const {
  std::map<uint32_t, packet::Packet> packets;
  for (const auto& [number, way] : diagrams_.ways(diagram, wantedBits())) {
    packets.emplace(number, packetOn(way));
  }
  return packets;
}

PacketSet PacketSpace::all() {
  return {*this, universe_};
}

PacketSet PacketSpace::none() {
  return {*this, Diagram(diagrams_, emptyLeaf)};
}

PacketSet PacketSpace::set(const Diagram& diagram) {
  const Diagram inside = diagrams_.relabelled(diagram, [](uint32_t number) { return number != 0 ? 1u : 0u; });
  return {*this, diagrams_.combine(universe_, inside, Within())};
}

PacketSet PacketSpace::fromRow(const std::vector<Condition>& conditions) {
  return set(where(conditions));
}

PacketSet PacketSpace::fromRange(Field field, uint16_t low, uint16_t high) {
  return set(where({Condition::within(field, {{low, high}})}));
}

PacketSet PacketSet::operator&(const PacketSet& other) const {
  return {*space_, space_->diagrams().combine(diagram_, other.diagram_, Within())};
}

PacketSet PacketSet::operator|(const PacketSet& other) const {
  return {*space_, space_->diagrams().combine(diagram_, other.diagram_, FirstOf())};
}

PacketSet PacketSet::operator-(const PacketSet& other) const {
  return {*space_, space_->diagrams().combine(diagram_, other.diagram_, Without())};
}

PacketSet PacketSet::operator~() const {
  return space_->all() - *this;
}

bool PacketSet::contains(const packet::Packet& packet, uint16_t vlan) const {
  return space_->leafOf(diagram_, packet, vlan) != 0;
}

double PacketSet::count() const {
  const std::map<uint32_t, double> counts = space_->diagrams().counts(diagram_);
  const auto inside = counts.find(1);
  return inside == counts.end() ? 0 : inside->second;
}

packet::Packet PacketSet::witness() const {
  return space_->packetOn(space_->diagrams().wayInside(diagram_, space_->wantedBits()));
}

} // namespace verify
