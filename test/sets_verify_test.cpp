#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "sim/Key.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "tool/ChipSets.h"
#include "tool/Session.h"
#include "verify/LineEvaluator.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// The chip's rows as sets against the lines as sets. What is programmed is equal; any bit of a row that is
// then turned over is either found, with a packet that chip and lines do judge differently, or makes no
// difference to any packet.

namespace {

using agent::AccessList;
using agent::Family;

#ifdef __SANITIZE_ADDRESS__
constexpr unsigned stepStride = 41; // the sanitizers look at the code, the other builds at every bit
#else
constexpr unsigned stepStride = 1;
#endif

agent::Config configOf(std::vector<AccessList> lists) {
  agent::Config config;
  agent::Interface port;
  port.name = port.portName = "Ethernet1";
  for (const AccessList& list : lists) {
    port.bindings.push_back({list.name, list.family, agent::Direction::in, {}});
  }
  config.lists = std::move(lists);
  config.interfaces.push_back(port);
  return config;
}

// The chip's verdict of one lookup.
bool chipPermits(const sim::TcamTable& table, const tool::ChipLookup& lookup, const packet::Packet& packet) {
  const uint32_t row =
      table.lookup(sim::buildKey(lookup.table, packet, lookup.aclId, lookup.role, test::vlanOf(packet)));
  return row != sim::TcamTable::noRow &&
         XpXdk::xpIaclData_t::fromWord(table.data(row, lookup.ingressPort % table.numCopies())).result() == 1;
}

// One place, with the sets of its lines.
class PlaceUnderTest {
public:
  PlaceUnderTest(tool::Session& session, const tool::ChipPlace& place, test::RandomLists& packets)
      : session_(session), place_(place), packets_(packets), space_(tool::familyOf(place.lookup.table)),
        lines_(verify::permitted(space_, place.list)) {}

  sim::TcamTable& table() { return *session_.system().device(place_.chip)->tcam(place_.lookup.table); }

  // Whether a difference is found. It must be real; where none is found no packet may show one.
  bool differs() {
    const verify::PacketSet chip =
        tool::chipPermitted(space_, *session_.system().device(place_.chip), place_.lookup);
    if (chip == lines_) {
      for (unsigned n = 0; n < 10; ++n) {
        const packet::Packet packet = packets_.packet(*place_.list);
        if (test::isOf(space_.family(), packet)) {
          EXPECT_EQ(chipPermits(table(), place_.lookup, packet), linesPermit(packet))
              << packet::toText(packet);
        }
      }
      return false;
    }
    for (const verify::PacketSet& differing : {chip - lines_, lines_ - chip}) {
      if (!differing.isEmpty()) {
        const packet::Packet witness = differing.witness();
        EXPECT_EQ(chipPermits(table(), place_.lookup, witness), chip.contains(witness, test::vlanOf(witness)))
            << packet::toText(witness);
        EXPECT_EQ(linesPermit(witness), lines_.contains(witness, test::vlanOf(witness)));
        EXPECT_NE(chipPermits(table(), place_.lookup, witness), linesPermit(witness));
      }
    }
    return true;
  }

private:
  bool linesPermit(const packet::Packet& packet) const {
    return verify::evaluate(*place_.list, packet, test::vlanOf(packet)).permit;
  }

