#include "test/HelperUnderTest.h"

#include <gtest/gtest.h>

#include <string>

// Two-phase change: reserve, commit, clean up, retire. Books, pools and calls are compared whole.

namespace {

using namespace XpAcl;
using test::aclData;
using test::aclKey;
using test::deathOf;
using test::HelperOptions;
using test::HelperUnderTest;

// One list of `rules` rules and the final one under hardware id 3.
struct List {
  explicit List(const char* name, unsigned numRules, bool counted = false,
                Acl::AclDirection direction = Acl::ingress)
      : info(aclKey(name, direction), 3, 0), data(aclData(info.aclKey(), counted)), rules(numRules) {}

  void stage(HelperUnderTest& h) const {
    for (unsigned i = 1; i <= rules; ++i) {
      ASSERT_EQ(h.stageV4(info, data, i, 0, {}, Acl::permit, 100 + i), 0u);
    }
    ASSERT_EQ(h.stageFinal(info, data, rules + 1), 0u);
  }
  void program(HelperUnderTest& h) const {
    stage(h);
    h->commitPendingPlatform(info.aclKey());
    h.sdk.takeCalls();
  }
  AclKeyInfo version(Vane::U16 aclId) const { return AclKeyInfo(info.aclKey(), aclId, 0); }

  AclKeyInfo info;
  Vane::Ptr<Plex::AclData> data;
  unsigned rules;
};

const Plex::AclKey trigger = aclKey("trigger");

TEST(LibCommit, StagedRulesAreWrittenAndProgrammed) {
  HelperUnderTest h({.rows = {{ingressV4, 8}}, .copies = 2});
  const List web("web", 2);
  web.stage(h);
  EXPECT_EQ(h.sdk.takeCalls(), "");
  h->commitPendingPlatform(web.info.aclKey());
  EXPECT_EQ(h.sdk.takeCalls(), "writeData d0 TACL_V4_IACL t0 0 log=0 en=1 res=1 cnt=0\n"
                               "writeData d0 TACL_V4_IACL t1 0 log=0 en=1 res=1 cnt=0\n"
                               "writeKeyMask d0 TACL_V4_IACL 0 0=0300/0003 1=00/fe\n"
                               "setEntryValid d0 TACL_V4_IACL 0 1\n"
                               "writeData d0 TACL_V4_IACL t0 1 log=0 en=1 res=1 cnt=0\n"
                               "writeData d0 TACL_V4_IACL t1 1 log=0 en=1 res=1 cnt=0\n"
                               "writeKeyMask d0 TACL_V4_IACL 1 0=0300/0003 1=00/fe\n"
                               "setEntryValid d0 TACL_V4_IACL 1 1\n"
                               "writeKeyMask d0 TACL_V4_IACL 2 0=0300/0003 1=00/fe\n"
                               "writeData d0 TACL_V4_IACL t0 2 log=0 en=1 res=0 cnt=0\n"
                               "writeData d0 TACL_V4_IACL t1 2 log=0 en=1 res=0 cnt=0\n"
                               "setEntryValid d0 TACL_V4_IACL 2 1\n");
  EXPECT_EQ(h.books(), "programmed id web #0: 3.0\n"
                       "programmed id web #101: 1.0\n"
                       "programmed id web #102: 2.0\n"
                       "programmed rows web id 3 type 0: 1.0@0 2.0@1 3.0@2\n"
                       "programmed rule web 1.0\n"
                       "programmed rule web 2.0\n"
                       "programmed rule web 3.0 final\n");
  EXPECT_EQ(h.pool(ingressV4), "{3-6}");
  EXPECT_EQ(h.audit(), "");
}

TEST(LibCommit, EachTableGetsItsKeyType) {
  HelperUnderTest h(test::allTables(4));
  const AclKeyInfo six(aclKey("six", Acl::egress, Acl::ipv6), 1, 1);
  const AclKeyInfo layer2(aclKey("l2", Acl::ingress, Acl::mac), 2, 0);
  Acl::MacFilter filter;
  filter.etherTypeIs(0x0806);
  Acl::Ip6Filter filter6;
  filter6.protoIs(58);
  h.stageV6(six, aclData(six.aclKey()), 1, filter6);
  h->commitPendingPlatform(six.aclKey());
  h.stageMac(layer2, aclData(layer2.aclKey()), 1, filter);
  h.stageFinal(layer2, aclData(layer2.aclKey()), 2);
  h->commitPendingPlatform(layer2.aclKey());
  EXPECT_EQ(h.sdk.takeCalls(), "writeData d0 TACL_V6_EACL t0 0 log=0 en=1 res=1 cnt=0\n"
                               "writeKeyMask d0 TACL_V6_EACL 0 0=0100/0001 1=01/fe 4=3a/00\n"
                               "setEntryValid d0 TACL_V6_EACL 0 1\n"
                               "writeData d0 TACL_MAC_ACL t0 0 log=0 en=1 res=1 cnt=0\n"
                               "writeKeyMask d0 TACL_MAC_ACL 0 1=0200/0000 2=0608/0000\n"
                               "setEntryValid d0 TACL_MAC_ACL 0 1\n"
                               "writeKeyMask d0 TACL_MAC_ACL 1 1=0200/0000\n"
                               "writeData d0 TACL_MAC_ACL t0 1 log=0 en=1 res=0 cnt=0\n"
                               "setEntryValid d0 TACL_MAC_ACL 1 1\n");
  EXPECT_EQ(h.audit(), "");
}

TEST(LibCommit, WhatWasStagedIsWhatIsWritten) {
  HelperUnderTest h;
  const AclKeyInfo info(aclKey("web"), 9, 1);
  Acl::IpFilter filter;
  filter.protoIs(6);
  h->createIpAclCommonAggregate(info, Acl::ipv4, Acl::IpRuleConfig(filter, Acl::deny, true),
                                Acl::UniqueId(77), aclData(info.aclKey()), 4, 2, true, 80, 0xFFFF, 1024,
                                0xFC00, 80, 80, 1024, 2047, 9, 9, 9, 9, 9, true);
  h->commitPendingPlatform(info.aclKey());
  EXPECT_EQ(h.sdk.takeCalls(),
            "writeData d0 TACL_V4_IACL t0 0 log=1 en=1 res=0 cnt=0\n"
            "writeKeyMask d0 TACL_V4_IACL 0 0=0900/0009 1=01/fe 3=5000/0000 2=0004/ff03 4=06/00\n"
            "setEntryValid d0 TACL_V4_IACL 0 1\n");
  const auto rule = h->programmedAclKeyToTcamInfo(info.aclKey())->tcamRuleInfo(TcamAclRuleId(4, 2));
  EXPECT_TRUE(rule->implicit());
  EXPECT_EQ(rule->ruleNum(), 4u);
  EXPECT_EQ(rule->subruleNum(), 2u);
  EXPECT_EQ(rule->srcL4Port(), 80);
  EXPECT_EQ(rule->dstL4PortMask(), 0xFC00);
}

TEST(LibCommit, NothingStaged) {
  HelperUnderTest h;
  h->commitPendingPlatform(trigger);
  h->cleanupPendingPlatform(trigger);
  EXPECT_EQ(h.sdk.takeCalls(), "");
  EXPECT_EQ(h.books(), "");
  EXPECT_EQ(h.pool(ingressV4), "{0-6}");
}

TEST(LibCommit, AllocateThenCommitAFurtherVersion) {
  HelperUnderTest h;
  const List web("web", 1);
  web.program(h);
  EXPECT_TRUE(h->allocateResource(trigger, web.version(7)));
  EXPECT_EQ(h.sdk.takeCalls(), "");
  EXPECT_EQ(h.books(), "pending trigger rows web id 7 type 0: 1.0@2 2.0@3\n"
                       "programmed id web #0: 2.0\n"
                       "programmed id web #101: 1.0\n"
                       "programmed rows web id 3 type 0: 1.0@0 2.0@1\n"
                       "programmed rule web 1.0\n"
                       "programmed rule web 2.0 final\n");
  EXPECT_EQ(h.audit(), "");
  h.sdk.takeCalls(); // of the audit
  h->commitPendingPlatform(trigger);
  EXPECT_EQ(h.sdk.takeCalls(), "writeData d0 TACL_V4_IACL t0 2 log=0 en=1 res=1 cnt=0\n"
                               "writeKeyMask d0 TACL_V4_IACL 2 0=0700/0007 1=00/fe\n"
                               "setEntryValid d0 TACL_V4_IACL 2 1\n"
                               "writeKeyMask d0 TACL_V4_IACL 3 0=0700/0007 1=00/fe\n"
                               "writeData d0 TACL_V4_IACL t0 3 log=0 en=1 res=0 cnt=0\n"
                               "setEntryValid d0 TACL_V4_IACL 3 1\n");
  EXPECT_EQ(h.books(), "programmed id web #0: 2.0\n"
                       "programmed id web #101: 1.0\n"
                       "programmed rows web id 3 type 0: 1.0@0 2.0@1\n"
                       "programmed rows web id 7 type 0: 1.0@2 2.0@3\n"
                       "programmed rule web 1.0\n"
                       "programmed rule web 2.0 final\n");

  // The old version goes; the new one stays in the chip.
  h->freeResource(web.info);
  EXPECT_EQ(h.sdk.takeCalls(), "setEntryValid d0 TACL_V4_IACL 0 0\nsetEntryValid d0 TACL_V4_IACL 1 0\n");
  EXPECT_EQ(h.pool(ingressV4), "{0-1, 4-6}");
  EXPECT_TRUE(h.sdk.valid(XpXdk::TACL_V4_IACL, 2));
  EXPECT_EQ(h.books(), "programmed id web #0: 2.0\n"
                       "programmed id web #101: 1.0\n"
                       "programmed rows web id 7 type 0: 1.0@2 2.0@3\n"
                       "programmed rule web 1.0\n"
                       "programmed rule web 2.0 final\n");
  EXPECT_EQ(h.audit(), "");
  // With the last version the records go.
  h->freeResource(web.version(7));
  EXPECT_EQ(h.books(), "");
  EXPECT_EQ(h.pool(ingressV4), "{0-6}");
  EXPECT_EQ(h.audit(), "");
}

// The version that goes may be named by the key that stands in the books, which goes with it.
TEST(LibCommit, AVersionGoesByItsOwnKey) {
  HelperUnderTest h;
  const List web("web", 1);
  web.program(h);
  EXPECT_TRUE(h->allocateResource(trigger, web.version(7)));
  h->commitPendingPlatform(trigger);
  for (const unsigned left : {1u, 0u}) {
    const AclKeyInfo* own = nullptr;
    for (const auto& version : h->programmedAclKeyInfoToIdxAll()) {
      own = &version.key();
    }
    ASSERT_NE(own, nullptr);
    h->freeResource(*own);
    EXPECT_EQ(h->programmedAclKeyInfoToIdxCount(), left);
    EXPECT_EQ(h->programmedAclKeyToTcamInfoCount(), left);
    EXPECT_EQ(h.audit(), "");
  }
  EXPECT_EQ(h.books(), "");
}

TEST(LibCommit, TooFewRowsLeaveEverything) {
  HelperUnderTest h({.rows = {{ingressV4, 6}}});
  const List web("web", 2);
  web.program(h);
  const std::string books = h.books();
  EXPECT_EQ(h.pool(ingressV4), "{3-4}");
  EXPECT_FALSE(h->allocateResource(trigger, web.version(7)));
  EXPECT_EQ(h.pool(ingressV4), "{3-4}");
  EXPECT_EQ(h.books(), books);
  EXPECT_FALSE(h->dirty());
  EXPECT_EQ(h.sdk.takeCalls(), "");
  // Just enough is enough.
  h->tcamIdxAllocator(ingressV4)->freeTcamIdxIs(1000, true);
  EXPECT_TRUE(h->allocateResource(trigger, web.version(7)));
  EXPECT_EQ(h.pool(ingressV4), "{}");
}

TEST(LibCommit, AllocateThenCleanUp) {
  HelperUnderTest h;
  const List web("web", 1);
  web.program(h);
  const std::string books = h.books();
  EXPECT_TRUE(h->allocateResource(trigger, web.version(7)));
  EXPECT_TRUE(h->allocateResource(trigger, web.version(8)));
  EXPECT_EQ(h.pool(ingressV4), "{6}");
  h->cleanupPendingPlatform(trigger);
  EXPECT_EQ(h.pool(ingressV4), "{2-6}");
  EXPECT_EQ(h.books(), books);
  EXPECT_EQ(h.sdk.takeCalls(), "");
  EXPECT_EQ(h.audit(), "");
}

TEST(LibCommit, CleanUpGivesRowsBackToTheirTables) {
  HelperUnderTest h(test::allTables(4));
  const List web("web", 1);
  web.program(h);
  const AclKeyInfo six(aclKey("six", Acl::egress, Acl::ipv6), 1, 0);
  h.stageV6(six, aclData(six.aclKey()), 1);
  EXPECT_FALSE(h->allocateResource(six.aclKey(), web.version(7)));
  h.stageFinal(six, aclData(six.aclKey()), 2);
  EXPECT_EQ(h.pool(egressV6), "{2}");
  h->cleanupPendingPlatform(six.aclKey());
  EXPECT_EQ(h.pool(egressV6), "{0-2}");
  EXPECT_EQ(h.pool(ingressV4), "{2}");
  EXPECT_EQ(h.sdk.takeCalls(), "");
}

TEST(LibCommit, OneTriggerMayStageItsOwnRulesAndOthersVersions) {
  HelperUnderTest h;
  const List web("web", 0);
  web.program(h);
  const List mail("mail", 0);
  mail.stage(h);
  EXPECT_TRUE(h->allocateResource(mail.info.aclKey(), web.version(8)));
  h->commitPendingPlatform(mail.info.aclKey());
  EXPECT_EQ(h.books(), "programmed id mail #0: 1.0\n"
                       "programmed id web #0: 1.0\n"
                       "programmed rows mail id 3 type 0: 1.0@1\n"
                       "programmed rows web id 3 type 0: 1.0@0\n"
                       "programmed rows web id 8 type 0: 1.0@2\n"
                       "programmed rule mail 1.0 final\n"
                       "programmed rule web 1.0 final\n");
  EXPECT_EQ(h.audit(), "");
}

// Commit adds and overwrites; what it does not mention stays.
TEST(LibCommit, CommitRemovesNothing) {
  HelperUnderTest h;
  const List web("web", 2);
  web.program(h);
  const AclKeyInfo second = web.version(4);
  h.stageV4(second, web.data, 1, 0, {}, Acl::deny, 500);
  h->commitPendingPlatform(web.info.aclKey());
  EXPECT_EQ(h.sdk.takeCalls(), "writeData d0 TACL_V4_IACL t0 3 log=0 en=1 res=0 cnt=0\n"
                               "writeKeyMask d0 TACL_V4_IACL 3 0=0400/0004 1=00/fe\n"
                               "setEntryValid d0 TACL_V4_IACL 3 1\n");
  EXPECT_EQ(h.books(), "programmed id web #0: 3.0\n"
                       "programmed id web #101: 1.0\n"
                       "programmed id web #102: 2.0\n"
                       "programmed id web #500: 1.0\n"
                       "programmed rows web id 3 type 0: 1.0@0 2.0@1 3.0@2\n"
                       "programmed rows web id 4 type 0: 1.0@3\n"
                       "programmed rule web 1.0\n"
                       "programmed rule web 2.0\n"
                       "programmed rule web 3.0 final\n");
  EXPECT_EQ(h->programmedAclKeyToTcamInfo(web.info.aclKey())->tcamRuleInfo(TcamAclRuleId(1, 0))->action(),
            Acl::deny);
}

TEST(LibCommit, BrokenInvariantsStop) {
  HelperUnderTest h;
  const List web("web", 1);
  web.program(h);
  EXPECT_EQ(deathOf([&] { h->allocateResource(web.info.aclKey(), web.version(7)); }),
            "XpAclPlexAggregatorHelper:#: allocateResource: Assertion \"triggerKey != "
            "aclKeyInfo.aclKey()\" failed.\n");
  EXPECT_EQ(deathOf([&] { h->allocateResource(trigger, AclKeyInfo(aclKey("unknown"), 1, 0)); }),
            "XpAclPlexAggregatorHelper:#: allocateResource: Assertion \"tcamInfo\" failed.\n");
  EXPECT_EQ(deathOf([&] {
              web.stage(h); // under the id that is programmed already
              h->commitPendingPlatform(web.info.aclKey());
            }),
            "XpAclPlexAggregatorHelper:#: commitVersion: Assertion \"!programmedAclKeyInfoHas( iter.key() "
            ")\" failed.\n");
}

TEST(LibCommit, AVersionThatWasNeverProgrammed) {
  HelperUnderTest h;
  const List web("web", 1);
  web.program(h);
  const std::string books = h.books();
  h->freeResource(web.version(9));
  h->freeResource(AclKeyInfo(aclKey("empty"), 1, 0));
  EXPECT_EQ(h.books(), books);
  EXPECT_EQ(h.sdk.takeCalls(), "");
}

TEST(LibCommit, FreedRowsAreInvalidBeforeTheyAreFree) {
  for (const bool permit : {false, true}) {
    HelperUnderTest h;
    const List web("web", 2);
    web.data->permitDuringAclUpdateIs(permit);
    web.program(h);
    h->freeResource(web.info);
    EXPECT_EQ(h.sdk.takeCalls(), "setEntryValid d0 TACL_V4_IACL 0 0\n"
                                 "setEntryValid d0 TACL_V4_IACL 1 0\n"
                                 "setEntryValid d0 TACL_V4_IACL 2 0\n")
        << permit;
    EXPECT_EQ(h.pool(ingressV4), "{0-6}");
    EXPECT_EQ(h.books(), "");
    EXPECT_EQ(h.audit(), "");
  }
}

TEST(LibCommit, TheFailingCallOfARetirementNamesItsPath) {
  const struct {
    Acl::AclDirection direction;
    Acl::AclType type;
    const char* name;
  } tables[] = {{Acl::ingress, Acl::ipv4, "TACL_V4_IACL"},
                {Acl::ingress, Acl::ipv6, "TACL_V6_IACL"},
                {Acl::egress, Acl::ipv4, "TACL_V4_EACL"},
                {Acl::egress, Acl::ipv6, "TACL_V6_EACL"},
                {Acl::ingress, Acl::mac, "TACL_MAC_ACL"}};
  for (const auto& table : tables) {
    for (const bool permit : {false, true}) {
      const std::string death = deathOf([&] {
        HelperUnderTest h(test::allTables(4));
        const AclKeyInfo info(aclKey("list", table.direction, table.type), 1, 0);
        const auto data = aclData(info.aclKey());
        data->permitDuringAclUpdateIs(permit);
        h.stageFinal(info, data, 1);
        h->commitPendingPlatform(info.aclKey());
        h.sdk.failCall(1, 3);
        h->freeResource(info);
      });
      EXPECT_EQ(death,
                std::string("XpAclPlexAggregatorHelper:# ((iaclMgr()->setEntryValid( xpDevId().value(), ") +
                    table.name + (permit ? ", *it" : ", tcamIdx") +
                    ", false ))) API ERROR 3\nXpAclPlexAggregatorHelper:#: setEntryValid: Assertion "
                    "\"!(true)\" failed.\n");
    }
  }
}

// A retired row goes back to the low end of the pool and is taken first.
TEST(LibCommit, RetiredRowsAreTakenAgain) {
  HelperUnderTest h;
  const List web("web", 1);
  const List mail("mail", 1);
  web.program(h);
  mail.program(h);
  h->freeResource(web.info);
  const List news("news", 2);
  news.program(h);
  EXPECT_EQ(h.books(), "programmed id mail #0: 2.0\n"
                       "programmed id mail #101: 1.0\n"
                       "programmed id news #0: 3.0\n"
                       "programmed id news #101: 1.0\n"
                       "programmed id news #102: 2.0\n"
                       "programmed rows mail id 3 type 0: 1.0@2 2.0@3\n"
                       "programmed rows news id 3 type 0: 1.0@0 2.0@1 3.0@4\n"
                       "programmed rule mail 1.0\n"
                       "programmed rule mail 2.0 final\n"
                       "programmed rule news 1.0\n"
                       "programmed rule news 2.0\n"
                       "programmed rule news 3.0 final\n");
  EXPECT_EQ(h.audit(), "");
}

// Failing call n, for every n, ends the process at that call: no call's status is ignored.
TEST(LibCommit, EveryCallOfAChangeGetsItsTurnToFail) {
  const auto change = [](HelperUnderTest& h) {
    const List web("web", 1);
    web.stage(h);
    h->commitPendingPlatform(web.info.aclKey());
    h->freeResource(web.info);
  };
  HelperUnderTest whole({.copies = 2});
  change(whole);
  const std::size_t numCalls = whole.sdk.numCalls();
  EXPECT_EQ(numCalls, 10u);
  for (unsigned n = 1; n <= numCalls; ++n) {
    const std::string death = deathOf([&] {
      HelperUnderTest h({.copies = 2});
      h.sdk.failCall(n, 6);
      change(h);
    });
    EXPECT_NE(death.find(" API ERROR 6\n"), std::string::npos) << n << ": " << death;
  }
}

} // namespace
