#include "test/Shared.h"
#include "test/ToolUnderTest.h"

#include <map>
#include <tuple>

// What `xpacl show` and `xpacl audit` print of a running switch.

namespace {

using nlohmann::json;
using test::Outcome;

class ToolShow : public test::ToolUnderTest {
protected:
  // Hits by (list, family, direction, line, rule), as replay adds them up packet by packet; without the
  // implicit denies, which the chip counts together.
  static std::map<std::tuple<std::string, std::string, std::string, unsigned, std::string>, uint64_t>
  hitsOfReplay(const Outcome& replay, uint64_t& implicit) {
    std::map<std::tuple<std::string, std::string, std::string, unsigned, std::string>, uint64_t> hits;
    const json summary = lines(replay.out).back()["summary"];
    for (const json& line : summary["lines"]) {
      const std::string rule = line["rule"];
      if (line["line"].is_null() && rule.rfind("(implicit) deny", 0) == 0) {
        implicit += line["hits"].get<uint64_t>();
      } else if (line["hits"] != 0) {
        hits[{line["acl"], line["family"], line["direction"],
              line["line"].is_null() ? 0 : line["line"].get<unsigned>(), rule}] +=
            line["hits"].get<uint64_t>();
      }
    }
    return hits;
  }

  static std::map<std::tuple<std::string, std::string, std::string, unsigned, std::string>, uint64_t>
  hitsOfCounters(const Outcome& counters, uint64_t& implicit) {
    std::map<std::tuple<std::string, std::string, std::string, unsigned, std::string>, uint64_t> hits;
    const json all = json::parse(counters.out);
    implicit = all["implicitDeny"]["in"].get<uint64_t>() + all["implicitDeny"]["out"].get<uint64_t>();
    for (const json& list : all["lists"]) {
      for (const json& line : list["lines"]) {
        if (line["hits"] != 0) {
          hits[{list["acl"], list["family"], list["direction"],
                line["line"].is_null() ? 0 : line["line"].get<unsigned>(), line["rule"]}] +=
              line["hits"].get<uint64_t>();
        }
      }
    }
    return hits;
  }
};

const char* const threeLists = "ip access-list extended A\n"
                               " permit tcp any any range 1 3\n"
                               " deny udp any any log\n"
                               "ipv6 access-list S\n"
                               " permit tcp any any\n"
                               "mac access-list M\n"
                               " permit any any\n"
                               "interface Ethernet1\n"
                               " ip access-group A in\n"
                               " ipv6 traffic-filter S in\n"
                               " mac access-group M in\n";

TEST_F(ToolShow, Counters) {
  const std::string config = file("a.conf", threeLists);
  const Outcome none = run("show " + config + " counters");
  EXPECT_EQ(none.status, 0) << none.err;
  EXPECT_EQ(none.out, "A (ipv4, in)\n"
                      "  HITS  LINE  RULE\n"
                      "     0     2  permit tcp any any range 1 3\n"
                      "     0     3  deny udp any any log\n"
                      "M (mac, in)\n"
                      "  HITS  LINE  RULE\n"
                      "     0     7  permit any any\n"
                      "S (ipv6, in)\n"
                      "  HITS  LINE  RULE\n"
                      "     0     5  permit tcp any any\n"
                      "     0        (implicit) permit icmp any any neighbor-solicitation\n"
                      "     0        (implicit) permit icmp any any neighbor-advertisement\n"
                      "The implicit denies of all lists count together: 0 in, 0 out\n");
  const Outcome nothing = run("show " + file("b.conf", "interface Ethernet1\n") + " counters");
  EXPECT_EQ(nothing.out, "No list is applied, so nothing is counted.\n");
}

// The chip's counters, read by the agent, against the tally that replay keeps packet by packet.
TEST_F(ToolShow, CountersAgreeWithReplay) {
  const std::string arguments = " --json --in Gi1/0/1 --pcap " + example("campus.pcap");
  uint64_t implicit = 0;
  uint64_t counted = 0;
  const Outcome replay = run("replay " + example("campus.conf") + arguments);
  const Outcome counters = run("show " + example("campus.conf") + " counters" + arguments);
  ASSERT_EQ(replay.status, 0) << replay.err;
  ASSERT_EQ(counters.status, 0) << counters.err;
  EXPECT_EQ(hitsOfReplay(replay, implicit), hitsOfCounters(counters, counted));
  EXPECT_EQ(implicit, counted);
}

TEST_F(ToolShow, CountersAgreeWithReplayOnSharedCaptures) {
  const auto data = test::sharedData();
  if (!data) {
    GTEST_SKIP() << test::noSharedData;
  }
  unsigned captures = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(*data)) {
    const std::string suffix = entry.path().extension();
    if ((suffix != ".pcap" && suffix != ".pcapng" && suffix != ".cap") || entry.file_size() > 2'000'000) {
      continue;
    }
    const std::string arguments = " --json --in Gi1/0/1 --pcap " + entry.path().string();
    uint64_t implicit = 0;
    uint64_t counted = 0;
    const Outcome replay = run("replay " + example("campus.conf") + arguments);
    const Outcome counters = run("show " + example("campus.conf") + " counters" + arguments);
    ASSERT_EQ(replay.status, counters.status) << entry.path();
    if (replay.status == 0) {
      EXPECT_EQ(hitsOfReplay(replay, implicit), hitsOfCounters(counters, counted)) << entry.path();
      EXPECT_EQ(implicit, counted) << entry.path();
      ++captures;
    }
  }
  std::cout << captures << " captures\n";
}

