#include "test/Random.h"
#include "test/RandomLists.h"
#include "verify/Diagrams.h"
#include "verify/PacketSet.h"
#include "verify/PortForms.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>
#include <set>
#include <string>
#include <vector>

// Decision diagrams against tables of a small universe that are worked out vector by vector, and the algebra
// of packet sets.

namespace {

using verify::Diagram;
using verify::Diagrams;
using verify::emptyLeaf;
using verify::leaf;
using verify::NodeRef;

constexpr unsigned numBits = 9;
constexpr std::size_t numVectors = std::size_t{1} << numBits;

// By bit vector its leaf; variable 0 is the most significant bit.
using Table = std::vector<uint32_t>;

bool bitOf(std::size_t vector, unsigned variable) {
  return (vector >> (numBits - 1 - variable) & 1) != 0;
}

class Engine : public testing::Test {
protected:
  // Built up node by node, so that it is none of the operations that are looked at.
  NodeRef built(const Table& table, unsigned variable, std::size_t first) {
    if (variable == numBits) {
      return leaf(table[first]);
    }
    const std::size_t half = std::size_t{1} << (numBits - 1 - variable);
    const NodeRef lo = built(table, variable + 1, first);
    const NodeRef hi = built(table, variable + 1, first + half);
    return diagrams_.node(variable, lo, hi);
  }
  Diagram diagram(const Table& table) { return {diagrams_, built(table, 0, 0)}; }

  Table table(const Diagram& diagram) const {
    Table table(numVectors);
    for (std::size_t vector = 0; vector < numVectors; ++vector) {
      table[vector] =
          diagrams_.leafOf(diagram, [vector](unsigned variable) { return bitOf(vector, variable); });
    }
    return table;
  }

  // Blocks and single vectors, so that diagrams have shared parts.
  Table randomTable(uint32_t numLeaves) {
    Table table(numVectors, random_.below(2) == 0 ? 0 : random_.below(numLeaves));
    for (unsigned n = 1 + random_.below(12); n != 0; --n) {
      const std::size_t value = random_.below(numVectors);
      const std::size_t compared = random_.below(numVectors) & random_.below(numVectors);
      const uint32_t number = random_.below(numLeaves);
      for (std::size_t vector = 0; vector < numVectors; ++vector) {
        if (((vector ^ value) & compared) == 0) {
          table[vector] = number;
        }
      }
    }
    return table;
  }

  template <typename Combine>
  static Table combined(const Table& a, const Table& b, const Combine& combine) {
    Table table(numVectors);
    for (std::size_t vector = 0; vector < numVectors; ++vector) {
      table[vector] = combine(a[vector], b[vector]);
    }
    return table;
  }

