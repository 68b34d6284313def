#include "test/HelperUnderTest.h"
#include "test/Random.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

// audit() finds each kind of damage and names it; random changes leave nothing for it to find.

namespace {

using namespace XpAcl;
using test::aclData;
using test::aclKey;
using test::HelperUnderTest;

struct Programmed {
  Programmed() : web(aclKey("web"), 3, 0) {
    h.stageV4(web, aclData(web.aclKey()), 1, 0);
    h.stageFinal(web, aclData(web.aclKey()), 2);
    h->commitPendingPlatform(web.aclKey());
    EXPECT_EQ(h.audit(), "");
  }
  HelperUnderTest h;
  AclKeyInfo web;
};

TEST(LibAudit, AFreeRowThatIsValid) {
  Programmed p;
  p.h.sdk.validIs(XpXdk::TACL_V4_IACL, 4, true);
  EXPECT_EQ(p.h.audit(), "TACL_V4_IACL row 4 is free but valid in the chip\n");
}

TEST(LibAudit, ARowThatIsClaimedTwice) {
  Programmed p;
  p.h->programmedAclKeyInfoToIdxIs(AclKeyInfo(p.web.aclKey(), 4, 0))->tcamIdxIs(TcamAclRuleId(1, 0), 1);
  EXPECT_EQ(p.h.audit(), "TACL_V4_IACL row 1 is claimed more than once\n");
  Programmed free;
  free.h->tcamIdxAllocator(ingressV4)->freeTcamIdxIs(0, true);
  EXPECT_EQ(free.h.audit(), "TACL_V4_IACL row 0 is claimed more than once\n"
                            "TACL_V4_IACL row 0 is free but valid in the chip\n");
}

TEST(LibAudit, ARowThatLeaked) {
  Programmed p;
  p.h->tcamIdxAllocator(ingressV4)->freeTcamIdxDel(5);
  EXPECT_EQ(p.h.audit(), "TACL_V4_IACL row 5 is neither free nor mapped\n");
}

TEST(LibAudit, AVersionThatIsStagedAndProgrammed) {
  Programmed p;
  p.h->pendingTcamMappingIs(aclKey("t"))->pendingAclKeyInfoToIdxIs(p.web);
  EXPECT_EQ(p.h.audit(),
            "version Value('XpAcl::AclKeyInfo', ** {'aclKey': Value('Plex::AclKey', ** {'name': 'web', "
            "'direction': ingress, 'aclType': ipv4, 'generation': 1}), 'aclId': 3, 'type': 0}) is both "
            "staged and programmed\n");
}

TEST(LibAudit, TheDefaultEntry) {
  Programmed claimed;
  claimed.h->tcamIdxAllocator(ingressV4)->freeTcamIdxIs(7, true);
  EXPECT_EQ(claimed.h.audit(), "TACL_V4_IACL row 7 holds the default entry and is claimed\n"
                               "TACL_V4_IACL row 7 is free but valid in the chip\n");
  Programmed lost;
  lost.h.sdk.validIs(XpXdk::TACL_V4_IACL, 7, false);
  EXPECT_EQ(lost.h.audit(), "TACL_V4_IACL row 7 holds the default entry but is not valid in the chip\n");
}

TEST(LibAudit, RowsBeyondTheTable) {
  Programmed p;
  p.h->tcamIdxAllocator(ingressV4)->freeTcamIdxIs(8, true);
  p.h->programmedAclKeyInfoToIdx(p.web)->tcamIdxIs(TcamAclRuleId(9, 0), 9);
  EXPECT_EQ(p.h.audit(), "TACL_V4_IACL row 9 is mapped but beyond the table\n"
                         "TACL_V4_IACL row 8 is free but beyond the table\n");
}

TEST(LibAudit, ARowThatCannotBeRead) {
  Programmed p;
  p.h.sdk.takeCalls();
  p.h.sdk.failCall(3, 4);
  EXPECT_EQ(p.h.audit(), "TACL_V4_IACL row 2 cannot be read back\n");
}

// Random changes of random lists: after each step nothing is broken, and the pools hold what the versions
// that live do not.
TEST(LibAudit, RandomChanges) {
  test::Random random(test::Random::seed("LibAudit.RandomChanges"));
  HelperUnderTest h(test::allTables(24));
  std::map<unsigned, std::vector<AclKeyInfo>> live; // by list
  Vane::U16 nextId = 1;
  for (unsigned step = 0; step < 3000; ++step) {
    const unsigned list = random.below(10);
    const TcamTableInfo& table = tcamTables[list % 5];
    const Plex::AclKey key = aclKey(("list" + std::to_string(list)).c_str(), table.direction, table.aclType);
    std::vector<AclKeyInfo>& versions = live[list];
    const auto data = aclData(key, random.oneIn(2));
    data->permitDuringAclUpdateIs(random.oneIn(2));
    const AclKeyInfo info(key, nextId++, list % 2);
    if (versions.empty()) {
      bool fits = true;
      const unsigned rules = random.below(7);
      for (unsigned rule = 1; rule <= rules && fits; ++rule) {
        fits = (table.aclType == Acl::ipv4   ? h.stageV4(info, data, rule, 0)
                : table.aclType == Acl::ipv6 ? h.stageV6(info, data, rule)
                                             : h.stageMac(info, data, rule)) == staged;
      }
      fits = fits && h.stageFinal(info, data, rules + 1) == staged;
      if (fits && !random.oneIn(4)) {
        h->commitPendingPlatform(key);
        versions.push_back(info);
      } else {
        h->cleanupPendingPlatform(key);
      }
    } else if (random.oneIn(2)) {
      const Plex::AclKey trigger = aclKey("trigger");
      const bool fits = h->allocateResource(trigger, info);
      ASSERT_EQ(h.audit(), "") << "step " << step;
      if (fits && !random.oneIn(4)) {
        h->commitPendingPlatform(trigger);
        versions.push_back(info);
      } else {
        h->cleanupPendingPlatform(trigger);
      }
    } else {
      const std::size_t at = random.below(static_cast<uint32_t>(versions.size()));
      h->freeResource(versions[at]);
      versions.erase(versions.begin() + static_cast<std::ptrdiff_t>(at));
    }
    ASSERT_EQ(h.audit(), "") << "step " << step;
    ASSERT_EQ(h->pendingTcamMappingCount(), 0u);
    h.sdk.takeCalls(); // so that they do not pile up
  }
  for (const auto& [list, versions] : live) {
    for (const AclKeyInfo& info : versions) {
      h->freeResource(info);
    }
  }
  EXPECT_EQ(h.books(), "");
  for (const TcamTableInfo& table : tcamTables) {
    EXPECT_EQ(h.pool(table.tcamType), "{0-22}");
  }
  EXPECT_EQ(h->acmHelper(Acl::ingress)->acmIdxCount(), 0u);
  EXPECT_EQ(h->acmHelper(Acl::egress)->acmIdxCount(), 0u);
}

} // namespace