TEST_F(ToolShow, CountersByHits) {
  const Outcome counters = run("show " + example("campus.conf") + " counters --by-hits --in Gi1/0/1 --pcap " +
                               example("campus.pcap"));
  const std::size_t list = counters.out.find("WING-A-L2 (mac, in)");
  ASSERT_NE(list, std::string::npos);
  EXPECT_EQ(counters.out.substr(list), "WING-A-L2 (mac, in)\n"
                                       "  HITS  LINE  RULE\n"
                                       "   174   101  permit any any 0x0800 0x0\n"
                                       "    29   103  permit any any 0x86DD 0x0\n"
                                       "     3   100  deny host 0200.5e00.0bad any\n"
                                       "     3   102  permit any any 0x0806 0x0\n"
                                       "     2   105  deny any any\n"
                                       "     1   104  permit any any 0x888E 0x0\n"
                                       "The implicit denies of all lists count together: 5 in, 0 out\n");
}

TEST_F(ToolShow, ArgumentsThatDoNotFit) {
  const std::string config = file("a.conf", threeLists);
  EXPECT_EQ(run("show " + config + " ids --by-hits").err, "xpacl: --by-hits belongs to show counters\n");
  EXPECT_EQ(run("show " + config + " counters --in Ethernet1").err,
            "xpacl: show counters: --in, --out and --vlan say where packets go; give them with --pcap\n");
  EXPECT_EQ(run("show " + config + " counters x").err,
            "xpacl: show counters: 'x' is not understood; it takes no further words\n");
  EXPECT_EQ(run("show " + config + " counters --pcap nothere.pcap").status, 2);
}

TEST_F(ToolShow, State) {
  const Outcome state = run("show " +
                            file("a.conf", "ip access-list extended A\n"
                                           " permit tcp any any range 1 3\n"
                                           "interface Ethernet1\n"
                                           " ip access-group A in\n") +
                            " state");
  EXPECT_EQ(state.status, 0);
  EXPECT_EQ(state.out, "    programmedAclKeyToTcamInfo \n"
                       "        aclKey Value('Plex::AclKey', ** {'name': 'A', 'direction': ingress, "
                       "'aclType': ipv4, 'generation': 1})\n"
                       "            tcamRuleId : ruleNum 1 subRuleNum 0\n"
                       "            tcamRuleId : ruleNum 1 subRuleNum 1\n"
                       "            tcamRuleId : ruleNum 2 subRuleNum 0\n"
                       "    programmedAclKeyInfoToIdx \n"
                       "        aclKeyInfo: aclKey Value('Plex::AclKey', ** {'name': 'A', 'direction': "
                       "ingress, 'aclType': ipv4, 'generation': 1}) aclId 1 tcamType ingressV4\n"
                       "            tcamRuleId : ruleNum 1 subRuleNum 0\n"
                       "            tcamIdx 0\n"
                       "            tcamRuleId : ruleNum 1 subRuleNum 1\n"
                       "            tcamIdx 1\n"
                       "            tcamRuleId : ruleNum 2 subRuleNum 0\n"
                       "            tcamIdx 2\n");
}

