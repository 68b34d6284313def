#include "test/HelperUnderTest.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

// Hit counters: which one a row gets, what a poll answers, and when all are in place.

namespace {

using namespace XpAcl;
using test::aclData;
using test::aclKey;
using test::deathOf;
using test::HelperUnderTest;
using XpXdk::acmClientEgressAcl;
using XpXdk::acmClientIngressAcl;

TEST(LibCounters, IndexesOfRows) {
  EXPECT_EQ(counterIndexOfRow(Acl::ipv4, 10), 21u);
  EXPECT_EQ(counterIndexOfRow(Acl::ipv6, 10), 20u);
  EXPECT_EQ(counterIndexOfRow(Acl::mac, 10), 20u);
  EXPECT_EQ(counterIndexOfRow(Acl::ipv4, 0), 1u);
  EXPECT_EQ(counterIndexOfRow(Acl::ipv6, 0), 0u);
}

// The counters that the rows of a commit were given: "0:1 1:3".
std::string countersOf(HelperUnderTest& h) {
  std::string text;
  std::istringstream calls(h.sdk.takeCalls());
  for (std::string line; std::getline(calls, line);) {
    if (line.starts_with("writeData")) {
      const std::size_t row = line.find(" t0 ") + 4;
      text += (text.empty() ? "" : " ") + line.substr(row, line.find(' ', row) - row) + ":" +
              line.substr(line.find("cnt=") + 4);
    }
  }
  return text;
}

// Makes row `first` the lowest free one of a table.
void startAt(HelperUnderTest& h, TcamType type, Vane::U32 first) {
  for (Vane::U32 row = 0; row < first; ++row) {
    h->tcamIdxAllocator(type)->freeTcamIdxDel(row);
  }
}

TEST(LibCounters, CountedRulesTakeTheCounterOfTheirRow) {
  HelperUnderTest h(test::allTables(32));
  startAt(h, ingressV4, 7);
  const AclKeyInfo info(aclKey("web"), 3, 0);
  const auto data = aclData(info.aclKey(), true);
  h.stageV4(info, data, 1, 0, {}, Acl::permit, 50);
  h.stageV4(info, data, 1, 1, {}, Acl::permit, 50);
  h.stageFinal(info, data, 2);
  h->commitPendingPlatform(info.aclKey());
  EXPECT_EQ(countersOf(h), "7:15 8:17 9:0") << "the final rule counts where nobody reads";
  EXPECT_EQ(h.books(), "programmed id web #0: 2.0\n"
                       "programmed id web #50: 1.0 1.1\n"
                       "programmed rows web id 3 type 0: 1.0@7 1.1@8 2.0@9\n"
                       "programmed rule web 1.0 counted\n"
                       "programmed rule web 1.1 counted\n"
                       "programmed rule web 2.0 final\n");
  const auto acm = h->acmHelper(Acl::ingress);
  EXPECT_STREQ(acm->acmIdx(15).charPtr(), "web:1.0");
  EXPECT_STREQ(acm->acmIdx(17).charPtr(), "web:1.1");
  EXPECT_EQ(acm->acmIdxCount(), 2u);
  EXPECT_EQ(h->acmHelper(Acl::egress)->acmIdxCount(), 0u);
}

// Labels are made in a small buffer where they fit; numbers take up to 22 characters of it.
TEST(LibCounters, ALabelHasTheWholeNameAndTheWholeNumbers) {
  for (const std::size_t length : {1, 41, 42, 43, 63, 64, 65, 300}) {
    HelperUnderTest h;
    const std::string name = std::string(length - 1, 'n') + "!";
    const AclKeyInfo info(aclKey(name.c_str()), 3, 0);
    const auto data = aclData(info.aclKey(), true);
    h.stageV4(info, data, 1, 0);
    h.stageV4(info, data, 4294967295, 4294967295);
    h->commitPendingPlatform(info.aclKey());
    const auto acm = h->acmHelper(Acl::ingress);
    EXPECT_EQ(acm->acmIdx(1).charPtr(), name + ":1.0");
    EXPECT_EQ(acm->acmIdx(3).charPtr(), name + ":4294967295.4294967295");
  }
}

TEST(LibCounters, UncountedAclsTakeNone) {
  HelperUnderTest h;
  const AclKeyInfo info(aclKey("web"), 3, 0);
  const auto data = aclData(info.aclKey(), false);
  h.stageV4(info, data, 1, 0);
  h->commitPendingPlatform(info.aclKey());
  EXPECT_EQ(countersOf(h), "0:0");
  EXPECT_EQ(h->acmHelper(Acl::ingress)->acmIdxCount(), 0u);
  EXPECT_EQ(h.books(), "programmed id web #0: 1.0\nprogrammed rows web id 3 type 0: 1.0@0\n"
                       "programmed rule web 1.0\n");
}

// Row 0 of an IPv6 ACL has counter 0, which is also the one that nobody reads: it is taken but not counted.
TEST(LibCounters, RowZeroOfAnIpv6Acl) {
  HelperUnderTest h(test::allTables(32));
  const AclKeyInfo info(aclKey("six", Acl::ingress, Acl::ipv6), 3, 0);
  const auto data = aclData(info.aclKey(), true);
  h.stageV6(info, data, 1, {}, 50);
  h.stageV6(info, data, 2, {}, 51);
  h->commitPendingPlatform(info.aclKey());
  EXPECT_EQ(countersOf(h), "0:0 1:2");
  EXPECT_EQ(h.books(), "programmed id six #50: 1.0\n"
                       "programmed id six #51: 2.0\n"
                       "programmed rows six id 3 type 0: 1.0@0 2.0@1\n"
                       "programmed rule six 1.0\n"
                       "programmed rule six 2.0 counted\n");
}

// IPv6 and MAC rows of one number share a counter: whoever comes second counts where nobody reads.
TEST(LibCounters, ACounterInUse) {
  HelperUnderTest h(test::allTables(32));
  startAt(h, ingressV6, 10);
  startAt(h, ingressMac, 10);
  const AclKeyInfo six(aclKey("six", Acl::ingress, Acl::ipv6), 3, 0);
  const AclKeyInfo layer2(aclKey("l2", Acl::ingress, Acl::mac), 3, 0);
  h.stageV6(six, aclData(six.aclKey(), true), 1);
  h->commitPendingPlatform(six.aclKey());
  h.stageMac(layer2, aclData(layer2.aclKey(), true), 1);
  h->commitPendingPlatform(layer2.aclKey());
  EXPECT_EQ(countersOf(h), "10:20 10:0");
  EXPECT_EQ(h.books(), "programmed id l2 #0: 1.0\n"
                       "programmed id six #0: 1.0\n"
                       "programmed rows l2 id 3 type 0: 1.0@10\n"
                       "programmed rows six id 3 type 0: 1.0@10\n"
                       "programmed rule l2 1.0\n"
                       "programmed rule six 1.0 counted\n");
  EXPECT_STREQ(h->acmHelper(Acl::ingress)->acmIdx(20).charPtr(), "six:1.0");
}

// Three pieces of one configured rule at rows 4, 5 and 6.
struct SplitRule {
  SplitRule() : h(test::allTables(32)), info(aclKey("web"), 3, 0), data(aclData(info.aclKey(), true)) {
    startAt(h, ingressV4, 4);
    for (unsigned piece = 0; piece < 3; ++piece) {
      h.stageV4(info, data, 1, piece, {}, Acl::permit, 50);
    }
    h.stageV4(info, data, 2, 0, {}, Acl::permit, 51);
    h.stageFinal(info, data, 3);
    h->commitPendingPlatform(info.aclKey());
    h.sdk.takeCalls();
  }
  Vane::U64 poll(Vane::U64 id) {
    return h->aclRuleCountersSinceLastPoll(Vane::Ptr<Plex::AclData const>(data), 0, Acl::UniqueId(id));
  }
  void hits(Vane::U32 index, Vane::U64 count) {
    h.sdk.counterIs(acmClientIngressAcl, index, h.sdk.counter(acmClientIngressAcl, index) + count);
  }

