#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "test/Shared.h"
#include "verify/LineEvaluator.h"
#include "verify/ListSets.h"
#include "verify/Successors.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

// Lists as sets of packets against the evaluator that goes through their lines one by one: on packets near
// the edges of the lines, and on one packet from every set that is found.

namespace {

using agent::AccessList;
using agent::Family;
using verify::Diagram;
using verify::Diagrams;
using verify::Judgement;
using verify::ListLeaves;

constexpr Family families[] = {Family::ipv4, Family::ipv6, Family::mac};

std::string text(const Judgement& judgement) {
  return std::string(judgement.permit ? "permit" : "deny") + " by " +
         std::to_string(static_cast<unsigned>(judgement.decider)) + "/" + std::to_string(judgement.index);
}

// How often the diagram and the evaluator differ, on `numPackets` packets and on each leaf's own packet.
std::string differences(verify::PacketSpace& space, const AccessList& list, test::RandomLists& packets,
                        unsigned numPackets) {
  const Diagram decided = verify::decisions(space, &list);
  const verify::PacketSet permitted = verify::permitted(space, &list);
  const ListLeaves leaves(&list);
  std::string found;
  const auto look = [&](const packet::Packet& packet) {
    const uint32_t leaf = space.leafOf(decided, packet, test::vlanOf(packet));
    const Judgement expected = verify::evaluate(list, packet, test::vlanOf(packet));
    if (leaf == 0) {
      found += "not known: " + packet::toText(packet) + "\n";
    } else if (!(leaves.judgement(leaf) == expected) ||
               permitted.contains(packet, test::vlanOf(packet)) != expected.permit) {
      found +=
          packet::toText(packet) + ": " + text(leaves.judgement(leaf)) + ", but " + text(expected) + "\n";
    }
  };
  for (unsigned n = 0; n < numPackets; ++n) {
    const packet::Packet packet = packets.packet(list);
    if (test::isOf(list.family, packet)) {
      look(packet);
    }
  }
  for (const auto& [leaf, way] : space.diagrams().ways(decided)) {
    if (leaf != 0) {
      const packet::Packet packet = space.packetOn(way);
      look(packet);
      if (space.leafOf(decided, packet, test::vlanOf(packet)) != leaf) {
        found += "the way to leaf " + std::to_string(leaf) + " leads elsewhere\n";
      }
    }
  }
  return found;
}

TEST(Lines, setsOfRandomListsAreWhatTheEvaluatorSays) {
  test::Random random(test::Random::seed("Lines"));
  test::RandomLists lists(random);
  for (const Family family : families) {
    for (unsigned round = 0; round < 60; ++round) {
      const AccessList list = lists.list("L", family, 12);
      verify::PacketSpace space(family, verify::trafficOf(&list));
      EXPECT_EQ(differences(space, list, lists, 200), "");
      EXPECT_EQ(space.diagrams().audit(), nullptr);
    }
  }
}

// The packets of a line are those that match it wherever it stands.
TEST(Lines, aLineMatchesTheSamePackets) {
  test::Random random(test::Random::seed("Matching"));
  test::RandomLists lists(random);
  for (const Family family : families) {
    verify::PacketSpace space(family);
    for (unsigned round = 0; round < 30; ++round) {
      const AccessList list = lists.list("L", family, 3);
      for (const agent::Rule& rule : list.rules) {
        const verify::PacketSet matched = space.set(verify::matching(space, rule));
        for (unsigned n = 0; n < 50; ++n) {
          const packet::Packet packet = lists.packet(list);
          if (test::isOf(family, packet)) {
            EXPECT_EQ(matched.contains(packet, test::vlanOf(packet)),
                      verify::matches(rule, family, packet, test::vlanOf(packet)))
                << packet::toText(packet);
          }
        }
      }
    }
  }
}

// What decides, and what would decide in another way without it.
TEST(Lines, successorsAreWhatTheListWithoutTheLineSays) {
  test::Random random(test::Random::seed("Successors"));
  test::RandomLists lists(random);
  for (const Family family : families) {
    for (unsigned round = 0; round < 30; ++round) {
      const AccessList list = lists.list("L", family, 8);
      verify::PacketSpace space(family, verify::trafficOf(&list));
      const verify::Successors successors(space, list);
      for (unsigned n = 0; n < 200; ++n) {
        const packet::Packet packet = lists.packet(list);
        if (!test::isOf(family, packet)) {
          continue;
        }
        const uint32_t number = space.leafOf(successors.diagram(), packet, test::vlanOf(packet));
        ASSERT_NE(number, 0u) << packet::toText(packet);
        const verify::Successors::Pair& pair = successors.pair(number);
        const Judgement decides = verify::evaluate(list, packet, test::vlanOf(packet));
        EXPECT_EQ(text(successors.leaves().judgement(pair.first)), text(decides));
        if (decides.decider != verify::Decider::line || list.rules.size() == 1) {
          continue;
        }
        AccessList without = list;
        std::vector<agent::Rule>& rules = without.rules.edit();
        rules.erase(rules.begin() + static_cast<std::ptrdiff_t>(decides.index));
        Judgement next = verify::evaluate(without, packet, test::vlanOf(packet));
        bool log = false;
        if (next.decider == verify::Decider::line) {
          log = without.rules[next.index].log;
          next.index += next.index >= decides.index ? 1 : 0;
        }
        const bool same = next.permit == decides.permit && log == list.rules[decides.index].log;
        EXPECT_EQ(pair.second == verify::Successors::sameEffect, same);
        if (!same && pair.second != verify::Successors::sameEffect) {
          EXPECT_EQ(text(successors.leaves().judgement(pair.second)), text(next));
        }
      }
    }
  }
}

// How many packets a list permits, where that can be said without it.
std::string permittedText(const std::string& lines) {
  const agent::Config config = agent::readConfigText(lines, "t");
  EXPECT_TRUE(config.diagnostics.empty());
  const AccessList& list = config.lists.at(0);
  verify::PacketSpace space(list.family, verify::trafficOf(&list));
  const verify::PacketSet permitted = verify::permitted(space, &list);
  if (permitted.isEmpty()) {
    return "nothing";
  }
  return permitted == space.all() ? "everything" : packet::toText(permitted.witness());
}

TEST(Lines, witnessesArePlain) {
  EXPECT_EQ(permittedText("ip access-list extended A\n deny ip any any\n"), "nothing");
  EXPECT_EQ(permittedText("ip access-list extended A\n permit ip any any\n"), "everything");
  EXPECT_EQ(permittedText("ip access-list extended A\n permit udp any host 10.9.8.7 eq 53\n"),
            "udp 10.1.0.1:40000 > 10.9.8.7:53 ttl 64");
  EXPECT_EQ(permittedText("ip access-list extended A\n permit icmp any any echo\n"),
            "icmp 10.1.0.1 > 10.2.0.1 8/64 ttl 64");
  EXPECT_EQ(permittedText("ip access-list extended A\n permit tcp any any established\n"),
            "tcp 10.1.0.1:40000 > 10.2.0.1:80 ack ttl 64");
  EXPECT_EQ(permittedText("ip access-list extended A\n permit udp any any fragments\n"),
            "udp 10.1.0.1 > 10.2.0.1 fragment ttl 64");
  EXPECT_EQ(permittedText("ip access-list extended A\n permit ip any any ttl eq 1\n"),
            "tcp 10.1.0.1:40000 > 10.2.0.1:80 syn ttl 1");
}

TEST(Lines, noListPermitsEverything) {
  for (const Family family : families) {
    verify::PacketSpace space(family);
    AccessList empty;
    empty.family = family;
    EXPECT_TRUE(verify::permitted(space, nullptr) == space.all());
    EXPECT_TRUE(verify::permitted(space, &empty) == space.all());
  }
}

// An IPv6 list that forgets neighbour discovery permits it all the same, and nothing else.
TEST(Lines, neighbourDiscoveryIsPermittedBehindTheLines) {
  const agent::Config config = agent::readConfigText("ipv6 access-list S\n deny tcp any any\n", "t");
  verify::PacketSpace space(Family::ipv6, verify::Traffic::wire);
  const verify::PacketSet permitted = verify::permitted(space, &config.lists.at(0));
  const verify::PacketSet discovery =
      space.fromRow({verify::Condition::equals(verify::Field::protocol, packet::protoIcmpV6, 8),
                     verify::Condition::within(verify::Field::l4Dst, {{135, 136}})});
  EXPECT_TRUE(permitted == discovery);
}

TEST(Lines, realListsAndFilterSets) {
  const auto data = test::sharedData();
  if (!data) {
    GTEST_SKIP() << test::noSharedData;
  }
  test::Random random(test::Random::seed("Real"));
  test::RandomLists packets(random);
  unsigned lists = 0;
  for (const char* folder : {"configs", "classbench"}) {
    for (const auto& entry : std::filesystem::directory_iterator(*data / folder)) {
      const agent::Config config = agent::readConfig(entry.path().string());
      for (const AccessList& list : config.lists) {
        if (list.rules.empty() || list.hasErrors) {
          continue;
        }
        verify::PacketSpace space(list.family, verify::trafficOf(&list));
        EXPECT_EQ(differences(space, list, packets, 100), "") << entry.path() << " " << list.name;
        ++lists;
      }
    }
  }
  EXPECT_GT(lists, 20u);
}

} // namespace