  test::Random random_{test::Random::seed("Engine")};
  Diagrams diagrams_{numBits};
};

TEST_F(Engine, eachFunctionIsOneNode) {
  for (unsigned round = 0; round < 200; ++round) {
    const Table a = randomTable(4);
    const Diagram first = diagram(a);
    EXPECT_EQ(table(first), a);
    EXPECT_EQ(first.root(), diagram(a).root());
    Table other = a;
    other[random_.below(numVectors)] ^= 1;
    EXPECT_FALSE(first == diagram(other));
  }
  EXPECT_EQ(diagrams_.audit(), nullptr);
}

TEST_F(Engine, operationsAreThoseOfEveryVector) {
  for (unsigned round = 0; round < 200; ++round) {
    const Table a = randomTable(4);
    const Table b = randomTable(3);
    const Diagram da = diagram(a);
    const Diagram db = diagram(b);
    EXPECT_EQ(table(diagrams_.combine(da, db, verify::FirstOf())),
              combined(a, b, [](uint32_t x, uint32_t y) { return x != 0 ? x : y; }));
    EXPECT_EQ(table(diagrams_.combine(da, db, verify::Within())),
              combined(a, b, [](uint32_t x, uint32_t y) { return x != 0 ? y : 0; }));
    EXPECT_EQ(table(diagrams_.combine(da, db, verify::Without())),
              combined(a, b, [](uint32_t x, uint32_t y) { return y == 0 ? x : 0; }));
    EXPECT_EQ(table(diagrams_.relabelled(da, [](uint32_t number) { return number == 2 ? 7u : number / 2; })),
              combined(a, a, [](uint32_t x, uint32_t) { return x == 2 ? 7u : x / 2; }));
    EXPECT_EQ(table(diagrams_.selected(diagrams_.relabelled(db, [](uint32_t n) { return n != 0 ? 1u : 0u; }),
                                       da, [](uint32_t number) { return number % 2 == 1; })),
              combined(a, b, [](uint32_t x, uint32_t y) { return y != 0 && x % 2 == 1 ? 1u : 0u; }));
    EXPECT_EQ(table(da), a) << "operands stay";
  }
  EXPECT_EQ(diagrams_.audit(), nullptr);
}

TEST_F(Engine, whatIsAskedOfADiagramIsTrueOfItsTable) {
  for (unsigned round = 0; round < 200; ++round) {
    const Table a = randomTable(4);
    const Table b = randomTable(2);
    const Diagram da = diagram(a);
    const Diagram db = diagram(b);
    std::map<uint32_t, double> counts;
    std::set<uint32_t> leaves;
    std::set<uint32_t> within;
    std::vector<bool> values(8);
    for (std::size_t vector = 0; vector < numVectors; ++vector) {
      ++counts[a[vector]];
      leaves.insert(a[vector]);
      if (b[vector] != 0) {
        within.insert(a[vector]);
      }
      if (a[vector] != 0) {
        values[vector >> 3 & 7] = true; // variables 3 to 5
      }
    }
    EXPECT_EQ(diagrams_.counts(da), counts);
    EXPECT_EQ(diagrams_.leaves(da), std::vector<uint32_t>(leaves.begin(), leaves.end()));
    EXPECT_EQ(diagrams_.leavesWithin(da, db), std::vector<uint32_t>(within.begin(), within.end()));
    EXPECT_EQ(diagrams_.values(da, 3, 3), values);
  }
}

TEST_F(Engine, waysLeadWhereTheySay) {
  const auto vectorOn = [this](const Diagrams::Way& way) {
    std::size_t vector = 0;
    for (const uint8_t bit : way) {
      vector = vector << 1 | (bit == Diagrams::anyBit ? random_.below(2) : bit);
    }
    return vector;
  };
  for (unsigned round = 0; round < 200; ++round) {
    const Table a = randomTable(4);
    const Diagram da = diagram(a);
    std::map<uint32_t, uint32_t> ends;
    std::map<uint32_t, uint32_t> expected;
    for (const auto& [number, way] : diagrams_.ways(da)) {
      ends[number] = a[vectorOn(way)];
    }
    for (const uint32_t number : a) {
      expected[number] = number;
    }
    EXPECT_EQ(ends, expected);
    // The way nearest to what is wanted is as near as any vector of its leaf.
    std::vector<bool> near(numBits);
    const std::size_t target = random_.below(numVectors);
    for (unsigned variable = 0; variable < numBits; ++variable) {
      near[variable] = bitOf(target, variable);
    }
    for (const auto& [number, way] : diagrams_.ways(da, near)) {
      unsigned unwanted = 0;
      for (unsigned variable = 0; variable < numBits; ++variable) {
        unwanted += way[variable] != Diagrams::anyBit && (way[variable] != 0) != near[variable] ? 1 : 0;
      }
      unsigned least = numBits;
      for (std::size_t vector = 0; vector < numVectors; ++vector) {
        if (a[vector] == number) {
          least = std::min(least, static_cast<unsigned>(std::popcount(vector ^ target)));
        }
      }
      EXPECT_EQ(unwanted, least);
    }
    if (std::any_of(a.begin(), a.end(), [](uint32_t number) { return number != 0; })) {
      const std::vector<bool> wanted(numBits, round % 2 == 0);
      EXPECT_NE(a[vectorOn(diagrams_.wayInside(da, wanted))], 0u);
    }
  }
}

TEST_F(Engine, collectingKeepsWhatIsHeldAndFreesTheRest) {
  std::vector<Table> tables;
  std::vector<Diagram> held;
  for (unsigned round = 0; round < 60; ++round) {
    tables.push_back(randomTable(5));
    held.push_back(diagram(tables.back()));
    diagram(randomTable(5));
  }
  const std::size_t before = diagrams_.numNodes();
  diagrams_.collect();
  EXPECT_LT(diagrams_.numNodes(), before);
  EXPECT_EQ(diagrams_.audit(), nullptr);
  for (std::size_t i = 0; i < held.size(); ++i) {
    EXPECT_EQ(table(held[i]), tables[i]);
    EXPECT_EQ(diagram(tables[i]).root(), held[i].root()) << "found again, not made anew";
  }
  held.clear();
  diagrams_.collect();
  EXPECT_EQ(diagrams_.numNodes(), 0u);
}

TEST_F(Engine, aFullTableSaysSoAndStaysGood) {
  Diagrams small(64, std::size_t{1} << 19);
  const auto parity = [&small](unsigned first) {
    NodeRef even = leaf(0);
    NodeRef odd = leaf(1);
    for (unsigned variable = 64; variable-- > first;) {
      const NodeRef nextEven = small.node(variable, even, odd);
      odd = small.node(variable, odd, even);
      even = nextEven;
    }
    return even;
  };
  const Diagram kept(small, parity(0));
  std::string said;
  try {
    std::vector<Diagram> held;
    for (unsigned round = 0;; ++round) {
      NodeRef ref = leaf(1 + round % 7);
      for (unsigned variable = 64; variable-- > 0;) {
        ref = (round >> variable % 16 & 1) != 0 ? small.node(variable, leaf(round), ref)
                                                : small.node(variable, ref, leaf(round));
      }
      held.emplace_back(small, ref);
    }
  } catch (const verify::DiagramsFull& full) {
    said = full.what();
  }
  EXPECT_EQ(said, "the sets of packets need more than 0 MiB; allow them more with --memory");
  EXPECT_LE(small.peakMemory(), std::size_t{1} << 20);
  EXPECT_EQ(small.audit(), nullptr);
  EXPECT_EQ(small.leafOf(kept, [](unsigned variable) { return variable == 5; }), 1u);
  small.collect();
  EXPECT_EQ(small.leafOf(kept, [](unsigned variable) { return variable < 2; }), 0u);
}

// -------------------------------------------------------------------------------------- packet sets

const char* name(agent::Family family) {
  return family == agent::Family::ipv4 ? "ipv4" : family == agent::Family::ipv6 ? "ipv6" : "mac";
}

TEST(PacketSets, obeyTheLawsOfSetsAndHoldWhatTheirRowsHold) {
  test::Random random(test::Random::seed("PacketSets"));
  test::RandomLists lists(random);
  for (const agent::Family family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
    verify::PacketSpace space(family);
    for (unsigned round = 0; round < 40; ++round) {
      const agent::AccessList list = lists.list("L", family, 4);
      const auto any = [&] {
        std::vector<verify::Condition> conditions;
        for (const verify::FieldPlace& place : space.layout().places) {
          if (random.oneIn(2)) {
            const auto bits = verify::fieldOf(lists.packet(list), 1, place);
            verify::FieldBits compared;
            for (unsigned bit = 0; bit < place.width; ++bit) {
              compared[bit] = !random.oneIn(3);
            }
            conditions.push_back(verify::Condition::masked(place.field, bits, compared));
          }
        }
        return space.fromRow(conditions);
      };
      const verify::PacketSet a = any();
      const verify::PacketSet b = any();
      const verify::PacketSet c = any();
      EXPECT_TRUE(~(a | b) == (~a & ~b)) << name(family);
      EXPECT_TRUE((a & (b | c)) == ((a & b) | (a & c)));
      EXPECT_TRUE((a - b) == (a & ~b));
      EXPECT_TRUE(((a - b) | (a & b)) == a);
      EXPECT_TRUE(~~a == a);
      EXPECT_TRUE((a & ~a).isEmpty());
      EXPECT_TRUE((a | ~a) == space.all());
      EXPECT_DOUBLE_EQ(a.count() + (~a).count(), space.all().count());
      for (const verify::PacketSet& set : {a, b, a & b, a - b, ~a}) {
        if (!set.isEmpty()) {
          const packet::Packet witness = set.witness();
          EXPECT_TRUE(set.contains(witness, witness.vlan)) << packet::toText(witness);
          EXPECT_FALSE((~set).contains(witness, witness.vlan));
        }
      }
      for (unsigned n = 0; n < 20; ++n) {
        const packet::Packet packet = lists.packet(list);
        EXPECT_EQ((a | b).contains(packet, 2), a.contains(packet, 2) || b.contains(packet, 2));
        EXPECT_EQ((a - b).contains(packet, 2), a.contains(packet, 2) && !b.contains(packet, 2));
      }
    }
    EXPECT_EQ(space.diagrams().audit(), nullptr);
  }
}

TEST(PacketSets, rangesHoldTheirPortsAndNoOthers) {
  test::Random random(test::Random::seed("Ranges"));
  verify::PacketSpace space(agent::Family::ipv4);
  const verify::PacketSet udp =
      space.fromRow({verify::Condition::equals(verify::Field::protocol, packet::protoUdp, 8),
                     verify::Condition::equals(verify::Field::fragment, 0, 1)});
  const double perPort = (udp & space.fromRange(verify::Field::l4Dst, 80, 80)).count();
  for (unsigned round = 0; round < 50; ++round) {
    const auto low = static_cast<uint16_t>(1 + random.below(65535));
    const auto high = static_cast<uint16_t>(low + random.below(65536u - low));
    const verify::PacketSet range = udp & space.fromRange(verify::Field::l4Dst, low, high);
    EXPECT_DOUBLE_EQ(range.count(), perPort * (high - low + 1.0));
  }
}

TEST(PacketSets, noPacketThatCannotBeIsIn) {
  // A non-initial fragment with ports, UDP that is established, an ICMP type above 255.
  using verify::Condition;
  using verify::Field;
  verify::PacketSpace wire(agent::Family::ipv4, verify::Traffic::wire);
  EXPECT_TRUE(
      wire.fromRow({Condition::equals(Field::fragment, 1, 1), Condition::equals(Field::l4Dst, 80, 16)})
          .isEmpty());
  EXPECT_TRUE(
      wire.fromRow({Condition::equals(Field::protocol, 17, 8), Condition::equals(Field::established, 1, 1)})
          .isEmpty());
  EXPECT_TRUE(
      wire.fromRow({Condition::equals(Field::protocol, 1, 8), Condition::equals(Field::l4Dst, 256, 16)})
          .isEmpty());
  EXPECT_TRUE(
      wire.fromRow({Condition::equals(Field::protocol, 47, 8), Condition::equals(Field::l4Dst, 80, 16)})
          .isEmpty());
  verify::PacketSpace headers(agent::Family::ipv4, verify::Traffic::headers);
  EXPECT_FALSE(
      headers.fromRow({Condition::equals(Field::protocol, 47, 8), Condition::equals(Field::l4Dst, 80, 16)})
          .isEmpty());
  EXPECT_TRUE(
      headers.fromRow({Condition::equals(Field::fragment, 1, 1), Condition::equals(Field::l4Dst, 80, 16)})
          .isEmpty());
}

// --------------------------------------------------------------------------------------- port forms

std::vector<bool> flags(const agent::PortSet& ports) {
  std::vector<bool> flags(verify::numPorts);
  for (const agent::PortRange& range : ports) {
    std::fill(flags.begin() + range.low, flags.begin() + range.high + 1, true);
  }
  return flags;
}

TEST(PortForms, blocksAreCounted) {
  EXPECT_EQ(verify::blocksOf({{0, 65535}}), 1u);
  EXPECT_EQ(verify::blocksOf({{80, 80}}), 1u);
  EXPECT_EQ(verify::blocksOf({{1, 65534}}), 30u);
  EXPECT_EQ(verify::blocksOf({{1024, 65535}}), 6u);
  EXPECT_EQ(verify::blocksOf({{0, 79}, {81, 65535}}), 16u);
  EXPECT_EQ(verify::blocksOf({}), 0u);
}

// "Everything but one port" is two rows when the port may be taken out in front, and sixteen otherwise.
TEST(PortForms, aHoleIsTakenOutInFrontWhereThatIsAllowed) {
  verify::PortNeeds needs{flags({{0, 79}, {81, 65535}}), flags({{80, 80}}), flags({{80, 80}})};
  verify::PortForm form = verify::cheapestForm(needs);
  EXPECT_EQ(form.blocks, 2u);
  EXPECT_TRUE(agent::isAnyPort(form.ports));
  EXPECT_EQ(form.excluded, (agent::PortSet{{80, 80}}));
  needs.excludable = verify::PortFlags(verify::numPorts);
  form = verify::cheapestForm(needs);
  EXPECT_EQ(form.blocks, 16u);
  EXPECT_EQ(form.ports, (agent::PortSet{{0, 79}, {81, 65535}}));
}

TEST(PortForms, everyFormMeetsItsNeeds) {
  test::Random random(test::Random::seed("PortForms"));
  const auto range = [&random] {
    const auto low = static_cast<uint16_t>(random.next());
    return agent::PortSet{{low, static_cast<uint16_t>(low + random.below(65536u - low))}};
  };
  for (unsigned round = 0; round < 20; ++round) {
    verify::PortNeeds needs{flags(range()), flags(range()), flags(range())};
    for (std::size_t port = 0; port < verify::numPorts; ++port) {
      needs.harmful[port] = needs.harmful[port] && !needs.needed[port];
      needs.excludable[port] = needs.excludable[port] && !needs.needed[port];
    }
    const verify::PortForm form = verify::cheapestForm(needs);
    const std::vector<bool> ports = flags(form.ports);
    const std::vector<bool> excluded = flags(form.excluded);
    std::size_t wrong = 0;
    for (std::size_t port = 0; port < verify::numPorts; ++port) {
      const bool matched = ports[port] && !excluded[port];
      wrong += needs.needed[port] && !matched ? 1 : 0;
      wrong += needs.harmful[port] && matched ? 1 : 0;
      wrong += excluded[port] && !needs.excludable[port] ? 1 : 0;
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(form.blocks, verify::blocksOf(form.ports) + verify::blocksOf(form.excluded));
  }
}

} // namespace
