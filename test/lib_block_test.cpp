#include "test/HelperUnderTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

// Blocking of interfaces, the bracket around a move, and the trace lines of the operations.

namespace {

using namespace XpAcl;
using test::aclData;
using test::aclKey;
using test::deathOf;
using test::HelperUnderTest;

const Ovnet::IntfId eth1(Ovnet::IntfId::ethernet, 1);
const Ovnet::IntfId eth2(Ovnet::IntfId::ethernet, 2);
const Ovnet::IntfId vlan10(Ovnet::IntfId::vlan, 10);

// Writes down what watchers of the shared entities see, in the order in which they see it.
using Log = std::vector<std::string>;

std::string nameOf(const Ovnet::IntfId& intf) {
  return intf.stringValue().charPtr();
}

class BlockWatch : public BlockedIntfColl::NotifieeConst {
public:
  explicit BlockWatch(Log& log) : log_(log) {}
  void onIntf(const Ovnet::IntfId& intf) override {
    log_.push_back((notifier()->intf(intf) ? "block " : "unblock ") + nameOf(intf));
  }

private:
  Log& log_;
};

class MappingWatch : public AclIdMapping::NotifieeConst {
public:
  explicit MappingWatch(Log& log) : log_(log) {}
  void onIntfDirectionToIndexKey(const IntfIdDirection& key) override {
    const auto* const held = notifier()->intfDirectionToIndexKeyFind(key);
    log_.push_back("index key of " + nameOf(key.intfId()) + " " +
                   std::string(stringValue(key.direction()).view()) + ": " +
                   (held != nullptr ? held->slot(0).name().charPtr() : "none"));
  }
  void onKeyToAclIdMapping(const HwAclIndexKey& key) override {
    log_.push_back(std::string("id of ") + key.slot(0).name().charPtr() + ": " +
                   std::to_string(notifier()->keyToAclIdMapping(key).value()));
  }

private:
  Log& log_;
};

struct Move {
  explicit Move(Log& log)
      : blocks(new BlockWatch(log)), mapping(new MappingWatch(log)), data(aclData(aclKey("web"))) {
    blocks->notifierIs(h.blockedIntfColl);
    mapping->notifierIs(h.aclIdMapping);
    indexKey.slotIs(0, aclKey("web"));
  }

