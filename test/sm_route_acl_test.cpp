#include "test/MachinesUnderTest.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

// Ingress routed ACLs on one chip: the port-VLAN entries of (VLAN, VIF).

namespace {

using namespace XpAcl;
using test::aclIdEn;
using test::ChipUnderTest;
using test::intf;
using test::vlan;

constexpr const char* programIngressRAcl =
    "void XpAcl::ChipHwAclIdSm::programIngressRAcl(Bridging::VlanId, Ovnet::IntfId)";

void routeIs(ChipUnderTest& chip, unsigned number, unsigned id, const char* flags) {
  chip.map().ingressRouteAclIdEnIs(vlan(number), aclIdEn(id, flags));
}

// A chip with Ethernet1 in VLAN 10 by VIF 5, and the ACL 3 on the VLAN when `routed`.
class OnePair : public ChipUnderTest {
public:
  explicit OnePair(bool routed) {
    pairIs("Ethernet1", 10, 5);
    if (routed) {
      routeIs(*this, 10, 3, "4");
    }
    sdk.takeCalls();
  }
};

TEST(SmRouteAcl, AnEntryIsAddedRewrittenDisabledAndRemoved) {
  OnePair chip(false);
  EXPECT_EQ(chip.indexMaps(), "");
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 3, "4"); }),
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=3 en=1 -> 0\n");
  EXPECT_EQ(chip.indexMaps(), "portVlan 0 -> 10/5\nportVlan 10/5 -> 0\n");
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 4, "46"); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=4 en=3 -> 0\n");
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 0, ""); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=0 -> 0\n"
            "removeEntry portVlan d0 i0 -> 0\n");
  EXPECT_EQ(chip.indexMaps(), "");
  EXPECT_EQ(chip.sdk.tables(0), "");
}

TEST(SmRouteAcl, ADeletedKeyRemovesTheEntryToo) {
  OnePair chip(true);
  EXPECT_EQ(chip.calls([&] { chip.map().ingressRouteAclIdEnDel(vlan(10)); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=0 -> 0\n"
            "removeEntry portVlan d0 i0 -> 0\n");
  EXPECT_EQ(chip.indexMaps(), "");
}

TEST(SmRouteAcl, ABlockedVlanHasIdZeroAndItsEnables) {
  OnePair chip(false);
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 3, "4b"); }),
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=0 en=1 -> 0\n");
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 3, "46b"); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=3 -> 0\n");
}

// The entry is wanted as soon as the value differs from zero, whatever the difference is.
TEST(SmRouteAcl, MacPlaysNoPartInTheEntryButMakesItWanted) {
  OnePair chip(false);
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 0, "m"); }),
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=0 en=0 -> 0\n");
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 3, "m"); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=3 en=0 -> 0\n");
}

TEST(SmRouteAcl, OnlyThePairsOfTheVlanAreTouched) {
  OnePair chip(false);
  chip.pairIs("Ethernet2", 10, 6);
  chip.pairIs("Ethernet1", 20, 5);
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 3, "4"); }),
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=3 en=1 -> 0\n"
            "addEntry portVlan d0 c0 vlan=10 vif=6 id=3 en=1 -> 0\n");
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 20, 4, "6"); }),
            "addEntry portVlan d0 c0 vlan=20 vif=5 id=4 en=2 -> 0\n");
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 30, 4, "6"); }), "");
}

TEST(SmRouteAcl, TwoPairsOfOneVifShareTheEntry) {
  OnePair chip(false);
  chip.pairIs("Ethernet2", 10, 5);
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 3, "4"); }),
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=3 en=1 -> 0\n"
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=3 en=1 -> 0\n");
  EXPECT_EQ(chip.sdk.tables(0), "portVlan 0: vlan=10 vif=5 id=3 en=1\n");
  // The first removal takes the entry; the second finds nothing.
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 0, ""); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=0 -> 0\n"
            "removeEntry portVlan d0 i0 -> 0\n");
  EXPECT_EQ(chip.sdk.tables(0), "");
}

TEST(SmRouteAcl, AnEntryWithSeveralPlacesIsKnownByItsFirst) {
  OnePair chip(false);
  chip.sdk.placesPerEntryIs(2);
  routeIs(chip, 10, 3, "4");
  EXPECT_EQ(chip.indexMaps(), "portVlan 0 -> 10/5\nportVlan 10/5 -> 0\n");
  EXPECT_EQ(chip.calls([&] {
    routeIs(chip, 10, 4, "4");
    routeIs(chip, 10, 0, "");
  }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=4 en=1 -> 0\n"
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=0 -> 0\n"
            "removeEntry portVlan d0 i0 -> 0\n");
  EXPECT_EQ(chip.sdk.tables(0), "");
}

TEST(SmRouteAcl, WithoutTheChipsPairsNothingIsWritten) {
  ChipUnderTest chip;
  chip->chipPortVlanVifStatusDel();
  EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 3, "4"); }), "");
  EXPECT_EQ(chip.calls([&] { chip->programIngressRAcl(vlan(10), intf("Ethernet1")); }), "");
}

