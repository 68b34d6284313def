#include "test/MachinesUnderTest.h"

#include <gtest/gtest.h>

#include <string>

// Port ACLs on one chip: from the enable map to the port-config table.

namespace {

using namespace XpAcl;
using test::aclIdEn;
using test::ChipUnderTest;
using test::device;
using test::intf;

TEST(SmPortAcl, AMachineBeginsWithAnEmptyMapAndWithoutManagers) {
  test::MachineInputs inputs;
  const auto machine = chipHwAclIdSmFactory(device(3), inputs.portVifStatus, inputs.systemStatus,
                                            inputs.xpcsd, inputs.dal, inputs.partition);
  EXPECT_EQ(machine->chipId().value(), 3);
  EXPECT_FALSE(machine->initialized());
  ASSERT_TRUE(machine->chipHwAclIdMap());
  EXPECT_EQ(machine->chipHwAclIdMap()->ingressPortAclIdEnCount(), 0u);
  EXPECT_EQ(machine->portCfgMgr(), nullptr);
  EXPECT_EQ(machine->portVlanIvifMgr(), nullptr);
  EXPECT_EQ(machine->egressBdEvifMgr(), nullptr);
  EXPECT_FALSE(machine->chipPortVlanVifStatus());
  EXPECT_EQ(inputs.sdk.takeCalls(), "");
}

TEST(SmPortAcl, WritesTheWholeEntryOfThePort) {
  ChipUnderTest chip;
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet2"), aclIdEn(7, "4")); }),
            "writeEntry portConfig d0 p2 id=7 en=1 mac=0 -> 0\n");
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet2"), aclIdEn(7, "46m")); }),
            "writeEntry portConfig d0 p2 id=7 en=3 mac=1 -> 0\n");
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet2"), aclIdEn(7, "6")); }),
            "writeEntry portConfig d0 p2 id=7 en=2 mac=0 -> 0\n");
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet2"), aclIdEn(255, "m")); }),
            "writeEntry portConfig d0 p2 id=255 en=0 mac=1 -> 0\n");
}

TEST(SmPortAcl, ABlockedPortHasIdZeroAndItsEnables) {
  ChipUnderTest chip;
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "46b")); }),
            "writeEntry portConfig d0 p1 id=0 en=3 mac=0 -> 0\n");
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "46mb")); }),
            "writeEntry portConfig d0 p1 id=0 en=3 mac=1 -> 0\n");
}

TEST(SmPortAcl, ADeletedKeyIsWrittenAsZero) {
  ChipUnderTest chip;
  chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "46m"));
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnDel(intf("Ethernet1")); }),
            "writeEntry portConfig d0 p1 id=0 en=0 mac=0 -> 0\n");
}

TEST(SmPortAcl, AnEqualWriteWritesNothing) {
  ChipUnderTest chip;
  chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "4"));
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "4")); }), "");
}

// What somebody else put into the entry is gone: it is built from nothing.
TEST(SmPortAcl, TheEntryIsNeverReadFirst) {
  ChipUnderTest chip;
  XpXdk::xpPortConfigEntry other;
  other.macAclEn = 1;
  other.portAclId = 77;
  chip.sdk.portConfigIs(0, 1, other);
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "4")); }),
            "writeEntry portConfig d0 p1 id=9 en=1 mac=0 -> 0\n");
  EXPECT_EQ(chip.sdk.tables(0), "portConfig 1: id=9 en=1 mac=0\n");
}

TEST(SmPortAcl, TheDeviceIsTheMachinesAndThePortTheInterfaces) {
  ChipUnderTest chip(5);
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet35"), aclIdEn(1, "4")); }),
            "writeEntry portConfig d5 p3 id=1 en=1 mac=0 -> 0\n");
}

TEST(SmPortAcl, AnUnknownInterfaceIsTracedAndNeverWritten) {
  ChipUnderTest chip;
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet9"), aclIdEn(1, "4")); }), "");
  EXPECT_EQ(trace.take(), "programIngressPAcl intf Ethernet9 does not seem to available. Not programming \n");
  // The null chip port in the system status is as good as none.
  chip.systemStatus->intfToChipPortIs(intf("Ethernet9"), Plex::Central::ChipPort());
  EXPECT_EQ(chip.calls([&] { chip.machine->programIngressPAcl(intf("Ethernet9")); }), "");
  EXPECT_EQ(trace.take(), "programIngressPAcl intf Ethernet9 does not seem to available. Not programming \n");
}

