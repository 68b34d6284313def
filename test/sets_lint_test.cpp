#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "test/Shared.h"
#include "verify/LineEvaluator.h"
#include "verify/ListLint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>
#include <vector>

// What lint says, checked by doing it: lines are taken out, ports replaced, and the sets compared. And what
// it does not say is checked in the same way.

namespace {

using agent::AccessList;
using agent::Family;
using verify::Diagram;
using verify::PacketSet;
using verify::PacketSpace;

// For every packet what becomes of it, beyond who decides.
Diagram effects(PacketSpace& space, const AccessList& list) {
  const verify::ListLeaves leaves(&list);
  return space.diagrams().relabelled(verify::decisions(space, &list), [&](uint32_t leaf) {
    if (leaf == 0) {
      return 0u;
    }
    const agent::Rule* const rule = leaves.rule(leaf);
    return 1u + (leaves.permit(leaf) ? 1u : 0u) + (rule != nullptr && rule->log ? 2u : 0u);
  });
}

AccessList without(const AccessList& list, std::size_t line) {
  AccessList shorter = list;
  std::vector<agent::Rule>& rules = shorter.rules.edit();
  rules.erase(rules.begin() + static_cast<std::ptrdiff_t>(line));
  return shorter;
}

// Each line's packets, and those that it decides, worked out line by line.
struct LineSets {
  std::vector<PacketSet> matched;
  std::vector<PacketSet> decided;

