#include "agent/Aggregate.h"
#include "agent/Desired.h"
#include "agent/Plan.h"
#include "agent/config/ConfigReader.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>

// Port blocks, rule numbers, generations and plans: everything between a configured line and the staging
// calls.

namespace {

using namespace agent;

std::string blocksText(const PortSet& ports) {
  std::ostringstream text;
  for (const PortBlock& block : portBlocks(ports)) {
    text << (text.tellp() > 0 ? " " : "") << block.value << "/" << std::hex << block.mask << std::dec << "["
         << block.low << "-" << block.high << "]";
  }
  return text.str();
}

TEST(PortBlocks, KnownRanges) {
  EXPECT_EQ(blocksText({{0, 65535}}), "0/0[0-0]"); // any port
  EXPECT_EQ(blocksText({{80, 80}}), "80/ffff[80-80]");
  EXPECT_EQ(blocksText({{0, 0}}), "0/ffff[0-0]");
  EXPECT_EQ(blocksText({{65535, 65535}}), "65535/ffff[65535-65535]");
  EXPECT_EQ(blocksText({{1024, 65535}}),
            "1024/fc00[1024-2047] 2048/f800[2048-4095] 4096/f000[4096-8191] "
            "8192/e000[8192-16383] 16384/c000[16384-32767] 32768/8000[32768-65535]");
  EXPECT_EQ(blocksText({{5, 10}}), "5/ffff[5-5] 6/fffe[6-7] 8/fffe[8-9] 10/ffff[10-10]");
  EXPECT_EQ(blocksText({{20, 21}, {80, 80}}), "20/fffe[20-21] 80/ffff[80-80]");
  EXPECT_EQ(blocksText({}), "");
  EXPECT_EQ(portBlocks({{1, 65534}}).size(), 30u); // the most that one range takes
}

// The fewest blocks, by brute force over an 16-bit trie: a node that is wholly inside is one block.
unsigned fewest(uint32_t low, uint32_t size, uint32_t from, uint32_t to) {
  if (to < low || from >= low + size) {
    return 0;
  }
  if (from <= low && to >= low + size - 1) {
    return 1;
  }
  return fewest(low, size / 2, from, to) + fewest(low + size / 2, size / 2, from, to);
}

TEST(PortBlocks, CoverExactlyWithTheFewest) {
  std::mt19937 random(20);
  for (int i = 0; i < 3000; ++i) {
    uint32_t a = random() % 65536;
    uint32_t b = random() % 65536;
    if (a > b) {
      std::swap(a, b);
    }
    if (a == 0 && b == 65535) {
      continue;
    }
    const auto blocks = portBlocks({{static_cast<uint16_t>(a), static_cast<uint16_t>(b)}});
    ASSERT_EQ(blocks.size(), fewest(0, 65536, a, b)) << a << "-" << b;
    uint32_t next = a;
    for (const PortBlock& block : blocks) {
      ASSERT_EQ(block.low, next);
      ASSERT_EQ(block.value & ~block.mask & 0xFFFF, 0);
      ASSERT_EQ(static_cast<uint16_t>(block.low & block.mask), block.value);
      ASSERT_EQ(static_cast<uint16_t>(block.high & block.mask), block.value);
      ASSERT_EQ(uint32_t{block.high} - block.low + 1, uint32_t{static_cast<uint16_t>(~block.mask)} + 1);
      next = uint32_t{block.high} + 1;
    }
    ASSERT_EQ(next, b + 1);
  }
}

Config parsed(const std::string& text) {
  return readConfigText(text, "test.conf");
}

std::string rowsText(const AggregatedAcl& acl) {
  std::ostringstream text;
  for (const AggregatedRow& row : acl.rows) {
    text << row.ruleNum << "." << row.subRuleNum << ":" << acl.textOf(row.origin) << " ";
    if (row.src.mask != 0) {
      text << "s" << row.src.value << " ";
    }
    if (row.dst.mask != 0) {
      text << "d" << row.dst.value << " ";
    }
    text << "\n";
  }
  return text.str();
}

std::string aggregated(const std::string& config, Family family, const std::string& name) {
  const Config read = parsed(config);
  const AccessList* const list = read.list(family, name);
  return list == nullptr ? "no list" : rowsText(*aggregate(*list, true));
}

TEST(Aggregate, NumbersRulesDenselyAndSourceTimesDestinationIsSubRules) {
  EXPECT_EQ(aggregated("ip access-list extended A\n"
                       " 10 permit tcp any range 1 2 any range 7 8\n"
                       " 20 deny udp any any lt 0\n"
                       " 30 permit ip any any\n"
                       "interface Ethernet1\n ip access-group A in\n",
                       Family::ipv4, "A"),
            "1.0:permit tcp any range 1 2 any range 7 8 s1 d7 \n"
            "1.1:permit tcp any range 1 2 any range 7 8 s1 d8 \n"
            "1.2:permit tcp any range 1 2 any range 7 8 s2 d7 \n"
            "1.3:permit tcp any range 1 2 any range 7 8 s2 d8 \n"
            "2.0:permit ip any any \n"
            "3.0:(implicit) deny ip any any \n");
}

TEST(Aggregate, Ipv6ListsEndWithNeighbourDiscoveryAndTheDeny) {
  EXPECT_EQ(aggregated("ipv6 access-list B\n deny icmp any any echo-request\n", Family::ipv6, "B"),
            "1.0:deny icmp any any echo-request \n"
            "2.0:(implicit) permit icmp any any neighbor-solicitation \n"
            "3.0:(implicit) permit icmp any any neighbor-advertisement \n"
            "4.0:(implicit) deny ipv6 any any \n");
}

TEST(Aggregate, MacAlternativesAreRulesOfTheirOwn) {
  EXPECT_EQ(
      aggregated("mac access-list extended M\n permit any any 0x6000 0x1\n deny any any\n", Family::mac, "M"),
      "1.0:permit any any 0x6000 0x1 \n"
      "2.0:permit any any 0x6000 0x1 \n"
      "3.0:deny any any \n"
      "4.0:(implicit) deny any any \n");
}

TEST(Aggregate, FragmentsComparesNoPorts) {
  EXPECT_EQ(
      aggregated("ip access-list extended F\n permit udp any any range 53 60 fragments\n", Family::ipv4, "F"),
      "1.0:permit udp any any range 53 60 fragments \n"
      "2.0:(implicit) deny ip any any \n");
}

TEST(Generations, EditsCountUpAndUnchangedLinesKeepTheirIds) {
  AclRegistry registry;
  const auto step = [&](const std::string& lines) {
    const Config config = parsed("ip access-list extended A\n" + lines);
    const AclGeneration next = registry.next(*config.list(Family::ipv4, "A"), Direction::in, true);
    registry.generationIs({"A", Family::ipv4, Direction::in}, next);
    std::string text = std::to_string(next.generation) + ":";
    for (std::size_t i = 0; i < config.list(Family::ipv4, "A")->rules.size(); ++i) {
      text.append(" ").append(std::to_string(next.uniqueIds[i]));
    }
    return text.append(" final ").append(std::to_string(next.uniqueIds.back()));
  };
  EXPECT_EQ(step(" permit tcp any any eq 80\n deny ip any any\n"), "1: 1 2 final 5");
  EXPECT_EQ(step(" permit tcp any any eq 80\n deny ip any any\n"), "1: 1 2 final 5");
  EXPECT_EQ(step(" permit udp any any eq 53\n permit tcp any any eq 80\n deny ip any any\n"),
            "2: 6 1 2 final 5");
  EXPECT_EQ(step(" permit tcp any any eq 80\n permit tcp any any eq 80\n"), "3: 1 7 final 5");
}

std::string planText(const Plan& plan) {
  std::ostringstream text;
  text << (plan.fits ? "fits" : "no");
  for (const TablePlan& table : plan.fullest) {
    if (table.used != 0 || table.peak != 0) {
      text << " " << stringValue(table.table).charPtr() << " " << table.used << "+" << table.free()
           << "+1=" << table.rows << " peak " << table.peak << " lack " << table.lack();
    }
  }
  for (const AclPlan& acl : plan.acls) {
    text << " | " << acl.name << " " << acl.rules << " rules " << acl.rows << " rows x" << acl.versions;
  }
  return text.str();
}

const char* const planned = "hardware tcam ingressV4 16\n"
                            "ip access-list extended A\n"
                            " permit tcp any any range 1 3\n"
                            " deny ip any any\n"
                            "interface Ethernet1\n ip access-group A in\n"
                            "interface Ethernet2\n ip access-group A in\n";

TEST(Plan, SharedVersionsCountOnce) {
  EXPECT_EQ(planText(plan(parsed(planned), nullptr)),
            "fits ingressV4 4+11+1=16 peak 4 lack 0 | A 2 rules 4 rows x1");
}

TEST(Plan, PeakHoldsOldAndNew) {
  const Config from = parsed(planned);
  std::string edited = planned;
  edited.replace(edited.find("range 1 3"), 9, "range 1 14");
  const Config to = parsed(edited);
  // 1, 2-3, 4-7, 8-11, 12-13, 14, the deny and the final rule; beside them the 4 old rows.
  EXPECT_EQ(planText(plan(to, &from)), "fits ingressV4 8+7+1=16 peak 12 lack 0 | A 2 rules 8 rows x1");
}

TEST(Plan, SaysWhatLacks) {
  std::string large = planned;
  large.replace(large.find("range 1 3"), 9, "range 1 65534");
  const Plan result = plan(parsed(large), nullptr);
  EXPECT_EQ(planText(result), "no ingressV4 32+0+1=16 peak 32 lack 17 | A 2 rules 32 rows x1");
  ASSERT_EQ(result.reasons.size(), 1u);
  EXPECT_EQ(result.reasons[0],
            "table ingressV4 of chip 0 has 15 rows for lists, 32 are needed: 17 rows lack");
}

TEST(Plan, EmptyAndUnappliedListsTakeNoRows) {
  EXPECT_EQ(planText(plan(parsed("ip access-list extended A\n permit ip any any\n"
                                 "ip access-list extended B\n"
                                 "interface Ethernet1\n ip access-group B in\n"),
                          nullptr)),
            "fits");
}

} // namespace
