#include "verify/LineEvaluator.h"

#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "test/Random.h"

#include <gtest/gtest.h>

// The line evaluator: packets as text against lists as text, and what decided as text. The chip is tested
// against it, so each rule of judgement stands here by itself.

namespace {

using verify::Decider;
using verify::Judgement;

agent::AccessList listOf(const std::string& text) {
  const agent::Config config = agent::readConfigText(text, "t");
  EXPECT_TRUE(config.diagnostics.empty()) << config.diagnostics[0].text();
  return config.lists.at(0);
}

std::string judged(const agent::AccessList& list, const packet::Packet& packet, uint16_t vlan = 1) {
  const Judgement judgement = verify::evaluate(list, packet, vlan);
  std::string text = judgement.permit ? "permit by " : "deny by ";
  switch (judgement.decider) {
  case Decider::line:
    return text + std::to_string(list.rules[judgement.index].sequence);
  case Decider::neighbourDiscovery:
    return text + "neighbour discovery";
  case Decider::implicitDeny:
    return text + "the end";
  case Decider::noList:
    return text + "no list";
  case Decider::otherFamily:
    return text + "another family";
  }
  return text;
}

// "PACKET => JUDGEMENT" lines, compared with themselves.
void expectJudgements(const std::string& listText, const std::string& table) {
  const agent::AccessList list = listOf(listText);
  std::string result;
  for (size_t start = 0; start < table.size();) {
    const size_t end = table.find('\n', start);
    const std::string line = table.substr(start, end - start);
    const std::string packet = line.substr(0, line.find(" =>"));
    result += packet + " => " + judged(list, packet::fromText(packet)) + "\n";
    start = end + 1;
  }
  EXPECT_EQ(table, result);
}

TEST(Evaluator, theFirstLineThatMatchesDecides) {
  expectJudgements("ip access-list extended A\n"
                   " permit tcp any host 10.0.0.1 eq 80\n"
                   " deny tcp any 10.0.0.0 0.0.0.255\n"
                   " permit ip any any\n",
                   "tcp 1.1.1.1:5 > 10.0.0.1:80 => permit by 10\n"
                   "tcp 1.1.1.1:5 > 10.0.0.1:81 => deny by 20\n"
                   "tcp 1.1.1.1:5 > 10.0.0.2:80 => deny by 20\n"
                   "tcp 1.1.1.1:5 > 10.0.1.0:80 => permit by 30\n"
                   "udp 1.1.1.1:5 > 10.0.0.1:80 => permit by 30\n"
                   "udp [2001:db8::1]:5 > [2001:db8::2]:80 => permit by another family\n"
                   "frame ethertype 0x806 => permit by another family\n");
}

TEST(Evaluator, wildcardsAndPrefixesAtTheirEdges) {
  expectJudgements("ip access-list extended A\n"
                   " 10 permit ip 10.0.0.0/9 any\n"
                   " 20 permit ip 20.0.16.0/20 any\n"
                   " 30 permit ip 30.0.0.128/25 any\n"
                   " 40 permit ip 40.0.0.2/31 any\n"
                   " 50 permit ip 50.1.0.7 0.0.255.0 any\n"
                   " 60 permit ip host 60.0.0.1 host 60.0.0.2\n",
                   "proto 99 10.127.255.255 > 1.1.1.1 => permit by 10\n"
                   "proto 99 10.128.0.0 > 1.1.1.1 => deny by the end\n"
                   "proto 99 20.0.31.255 > 1.1.1.1 => permit by 20\n"
                   "proto 99 20.0.32.0 > 1.1.1.1 => deny by the end\n"
                   "proto 99 20.0.15.255 > 1.1.1.1 => deny by the end\n"
                   "proto 99 30.0.0.128 > 1.1.1.1 => permit by 30\n"
                   "proto 99 30.0.0.127 > 1.1.1.1 => deny by the end\n"
                   "proto 99 40.0.0.3 > 1.1.1.1 => permit by 40\n"
                   "proto 99 40.0.0.1 > 1.1.1.1 => deny by the end\n"
                   "proto 99 50.1.200.7 > 1.1.1.1 => permit by 50\n"
                   "proto 99 50.1.200.6 > 1.1.1.1 => deny by the end\n"
                   "proto 99 60.0.0.1 > 60.0.0.2 => permit by 60\n"
                   "proto 99 60.0.0.2 > 60.0.0.1 => deny by the end\n");
}

TEST(Evaluator, portsAtTheirEdges) {
  expectJudgements("ip access-list extended A\n"
                   " 10 permit tcp any range 10 20 any\n"
                   " 20 permit tcp any any gt 1023\n"
                   " 30 permit udp any any neq 53 123\n"
                   " 40 permit sctp any any lt 5\n"
                   " 50 permit tcp any any gt 65535\n"
                   " 60 deny ip any any\n",
                   "tcp 1.1.1.1:10 > 2.2.2.2:1 => permit by 10\n"
                   "tcp 1.1.1.1:20 > 2.2.2.2:1 => permit by 10\n"
                   "tcp 1.1.1.1:9 > 2.2.2.2:1 => deny by 60\n"
                   "tcp 1.1.1.1:21 > 2.2.2.2:1023 => deny by 60\n"
                   "tcp 1.1.1.1:21 > 2.2.2.2:1024 => permit by 20\n"
                   "tcp 1.1.1.1:21 > 2.2.2.2:65535 => permit by 20\n"
                   "udp 1.1.1.1:1 > 2.2.2.2:53 => deny by 60\n"
                   "udp 1.1.1.1:1 > 2.2.2.2:54 => permit by 30\n"
                   "udp 1.1.1.1:1 > 2.2.2.2:123 => deny by 60\n"
                   "sctp 1.1.1.1:1 > 2.2.2.2:4 => permit by 40\n"
                   "sctp 1.1.1.1:1 > 2.2.2.2:5 => deny by 60\n");
}

TEST(Evaluator, withoutAnL4HeaderPortsAndTypesReadAsZero) {
  expectJudgements("ip access-list extended A\n"
                   " 10 permit tcp any any eq 80\n"
                   " 20 permit tcp any any lt 10\n"
                   " 30 permit icmp any any echo-reply\n"
                   " 40 permit icmp any any unreachable\n"
                   " 50 permit udp any any gt 0\n",
                   "tcp 1.1.1.1 > 2.2.2.2 => permit by 20\n"
                   "tcp 1.1.1.1 > 2.2.2.2 fragment => permit by 20\n"
                   "icmp 1.1.1.1 > 2.2.2.2 => permit by 30\n"
                   "icmp 1.1.1.1 > 2.2.2.2 fragment => permit by 30\n"
                   "icmp 1.1.1.1 > 2.2.2.2 0/0 => permit by 30\n"
                   "icmp 1.1.1.1 > 2.2.2.2 3/1 => permit by 40\n"
                   "udp 1.1.1.1 > 2.2.2.2 fragment => deny by the end\n");
}

TEST(Evaluator, fragmentLinesSeeNonInitialFragmentsOnly) {
  expectJudgements("ip access-list extended A\n"
                   " 10 permit udp any host 2.2.2.2 fragments\n"
                   " 20 permit tcp any any\n",
                   "udp 1.1.1.1 > 2.2.2.2 fragment => permit by 10\n"
                   "udp 1.1.1.1:5 > 2.2.2.2:6 => deny by the end\n"
                   "udp 1.1.1.1 > 2.2.2.2 => deny by the end\n"
                   "udp 1.1.1.1 > 2.2.2.3 fragment => deny by the end\n"
                   "tcp 1.1.1.1 > 2.2.2.2 fragment => permit by 20\n");
}

TEST(Evaluator, fragmentLinesCompareNoPorts) {
  const agent::Config config =
      agent::readConfigText("ip access-list extended A\n permit udp any any eq 53 fragments\n", "t");
  EXPECT_EQ("permit by 10", judged(config.lists[0], packet::fromText("udp 1.1.1.1 > 2.2.2.2 fragment")));
  EXPECT_EQ("deny by the end", judged(config.lists[0], packet::fromText("udp 1.1.1.1:53 > 2.2.2.2:53")));
}

TEST(Evaluator, established) {
  expectJudgements("ip access-list extended A\n 10 permit tcp any any established\n",
                   "tcp 1.1.1.1:5 > 2.2.2.2:6 ack => permit by 10\n"
                   "tcp 1.1.1.1:5 > 2.2.2.2:6 rst => permit by 10\n"
                   "tcp 1.1.1.1:5 > 2.2.2.2:6 syn ack => permit by 10\n"
                   "tcp 1.1.1.1:5 > 2.2.2.2:6 syn => deny by the end\n"
                   "tcp 1.1.1.1:5 > 2.2.2.2:6 fin psh urg => deny by the end\n"
                   "tcp 1.1.1.1 > 2.2.2.2 fragment => deny by the end\n"
                   "tcp 1.1.1.1 > 2.2.2.2 => deny by the end\n");
}

TEST(Evaluator, icmpTypesAndCodes) {
  expectJudgements("ip access-list extended A\n"
                   " 10 permit icmp any any 3 4\n"
                   " 20 permit icmp any any 8\n"
                   " 30 deny icmp any any\n",
                   "icmp 1.1.1.1 > 2.2.2.2 3/4 => permit by 10\n"
                   "icmp 1.1.1.1 > 2.2.2.2 3/5 => deny by 30\n"
                   "icmp 1.1.1.1 > 2.2.2.2 8/0 => permit by 20\n"
                   "icmp 1.1.1.1 > 2.2.2.2 8/9 => permit by 20\n"
                   "icmp 1.1.1.1 > 2.2.2.2 9/0 => deny by 30\n");
}

TEST(Evaluator, timeToLive) {
  expectJudgements(
      "ip access-list extended A\n 10 permit ip any any ttl eq 1\n 20 permit ip any any ttl eq 0\n",
      "udp 1.1.1.1:5 > 2.2.2.2:6 ttl 1 => permit by 10\n"
      "udp 1.1.1.1:5 > 2.2.2.2:6 ttl 2 => deny by the end\n"
      "udp 1.1.1.1:5 > 2.2.2.2:6 ttl 0 => permit by 20\n"
      "udp 1.1.1.1:5 > 2.2.2.2:6 ttl 255 => deny by the end\n");
}

TEST(Evaluator, ipv6AndNeighbourDiscovery) {
  expectJudgements("ipv6 access-list B\n"
                   " 10 permit tcp 2001:db8::/33 any eq 80\n"
                   " 20 deny icmp host fe80::1 any\n",
                   "tcp [2001:db8:7fff::1]:5 > [::1]:80 => permit by 10\n"
                   "tcp [2001:db8:8000::1]:5 > [::1]:80 => deny by the end\n"
                   "icmp6 fe80::2 > ff02::1 135/0 => permit by neighbour discovery\n"
                   "icmp6 fe80::2 > ff02::1 136/7 => permit by neighbour discovery\n"
                   "icmp6 fe80::2 > ff02::1 134/0 => deny by the end\n"
                   "icmp6 fe80::1 > ff02::1 135/0 => deny by 20\n"
                   "icmp6 fe80::2 > ff02::1 => deny by the end\n"
                   "udp 1.1.1.1:5 > 2.2.2.2:6 => permit by another family\n");
  // An explicit deny stands before the implicit permits.
  expectJudgements("ipv6 access-list B\n 10 deny ipv6 any any\n",
                   "icmp6 fe80::2 > ff02::1 135/0 => deny by 10\n");
}

TEST(Evaluator, macListsSeeEveryFrame) {
  const agent::AccessList list = listOf("mac access-list extended M\n"
                                        " 10 permit host 0000.0000.0001 any 0x806\n"
                                        " 20 deny 0000.0000.1200 0000.0000.00ff any\n"
                                        " 30 permit any any ip vlan 10\n"
                                        " 40 permit any any 0x88a8 0x1\n");
  const auto text = [&](const char* packet, uint16_t vlan) {
    return judged(list, packet::fromText(packet), vlan);
  };
  EXPECT_EQ("permit by 10", text("frame src-mac 0000.0000.0001 ethertype 0x806", 1));
  EXPECT_EQ("deny by the end", text("frame src-mac 0000.0000.0002 ethertype 0x806", 1));
  EXPECT_EQ("deny by 20", text("frame src-mac 0000.0000.12ab", 1));
  EXPECT_EQ("permit by 30", text("udp 1.1.1.1:5 > 2.2.2.2:6", 10));
  EXPECT_EQ("deny by the end", text("udp 1.1.1.1:5 > 2.2.2.2:6", 11));
  EXPECT_EQ("permit by 40", text("frame ethertype 0x88a9", 1));
  EXPECT_EQ("deny by the end", text("frame ethertype 0x88aa", 1));
}

TEST(Evaluator, aListWithoutLinesIsNoList) {
  expectJudgements("ip access-list extended A\n remark nothing\n",
                   "udp 1.1.1.1:5 > 2.2.2.2:6 => permit by no list\n");
}

TEST(Evaluator, groupsMatchWhenOneAlternativeDoes) {
  expectJudgements("object-group service S\n tcp eq 80\n udp eq 53\n icmp echo\n"
                   "object-group network G\n host 10.0.0.1\n 10.1.0.0 255.255.0.0\n"
                   "ip access-list extended A\n 10 permit object-group S object-group G any\n",
                   "tcp 10.0.0.1:5 > 2.2.2.2:80 => permit by 10\n"
                   "udp 10.1.255.255:5 > 2.2.2.2:53 => permit by 10\n"
                   "udp 10.1.0.0:5 > 2.2.2.2:80 => deny by the end\n"
                   "icmp 10.0.0.1 > 2.2.2.2 8/0 => permit by 10\n"
                   "icmp 10.0.0.2 > 2.2.2.2 8/0 => deny by the end\n");
}

TEST(Evaluator, filterSetsComparePortsOfEveryProtocol) {
  const agent::AccessList list = listOf("@10.0.0.0/8 0.0.0.0/0 0 : 65535 8 : 8 0x00/0x00\n"
                                        "@11.0.0.0/8 0.0.0.0/0 3 : 5 0 : 65535 0x02/0xFF\n");
  packet::Packet packet = packet::fromText("proto 2 11.0.0.1:4 > 2.2.2.2:6");
  EXPECT_EQ("permit by 20", judged(list, packet));
  packet.srcPort = 6;
  EXPECT_EQ("deny by the end", judged(list, packet));
  EXPECT_EQ("permit by 10", judged(list, packet::fromText("udp 10.0.0.1:4 > 2.2.2.2:8")));
  EXPECT_EQ("permit by 10", judged(list, packet::fromText("icmp 10.0.0.1 > 2.2.2.2 8/0")));
  EXPECT_EQ("deny by the end", judged(list, packet::fromText("icmp 10.0.0.1 > 2.2.2.2 9/0")));
}

// A second opinion on addresses, by arithmetic instead of bit by bit.
TEST(Evaluator, prefixesByArithmetic) {
  const uint64_t seed = test::Random::seed("Evaluator.prefixesByArithmetic");
  test::Random random(seed);
  for (int i = 0; i < 20000; ++i) {
    agent::Criteria criteria;
    const unsigned length = random.below(33);
    const uint64_t size = uint64_t{1} << (32 - length);
    const auto address = static_cast<uint32_t>(random.next() & ~(size - 1));
    criteria.srcV4 = {address, static_cast<uint32_t>(size - 1)};
    packet::Packet packet;
    packet.l3 = packet::L3::ipv4;
    // Near the edges of the prefix.
    const uint64_t edge = random.oneIn(2) ? address : address + size - 1;
    const auto probe = static_cast<uint32_t>(edge + random.below(3) - 1);
    packet.srcV4Is(probe);
    ASSERT_EQ(probe >= address && probe - address < size,
              verify::matches(criteria, agent::Family::ipv4, packet, 1))
        << address << "/" << length << " " << probe;
  }
}

} // namespace
