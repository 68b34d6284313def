#pragma once

#include "verify/Diagrams.h"
#include "verify/PacketFields.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

// Exact sets of packets of one family.
//
// Which packets there are. A frame from the wire has ports or an ICMP type only where its protocol has them;
// a header trace gives ports to every protocol. `Traffic::wire` knows the first kind alone,
// `Traffic::headers` both. In either a non-initial fragment has no L4 header, only TCP is established, and
// VLANs are 1 to 4094. Complements are taken within these packets.

namespace verify {

enum class Traffic : uint8_t { wire, headers };

class PacketSet;

// Where the sets of one family live. Sets of different spaces do not meet.
class PacketSpace {
public:
  explicit PacketSpace(agent::Family family, Traffic traffic = Traffic::headers,
                       std::size_t memoryLimit = Diagrams::defaultLimit);

  agent::Family family() const { return layout_.family; }
  const FieldLayout& layout() const { return layout_; }
  Diagrams& diagrams() { return diagrams_; }
  const Diagrams& diagrams() const { return diagrams_; }

  // Every packet that there is.
  const Diagram& universe() const { return universe_; }
  // `number` for the bit vectors that meet all conditions (at most one a field), 0 for the others: packets
  // that cannot be are not taken out.
  Diagram where(std::vector<Condition> conditions, uint32_t number = 1);
  // The leaf that a packet comes to.
  uint32_t leafOf(const Diagram& diagram, const packet::Packet& packet, uint16_t vlan) const;
  // A packet on this way. The way is one of a diagram within the universe.
  packet::Packet packetOn(const Diagrams::Way& way) const;
  // A packet for each leaf, as plain as there is. The diagram is 0 outside the universe; the packet of leaf 0
  // need not be one that can be.
  std::map<uint32_t, packet::Packet> packetsAt(const Diagram& diagram) const;

  PacketSet all();
  PacketSet none();
  PacketSet set(const Diagram& diagram); // its packets that are not at leaf 0
  // Packets that agree with `value` in every bit that `compared` has, field after field.
  PacketSet fromRow(const std::vector<Condition>& conditions);
  PacketSet fromRange(Field field, uint16_t low, uint16_t high);

private:
  friend class PacketSet;

  Diagram makeUniverse(Traffic traffic);
  NodeRef chain(const FieldPlace& place, const Condition& condition, NodeRef inside);
  NodeRef rangeNode(const FieldPlace& place, const agent::PortSet& ranges, unsigned bit, uint32_t low,
                    NodeRef inside);
  std::vector<bool> wantedBits() const;

  const FieldLayout& layout_;
  Diagrams diagrams_;
  Diagram universe_;
};

// A set of packets, always within the universe of its space, which outlives it.
class PacketSet {
public:
  PacketSet operator&(const PacketSet& other) const;
  PacketSet operator|(const PacketSet& other) const;
  PacketSet operator-(const PacketSet& other) const;
  PacketSet operator~() const;
  bool operator==(const PacketSet& other) const { return diagram_ == other.diagram_; }

  bool isEmpty() const { return diagram_.root() == emptyLeaf; }
  bool contains(const packet::Packet& packet, uint16_t vlan) const;
  // How many there are, counted by the fields that can be compared.
  double count() const;
  // One of them, as plain as there is; requires a set that is not empty. Of a MAC set the frame carries its
  // VLAN's tag; packets of other sets have none.
  packet::Packet witness() const;
  const Diagram& diagram() const { return diagram_; }

private:
  friend class PacketSpace;
  PacketSet(PacketSpace& space, Diagram diagram) : space_(&space), diagram_(std::move(diagram)) {}

  PacketSpace* space_;
  Diagram diagram_;
};

} // namespace verify
