#include "test/HelperUnderTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// The three table dumps byte for byte, and the debug state line by line.

namespace {

using namespace XpAcl;
using test::aclData;
using test::aclKey;
using test::deathOf;
using test::HelperOptions;
using test::HelperUnderTest;

const std::string rule135(135, '=');
const std::string rule178(178, '=');

const std::string header4 =
    "| Index | AclId | Role | TcpEst | Frag | SrcL4  | DstL4  | Proto | TTL  | SrcIp           | DstIp      "
    "     ||| Res | LogEn | CntrIdx | \n";
const std::string header6 =
    "| Index | AclId | Role | TcpEst | SrcL4  | DstL4  | Proto | TTL  | SrcIp                              "
    "      | DstIp                                    ||| Res | LogEn | cntrIdx |\n";
const std::string headerMac =
    "| Index | AclId | SrcMac               | DstMac               | Vlan    | Ethertype | Res | LogEn | "
    "CntrIdx | \n";

const std::string empty4 = rule135 + "\n" + header4 + rule135 + "\n" + rule135 + "\n";
const std::string empty6 = rule178 + "\n" + header6 + rule178 + "\n" + rule178 + "\n";
const std::string emptyMac = rule135 + "\n" + headerMac + rule135 + "\n" + rule135 + "\n";

std::string dump4(HelperUnderTest& h, Acl::AclDirection direction = Acl::ingress) {
  return test::writtenBy([&](Vane::U32 fd) { h->showV4AclTable(fd, direction); });
}
std::string dump6(HelperUnderTest& h, Acl::AclDirection direction = Acl::ingress) {
  return test::writtenBy([&](Vane::U32 fd) { h->showV6AclTable(fd, direction); });
}
std::string dumpMac(HelperUnderTest& h, Acl::AclDirection direction = Acl::ingress) {
  return test::writtenBy([&](Vane::U32 fd) { h->showMacAclTable(fd, direction); });
}

// A helper over tables whose rows are all invalid.
HelperOptions unwritten(Vane::U32 rows) {
  HelperOptions options = test::allTables(rows);
  options.hwInit = false;
  return options;
}
void findSdk(HelperUnderTest& h) {
  h.limit->maxTcamIdxDelAll();
  h->hwInit();
  h.sdk.takeCalls();
}

TEST(LibDump, TablesWithoutValidRows) {
  HelperUnderTest h(unwritten(2));
  findSdk(h);
  EXPECT_EQ(dump4(h), empty4);
  EXPECT_EQ(h.sdk.takeCalls(), "getNumOfEntry d0 TACL_V4_IACL\n"
                               "readEntry d0 TACL_V4_IACL 0\n"
                               "readEntry d0 TACL_V4_IACL 1\n");
  EXPECT_EQ(dump6(h), empty6);
  EXPECT_EQ(dumpMac(h), emptyMac);
  h.sdk.takeCalls();
  EXPECT_EQ(dump4(h, Acl::egress), empty4);
  EXPECT_EQ(dump6(h, Acl::egress), empty6);
  EXPECT_EQ(dumpMac(h, Acl::egress), emptyMac);
  EXPECT_EQ(h.sdk.takeCalls(), "getNumOfEntry d0 TACL_V4_EACL\n"
                               "readEntry d0 TACL_V4_EACL 0\n"
                               "readEntry d0 TACL_V4_EACL 1\n"
                               "getNumOfEntry d0 TACL_V6_EACL\n"
                               "readEntry d0 TACL_V6_EACL 0\n"
                               "readEntry d0 TACL_V6_EACL 1\n"
                               "getNumOfEntry d0 TACL_MAC_ACL\n"
                               "readEntry d0 TACL_MAC_ACL 0\n"
                               "readEntry d0 TACL_MAC_ACL 1\n");
}

TEST(LibDump, TheDefaultEntry) {
  HelperUnderTest h(test::allTables(1));
  EXPECT_EQ(dump4(h),
            rule135 + "\n" + header4 + rule135 + "\n" +
                "| 0     | 0x00  | 0    | 0      | 0    | 0x0000 | 0x0000 | 0x00 | 0x00 | 0.0.0.0         | "
                "0.0.0.0         ||| 0   | 0     | 0       | \n"
                "|       | 0x00  | 1    | 1      | 1    | 0xffff | 0xffff | 0xff  | 0xff | 255.255.255.255 "
                "| 255.255.255.255 |||     |       |         |\n" +
                rule135 + "\n" + rule135 + "\n");
  EXPECT_EQ(dumpMac(h),
            rule135 + "\n" + headerMac + rule135 + "\n" +
                "| 0     | 0x00  | 0:0:0:0:0:0          | 0:0:0:0:0:0          | 0x0000  | 0x0000    | 0   | "
                "0     | 0       | \n"
                "|       | 0x00  | ff:ff:ff:ff:ff:ff    | ff:ff:ff:ff:ff:ff    | 0xffff  | 0xffff    |     | "
                "      |         |\n" +
                rule135 + "\n" + rule135 + "\n");
}

TEST(LibDump, AnIpv4Rule) {
  HelperUnderTest h(unwritten(4));
  findSdk(h);
  Acl::IpFilter filter;
  filter.protoIs(6);
  filter.establishedIs(true);
  filter.ttlIs(Acl::TtlOp::eq, 64);
  filter.sourceIs({0x0A010203, Acl::ipMaskWord(0xFFFFF000)});
  filter.destinationIs({0xC0A80164, Acl::ipMaskWord(0xFFFFFFFF)});
  h->programTcamRuleV4(AclKeyInfo(aclKey("web"), 0x12, 1), Acl::ipv4, filter, Acl::permit, true,
                       Acl::UniqueId(), nullptr, 0, 0, 1024, 0xFC00, 443, 0xFFFF, false, 2, 65535);
  EXPECT_EQ(dump4(h),
            rule135 + "\n" + header4 + rule135 + "\n" +
                "| 2     | 0x12  | 1    | 1      | 0    | 0x0400 | 0x01bb | 0x06 | 0x3f | 10.1.2.3        | "
                "192.168.1.100   ||| 1   | 1     | 65535   | \n"
                "|       | 0x00  | 0    | 0      | 1    | 0x03ff | 0x0000 | 0x00  | 0x00 | 0.0.15.255      "
                "| 0.0.0.0         |||     |       |         |\n" +
                rule135 + "\n" + rule135 + "\n");
}

TEST(LibDump, Ipv4FragmentAndDrop) {
  HelperUnderTest h(unwritten(3));
  findSdk(h);
  Acl::IpFilter filter;
  filter.fragmentsIs(true);
  const AclKeyInfo info(aclKey("web", Acl::egress), 0xFE, 0);
  h->programTcamRuleV4(info, Acl::ipv4, filter, Acl::deny, false, Acl::UniqueId(), nullptr, 0, 0, 0, 0, 0, 0,
                       false, 0, 3);
  h->programTcamRuleV4(info, Acl::ipv4, {}, Acl::deny, false, Acl::UniqueId(), nullptr, 0, 0, 0, 0, 0, 0,
                       true, 2, 3);
  EXPECT_EQ(dump4(h, Acl::egress),
            rule135 + "\n" + header4 + rule135 + "\n" +
                "| 0     | 0xfe  | 0    | 0      | 0    | 0x0000 | 0x0000 | 0x00 | 0x00 | 0.0.0.0         | "
                "0.0.0.0         ||| 0   | 0     | 3       | \n"
                "|       | 0x00  | 0    | 1      | 0    | 0xffff | 0xffff | 0xff  | 0xff | 255.255.255.255 "
                "| 255.255.255.255 |||     |       |         |\n" +
                rule135 + "\n" +
                "| 2     | 0xfe  | 0    | 0      | 0    | 0x0000 | 0x0000 | 0x00 | 0x00 | 0.0.0.0         | "
                "0.0.0.0         ||| 0   | 0     | 0       | \n"
                "|       | 0x00  | 0    | 1      | 1    | 0xffff | 0xffff | 0xff  | 0xff | 255.255.255.255 "
                "| 255.255.255.255 |||     |       |         |\n" +
                rule135 + "\n" + rule135 + "\n");
  EXPECT_EQ(dump4(h), empty4) << "the other table of the key type";
}

TEST(LibDump, AnIpv6Rule) {
  HelperUnderTest h(unwritten(2));
  findSdk(h);
  Acl::Ip6Filter filter;
  filter.protoIs(58);
  filter.icmpTypeIs(135);
  filter.ttlIs(Acl::TtlOp::eq, 255);
  filter.sourceIs({Ovnet::Ip6Addr({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), 32});
  filter.destinationIs({Ovnet::Ip6Addr({0xff, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0xff, 0, 0, 0}), 104});
  h->programTcamRuleV6(AclKeyInfo(aclKey("six", Acl::ingress, Acl::ipv6), 7, 1), Acl::ipv6, filter,
                       Acl::permit, false, Acl::UniqueId(), nullptr, 0, 0, 0, 0, 0, 0, false, 1, 2);
  EXPECT_EQ(dump6(h),
            rule178 + "\n" + header6 + rule178 + "\n" +
                "| 1     | 0x07  | 1    | 0      | 0x0000 | 0x0087 | 0x3a | 0xff | 2001:db8::1             "
                "                 | ff02::1:ff00:0                           ||| 1   | 0     | 2       | \n"
                "|       | 0x00  | 0    | 1      | 0xffff | 0x0000 | 0x00  | 0xff | "
                "::ffff:ffff:ffff:ffff:ffff:ffff          | ::ff:ffff                                |||     "
                "|       |         |\n" +
                rule178 + "\n" + rule178 + "\n");
}

TEST(LibDump, AMacRule) {
  HelperUnderTest h(unwritten(12));
  findSdk(h);
  Acl::MacFilter filter;
  filter.vlanIs(0x064, 0x0FFF);
  filter.etherTypeIs(0x0806);
  filter.sourceIs(Ovnet::MacAddr({0x02, 0x11, 0x22, 0x33, 0x44, 0x05}),
                  Ovnet::MacAddr({0xFF, 0xFF, 0xFF, 0, 0, 0}));
  h->programTcamRuleMac(AclKeyInfo(aclKey("l2", Acl::ingress, Acl::mac), 7, 0), Acl::mac, filter, Acl::permit,
                        true, Acl::UniqueId(), nullptr, 0, 0, false, 11, 22);
  EXPECT_EQ(dumpMac(h),
            rule135 + "\n" + headerMac + rule135 + "\n" +
                "| 11    | 0x07  | 2:11:22:33:44:5      | 0:0:0:0:0:0          | 0x0064  | 0x0806    | 1   | "
                "1     | 22      | \n"
                "|       | 0x00  | 0:0:0:ff:ff:ff       | ff:ff:ff:ff:ff:ff    | 0xf000  | 0x0000    |     | "
                "      |         |\n" +
                rule135 + "\n" + rule135 + "\n");
  EXPECT_EQ(dumpMac(h, Acl::egress), dumpMac(h)) << "one MAC table, whatever the direction";
}

// Only the frame, and not one call: the chip has no such table.
TEST(LibDump, TablesWithoutSpace) {
  HelperOptions options = test::allTables(1);
  options.partition = {{1, true}};
  HelperUnderTest none(options);
  EXPECT_EQ(dump4(none), empty4);
  EXPECT_EQ(dump4(none, Acl::egress), empty4);
  EXPECT_EQ(dump6(none), empty6);
  EXPECT_EQ(dump6(none, Acl::egress), empty6);
  EXPECT_EQ(dumpMac(none), emptyMac);
  EXPECT_EQ(none.sdk.takeCalls(), "");

  HelperOptions fixed = test::allTables(1);
  fixed.deviceType = 6;
  HelperUnderTest ingressOnly(fixed);
  EXPECT_EQ(dump4(ingressOnly, Acl::egress), empty4);
  EXPECT_EQ(dump6(ingressOnly, Acl::egress), empty6);
  EXPECT_EQ(ingressOnly.sdk.takeCalls(), "");
  EXPECT_NE(dump4(ingressOnly), empty4);
}

TEST(LibDump, FailingCallsNameThemselves) {
  const auto death = [](unsigned n, std::string (*dump)(HelperUnderTest&, Acl::AclDirection)) {
    return deathOf([&] {
      HelperUnderTest h(test::allTables(2));
      h.sdk.failCall(n, 5);
      dump(h, Acl::ingress);
    });
  };
  const std::string tail = " API ERROR 5\nXpAclPlexAggregatorHelper:#: showTable: Assertion \"!(true)\" "
                           "failed.\n";
  const auto count = [&](const char* name) {
    return std::string(
               "XpAclPlexAggregatorHelper:# ((iaclMgr()->getNumOfEntry( xpDevId().value(), tcamVer, ") +
           name + " )))" + tail;
  };
  EXPECT_EQ(death(1, dump4), count("v4Count"));
  EXPECT_EQ(death(1, dump6), count("v6Count"));
  EXPECT_EQ(death(1, dumpMac), count("macCount"));
  for (const auto dump : {dump4, dump6, dumpMac}) {
    EXPECT_EQ(death(3, dump),
              "XpAclPlexAggregatorHelper:# ((iaclMgr()->readEntry( xpDevId().value(), tcamVer, "
              "i, isValid, &key.sdkKey, &data, 0 )))" +
                  tail);
  }
}

std::vector<std::string> debugLines(HelperUnderTest& h) {
  std::vector<std::string> lines;
  h->debugState([&](const std::string& line) { lines.push_back(line); });
  return lines;
}

TEST(LibDump, DebugState) {
  HelperUnderTest h;
  EXPECT_EQ(debugLines(h),
            (std::vector<std::string>{"    programmedAclKeyToTcamInfo ", "    programmedAclKeyInfoToIdx "}));
  const AclKeyInfo web(aclKey("web"), 3, 0);
  h.stageV4(web, aclData(web.aclKey()), 1, 0);
  h.stageV4(web, aclData(web.aclKey()), 1, 1);
  h->commitPendingPlatform(web.aclKey());
  const AclKeyInfo mail(aclKey("mail"), 4, 1);
  h.stageFinal(mail, aclData(mail.aclKey()), 9);
  EXPECT_EQ(debugLines(h),
            (std::vector<std::string>{
                "    programmedAclKeyToTcamInfo ",
                "        aclKey " + test::aclKeyText("web"),
                "            tcamRuleId : ruleNum 1 subRuleNum 0",
                "            tcamRuleId : ruleNum 1 subRuleNum 1",
                "    programmedAclKeyInfoToIdx ",
                "        aclKeyInfo: aclKey " + test::aclKeyText("web") + " aclId 3 tcamType ingressV4",
                "            tcamRuleId : ruleNum 1 subRuleNum 0",
                "            tcamIdx 0",
                "            tcamRuleId : ruleNum 1 subRuleNum 1",
                "            tcamIdx 1",
                "    aclKey " + test::aclKeyText("mail"),
                "        pendingAclKeyInfoToIdx ",
                "            aclKeyInfo: aclKey " + test::aclKeyText("mail") + " aclId 4 tcamType ingressV4",
                "                tcamRuleId : ruleNum 9 subRuleNum 0",
                "                tcamIdx 2",
                "        pendingAclKeyToTcamInfo ",
                "            aclKey " + test::aclKeyText("mail"),
                "                tcamRuleId : ruleNum 9 subRuleNum 0",
            }));
}

} // namespace