TEST(SmPortAcl, NothingIsWrittenBeforeInitialisation) {
  ChipUnderTest chip;
  chip->initializedIs(false);
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] {
    chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "4"));
    chip.map().ingressPortAclIdEnIs(intf("Ethernet2"), aclIdEn(9, "6"));
    chip.map().ingressRouteAclIdEnIs(test::vlan(10), aclIdEn(9, "4"));
    chip.map().egressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "4"));
    chip.map().egressRouteAclIdEnIs(test::vlan(10), aclIdEn(9, "4"));
    chip.pairIs("Ethernet1", 10, 5);
    chip->programIngressPAcl(intf("Ethernet1"));
    chip->handleIngressPortAclIdEn();
  }),
            "");
  EXPECT_EQ(trace.take(), "");
  chip->initializedIs(true);
  EXPECT_EQ(chip.calls([&] { chip->handleIngressPortAclIdEn(); }),
            "writeEntry portConfig d0 p1 id=9 en=1 mac=0 -> 0\n"
            "writeEntry portConfig d0 p2 id=9 en=2 mac=0 -> 0\n");
  EXPECT_EQ(trace.take(),
            "handleIngressPortAclIdEn chip 0\n"
            "programIngressPAcl chip 0 intf Ethernet1 portId 1 PAclId 9 v4En True v6En False aclEnBits 1 "
            "blocked False macAclEn False\n"
            "programIngressPAcl chip 0 intf Ethernet2 portId 2 PAclId 9 v4En False v6En True aclEnBits 2 "
            "blocked False macAclEn False\n");
}

TEST(SmPortAcl, OneStatementForEachEntryWritten) {
  ChipUnderTest chip;
  test::TraceCapture trace(hwAclIdTrace());
  chip.map().ingressPortAclIdEnIs(intf("Ethernet4"), aclIdEn(65, "46mb"));
  EXPECT_EQ(trace.take(), "programIngressPAcl chip 0 intf Ethernet4 portId 4 PAclId 0 v4En True v6En True "
                          "aclEnBits 3 blocked True macAclEn True\n");
}

TEST(SmPortAcl, DeletingTheMapLeavesTheHardware) {
  ChipUnderTest chip;
  const auto map = chip->chipHwAclIdMap();
  map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(9, "4"));
  EXPECT_EQ(chip.calls([&] {
    chip->chipHwAclIdMapDel();
    map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(8, "4"));
  }),
            "");
  EXPECT_EQ(chip.sdk.tables(0), "portConfig 1: id=9 en=1 mac=0\n");
}

TEST(SmPortAcl, ANewMapIsAppliedAndTheOldOneForgotten) {
  ChipUnderTest chip;
  const auto old = chip->chipHwAclIdMap();
  const auto fresh = chipHwAclIdMapFactory();
  fresh->ingressPortAclIdEnIs(intf("Ethernet3"), aclIdEn(2, "6"));
  EXPECT_EQ(chip.calls([&] { chip->chipHwAclIdMapIs(fresh); }),
            "writeEntry portConfig d0 p3 id=2 en=2 mac=0 -> 0\n");
  EXPECT_EQ(chip.calls([&] { chip->chipHwAclIdMapIs(fresh); }), "") << "the map that is held changes nothing";
  EXPECT_EQ(chip.calls([&] { old->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(8, "4")); }), "");
}

TEST(SmPortAcl, AnInactiveMachineHearsNothing) {
  ChipUnderTest chip;
  chip->hasNotificationActiveIs(false);
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(8, "4")); }), "");
  chip->hasNotificationActiveIs(true);
  EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(7, "4")); }),
            "writeEntry portConfig d0 p1 id=7 en=1 mac=0 -> 0\n");
}

TEST(SmPortAcl, AMachineThatIsGoneHearsNothing) {
  ChipUnderTest chip;
  const auto map = chip->chipHwAclIdMap();
  chip.machine = nullptr;
  EXPECT_EQ(chip.calls([&] {
    map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(8, "4"));
    chip.pairIs("Ethernet1", 10, 5);
  }),
            "");
}

TEST(SmPortAcl, AcceptedStatuses) {
  for (const int status : {9, 41, 42}) {
    ChipUnderTest chip;
    chip.sdk.failCall(1, status);
    EXPECT_EQ(chip.calls([&] { chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(7, "4")); }),
              "writeEntry portConfig d0 p1 id=7 en=1 mac=0 -> " + std::to_string(status) + "\n");
    EXPECT_EQ(chip.sdk.tables(0), "");
  }
}

TEST(SmPortAcl, AnyOtherStatusEndsTheProcess) {
  for (const int status : {1, 2, 7, 8, 10, 40, 43, -1}) {
    EXPECT_EQ(test::exactDeathOf([&] {
                ChipUnderTest chip;
                chip.sdk.failCall(1, status);
                chip.map().ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(7, "4"));
              }),
              "XpAclHwAclIdSm:279 ((portCfgMgr()->writeEntry( chipId().value(), portId.value(), "
              "&portCfgEntry ))) API ERROR " +
                  std::to_string(status) +
                  "\n"
                  "XpAclHwAclIdSm:279: void XpAcl::ChipHwAclIdSm::programIngressPAcl(Ovnet::IntfId): "
                  "Assertion \"!(true)\" failed.\n");
  }
}

} // namespace