  HelperUnderTest h;
  AclKeyInfo info;
  Vane::Ptr<Plex::AclData> data;
};

TEST(LibCounters, APollSumsTheRowsOfARule) {
  SplitRule rule;
  rule.hits(9, 5);
  rule.hits(11, 20);
  rule.hits(13, 300);
  rule.hits(15, 4000);
  EXPECT_EQ(rule.poll(50), 325u);
  EXPECT_EQ(rule.h.sdk.takeCalls(), "readCounter d0 c39 9\nreadCounter d0 c39 11\nreadCounter d0 c39 13\n");
  EXPECT_EQ(rule.poll(50), 0u);
  EXPECT_EQ(rule.poll(51), 4000u);
  rule.hits(11, 1);
  EXPECT_EQ(rule.poll(50), 1u);
}

TEST(LibCounters, APollSumsTheVersions) {
  SplitRule rule;
  EXPECT_TRUE(rule.h->allocateResource(aclKey("trigger"), AclKeyInfo(rule.info.aclKey(), 9, 0)));
  rule.h->commitPendingPlatform(aclKey("trigger")); // rows 9 to 13
  rule.hits(9, 1);
  rule.hits(19, 10); // row 9
  rule.hits(23, 100);
  rule.hits(25, 1000); // the other rule
  EXPECT_EQ(rule.poll(50), 111u);
  EXPECT_EQ(rule.poll(51), 1000u);
  rule.h->freeResource(rule.info);
  rule.hits(9, 1);
  rule.hits(19, 10);
  EXPECT_EQ(rule.poll(50), 10u) << "a retired version counts no more";
}

// Counters run freely and survive their rule; the next rule of the row starts at 0.
TEST(LibCounters, ANewRuleStartsAtZero) {
  SplitRule rule;
  rule.hits(9, 5);
  rule.h->freeResource(rule.info);
  EXPECT_EQ(rule.h->acmHelper(Acl::ingress)->acmIdxCount(), 0u);
  rule.h.stageV4(rule.info, rule.data, 1, 0, {}, Acl::permit, 50);
  rule.h->commitPendingPlatform(rule.info.aclKey());
  EXPECT_EQ(rule.poll(50), 0u);
  rule.hits(9, 7);
  EXPECT_EQ(rule.poll(50), 7u);
}

TEST(LibCounters, EgressReadsItsOwnBlock) {
  HelperUnderTest h(test::allTables(8));
  const AclKeyInfo info(aclKey("out", Acl::egress, Acl::ipv6), 3, 0);
  const auto data = aclData(info.aclKey(), true);
  h.stageV6(info, data, 1, {}, 50);
  h.stageV6(info, data, 2, {}, 51);
  h->commitPendingPlatform(info.aclKey());
  h.sdk.counterIs(acmClientEgressAcl, 2, 6);
  h.sdk.counterIs(acmClientIngressAcl, 2, 60);
  EXPECT_EQ(h->aclRuleCountersSinceLastPoll(Vane::Ptr<Plex::AclData const>(data), 0, Acl::UniqueId(51)), 6u);
}

// A version that holds no row for the rule is polled at row 0.
TEST(LibCounters, ARuleWithoutARowReadsRowZero) {
  SplitRule rule;
  rule.h->programmedAclKeyInfoToIdx(rule.info)->tcamIdxDel(TcamAclRuleId(2, 0));
  rule.hits(1, 8);
  EXPECT_EQ(rule.poll(51), 8u);
  EXPECT_EQ(rule.h.sdk.takeCalls(), "readCounter d0 c39 1\n");
}

TEST(LibCounters, PollsThatAnswerNothing) {
  SplitRule rule;
  rule.hits(9, 5);
  rule.data->countersEnabledIs(false);
  EXPECT_EQ(rule.poll(50), 0u);
  EXPECT_EQ(rule.poll(999), 0u) << "the flag comes before the rule";
  const auto other = aclData(aclKey("other"), true);
  EXPECT_EQ(rule.h->aclRuleCountersSinceLastPoll(Vane::Ptr<Plex::AclData const>(other), 0, Acl::UniqueId(50)),
            0u);
  EXPECT_EQ(rule.h.sdk.takeCalls(), "");
  rule.data->countersEnabledIs(true);
  EXPECT_EQ(deathOf([&] { rule.poll(999); }),
            "XpAclPlexAggregatorHelper:#: aclRuleCountersSinceLastPoll: Assertion \"ruleIdMapping\" "
            "failed.\n");
}

TEST(LibCounters, CountersAllocated) {
  SplitRule rule;
  const Vane::Ptr<Plex::AclData const> data(rule.data);
  EXPECT_EQ(deathOf([&] { rule.h->aclCountersAllocated(data); }),
            "XpAclPlexAggregatorHelper:#: aclCountersAllocated: Assertion \"aclData->installed()\" "
            "failed.\n");
  rule.data->installedIs(true);
  EXPECT_TRUE(rule.h->aclCountersAllocated(data)) << "counted rules and the final rule";
  rule.data->countersEnabledIs(false);
  EXPECT_FALSE(rule.h->aclCountersAllocated(data));
  rule.data->countersEnabledIs(true);
  const auto programmed = rule.h->programmedAclKeyToTcamInfo(rule.info.aclKey());
  programmed->tcamRuleInfo(TcamAclRuleId(2, 0))->countIs(false);
  EXPECT_FALSE(rule.h->aclCountersAllocated(data)) << "one rule without a counter";
  programmed->tcamRuleInfoDelAll();
  EXPECT_TRUE(rule.h->aclCountersAllocated(data)) << "no rule at all";
  const auto other = aclData(aclKey("other"), true);
  other->installedIs(true);
  EXPECT_FALSE(rule.h->aclCountersAllocated(Vane::Ptr<Plex::AclData const>(other)));
}

// 32,768 rows use all 65,536 indexes; the last one still fits the 16 bits of the data word.
TEST(LibCounters, TheLargestIndex) {
  HelperUnderTest h({.rows = {{ingressV4, 32769}}});
  startAt(h, ingressV4, 32767);
  const AclKeyInfo info(aclKey("web"), 3, 0);
  h.stageV4(info, aclData(info.aclKey(), true), 1, 0);
  h->commitPendingPlatform(info.aclKey());
  EXPECT_EQ(countersOf(h), "32767:65535");
}

} // namespace
