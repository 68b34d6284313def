#pragma once

#include "agent/config/ConfigModel.h"
#include "packet/Packet.h"

#include <bitset>
#include <cstdint>
#include <vector>

// The header fields that a row can compare, as the variables of decision diagrams: one variable a bit, the
// most significant bit of a field first. A list of one family is judged by the fields of that family alone.
//
// The order of the fields decides how large the diagrams of real lists are; docs/proof.md has the figures.

namespace verify {

enum class Field : uint8_t {
  fragment,    // 1 bit: a non-initial fragment
  established, // 1 bit: TCP with ACK or RST
  protocol,    // 8
  ttl,         // 8: time to live or hop limit, as in the packet
  l4Dst,       // 16: destination port or ICMP type, 0 without an L4 header
  l4Src,       // 16: source port or ICMP code, 0 without an L4 header
  dst,         // 32 or 128
  src,
  vlan,      // 12: that the frame is in
  etherType, // 16
  dstMac,    // 48
  srcMac,
};

struct FieldPlace {
  Field field;
  uint16_t first; // variable of the most significant bit
  uint16_t width; // bits
};

struct FieldLayout {
  agent::Family family;
  unsigned numVariables;
  std::vector<FieldPlace> places; // in the order of the variables

  const FieldPlace& place(Field field) const; // requires a field of the family
};

const FieldLayout& fieldLayout(agent::Family family);

// Bits of one field, the most significant one first: bit(0) is the first of `width`.
constexpr unsigned maxFieldBits = 128;
using FieldBits = std::bitset<maxFieldBits>;
FieldBits bitsOf(uint64_t value, unsigned width);
FieldBits bitsOf(const uint8_t* bytes, unsigned numBytes); // as on the wire

// What is asked of one field: equal in the bits that are compared, or inside one of some ranges (fields of up
// to 16 bits; sorted, disjoint; none: nothing is inside).
struct Condition {
  Field field = Field::protocol;
  bool isRange = false;
  FieldBits value;
  FieldBits compared;
  agent::PortSet ranges;

  static Condition equals(Field field, uint64_t value, unsigned width);
  static Condition masked(Field field, const FieldBits& value, const FieldBits& compared);
  static Condition within(Field field, agent::PortSet ranges);
};

// What a packet says in a field; `vlan` is the VLAN that it is in.
FieldBits fieldOf(const packet::Packet& packet, uint16_t vlan, const FieldPlace& place);

} // namespace verify