TEST_F(ToolShow, Trace) {
  const std::string config = file("a.conf", threeLists);
  const Outcome all = run("show " + config + " trace");
  const Outcome last = run("show " + config + " trace --last 2");
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(last.out, "XpAclHwAclIdSm 7 programIngressPAcl chip 0 intf Ethernet1 portId 1 PAclId 1 v4En True "
                      "v6En True aclEnBits 3 blocked False macAclEn True\n"
                      "XpAclHwAclIdSm 7  removing egress vlanId 1 intfId Ethernet1 vif 1 paclId 0 raclId 0 "
                      "paclIdEnV4 0 paclIdEnV6 0 raclIdEnV4 0 raclIdEnV6 0 index 0\n");
  ASSERT_GT(all.out.size(), last.out.size());
  EXPECT_EQ(all.out.substr(all.out.size() - last.out.size()), last.out);
}

TEST_F(ToolShow, TextTrace) {
  const Outcome plan = run("show " + file("a.conf", "interface Ethernet1\n") + " ids --trace 5");
  EXPECT_EQ(plan.status, 0);
  EXPECT_EQ(plan.out, "No list is applied, so no hardware ACL id is in use.\n");
  EXPECT_EQ(plan.err, "XpAclPlexAggregatorHelper 5 XpAclPlexAggregatorHelper hwInit\n"
                      "XpAclPlexAggregatorHelper 5 XpAclPlexAggregatorHelper "
                      "XpAclPlexAggregatorHelper::blockIntf intf Ethernet1 block True\n"
                      "XpAclPlexAggregatorHelper 5 XpAclPlexAggregatorHelper "
                      "XpAclPlexAggregatorHelper::blockIntf intf Ethernet1 block False\n");
}

TEST_F(ToolShow, AuditFindsDamageInAFile) {
  const std::string config = file("a.conf", threeLists);
  const std::string chips = (folder_ / "chips").string();
  const Outcome saved = run("audit " + config + " --save " + chips);
  EXPECT_EQ(saved.status, 0) << saved.err;
  EXPECT_EQ(saved.out, "the chips hold exactly what the library recorded\n");
  EXPECT_EQ(run("audit " + config + " --chip-dump " + chips).status, 0);
  std::string image = slurp(chips);
  image[46] = 0; // the valid flag of the first row
  const Outcome found = run("audit " + config + " --chip-dump " + file("damaged", image));
  EXPECT_EQ(found.status, 1);
  EXPECT_EQ(found.out, "missing: chip 0 ingressV4 row 0\n"
                       "  recorded 0 valid aclId=0001/0100 flags=00/fe dstL4=0001/0000 proto=06/00 data "
                       "log=0 count=1 result=1 "
                       "cntr=1\n"
                       "  belongs to " +
                           config + ":2:2: A: permit tcp any any range 1 3\n1 difference\n");
  const json findings =
      json::parse(run("audit --json " + config + " --chip-dump " + file("damaged", image)).out);
  EXPECT_EQ(findings["findings"].size(), 1u);
  EXPECT_EQ(findings["findings"][0]["damage"], "missing");
  const Outcome none = run("audit " + config + " --chip-dump " + config);
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.err,
            "xpacl: " + config + ": byte 0: this is no chip file, it does not begin with XPCHIPS1\n");
}

} // namespace