  LineSets(PacketSpace& space, const AccessList& list) {
    PacketSet before = space.none();
    for (const agent::Rule& rule : list.rules) {
      matched.push_back(space.set(verify::matching(space, rule)));
      decided.push_back(matched.back() - before);
      before = before | matched.back();
    }
  }
};

std::string numbers(const std::vector<std::size_t>& lines) {
  std::string text;
  for (const std::size_t line : lines) {
    text += " " + std::to_string(line);
  }
  return text;
}

std::string unreachableText(const std::vector<verify::Unreachable>& found) {
  std::string text;
  for (const verify::Unreachable& line : found) {
    text +=
        std::to_string(line.line) + (line.sameAction ? " same" : " other") + numbers(line.hiddenBy) + "\n";
  }
  return text;
}

std::string expectedUnreachable(const AccessList& list, const LineSets& sets) {
  std::vector<verify::Unreachable> found;
  for (std::size_t line = 0; line < list.rules.size(); ++line) {
    if (!sets.decided[line].isEmpty()) {
      continue;
    }
    found.push_back({line, {}, true});
    for (std::size_t other = 0; other < line; ++other) {
      if (!(sets.decided[other] & sets.matched[line]).isEmpty()) {
        found.back().hiddenBy.push_back(other);
        found.back().sameAction =
            found.back().sameAction && list.rules[other].permit == list.rules[line].permit;
      }
    }
  }
  return unreachableText(found);
}

std::string removableText(const std::vector<verify::Removable>& found) {
  std::string text;
  for (const verify::Removable& line : found) {
    text += std::to_string(line.line) + (line.reached ? " reached\n" : "\n");
  }
  return text;
}

// A line that is not named must make a difference, and one that is named must not.
std::string expectedRemovable(PacketSpace& space, const AccessList& list, const LineSets& sets) {
  std::vector<verify::Removable> found;
  const Diagram all = effects(space, list);
  for (std::size_t line = 0; line < list.rules.size(); ++line) {
    if (effects(space, without(list, line)) == all) {
      found.push_back({line, !sets.decided[line].isEmpty()});
    }
  }
  return removableText(found);
}

std::string contradictionText(const std::vector<verify::Contradiction>& found) {
  std::string text;
  for (const verify::Contradiction& pair : found) {
    text += std::to_string(pair.first) + " over " + std::to_string(pair.second) + "\n";
  }
  return text;
}

std::string expectedContradictions(const AccessList& list, const LineSets& sets) {
  std::vector<verify::Contradiction> found;
  for (std::size_t first = 0; first < list.rules.size(); ++first) {
    PacketSet next = sets.decided[first]; // that nothing between has taken
    for (std::size_t second = first + 1; second < list.rules.size(); ++second) {
      const PacketSet& a = sets.matched[first];
      const PacketSet& b = sets.matched[second];
      if (list.rules[first].permit != list.rules[second].permit && !(next & b).isEmpty() &&
          !(a - b).isEmpty() && !(b - a).isEmpty()) {
        found.push_back({first, second, {}});
      }
      next = next - b;
    }
  }
  return contradictionText(found);
}

void expectWitnesses(const AccessList& list, const std::vector<verify::Contradiction>& found) {
  for (const verify::Contradiction& pair : found) {
    const uint16_t vlan = pair.witness.vlan != 0 ? pair.witness.vlan : uint16_t{1};
    const verify::Judgement wins = verify::evaluate(list, pair.witness, vlan);
    const verify::Judgement loses = verify::evaluate(without(list, pair.first), pair.witness, vlan);
    EXPECT_TRUE(wins.decider == verify::Decider::line && wins.index == pair.first)
        << packet::toText(pair.witness);
    EXPECT_TRUE(loses.decider == verify::Decider::line && loses.index + 1 == pair.second)
        << packet::toText(pair.witness);
  }
}

// The list with the cheaper form in place.
AccessList cheaper(const AccessList& list, const verify::CostlyRange& range) {
  AccessList changed = list;
  std::vector<agent::Rule>& rules = changed.rules.edit();
  const auto at = rules.begin() + static_cast<std::ptrdiff_t>(range.line);
  agent::Rule front = *at;
  front.permit = !front.permit;
  front.log = false;
  std::vector<agent::Criteria> opposite;
  for (std::size_t i = 0; i < at->alternatives.size(); ++i) {
    agent::Criteria& criteria = at->alternatives[i];
    agent::PortSet& ports = range.source ? criteria.srcPorts : criteria.dstPorts;
    if (!criteria.fragments && ports == range.ports) {
      ports = range.excluded;
      opposite.push_back(criteria);
      ports = range.cheaper;
    }
  }
  front.alternatives = opposite;
  if (!range.excluded.empty()) {
    rules.insert(at, front);
  }
  return changed;
}

void expectCheaper(PacketSpace& space, const AccessList& list, const verify::CostlyRange& range) {
  const AccessList changed = cheaper(list, range);
  EXPECT_TRUE(effects(space, changed) == effects(space, list)) << "line " << range.line;
  EXPECT_EQ(verify::portRows(list.rules[range.line]), range.rows);
  std::size_t rows = verify::portRows(changed.rules[range.line]);
  if (!range.excluded.empty()) {
    rows += verify::portRows(changed.rules[range.line + 1]);
  }
  EXPECT_EQ(rows, range.cheaperRows);
  EXPECT_LT(rows, range.rows);
}

// Lists whose lines often meet: few addresses, some lines twice, some behind a wide one.
AccessList meetingList(test::Random& random, test::RandomLists& lists, Family family) {
  AccessList list = lists.list("L", family, 9);
  const unsigned copies = random.below(4);
  for (unsigned n = 0; n < copies; ++n) {
    agent::Rule copy = list.rules[random.below(static_cast<uint32_t>(list.rules.size()))];
    if (random.oneIn(2)) {
      copy.permit = random.oneIn(2);
    }
    if (random.oneIn(3)) {
      copy.alternatives.resize(1);
      copy.alternatives[0].srcV4 = {};
      copy.alternatives[0].srcV6 = {};
      copy.alternatives[0].srcMac = {};
    }
    std::vector<agent::Rule>& rules = list.rules.edit();
    rules.insert(rules.begin() + random.below(static_cast<uint32_t>(rules.size()) + 1), copy);
  }
  return list;
}

TEST(Lint, findsExactlyWhatTryingItFinds) {
  test::Random random(test::Random::seed("Lint"));
  test::RandomLists lists(random);
  std::size_t ranges = 0;
  std::size_t contradictions = 0;
  std::size_t unreachable = 0;
  for (const Family family : {Family::ipv4, Family::ipv6, Family::mac}) {
    for (unsigned round = 0; round < 120; ++round) {
      const AccessList list = meetingList(random, lists, family);
      PacketSpace space(family, verify::trafficOf(&list));
      const verify::ListFindings findings = verify::lint(space, list);
      const LineSets sets(space, list);
      EXPECT_EQ(unreachableText(findings.unreachable), expectedUnreachable(list, sets));
      EXPECT_EQ(removableText(findings.removable), expectedRemovable(space, list, sets));
      EXPECT_EQ(contradictionText(findings.contradictions), expectedContradictions(list, sets));
      expectWitnesses(list, findings.contradictions);
      for (const verify::CostlyRange& range : findings.ranges) {
        expectCheaper(space, list, range);
      }
      ranges += findings.ranges.size();
      contradictions += findings.contradictions.size();
      unreachable += findings.unreachable.size();
    }
  }
  EXPECT_GT(ranges, 0u);
  EXPECT_GT(contradictions, 0u);
  EXPECT_GT(unreachable, 0u);
}

// What is found in a list, one finding a line, lines by their numbers from 1.
std::string lintText(const std::string& lines) {
  const agent::Config config = agent::readConfigText(lines, "t");
  EXPECT_TRUE(config.diagnostics.empty()) << config.diagnostics.front().text();
  const AccessList& list = config.lists.at(0);
  PacketSpace space(list.family, verify::trafficOf(&list));
  const verify::ListFindings findings = verify::lint(space, list);
  std::string text;
  for (const verify::Unreachable& line : findings.unreachable) {
    text += std::to_string(line.line + 1) + " unreachable, " + (line.sameAction ? "same" : "other") + ", by";
    for (const std::size_t other : line.hiddenBy) {
      text += " " + std::to_string(other + 1);
    }
    text += "\n";
  }
  for (const verify::Removable& line : findings.removable) {
    text += std::to_string(line.line + 1) + " removable" + (line.reached ? ", reached" : "") + "\n";
  }
  for (const verify::Contradiction& pair : findings.contradictions) {
    text += std::to_string(pair.first + 1) + " against " + std::to_string(pair.second + 1) + ": " +
            packet::toText(pair.witness) + "\n";
  }
  const auto ports = [](const agent::PortSet& set) {
    std::string ranges;
    for (const agent::PortRange& range : set) {
      ranges += (ranges.empty() ? "" : ",") + std::to_string(range.low) + "-" + std::to_string(range.high);
    }
    return ranges.empty() ? std::string("none") : ranges;
  };
  for (const verify::CostlyRange& range : findings.ranges) {
    text += std::to_string(range.line + 1) + (range.source ? " source " : " destination ") +
            ports(range.ports) + " takes " + std::to_string(range.rows) + ": " + ports(range.cheaper) +
            " without " + ports(range.excluded) + " takes " + std::to_string(range.cheaperRows) + "\n";
  }
  return text;
}

TEST(Lint, hiddenLines) {
  EXPECT_EQ(lintText("ip access-list extended A\n"
                     " permit tcp any 10.0.0.0 0.0.0.255 eq 80\n"
                     " permit tcp any host 10.0.0.7 eq 80\n"
                     " deny tcp any host 10.0.0.8 eq 80\n"
                     " permit tcp any any gt 1023\n"
                     " permit tcp any any lt 1024\n"
                     " deny tcp host 10.1.1.1 any eq 2000\n"),
            "2 unreachable, same, by 1\n"
            "3 unreachable, other, by 1\n"
            "6 unreachable, other, by 4\n"
            "2 removable\n"
            "3 removable\n"
            "6 removable\n"
            "4 destination 1024-65535 takes 6: 0-65535 without none takes 1\n");
}

TEST(Lint, severalLinesHideTogether) {
  EXPECT_EQ(lintText("ip access-list extended A\n"
                     " deny ip 10.0.0.0 0.127.255.255 any\n"
                     " deny ip 10.128.0.0 0.127.255.255 any\n"
                     " permit ip 10.0.0.0 0.255.255.255 any\n"
                     " permit ip any any\n"),
            "3 unreachable, other, by 1 2\n"
            "3 removable\n");
}

// A non-initial fragment has no ports, so that a line that asks for ports hides none of them.
TEST(Lint, linesForFragmentsAreNotHiddenByLinesForPorts) {
  EXPECT_EQ(lintText("ip access-list extended A\n"
                     " permit udp any any range 1 65535\n"
                     " permit udp any any eq 0\n"
                     " permit udp any any fragments\n"),
            "3 unreachable, same, by 2\n3 removable\n1 destination 1-65535 takes 16: 0-65535 without none "
            "takes 1\n");
}

TEST(Lint, logKeepsALine) {
  EXPECT_EQ(lintText("ip access-list extended A\n permit tcp any any\n deny udp any any\n"),
            "2 removable, reached\n");
  EXPECT_EQ(lintText("ip access-list extended A\n permit tcp any any\n deny udp any any log\n"), "");
}

TEST(Lint, orderAloneDecides) {
  EXPECT_EQ(lintText("ip access-list extended A\n"
                     " permit tcp 10.1.0.0 0.0.255.255 any\n"
                     " deny tcp any any eq 25\n"
                     " permit tcp any any\n"),
            "1 against 2: tcp 10.1.0.1:40000 > 10.2.0.1:25 syn ttl 64\n");
}

TEST(Lint, aHoleIsCheaperInFront) {
  EXPECT_EQ(lintText("ip access-list extended A\n"
                     " permit tcp any any neq 80\n"),
            "1 destination 0-79,81-65535 takes 16: 0-65535 without 80-80 takes 2\n");
}

TEST(Lint, oneLineIsNotRemovableUnlessItPermitsEverything) {
  EXPECT_EQ(lintText("ip access-list extended A\n permit ip any any\n"), "1 removable, reached\n");
  EXPECT_EQ(lintText("ip access-list extended A\n deny ip any any\n"), "");
  EXPECT_EQ(lintText("ip access-list extended A\n permit ip any any log\n"), "");
}

// Lines of real lists that are named are taken out one by one; some of those that are not, too.
TEST(Lint, realLists) {
  const auto data = test::sharedData();
  if (!data) {
    GTEST_SKIP() << test::noSharedData;
  }
  test::Random random(test::Random::seed("RealLint"));
  for (const auto& entry : std::filesystem::directory_iterator(*data / "configs")) {
    const agent::Config config = agent::readConfig(entry.path().string());
    for (const AccessList& list : config.lists) {
      if (list.rules.size() < 2 || list.hasErrors) {
        continue;
      }
      PacketSpace space(list.family, verify::trafficOf(&list));
      const verify::ListFindings findings = verify::lint(space, list);
      const Diagram all = effects(space, list);
      std::set<std::size_t> removable;
      for (const verify::Removable& line : findings.removable) {
        removable.insert(line.line);
      }
      for (unsigned n = 0; n < 8; ++n) {
        const std::size_t line =
            removable.empty() || n % 2 == 0
                ? random.below(static_cast<uint32_t>(list.rules.size()))
                : *std::next(removable.begin(), random.below(static_cast<uint32_t>(removable.size())));
        EXPECT_EQ(effects(space, without(list, line)) == all, removable.count(line) != 0)
            << entry.path() << " " << list.name << " line " << line;
      }
      for (const verify::Unreachable& line : findings.unreachable) {
        EXPECT_EQ(removable.count(line.line), 1u);
      }
      for (std::size_t i = 0; i < findings.ranges.size() && i < 4; ++i) {
        expectCheaper(space, list, findings.ranges[i]);
      }
    }
  }
}

} // namespace