TEST(SmRouteAcl, RemovingWhatWasNeverAddedOnlyTraces) {
  OnePair chip(false);
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] {
    chip->programIngressRAcl(vlan(10), intf("Ethernet1"));
    chip->programIngressRAcl(vlan(4094), intf("Ethernet7"));
  }),
            "");
  EXPECT_EQ(trace.take(), " vlanId 10 entry not present for removal\n"
                          " vlanId 4094 entry not present for removal\n");
}

TEST(SmRouteAcl, EachStepIsTracedBehindItsCall) {
  OnePair chip(false);
  test::TraceCapture trace(hwAclIdTrace());
  routeIs(chip, 10, 3, "4");
  EXPECT_EQ(trace.take(), " add vlanId 10 vifId 5 copy 0 index 0 routeAclId 3 routeAclEn 1\n");
  routeIs(chip, 10, 65, "46");
  EXPECT_EQ(trace.take(), " updating vlanId 10 vifId 5 copy 0 index 0 routeAclId 65 routeAclEn 3\n");
  routeIs(chip, 10, 0, "");
  EXPECT_EQ(trace.take(), " disable vlanId 10 vifId 5 copy 0 index 0 routeAclId 0 routeAclEn 0\n"
                          " remove vlanId 10 vifId 5 copy 0 index 0 routeAclId 0 routeAclEn 0\n");
}

TEST(SmRouteAcl, TheKeylessFormAppliesEveryVlan) {
  OnePair chip(true);
  chip.pairIs("Ethernet1", 20, 5);
  routeIs(chip, 20, 4, "6");
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] { chip->handleIngressRouteAclIdEn(); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=3 en=1 -> 0\n"
            "writeEntry portVlan d0 c0 i1 vlan=20 vif=5 id=4 en=2 -> 0\n");
  EXPECT_EQ(trace.take(), "handleIngressRouteAclIdEn chip 0\n"
                          " updating vlanId 10 vifId 5 copy 0 index 0 routeAclId 3 routeAclEn 1\n"
                          " updating vlanId 20 vifId 5 copy 0 index 1 routeAclId 4 routeAclEn 2\n");
}

TEST(SmRouteAcl, OnlyOneTableCopyIsKnown) {
  for (const unsigned copies : {0u, 2u, 4u}) {
    EXPECT_EQ(test::exactDeathOf([&] {
                OnePair chip(false);
                chip.systemStatus->numTableCopiesIs(static_cast<Vane::U8>(copies));
                chip->programIngressRAcl(vlan(10), intf("Ethernet1"));
              }),
              std::string("XpAclHwAclIdSm:343: ") + programIngressRAcl +
                  ": Assertion \"systemStatus()->numTableCopies() == 1\" failed.\n");
  }
}

// ----------------------------------------------------------------------------------------- statuses

// 41 and 42 end the step where it stands: nothing is remembered, nothing forgotten.
TEST(SmRouteAcl, AnAddThatEndsSilentlyRemembersNothing) {
  for (const int status : {41, 42}) {
    OnePair chip(false);
    test::TraceCapture trace(hwAclIdTrace());
    chip.sdk.failCall(1, status);
    EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 3, "4"); }),
              "addEntry portVlan d0 c0 vlan=10 vif=5 id=3 en=1 -> " + std::to_string(status) + "\n");
    EXPECT_EQ(chip.indexMaps(), "");
    EXPECT_EQ(trace.take(), "");
    EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 4, "4"); }),
              "addEntry portVlan d0 c0 vlan=10 vif=5 id=4 en=1 -> 0\n");
  }
}

TEST(SmRouteAcl, ARewriteThatEndsSilentlyKeepsTheIndex) {
  for (const int status : {41, 42}) {
    OnePair chip(true);
    test::TraceCapture trace(hwAclIdTrace());
    chip.sdk.failCall(1, status);
    EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 4, "4"); }),
              "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=4 en=1 -> " + std::to_string(status) + "\n");
    EXPECT_EQ(chip.indexMaps(), "portVlan 0 -> 10/5\nportVlan 10/5 -> 0\n");
    EXPECT_EQ(trace.take(), "");
  }
}

