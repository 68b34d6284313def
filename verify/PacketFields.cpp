#include "verify/PacketFields.h"

#include <algorithm>
#include <cstdlib>

namespace verify {

namespace {

struct FieldWidth {
  Field field;
  uint16_t width;
};

FieldLayout layoutOf(agent::Family family, const std::vector<FieldWidth>& fields) {
  FieldLayout layout{family, 0, {}};
  for (const FieldWidth& field : fields) {
    layout.places.push_back({field.field, static_cast<uint16_t>(layout.numVariables), field.width});
    layout.numVariables += field.width;
  }
  return layout;
}

FieldLayout ipLayout(agent::Family family, uint16_t addressBits) {
  return layoutOf(family, {{Field::fragment, 1},
                           {Field::protocol, 8},
                           {Field::established, 1},
                           {Field::ttl, 8},
                           {Field::l4Dst, 16},
                           {Field::l4Src, 16},
                           {Field::dst, addressBits},
                           {Field::src, addressBits}});
}

} // namespace

const FieldPlace& FieldLayout::place(Field field) const {
  return *std::find_if(places.begin(), places.end(),
                       [field](const FieldPlace& place) { return place.field == field; });
}

const FieldLayout& fieldLayout(agent::Family family) {
  static const FieldLayout v4 = ipLayout(agent::Family::ipv4, 32);
  static const FieldLayout v6 = ipLayout(agent::Family::ipv6, 128);
  static const FieldLayout mac =
      layoutOf(agent::Family::mac,
               {{Field::vlan, 12}, {Field::etherType, 16}, {Field::srcMac, 48}, {Field::dstMac, 48}});
  return family == agent::Family::ipv4 ? v4 : family == agent::Family::ipv6 ? v6 : mac;
}

FieldBits bitsOf(uint64_t value, unsigned width) {
  FieldBits bits;
  for (unsigned i = 0; i < width; ++i) {
    bits[i] = (value >> (width - 1 - i) & 1) != 0;
  }
  return bits;
}

FieldBits bitsOf(const uint8_t* bytes, unsigned numBytes) {
  FieldBits bits;
  for (unsigned i = 0; i < numBytes * 8; ++i) {
    bits[i] = (bytes[i / 8] >> (7 - i % 8) & 1) != 0;
  }
  return bits;
}

Condition Condition::equals(Field field, uint64_t value, unsigned width) {
  return masked(field, bitsOf(value, width), bitsOf(~uint64_t{0}, width));
}

Condition Condition::masked(Field field, const FieldBits& value, const FieldBits& compared) {
  return {field, false, value, compared, {}};
}

Condition Condition::within(Field field, agent::PortSet ranges) {
  return {field, true, {}, {}, std::move(ranges)};
}

FieldBits fieldOf(const packet::Packet& packet, uint16_t vlan, const FieldPlace& place) {
  switch (place.field) {
  case Field::fragment:
    return bitsOf(packet.nonInitialFragment ? 1 : 0, 1);
  case Field::established:
    return bitsOf(packet.established() ? 1 : 0, 1);
  case Field::protocol:
    return bitsOf(packet.protocol, 8);
  case Field::ttl:
    return bitsOf(packet.ttl, 8);
  case Field::l4Dst:
    return bitsOf(packet.l4Dst(), 16);
  case Field::l4Src:
    return bitsOf(packet.l4Src(), 16);
  case Field::dst:
    return bitsOf(packet.dst.data(), place.width / 8u);
  case Field::src:
    return bitsOf(packet.src.data(), place.width / 8u);
  case Field::vlan:
    return bitsOf(vlan, 12);
  case Field::etherType:
    return bitsOf(packet.etherType, 16);
  case Field::dstMac:
    return bitsOf(packet.dstMac.data(), 6);
  case Field::srcMac:
    return bitsOf(packet.srcMac.data(), 6);
  }
  std::abort();
}

} // namespace verify