  HelperUnderTest h;
  Vane::Ptr<BlockWatch> blocks;
  Vane::Ptr<MappingWatch> mapping;
  Vane::Ptr<Plex::AclData> data;
  HwAclIndexKey indexKey;
};

TEST(LibBlock, BlocksDoNotCount) {
  Log log;
  Move m(log);
  m.h->blockIntf(eth1, false, 0);
  EXPECT_EQ(log, Log{});
  m.h->blockIntf(eth1, true, 0);
  m.h->blockIntf(eth1, true, 7);
  m.h->blockIntf(eth2, true, 0);
  EXPECT_TRUE(m.h.blockedIntfColl->intfHas(eth1));
  EXPECT_EQ(m.h.blockedIntfColl->intfCount(), 2u);
  m.h->blockIntf(eth1, false, 9);
  EXPECT_FALSE(m.h.blockedIntfColl->intfHas(eth1));
  EXPECT_EQ(log, (Log{"block Ethernet1", "block Ethernet2", "unblock Ethernet1"}));
  EXPECT_EQ(m.h.sdk.takeCalls(), "");
  EXPECT_EQ(m.h.books(), "");
}

TEST(LibBlock, AMoveBlocksPublishesAndUnblocks) {
  Log log;
  Move m(log);
  m.h->assignedAclIdIs(m.indexKey, AclId(5));
  EXPECT_TRUE(m.h->allocateAndCommitAcl(Plex::IntfPairKey(eth1, vlan10), m.data, m.indexKey));
  EXPECT_EQ(log, (Log{"block Ethernet1", "id of web: 5", "index key of Ethernet1 ingress: web",
                      "unblock Ethernet1"}));
  log.clear();
  EXPECT_TRUE(m.h->allocateAndCommitAcl(Plex::IntfPairKey(eth1, vlan10), m.data, m.indexKey));
  EXPECT_EQ(log, (Log{"block Ethernet1", "unblock Ethernet1"})) << "nothing new to publish";
  log.clear();
  EXPECT_TRUE(m.h->allocateAndCommitAcl(Plex::IntfPairKey(eth1, vlan10), m.data, HwAclIndexKey()));
  EXPECT_EQ(log, (Log{"block Ethernet1", "index key of Ethernet1 ingress: none", "unblock Ethernet1"}));
  EXPECT_EQ(m.h.blockedIntfColl->intfCount(), 0u);
  EXPECT_EQ(m.h.sdk.takeCalls(), "");
}

TEST(LibBlock, TheSecondInterfaceWhenTheFirstIsEmpty) {
  Log log;
  Move m(log);
  m.h->assignedAclIdIs(m.indexKey, AclId(5));
  const auto data = aclData(aclKey("web", Acl::egress));
  EXPECT_TRUE(m.h->allocateAndCommitAcl(Plex::IntfPairKey(Ovnet::IntfId(), vlan10), data, m.indexKey));
  EXPECT_EQ(log, (Log{"block Vlan10", "id of web: 5", "index key of Vlan10 egress: web", "unblock Vlan10"}));
}

TEST(LibBlock, AFailedMoveUnblocks) {
  Log log;
  Move m(log);
  EXPECT_FALSE(m.h->allocateAndCommitAcl(Plex::IntfPairKey(eth1, vlan10), m.data, m.indexKey));
  EXPECT_EQ(log, (Log{"block Ethernet1", "unblock Ethernet1"}));
}

class ThrowingWatch : public AclIdMapping::NotifieeConst {
public:
  void onKeyToAclIdMapping(const HwAclIndexKey&) override { throw std::runtime_error("cannot publish"); }
};

TEST(LibBlock, AnExceptionLeavesTheInterfaceBlocked) {
  Log log;
  Move m(log);
  const Vane::Ptr<ThrowingWatch> watch(new ThrowingWatch);
  watch->notifierIs(m.h.aclIdMapping);
  m.h->assignedAclIdIs(m.indexKey, AclId(5));
  EXPECT_EQ(
      test::thrownBy([&] { m.h->allocateAndCommitAcl(Plex::IntfPairKey(eth1, vlan10), m.data, m.indexKey); }),
      "exception: cannot publish");
  EXPECT_TRUE(m.h.blockedIntfColl->intfHas(eth1));
}

// An override further down is the one that runs.
class CountingHelper : public XpAclPlexAggregatorHelper {
public:
  using XpAclPlexAggregatorHelper::XpAclPlexAggregatorHelper;
  void blockIntf(Ovnet::IntfId intf, bool block, unsigned int unit) override {
    log.push_back((block ? "block " : "unblock ") + nameOf(intf) + " unit " + std::to_string(unit));
  }
  Log log;
};

TEST(LibBlock, TheBracketCallsTheOverride) {
  HelperUnderTest h;
  const Vane::Ptr<CountingHelper> helper(new CountingHelper(h.helperInfo, h.aclIdMapping, h.paramConfig,
                                                            h.blockedIntfColl, h.limit, h.systemStatus,
                                                            h.partition, h.dal));
  EXPECT_FALSE(helper->allocateAndCommitAcl(Plex::IntfPairKey(eth2, vlan10), aclData(aclKey("web")),
                                            HwAclIndexKey(aclKey("a"), aclKey("b"), aclKey("c"), aclKey("d"),
                                                          aclKey("e"), aclKey("f"), aclKey("g"), aclKey("h"),
                                                          aclKey("i"), aclKey("j"))));
  EXPECT_EQ(helper->log, (Log{"block Ethernet2 unit 0", "unblock Ethernet2 unit 0"}));
  EXPECT_EQ(h.blockedIntfColl->intfCount(), 0u);
}

// From within a reactor the block would be seen only after the unblock, so that is refused.
class MovingWatch : public BlockedIntfColl::NotifieeConst {
public:
  explicit MovingWatch(Move& move) : move_(move) {}
  void onIntf(const Ovnet::IntfId&) override {
    move_.h->allocateAndCommitAcl(Plex::IntfPairKey(eth1, vlan10), move_.data, move_.indexKey);
  }

private:
  Move& move_;
};

TEST(LibBlock, AMoveFromWithinAReactorIsRefused) {
  EXPECT_NE(deathOf([] {
              Log log;
              Move m(log);
              const Vane::Ptr<MovingWatch> watch(new MovingWatch(m));
              watch->notifierIs(m.h.blockedIntfColl);
              m.h.blockedIntfColl->intfIs(eth2, true);
            }).find("allocateAndCommitAcl: Assertion \"!Vane::notificationDrainRunning()\" failed."),
            std::string::npos);
}

// Captures the text trace at the given levels while it lives.
class Trace {
public:
  explicit Trace(std::vector<unsigned> levels) : levels_(std::move(levels)) {
    for (const unsigned level : levels_) {
      aggregatorHelperTrace().levelIs(level, true);
    }
    aggregatorHelperTrace().sinkIs([this](std::string_view line) { lines.emplace_back(line); });
  }
  ~Trace() {
    for (const unsigned level : levels_) {
      aggregatorHelperTrace().levelIs(level, false);
    }
    aggregatorHelperTrace().sinkIs({});
  }
  std::vector<std::string> lines;

private:
  std::vector<unsigned> levels_;
};

std::string level5(const std::string& text) {
  return "XpAclPlexAggregatorHelper 5 XpAclPlexAggregatorHelper " + text;
}

TEST(LibTrace, OperationsSayWhatTheyDo) {
  HelperUnderTest h({.rows = {{ingressV4, 5}}, .hwInit = false});
  const AclKeyInfo web(aclKey("web"), 3, 0);
  const auto data = aclData(web.aclKey(), true);
  Trace trace({5});
  h->hwInit();
  h.stageV4(web, data, 1, 0, {}, Acl::permit, 50);
  h.stageFinal(web, data, 2);
  h->commitPendingPlatform(web.aclKey());
  EXPECT_TRUE(h->allocateResource(aclKey("t"), AclKeyInfo(web.aclKey(), 4, 1)));
  EXPECT_EQ(h.stageV4(AclKeyInfo(aclKey("mail"), 1, 0), data, 1, 0), 2u);
  h->cleanupPendingPlatform(aclKey("t"));
  h->aclRuleCountersSinceLastPoll(Vane::Ptr<Plex::AclData const>(data), 0, Acl::UniqueId(50));
  h->freeResource(web);
  h->freeResource(web);
  h->blockIntf(eth1, true, 0);
  h->blockIntf(vlan10, false, 0);
  const std::vector<std::string> expected = {
      level5("hwInit"),
      level5("tcamIdx 0"),
      level5(" last rule 1"),
      level5("XpAclPlexAggregatorHelper::commitPendingPlatform key " + test::aclKeyText("web")),
      level5("allocateResource aclKeyInfo: aclKey " + test::aclKeyText("web") +
             " aclId 4 aclType 1 triggering aclKey " + test::aclKeyText("t")),
      level5("XpAclPlexAggregatorHelper aclCreateErrorTcamExhaustion::createIpAclCommonAggregate"),
      level5("XpAclPlexAggregatorHelper::cleanupPendingPlatform key " + test::aclKeyText("t")),
      level5("aclRuleCountersSinceLastPoll acldata key" + test::aclKeyText("web")),
      level5(" tcamIdx 0"),
      level5("freeResource aclKeyInfo: aclKey " + test::aclKeyText("web") + " aclId 3 aclType 0"),
      level5("freeResource aclKeyInfo: aclKey " + test::aclKeyText("web") + " aclId 3 aclType 0"),
      level5("Skipping unprogrammed AclKey ( presumably due to empty acl )"),
      level5("XpAclPlexAggregatorHelper::blockIntf intf Ethernet1 block True"),
      level5("XpAclPlexAggregatorHelper::blockIntf intf Vlan10 block False"),
  };
  EXPECT_EQ(trace.lines, expected);
}

TEST(LibTrace, TheRingHoldsTheSameStatements) {
  HelperUnderTest h;
  Ringlog::defaultRinglogHandle.ring().clear();
  h->blockIntf(eth1, true, 0);
  h->needToInstallIcmp6NeighborDiscoveryRules();
  EXPECT_EQ(Ringlog::defaultRinglogHandle.ring().dump(),
            (std::vector<std::string>{
                "XpAclPlexAggregatorHelper 5 XpAclPlexAggregatorHelper::blockIntf intf Ethernet1 block True",
                "XpAclPlexAggregatorHelper 8 AclHelper::needToInstallIcmp6NeighborDiscoveryRules"}));
}

TEST(LibTrace, DebugStateAroundACommit) {
  HelperUnderTest h;
  const AclKeyInfo web(aclKey("web"), 3, 0);
  h.stageFinal(web, aclData(web.aclKey()), 1);
  Trace trace({debugStateTraceLevel});
  h->commitPendingPlatform(web.aclKey());
  const std::string head = "XpAclPlexAggregatorHelper 8 XpAclPlexAggregatorHelper ";
  std::vector<std::string> expected;
  for (const std::string& line :
       {std::string("    programmedAclKeyToTcamInfo "), std::string("    programmedAclKeyInfoToIdx "),
        "    aclKey " + test::aclKeyText("web"), std::string("        pendingAclKeyInfoToIdx "),
        "            aclKeyInfo: aclKey " + test::aclKeyText("web") + " aclId 3 tcamType ingressV4",
        std::string("                tcamRuleId : ruleNum 1 subRuleNum 0"),
        std::string("                tcamIdx 0"), std::string("        pendingAclKeyToTcamInfo "),
        "            aclKey " + test::aclKeyText("web"),
        std::string("                tcamRuleId : ruleNum 1 subRuleNum 0"),
        std::string("    programmedAclKeyToTcamInfo "), "        aclKey " + test::aclKeyText("web"),
        std::string("            tcamRuleId : ruleNum 1 subRuleNum 0"),
        std::string("    programmedAclKeyInfoToIdx "),
        "        aclKeyInfo: aclKey " + test::aclKeyText("web") + " aclId 3 tcamType ingressV4",
        std::string("            tcamRuleId : ruleNum 1 subRuleNum 0"),
        std::string("            tcamIdx 0")}) {
    expected.push_back(head + line);
  }
  EXPECT_EQ(trace.lines, expected);
}

} // namespace