TEST(SmRouteAcl, ADisablingWriteThatEndsSilentlyRemovesNothing) {
  for (const int status : {41, 42}) {
    OnePair chip(true);
    chip.sdk.failCall(1, status);
    EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 0, ""); }),
              "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=0 -> " + std::to_string(status) + "\n");
    EXPECT_EQ(chip.indexMaps(), "portVlan 0 -> 10/5\nportVlan 10/5 -> 0\n");
  }
}

TEST(SmRouteAcl, ARemovalThatEndsSilentlyForgetsNothing) {
  for (const int status : {41, 42}) {
    OnePair chip(true);
    test::TraceCapture trace(hwAclIdTrace());
    chip.sdk.failCall(2, status);
    EXPECT_EQ(chip.calls([&] { routeIs(chip, 10, 0, ""); }),
              "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=0 -> 0\n"
              "removeEntry portVlan d0 i0 -> " +
                  std::to_string(status) + "\n");
    EXPECT_EQ(chip.indexMaps(), "portVlan 0 -> 10/5\nportVlan 10/5 -> 0\n");
    EXPECT_EQ(trace.take(), " disable vlanId 10 vifId 5 copy 0 index 0 routeAclId 0 routeAclEn 0\n");
  }
}

TEST(SmRouteAcl, StatusNineIsAsGoodAsZero) {
  OnePair chip(false);
  chip.sdk.everyStatusIs(9);
  EXPECT_EQ(chip.calls([&] {
    routeIs(chip, 10, 3, "4");
    routeIs(chip, 10, 4, "4");
  }),
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=3 en=1 -> 9\n"
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=4 en=1 -> 9\n");
  EXPECT_EQ(chip.indexMaps(), "portVlan 0 -> 10/5\nportVlan 10/5 -> 0\n");
  routeIs(chip, 10, 0, "");
  EXPECT_EQ(chip.indexMaps(), "");
}

struct FatalStep {
  bool routed;   // whether an entry stands before
  unsigned id;   // the ACL id that is then set, IPv4 when not 0
  unsigned call; // which call of the step is refused
  unsigned line;
  const char* callText;
};

void PrintTo(const FatalStep& step, std::ostream* out) {
  *out << "line " << step.line;
}

class SmRouteAclFatal : public testing::TestWithParam<FatalStep> {};

TEST_P(SmRouteAclFatal, TheProcessEndsAtItsLine) {
  const FatalStep& step = GetParam();
  EXPECT_EQ(test::exactDeathOf([&] {
              OnePair chip(step.routed);
              chip.sdk.failCall(step.call, 7);
              routeIs(chip, 10, step.id, step.id != 0 ? "4" : "");
            }),
            "XpAclHwAclIdSm:" + std::to_string(step.line) + " " + step.callText +
                " API ERROR 7\n"
                "XpAclHwAclIdSm:" +
                std::to_string(step.line) + ": " + programIngressRAcl + ": Assertion \"!(true)\" failed.\n");
}

INSTANTIATE_TEST_SUITE_P(
    Lines, SmRouteAclFatal,
    testing::Values(
        FatalStep{true, 4, 1, 391,
                  "((portVlanIvifMgr()->writeEntry( chipId().value(), copy, index, &portVlanIvifEntry )))"},
        FatalStep{false, 3, 1, 400,
                  "((portVlanIvifMgr()->addEntry( chipId().value(), copy, &portVlanIvifEntry, indexList )))"},
        FatalStep{true, 0, 1, 418,
                  "((portVlanIvifMgr()->writeEntry( chipId().value(), copy, index, &portVlanIvifEntry )))"},
        FatalStep{true, 0, 2, 428, "((portVlanIvifMgr()->removeEntry( chipId().value(), index )))"}));

TEST(SmRouteAcl, AFullTableEndsTheProcess) {
  EXPECT_EQ(test::exactDeathOf([&] {
              OnePair chip(false);
              chip.sdk.numEntriesIs(1);
              chip.pairIs("Ethernet2", 10, 6);
              routeIs(chip, 10, 3, "4");
            }).substr(0, 19),
            "XpAclHwAclIdSm:400 ");
}

TEST(SmRouteAcl, AnAddWithoutAnIndexEndsTheProcess) {
  EXPECT_NE(test::exactDeathOf([&] {
              OnePair chip(false);
              chip.sdk.placesPerEntryIs(0);
              routeIs(chip, 10, 3, "4");
            }).find("Assertion \"numIndices != 0\" failed."),
            std::string::npos);
}

} // namespace
