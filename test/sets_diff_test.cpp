#include "packet/PacketText.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "verify/LineEvaluator.h"
#include "verify/ListDiff.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

// What changes between two lists, against the evaluator: on packets near the edges of their lines and on the
// packets that are shown.

namespace {

using agent::AccessList;
using agent::Family;
using verify::PacketSet;
using verify::PacketSpace;

verify::Judgement judged(const AccessList* list, const packet::Packet& packet) {
  return list == nullptr ? verify::Judgement{true, verify::Decider::noList, 0}
                         : verify::evaluate(*list, packet, test::vlanOf(packet));
}

// A few lines go, come, turn round or change places.
AccessList edited(test::Random& random, test::RandomLists& lists, const AccessList& list) {
  AccessList changed = list;
  for (unsigned n = random.below(4); n != 0; --n) {
    std::vector<agent::Rule>& rules = changed.rules.edit();
    const auto at = rules.begin() + random.below(static_cast<uint32_t>(rules.size()));
    switch (random.below(4)) {
    case 0:
      if (rules.size() > 1) {
        rules.erase(at);
      }
      break;
    case 1:
      rules.insert(at, lists.list("M", list.family, 1).rules.front());
      break;
    case 2:
      at->permit = !at->permit;
      break;
    default:
      std::iter_swap(at, rules.begin());
    }
  }
  return changed;
}

void expectChange(const verify::VerdictChange& change, bool permits, const AccessList* before,
                  const AccessList* after) {
  double packets = 0;
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const verify::LineChange& line : change.lines) {
    const std::string text = packet::toText(line.witness);
    EXPECT_TRUE(line.before == judged(before, line.witness)) << text;
    EXPECT_TRUE(line.after == judged(after, line.witness)) << text;
    EXPECT_EQ(line.before.permit, !permits) << text;
    EXPECT_EQ(line.after.permit, permits) << text;
    EXPECT_TRUE(change.packets.contains(line.witness, test::vlanOf(line.witness))) << text;
    EXPECT_GT(line.packets, 0);
    packets += line.packets;
  }
  EXPECT_NEAR(packets, change.packets.count(), 1e-9 * packets);
  EXPECT_EQ(change.lines.empty(), change.packets.isEmpty());
  if (!change.packets.isEmpty()) {
    EXPECT_EQ(judged(before, change.witness).permit, !permits);
    EXPECT_EQ(judged(after, change.witness).permit, permits);
  }
}

void expectDiff(PacketSpace& space, test::RandomLists& packets, const AccessList* before,
                const AccessList* after) {
  const verify::ListDiff diff = verify::diff(space, before, after, space.all());
  expectChange(diff.denied, false, before, after);
  expectChange(diff.permitted, true, before, after);
  for (unsigned n = 0; n < 200; ++n) {
    const AccessList* const source = n % 2 == 0 && before != nullptr ? before : after;
    const packet::Packet packet = packets.packet(source != nullptr ? *source : *before);
    if (space.family() != Family::mac &&
        packet.l3 != (space.family() == Family::ipv4 ? packet::L3::ipv4 : packet::L3::ipv6)) {
      continue;
    }
    const verify::Judgement was = judged(before, packet);
    const verify::Judgement is = judged(after, packet);
    const verify::VerdictChange& change = is.permit ? diff.permitted : diff.denied;
    EXPECT_EQ(change.packets.contains(packet, test::vlanOf(packet)), was.permit != is.permit)
        << packet::toText(packet);
    if (was.permit != is.permit) {
      EXPECT_TRUE(std::any_of(change.lines.begin(), change.lines.end(), [&](const verify::LineChange& line) {
        return line.before == was && line.after == is;
      })) << packet::toText(packet);
    }
  }
}

TEST(Diff, isWhatTheEvaluatorSays) {
  test::Random random(test::Random::seed("Diff"));
  test::RandomLists lists(random);
  for (const Family family : {Family::ipv4, Family::ipv6, Family::mac}) {
    for (unsigned round = 0; round < 60; ++round) {
      const AccessList before = lists.list("L", family, 10);
      const AccessList after = edited(random, lists, before);
      PacketSpace space(family);
      expectDiff(space, lists, &before, &after);
      expectDiff(space, lists, nullptr, &after);
      expectDiff(space, lists, &before, nullptr);
      EXPECT_TRUE(verify::diff(space, &before, &before, space.all()).isEmpty());
      EXPECT_EQ(space.diagrams().audit(), nullptr);
    }
  }
}

// Lines for different protocols may stand in any order.
TEST(Diff, orderThatDoesNotMatterChangesNothing) {
  test::Random random(test::Random::seed("Order"));
  test::RandomLists lists(random);
  for (unsigned round = 0; round < 30; ++round) {
    AccessList before = lists.list("L", Family::ipv4, 10);
    for (std::size_t i = 0; i < before.rules.size(); ++i) {
      for (agent::Criteria& criteria : before.rules.edit()[i].alternatives) {
        criteria.protocol = static_cast<uint8_t>(100 + i);
        criteria.established = false;
      }
    }
    AccessList after = before;
    std::reverse(after.rules.edit().begin(), after.rules.edit().end());
    PacketSpace space(Family::ipv4);
    EXPECT_TRUE(verify::diff(space, &before, &after, space.all()).isEmpty());
  }
}

TEST(Diff, witnessesAreTakenFromThePreferredPackets) {
  AccessList before;
  before.family = Family::mac;
  before.rules.edit().resize(1);
  before.rules.edit()[0].permit = true;
  before.rules.edit()[0].alternatives.resize(1);
  AccessList after = before;
  after.rules.edit()[0].permit = false;
  PacketSpace space(Family::mac);
  const auto witness = [&](agent::PortSet vlans) {
    const PacketSet preferred =
        space.fromRow({verify::Condition::within(verify::Field::vlan, std::move(vlans))});
    const verify::ListDiff diff = verify::diff(space, &before, &after, preferred);
    return std::to_string(diff.denied.witness.vlan) + " " +
           std::to_string(diff.denied.lines.at(0).witness.vlan);
  };
  EXPECT_EQ(witness({{17, 17}}), "17 17");
  EXPECT_EQ(witness({}), "1 1");
}

} // namespace