  tool::Session& session_;
  const tool::ChipPlace& place_;
  test::RandomLists& packets_;
  verify::PacketSpace space_;
  verify::PacketSet lines_;
};

struct Flips {
  unsigned found = 0;
  unsigned harmless = 0;
};

// Every bit of every row of the lookup, and each row gone.
void flipRows(PlaceUnderTest& place, Flips& flips) {
  sim::TcamTable& table = place.table();
  const auto count = [&](bool differs) { ++(differs ? flips.found : flips.harmless); };
  unsigned step = 0;
  for (uint32_t at = table.nextValid(0); at != sim::TcamTable::noRow; at = table.nextValid(at + 1)) {
    const sim::TcamRow row = table.row(at);
    for (unsigned bit = 0; bit < 8 * table.keyLength(); ++bit) {
      if (step++ % stepStride != 0) {
        continue;
      }
      sim::TcamRow damaged = row;
      damaged.value[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
      table.keyMaskIs(at, damaged.value, damaged.mask);
      count(place.differs());
      damaged = row;
      damaged.mask[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
      table.keyMaskIs(at, damaged.value, damaged.mask);
      count(place.differs());
    }
    table.keyMaskIs(at, row.value, row.mask);
    table.validIs(at, false);
    count(place.differs());
    table.validIs(at, true);
    for (unsigned copy = 0; copy < table.numCopies(); ++copy) {
      const uint32_t word = table.data(at, copy);
      XpXdk::xpIaclData_t data = XpXdk::xpIaclData_t::fromWord(word);
      data.resultIs(data.result() == 1 ? 0 : 1);
      table.dataIs(at, copy, data.word());
      count(place.differs());
      table.dataIs(at, copy, word);
    }
    EXPECT_FALSE(place.differs()) << "as it was";
  }
}

TEST(ChipSets, AnyBitThatMattersIsFound) {
  test::Random random(test::Random::seed("ChipSets"));
  test::RandomLists lists(random);
  for (const Family family : {Family::ipv4, Family::ipv6, Family::mac}) {
    Flips flips;
    for (unsigned round = 0; round < 2; ++round) {
      AccessList list = lists.list("L", family, 3);
      for (agent::Rule& rule : list.rules.edit()) {
        rule.alternatives.resize(1);
        rule.alternatives[0].srcPorts = agent::anyPort();
      }
      const agent::Config config = configOf({list});
      tool::Session session(config, tool::CommonOptions());
      const std::vector<tool::ChipPlace> places = tool::chipPlaces(session);
      ASSERT_EQ(places.size(), 1u);
      PlaceUnderTest place(session, places[0], lists);
      EXPECT_FALSE(place.differs());
      flipRows(place, flips);
    }
    EXPECT_GT(flips.found, 0u);
    EXPECT_GT(flips.harmless, 0u) << "bits that are not compared";
  }
}

TEST(ChipSets, EqualTheLinesOfRandomLists) {
  test::Random random(test::Random::seed("Equal"));
  test::RandomLists lists(random);
  for (unsigned round = 0; round < 15; ++round) {
    const agent::Config config =
        configOf({lists.list("FOUR", Family::ipv4, 12), lists.list("SIX", Family::ipv6, 12),
                  lists.list("MAC", Family::mac, 12)});
    tool::Session session(config, tool::CommonOptions());
    const std::vector<tool::ChipPlace> places = tool::chipPlaces(session);
    EXPECT_EQ(places.size(), 3u);
    for (const tool::ChipPlace& place : places) {
      EXPECT_FALSE(PlaceUnderTest(session, place, lists).differs());
    }
  }
}

// Where lookups are made, whose list is to decide there, and under which id.
TEST(ChipSets, PlacesAreThoseOfTheInterfaces) {
  const agent::Config config = agent::readConfigText("vlan 10,20\n"
                                                     "ip access-list extended A\n"
                                                     " permit tcp any any\n"
                                                     "ipv6 access-list S\n"
                                                     " permit tcp any any\n"
                                                     "mac access-list M\n"
                                                     " permit any any\n"
                                                     "interface Ethernet1\n"
                                                     " switchport access vlan 10\n"
                                                     " ip access-group A in\n"
                                                     " mac access-group M in\n"
                                                     "interface Ethernet2\n"
                                                     " switchport trunk allowed vlan 10,20\n"
                                                     " ip access-group A out\n"
                                                     "interface Vlan10\n"
                                                     " ipv6 traffic-filter S in\n"
                                                     "interface Vlan30\n"
                                                     " ip access-group A out\n",
                                                     "t");
  ASSERT_TRUE(config.diagnostics.empty()) << config.diagnostics.front().text();
  tool::Session session(config, tool::CommonOptions());
  std::string text;
  for (const tool::ChipPlace& place : tool::chipPlaces(session)) {
    text += place.interface + (place.direction == agent::Direction::in ? " in " : " out ") +
            (place.list == nullptr ? "none" : place.list->name) + (place.enabled ? "" : " no lookup") +
            (place.lookup.role == sim::Role::routed ? " routed" : " port") + "\n";
  }
  EXPECT_EQ(text, "Ethernet1 in A port\n"
                  "Ethernet1 in M port\n"
                  "Vlan10 in S routed\n"
                  "Ethernet2 out A port\n"
                  "Vlan30 out A routed\n");
}

// An enable bit that is gone: no lookup is made, and everything is permitted.
TEST(ChipSets, ALookupThatIsNotMadeIsSeen) {
  const agent::Config config = agent::readConfigText("ip access-list extended A\n"
                                                     " permit tcp any any\n"
                                                     "interface Ethernet1\n"
                                                     " ip access-group A in\n",
                                                     "t");
  tool::Session session(config, tool::CommonOptions());
  session.system().device(0)->portConfig()[1].aclEnBits = 0;
  const std::vector<tool::ChipPlace> places = tool::chipPlaces(session);
  ASSERT_EQ(places.size(), 1u);
  EXPECT_FALSE(places[0].enabled);
  EXPECT_EQ(places[0].list->name, "A");
}

} // namespace
