#include "test/HelperUnderTest.h"

#include <gtest/gtest.h>

#include <string>

// Staging of rules: rows in call order, what is recorded, refusals and their order, no hardware access.

namespace {

using namespace XpAcl;
using test::aclData;
using test::aclKey;
using test::deathOf;
using test::HelperUnderTest;
using test::thrownBy;

struct Ports {
  Vane::U16 src = 0, srcMask = 0, dst = 0, dstMask = 0;
  Vane::U16 srcLow = 0, srcHigh = 0, dstLow = 0, dstHigh = 0;
};

unsigned stagePorts(HelperUnderTest& h, const AclKeyInfo& info, Acl::AclType type, const Ports& p,
                    unsigned ruleNum = 1, unsigned subRuleNum = 0) {
  return h->createIpAclCommonAggregate(info, type, Acl::IpRuleConfig(Acl::IpFilter(), Acl::deny, true),
                                       Acl::UniqueId(77), aclData(info.aclKey()), ruleNum, subRuleNum, true,
                                       p.src, p.srcMask, p.dst, p.dstMask, p.srcLow, p.srcHigh, p.dstLow,
                                       p.dstHigh, 1, 2, 3, 4, 5, true);
}

TEST(LibStage, TablesOfDirectionsAndTypes) {
  EXPECT_EQ(getTcamType(Acl::ingress, Acl::ipv4), ingressV4);
  EXPECT_EQ(getTcamType(Acl::ingress, Acl::ipv6), ingressV6);
  EXPECT_EQ(getTcamType(Acl::ingress, Acl::mac), ingressMac);
  EXPECT_EQ(getTcamType(Acl::egress, Acl::ipv4), egressV4);
  EXPECT_EQ(getTcamType(Acl::egress, Acl::ipv6), egressV6);
  const std::string egress =
      "XpAclPlexAggregatorHelper:#: getTcamType: Assertion \"Egress MAC aclType unsupported\" failed.\n";
  EXPECT_EQ(deathOf([] { getTcamType(Acl::egress, Acl::mac); }), egress);
  EXPECT_EQ(deathOf([] { getTcamType(Acl::egress, static_cast<Acl::AclType>(3)); }), egress);
  EXPECT_EQ(deathOf([] { getTcamType(Acl::ingress, static_cast<Acl::AclType>(3)); }),
            "XpAclPlexAggregatorHelper:#: getTcamType: Assertion \"false\" failed.\n");
}

TEST(LibStage, RulesTakeTheLowestRowsInCallOrder) {
  HelperUnderTest h({.rows = {{ingressV4, 12}}});
  const auto pool = h->tcamIdxAllocator(ingressV4);
  pool->freeTcamIdxDelAll();
  for (const Vane::U32 row : {9, 5, 7}) {
    pool->freeTcamIdxIs(row, true);
  }
  const AclKeyInfo info(aclKey("web"), 3, 0);
  const auto data = aclData(info.aclKey());
  EXPECT_EQ(h.stageV4(info, data, 1, 0), 0u);
  EXPECT_EQ(h.stageV4(info, data, 1, 1), 0u);
  EXPECT_EQ(h.stageFinal(info, data, 2), 0u);
  EXPECT_EQ(h.books(), "pending web rows web id 3 type 0: 1.0@5 1.1@7 2.0@9\n"
                       "pending web rule web 1.0\n"
                       "pending web rule web 1.1\n"
                       "pending web rule web 2.0 final\n");
  EXPECT_EQ(h.pool(ingressV4), "{}");
  EXPECT_EQ(h.sdk.takeCalls(), "");
}

TEST(LibStage, EachTypeTakesFromItsOwnTable) {
  HelperUnderTest h(test::allTables(4));
  const struct {
    Acl::AclDirection direction;
    Acl::AclType type;
    TcamType table;
  } kinds[] = {{Acl::ingress, Acl::ipv4, ingressV4},
               {Acl::ingress, Acl::ipv6, ingressV6},
               {Acl::egress, Acl::ipv4, egressV4},
               {Acl::egress, Acl::ipv6, egressV6},
               {Acl::ingress, Acl::mac, ingressMac}};
  for (const auto& kind : kinds) {
    const AclKeyInfo info(aclKey("list", kind.direction, kind.type), 1, 0);
    const auto data = aclData(info.aclKey());
    EXPECT_EQ(h.pool(kind.table), "{0-2}");
    EXPECT_EQ(kind.type == Acl::ipv4   ? h.stageV4(info, data, 1, 0)
              : kind.type == Acl::ipv6 ? h.stageV6(info, data, 1)
                                       : h.stageMac(info, data, 1),
              0u);
    EXPECT_EQ(h.stageFinal(info, data, 2), 0u);
    EXPECT_EQ(h.pool(kind.table), "{2}");
  }
  EXPECT_EQ(h.sdk.takeCalls(), "");
  EXPECT_EQ(h.audit(), "");
}

TEST(LibStage, AnIpv4RuleIsRecordedWhole) {
  HelperUnderTest h;
  const AclKeyInfo info(aclKey("web"), 3, 0);
  const auto data = aclData(info.aclKey());
  Acl::IpFilter filter;
  filter.protoIs(6);
  EXPECT_EQ(h->createIpAclCommonAggregate(info, Acl::ipv4, Acl::IpRuleConfig(filter, Acl::deny, true),
                                          Acl::UniqueId(77), data, 4, 2, true, 80, 0xFFFF, 1024, 0xFC00, 80,
                                          80, 1024, 2047, 9, 9, 9, 9, 9, true),
            0u);
  const auto rule = h->pendingTcamMapping(info.aclKey())
                        ->pendingAclKeyToTcamInfo(info.aclKey())
                        ->tcamRuleInfo(TcamAclRuleId(4, 2));
  ASSERT_TRUE(rule);
  EXPECT_TRUE(rule->filter() == filter);
  EXPECT_TRUE(rule->ip6Filter() == Acl::Ip6Filter());
  EXPECT_TRUE(rule->macFilter() == Acl::MacFilter());
  EXPECT_EQ(rule->action(), Acl::deny);
  EXPECT_TRUE(rule->log());
  EXPECT_TRUE(rule->aclId() == Acl::UniqueId(77));
  EXPECT_EQ(rule->aclData().ptr(), data.ptr());
  EXPECT_EQ(rule->ruleNum(), 4u);
  EXPECT_EQ(rule->subruleNum(), 2u);
  EXPECT_EQ(rule->srcL4Port(), 80);
  EXPECT_EQ(rule->srcL4PortMask(), 0xFFFF);
  EXPECT_EQ(rule->dstL4Port(), 1024);
  EXPECT_EQ(rule->dstL4PortMask(), 0xFC00);
  EXPECT_TRUE(rule->implicit());
  EXPECT_FALSE(rule->finalAclRule());
  EXPECT_FALSE(rule->count());
}

TEST(LibStage, OtherFiltersAndTheFinalRule) {
  HelperUnderTest h(test::allTables(8));
  const AclKeyInfo six(aclKey("six", Acl::egress, Acl::ipv6), 1, 1);
  Acl::Ip6Filter filter6;
  filter6.protoIs(58);
  h.stageV6(six, aclData(six.aclKey()), 1, filter6, 5);
  h.stageFinal(six, aclData(six.aclKey()), 2);
  const auto info6 = h->pendingTcamMapping(six.aclKey())->pendingAclKeyToTcamInfo(six.aclKey());
  EXPECT_TRUE(info6->tcamRuleInfo(TcamAclRuleId(1, 0))->ip6Filter() == filter6);
  EXPECT_TRUE(info6->tcamRuleInfo(TcamAclRuleId(1, 0))->filter() == Acl::IpFilter());
  const auto last = info6->tcamRuleInfo(TcamAclRuleId(2, 0));
  EXPECT_TRUE(last->finalAclRule());
  EXPECT_TRUE(last->ip6Filter() == Acl::Ip6Filter());
  EXPECT_TRUE(last->aclId() == Acl::UniqueId());
  EXPECT_EQ(last->ruleNum(), 2u);

  const AclKeyInfo layer2(aclKey("l2", Acl::ingress, Acl::mac), 1, 0);
  Acl::MacFilter filter;
  filter.etherTypeIs(0x0806);
  h.stageMac(layer2, aclData(layer2.aclKey()), 9, filter, 6);
  const auto rule = h->pendingTcamMapping(layer2.aclKey())
                        ->pendingAclKeyToTcamInfo(layer2.aclKey())
                        ->tcamRuleInfo(TcamAclRuleId(9, 0));
  EXPECT_TRUE(rule->macFilter() == filter);
  EXPECT_TRUE(rule->aclId() == Acl::UniqueId(6));
  EXPECT_FALSE(rule->implicit());
}

TEST(LibStage, PortsThatAreNotPieces) {
  HelperUnderTest h;
  const AclKeyInfo info(aclKey("web"), 3, 0);
  EXPECT_EQ(stagePorts(h, info, Acl::ipv4, {.srcLow = 10, .srcHigh = 20}), 3u);
  EXPECT_EQ(stagePorts(h, info, Acl::ipv4, {.dstLow = 10, .dstHigh = 20}), 3u);
  EXPECT_EQ(stagePorts(h, info, Acl::ipv4, {.dst = 16, .dstMask = 0xFFFC, .srcLow = 1, .dstHigh = 9}), 3u);
  EXPECT_EQ(h.books(), "");
  EXPECT_EQ(h.pool(ingressV4), "{0-6}");
  EXPECT_FALSE(h->dirty());
  EXPECT_FALSE(h->unitErrorPublished());

  EXPECT_EQ(stagePorts(h, info, Acl::ipv4, {}, 1), 0u);
  EXPECT_EQ(stagePorts(h, info, Acl::ipv4, {.srcLow = 10, .srcHigh = 10, .dstLow = 9, .dstHigh = 9}, 2), 0u);
  EXPECT_EQ(stagePorts(h, info, Acl::ipv4, {.src = 8, .srcMask = 0xFFF8, .srcLow = 10, .srcHigh = 20}, 3),
            0u);
  EXPECT_EQ(h.books(), "pending web rows web id 3 type 0: 1.0@0 2.0@1 3.0@2\n"
                       "pending web rule web 1.0\npending web rule web 2.0\npending web rule web 3.0\n");
}

TEST(LibStage, AFullTableStagesNothingAndSaysSo) {
  HelperUnderTest h({.rows = {{ingressV4, 2}, {ingressMac, 1}}});
  const AclKeyInfo info(aclKey("web"), 3, 0);
  const auto data = aclData(info.aclKey());
  EXPECT_EQ(h.stageV4(info, data, 1, 0), 0u);
  const std::string staged = h.books();
  EXPECT_EQ(h.stageV4(info, data, 2, 0), 2u);
  const std::string head = "XpAclPlexAggregatorHelper aclCreateErrorTcamExhaustion::";
  EXPECT_EQ(h->unitErrorText().charPtr(), head + "createIpAclCommonAggregate");
  EXPECT_EQ(h->unitErrorCode(), 2u);
  EXPECT_TRUE(h->dirty());
  EXPECT_TRUE(h->unitErrorPublished());
  EXPECT_EQ(h.stageFinal(info, data, 3), 2u);
  EXPECT_EQ(h->unitErrorText().charPtr(), head + "createFinalAclRulePlatform");
  EXPECT_EQ(h.books(), staged) << "the rule that was staged stays, the others are not recorded";

  const AclKeyInfo layer2(aclKey("l2", Acl::ingress, Acl::mac), 1, 0);
  EXPECT_EQ(h.stageMac(layer2, aclData(layer2.aclKey()), 1), 2u);
  EXPECT_EQ(h->unitErrorText().charPtr(), head + "createMacAclCommonAggregate");
  EXPECT_EQ(h.books(), staged) << "not even an empty pending mapping";
  h->cleanupPendingPlatform(info.aclKey());
  EXPECT_EQ(h.pool(ingressV4), "{0}");
  EXPECT_EQ(h.sdk.takeCalls(), "");
}

TEST(LibStage, DeviceNumbersThatNoChipHas) {
  HelperUnderTest h({.rows = {{ingressV4, 4}, {ingressMac, 4}}});
  const AclKeyInfo info(aclKey("web"), 3, 0);
  const AclKeyInfo layer2(aclKey("l2", Acl::ingress, Acl::mac), 1, 0);
  const auto data = aclData(info.aclKey());
  const std::string text = "RangeException: DeviceId::value < DeviceId::min or > DeviceId::null not allowed";
  h->xpDevIdIs(XpXdk::XpDeviceId(65));
  EXPECT_EQ(thrownBy([&] { h.stageV4(info, data, 1, 0); }), text);
  EXPECT_EQ(thrownBy([&] { h.stageFinal(info, data, 1); }), text);
  EXPECT_EQ(thrownBy([&] { h.stageMac(layer2, data, 1); }), text);
  EXPECT_EQ(h.books(), "");
  EXPECT_EQ(h.pool(ingressV4), "{0-2}");
  h->xpDevIdIs(XpXdk::XpDeviceId(64));
  EXPECT_EQ(h.stageV4(info, data, 1, 0), 0u);
}

// Ports, then key and table, then the device number, then the pool.
TEST(LibStage, OrderOfChecks) {
  const AclKeyInfo egressMac(aclKey("l2", Acl::egress, Acl::mac), 1, 0);
  const std::string assertion =
      "XpAclPlexAggregatorHelper:#: getTcamType: Assertion \"Egress MAC aclType unsupported\" failed.\n";
  HelperUnderTest h({.rows = {{ingressV4, 1}}}); // no free row
  const AclKeyInfo info(aclKey("web"), 3, 0);
  h->xpDevIdIs(XpXdk::XpDeviceId(127));
  EXPECT_EQ(stagePorts(h, info, Acl::ipv4, {.srcHigh = 1}), 3u) << "before the device number";
  EXPECT_EQ(stagePorts(h, egressMac, Acl::mac, {.srcHigh = 1}), 3u) << "before the table";
  EXPECT_EQ(deathOf([&] { stagePorts(h, egressMac, Acl::mac, {}); }), assertion)
      << "the table before the device number";
  EXPECT_EQ(thrownBy([&] { stagePorts(h, info, Acl::ipv4, {}); }),
            "RangeException: DeviceId::value < DeviceId::min or > DeviceId::null not allowed")
      << "the device number before the pool";
  EXPECT_FALSE(h->dirty());
  EXPECT_EQ(deathOf([&] { h.stageMac(egressMac, aclData(egressMac.aclKey()), 1); }), assertion);
  EXPECT_EQ(deathOf([&] { h.stageFinal(egressMac, aclData(egressMac.aclKey()), 1); }), assertion);
}

// One ACL under two hardware ids: the rules are recorded once, each version has rows of its own.
TEST(LibStage, TwoVersionsOfOneAcl) {
  HelperUnderTest h;
  const AclKeyInfo first(aclKey("web"), 3, 0);
  const AclKeyInfo second(aclKey("web"), 4, 0);
  const auto data = aclData(first.aclKey());
  h.stageV4(first, data, 1, 0);
  h.stageFinal(first, data, 2);
  h.stageV4(second, data, 1, 0);
  h.stageFinal(second, data, 2);
  EXPECT_EQ(h.books(), "pending web rows web id 3 type 0: 1.0@0 2.0@1\n"
                       "pending web rows web id 4 type 0: 1.0@2 2.0@3\n"
                       "pending web rule web 1.0\n"
                       "pending web rule web 2.0 final\n");
}

// A pool that hwInit has not made is made empty.
TEST(LibStage, ATableWithoutLimitIsFull) {
  HelperUnderTest h;
  const AclKeyInfo info(aclKey("six", Acl::ingress, Acl::ipv6), 1, 0);
  EXPECT_EQ(h.pool(ingressV6), "no pool");
  EXPECT_EQ(h.stageV6(info, aclData(info.aclKey()), 1), 2u);
  EXPECT_EQ(h.pool(ingressV6), "{}");
}

} // namespace
