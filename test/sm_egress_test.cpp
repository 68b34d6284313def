#include "test/MachinesUnderTest.h"

#include <gtest/gtest.h>

#include <string>

// Egress ACLs on one chip: the entries of (BD, VIF), each with the port's ACL and the VLAN's.

namespace {

using namespace XpAcl;
using test::aclIdEn;
using test::ChipUnderTest;
using test::intf;
using test::vlan;

constexpr const char* programEgressBdEvif =
    "void XpAcl::ChipHwAclIdSm::programEgressBdEvif(Bridging::VlanId, Ovnet::IntfId)";
constexpr const char* deleteEgressBdEvifEntry =
    "void XpAcl::ChipHwAclIdSm::deleteEgressBdEvifEntry(XpLib::PortVlanIvifTableKey)";

void portIs(ChipUnderTest& chip, const char* port, unsigned id, const char* flags) {
  chip.map().egressPortAclIdEnIs(intf(port), aclIdEn(id, flags));
}
void egressRouteIs(ChipUnderTest& chip, unsigned number, unsigned id, const char* flags) {
  chip.map().egressRouteAclIdEnIs(vlan(number), aclIdEn(id, flags));
}

// Ethernet1 in VLAN 10 by VIF 5; with the port ACL 3 when `bound`.
class EgressPair : public ChipUnderTest {
public:
  explicit EgressPair(bool bound) {
    pairIs("Ethernet1", 10, 5);
    if (bound) {
      portIs(*this, "Ethernet1", 3, "4");
    }
    sdk.takeCalls();
  }
};

TEST(SmEgress, AnEntryIsAddedRewrittenAndRemoved) {
  EgressPair chip(false);
  EXPECT_EQ(chip.calls([&] { portIs(chip, "Ethernet1", 3, "4"); }),
            "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n");
  EXPECT_EQ(chip.indexMaps(), "egress 0 -> 10/5\negress 10/5 -> 0\n");
  EXPECT_EQ(chip.calls([&] { egressRouteIs(chip, 10, 9, "6"); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=3/10 route=9/01 -> 0\n");
  EXPECT_EQ(chip.calls([&] { portIs(chip, "Ethernet1", 0, ""); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=0/00 route=9/01 -> 0\n");
  EXPECT_EQ(chip.calls([&] { egressRouteIs(chip, 10, 0, ""); }), "removeEntry egress d0 i0 -> 0\n")
      << "no disabling write before the removal";
  EXPECT_EQ(chip.indexMaps(), "");
  EXPECT_EQ(chip.sdk.tables(0), "");
}

TEST(SmEgress, DeletedKeysRemoveTheEntryToo) {
  EgressPair chip(true);
  EXPECT_EQ(chip.calls([&] { chip.map().egressPortAclIdEnDel(intf("Ethernet1")); }),
            "removeEntry egress d0 i0 -> 0\n");
}

TEST(SmEgress, EveryFieldHasItsPlace) {
  EgressPair chip(false);
  EXPECT_EQ(chip.calls([&] { portIs(chip, "Ethernet1", 200, "46"); }),
            "addEntry egress d0 bd=10 vif=5 port=200/11 route=0/00 -> 0\n");
  EXPECT_EQ(chip.calls([&] { egressRouteIs(chip, 10, 201, "46"); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=200/11 route=201/11 -> 0\n");
  EXPECT_EQ(chip.calls([&] { portIs(chip, "Ethernet1", 200, "6m"); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=200/01 route=201/11 -> 0\n");
  EXPECT_EQ(chip.calls([&] { egressRouteIs(chip, 10, 201, "4m"); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=200/01 route=201/10 -> 0\n");
}

TEST(SmEgress, BlockingZeroesTheIdOnItsOwnSide) {
  EgressPair chip(false);
  EXPECT_EQ(chip.calls([&] { portIs(chip, "Ethernet1", 3, "4b"); }),
            "addEntry egress d0 bd=10 vif=5 port=0/10 route=0/00 -> 0\n");
  EXPECT_EQ(chip.calls([&] { egressRouteIs(chip, 10, 9, "6"); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=0/10 route=9/01 -> 0\n");
  EXPECT_EQ(chip.calls([&] { egressRouteIs(chip, 10, 9, "46mb"); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=0/10 route=0/11 -> 0\n");
  EXPECT_EQ(chip.calls([&] { portIs(chip, "Ethernet1", 3, "4"); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=3/10 route=0/11 -> 0\n");
}

// The chip makes no MAC lookup on the way out, so a MAC ACL alone needs no entry.
TEST(SmEgress, AMacEnableAloneGetsNoEntry) {
  EgressPair chip(false);
  EXPECT_EQ(chip.calls([&] {
    portIs(chip, "Ethernet1", 3, "m");
    egressRouteIs(chip, 10, 4, "m");
    portIs(chip, "Ethernet1", 3, "mb");
    portIs(chip, "Ethernet1", 7, "");
  }),
            "");
  EXPECT_EQ(chip.indexMaps(), "");
  // An entry that stands goes when only MAC is left.
  portIs(chip, "Ethernet1", 3, "4m");
  EXPECT_EQ(chip.calls([&] { portIs(chip, "Ethernet1", 3, "m"); }), "removeEntry egress d0 i0 -> 0\n");
}

TEST(SmEgress, AnInterfaceTouchesItsPairsAndAVlanItsOwn) {
  ChipUnderTest chip;
  chip.pairIs("Ethernet1", 10, 5);
  chip.pairIs("Ethernet1", 20, 5);
  chip.pairIs("Ethernet2", 10, 6);
  EXPECT_EQ(chip.calls([&] { portIs(chip, "Ethernet1", 3, "4"); }),
            "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n"
            "addEntry egress d0 bd=20 vif=5 port=3/10 route=0/00 -> 0\n");
  EXPECT_EQ(chip.calls([&] { egressRouteIs(chip, 10, 9, "6"); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=3/10 route=9/01 -> 0\n"
            "addEntry egress d0 bd=10 vif=6 port=0/00 route=9/01 -> 0\n");
  EXPECT_EQ(chip.calls([&] {
    portIs(chip, "Ethernet3", 3, "4");
    egressRouteIs(chip, 30, 3, "4");
  }),
            "");
  EXPECT_EQ(chip.sdk.tables(0), "egress 0: bd=10 vif=5 port=3/10 route=9/01\n"
                                "egress 1: bd=20 vif=5 port=3/10 route=0/00\n"
                                "egress 2: bd=10 vif=6 port=0/00 route=9/01\n");
  EXPECT_EQ(chip.indexMaps(), "egress 0 -> 10/5\negress 1 -> 20/5\negress 10/5 -> 0\negress 10/6 -> 2\n"
                              "egress 2 -> 10/6\negress 20/5 -> 1\n");
}

// The two tables number their entries by themselves, and so do their maps.
TEST(SmEgress, TheEgressIndexesAreApartFromThePortVlanOnes) {
  EgressPair chip(true);
  chip.map().ingressRouteAclIdEnIs(vlan(10), aclIdEn(1, "4"));
  EXPECT_EQ(chip.indexMaps(), "egress 0 -> 10/5\negress 10/5 -> 0\nportVlan 0 -> 10/5\nportVlan 10/5 -> 0\n");
  chip.map().ingressRouteAclIdEnIs(vlan(10), AclIdEn());
  EXPECT_EQ(chip.indexMaps(), "egress 0 -> 10/5\negress 10/5 -> 0\n");
}

TEST(SmEgress, WithoutTheChipsPairsNothingIsWritten) {
  ChipUnderTest chip;
  chip->chipPortVlanVifStatusDel();
  EXPECT_EQ(chip.calls([&] {
    portIs(chip, "Ethernet1", 3, "4");
    egressRouteIs(chip, 10, 3, "4");
    chip->programEgressBdEvif(vlan(10), intf("Ethernet1"));
  }),
            "");
}

TEST(SmEgress, EachStepIsTracedBehindItsCall) {
  EgressPair chip(false);
  test::TraceCapture trace(hwAclIdTrace());
  portIs(chip, "Ethernet1", 65, "4");
  EXPECT_EQ(trace.take(), " adding egress vlanId 10 intfId Ethernet1 vif 5 paclId 65 raclId 0 paclIdEnV4 1 "
                          "paclIdEnV6 0 raclIdEnV4 0 raclIdEnV6 0 index 0\n");
  egressRouteIs(chip, 10, 9, "6");
  EXPECT_EQ(trace.take(), " updating egress vlanId 10 intfId Ethernet1 vif 5 paclId 65 raclId 9 paclIdEnV4 1 "
                          "paclIdEnV6 0 raclIdEnV4 0 raclIdEnV6 1 index 0\n");
  egressRouteIs(chip, 10, 0, "");
  trace.take();
  portIs(chip, "Ethernet1", 0, "");
  EXPECT_EQ(trace.take(), " removing egress vlanId 10 intfId Ethernet1 vif 5 paclId 0 raclId 0 paclIdEnV4 0 "
                          "paclIdEnV6 0 raclIdEnV4 0 raclIdEnV6 0 index 0\n");
  chip->programEgressBdEvif(vlan(10), intf("Ethernet1"));
  EXPECT_EQ(trace.take(), " removing egress vlanId 10 for an entry not present\n");
}

TEST(SmEgress, TheKeylessFormsApplyEveryKey) {
  EgressPair chip(true);
  chip.pairIs("Ethernet2", 10, 6);
  portIs(chip, "Ethernet2", 4, "6");
  egressRouteIs(chip, 10, 9, "4");
  test::TraceCapture trace(hwAclIdTrace());
  const std::string both = "writeEntry egress d0 i0 bd=10 vif=5 port=3/10 route=9/10 -> 0\n"
                           "writeEntry egress d0 i1 bd=10 vif=6 port=4/01 route=9/10 -> 0\n";
  EXPECT_EQ(chip.calls([&] { chip->handleEgressPortAclIdEn(); }), both);
  EXPECT_EQ(trace.take().substr(0, 31), "handleEgressPortAclIdEn chip 0\n");
  EXPECT_EQ(chip.calls([&] { chip->handleEgressRouteAclIdEn(); }), both);
  EXPECT_EQ(trace.take().substr(0, 32), "handleEgressRouteAclIdEn chip 0\n");
}

// ----------------------------------------------------------------------------------- stale entries

XpLib::PortVlanIvifTableKey tableKey(Vane::U32 vif, unsigned vlanNumber) {
  return XpLib::PortVlanIvifTableKey((vif << 16) | vlanNumber);
}

TEST(SmEgress, AStaleEntryIsLookedUpRemovedAndForgotten) {
  EgressPair chip(true);
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] { chip->deleteEgressBdEvifEntry(tableKey(5, 10)); }),
            "lookup egress d0 bd=10 vif=5 -> 0\n"
            "removeEntry egress d0 i0 -> 0\n");
  EXPECT_EQ(trace.take(), " removing stale egress vlanId 10 vif 5 index 0\n");
  EXPECT_EQ(chip.indexMaps(), "");
  EXPECT_EQ(chip.sdk.tables(0), "");
}

TEST(SmEgress, AStaleEntryThatIsNotFoundIsLeft) {
  EgressPair chip(true);
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] { chip->deleteEgressBdEvifEntry(tableKey(6, 10)); }),
            "lookup egress d0 bd=10 vif=6 -> 41\n");
  EXPECT_EQ(trace.take(), "");
  EXPECT_EQ(chip.indexMaps(), "egress 0 -> 10/5\negress 10/5 -> 0\n");
  // The largest VIF fits into 32 bits and into the key's 16.
  EXPECT_EQ(chip.calls([&] { chip->deleteEgressBdEvifEntry(tableKey(65535, 4094)); }),
            "lookup egress d0 bd=4094 vif=65535 -> 41\n");
}

TEST(SmEgress, AStaleEntryOfNoVlanIsRefused) {
  EgressPair chip(true);
  for (const unsigned number : {0u, 4095u, 65535u}) {
    EXPECT_EQ(test::thrownBy([&] { chip->deleteEgressBdEvifEntry(tableKey(5, number)); }),
              "VlanId::value < 1 or > 4094 not allowed");
  }
  EXPECT_EQ(chip.sdk.takeCalls(), "");
}

// ----------------------------------------------------------------------------------------- statuses

TEST(SmEgress, StepsThatEndSilentlyLeaveTheMap) {
  const std::string held = "egress 0 -> 10/5\negress 10/5 -> 0\n";
  for (const int status : {41, 42}) {
    test::TraceCapture trace(hwAclIdTrace());
    const std::string answer = " -> " + std::to_string(status) + "\n";
    EgressPair add(false);
    trace.take();
    add.sdk.failCall(1, status);
    EXPECT_EQ(add.calls([&] { portIs(add, "Ethernet1", 3, "4"); }),
              "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00" + answer);
    EXPECT_EQ(add.indexMaps(), "");
    EXPECT_EQ(trace.take(), "");

    EgressPair write(true);
    trace.take();
    write.sdk.failCall(1, status);
    EXPECT_EQ(write.calls([&] { portIs(write, "Ethernet1", 4, "4"); }),
              "writeEntry egress d0 i0 bd=10 vif=5 port=4/10 route=0/00" + answer);
    EXPECT_EQ(write.indexMaps(), held);
    EXPECT_EQ(trace.take(), "");

    EgressPair remove(true);
    trace.take();
    remove.sdk.failCall(1, status);
    EXPECT_EQ(remove.calls([&] { portIs(remove, "Ethernet1", 0, ""); }), "removeEntry egress d0 i0" + answer);
    EXPECT_EQ(remove.indexMaps(), held);
    EXPECT_EQ(trace.take(), "");

    EgressPair stale(true);
    stale.sdk.failCall(2, status);
    EXPECT_EQ(stale.calls([&] { stale->deleteEgressBdEvifEntry(tableKey(5, 10)); }),
              "lookup egress d0 bd=10 vif=5 -> 0\nremoveEntry egress d0 i0" + answer);
    EXPECT_EQ(stale.indexMaps(), held);
  }
}

TEST(SmEgress, StatusNineIsAsGoodAsZero) {
  EgressPair chip(false);
  chip.sdk.everyStatusIs(9);
  EXPECT_EQ(chip.calls([&] {
    portIs(chip, "Ethernet1", 3, "4");
    portIs(chip, "Ethernet1", 4, "4");
    portIs(chip, "Ethernet1", 0, "");
    portIs(chip, "Ethernet1", 5, "4");
    chip->deleteEgressBdEvifEntry(tableKey(5, 10));
  }),
            "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 9\n"
            "writeEntry egress d0 i0 bd=10 vif=5 port=4/10 route=0/00 -> 9\n"
            "removeEntry egress d0 i0 -> 9\n"
            "addEntry egress d0 bd=10 vif=5 port=5/10 route=0/00 -> 9\n"
            "lookup egress d0 bd=10 vif=5 -> 9\n"
            "removeEntry egress d0 i0 -> 9\n");
  EXPECT_EQ(chip.indexMaps(), "");
}

struct EgressFatalStep {
  bool bound;  // whether an entry stands before
  unsigned id; // the port ACL that is then set, IPv4 when not 0
  unsigned line;
  const char* callText;
};

void PrintTo(const EgressFatalStep& step, std::ostream* out) {
  *out << "line " << step.line;
}

class SmEgressFatal : public testing::TestWithParam<EgressFatalStep> {};

TEST_P(SmEgressFatal, TheProcessEndsAtItsLine) {
  const EgressFatalStep& step = GetParam();
  EXPECT_EQ(test::exactDeathOf([&] {
              EgressPair chip(step.bound);
              chip.sdk.failCall(1, 2);
              portIs(chip, "Ethernet1", step.id, step.id != 0 ? "4" : "");
            }),
            "XpAclHwAclIdSm:" + std::to_string(step.line) + " " + step.callText +
                " API ERROR 2\n"
                "XpAclHwAclIdSm:" +
                std::to_string(step.line) + ": " + programEgressBdEvif + ": Assertion \"!(true)\" failed.\n");
}

// The blank behind the arrow of the removal is part of its text.
INSTANTIATE_TEST_SUITE_P(
    Lines, SmEgressFatal,
    testing::Values(
        EgressFatalStep{true, 4, 496,
                        "((egressBdEvifMgr()->writeEntry( chipId().value(), index, &egressBdEvifEntry )))"},
        EgressFatalStep{false, 3, 508,
                        "((egressBdEvifMgr()->addEntry( chipId().value(), &egressBdEvifEntry, indexList )))"},
        EgressFatalStep{true, 0, 523, "((egressBdEvifMgr()-> removeEntry( chipId().value(), index )))"}));

TEST(SmEgress, ARefusedLookupOrRemovalOfAStaleEntryEndsTheProcess) {
  const auto death = [](unsigned call) {
    return test::deathOf([call] {
      EgressPair chip(true);
      chip.sdk.failCall(call, 3);
      chip->deleteEgressBdEvifEntry(tableKey(5, 10));
    });
  };
  const std::string assertion =
      std::string("XpAclHwAclIdSm:#: ") + deleteEgressBdEvifEntry + ": Assertion \"!(true)\" failed.\n";
  EXPECT_EQ(death(1), "XpAclHwAclIdSm:# ((egressBdEvifMgr()->lookup( chipId().value(), "
                      "&staleEgressBdEvifEntry, staleIndex ))) API ERROR 3\n" +
                          assertion);
  EXPECT_EQ(death(2), "XpAclHwAclIdSm:# ((egressBdEvifMgr()-> removeEntry( chipId().value(), staleIndex ))) "
                      "API ERROR 3\n" +
                          assertion);
}

} // namespace
