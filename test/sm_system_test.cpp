#include "test/MachinesUnderTest.h"
#include "test/Patterns.h"

#include <gtest/gtest.h>

#include <string>

// The agent-wide machine: chips come and go, and each is given what concerns it.

namespace {

using namespace XpAcl;
using test::device;
using test::in;
using test::indexKey;
using test::intf;
using test::out;
using test::pairOf;
using test::SystemUnderTest;
using test::vlan;

TEST(SmSystem, TheInitialPassReplaysEveryCollectionInOrder) {
  SystemUnderTest system;
  system.blockedIntfColl->intfIs(intf("Ethernet2"), true);
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet1", 10), XpVif::VifId(5));
  system.aclIdMapping->keyToAclIdMappingIs(indexKey(0), AclId(3));
  system.aclIdMapping->intfDirectionToIndexKeyIs(in("Ethernet1"), indexKey(0));
  test::TraceCapture trace(tcamHwAclIdTrace());
  system.make();
  EXPECT_EQ(trace.take(), "handleXpDevicebefore init chipId 0\n"
                          "HwAclIdSm::handleInitialized\n"
                          "TcamHwAclIdSm::handleXpDevice chipId 0\n"
                          "ChipHwAclIdSm::handleInitialized chip 0\n"
                          "doApplyConfig chip 0\n"
                          "TcamChipHwAclIdSm::handleBlockedIntf chipId 0\n"
                          "TcamHwAclIdSm::handleBlockedIntf\n"
                          "TcamChipHwAclIdSm::handleBlockedIntf chip 0 intf Ethernet2\n"
                          "setAclIdEn intf Ethernet2 direction ingress\n"
                          "setAclIdEn intf Ethernet2 direction egress\n"
                          "TcamHwAclIdSm::handleKeyToAclIdMapping\n"
                          "TcamHwAclIdSm::handleIntfDirectionToIndexKey\n"
                          "setAclIdEn intf Ethernet1 direction ingress\n");
  EXPECT_TRUE(system->initialized());
  EXPECT_EQ(system.enables(0), "in Ethernet1 id=3 v4\nin Ethernet2 id=0 v4 v6 mac blocked\n"
                               "out Ethernet2 id=0 v4 v6 mac blocked\n");
}

// The pairs are replayed after the blocked interfaces and before the ids.
TEST(SmSystem, TheInitialPassReplaysThePairsInTheMiddle) {
  SystemUnderTest system;
  system.blockedIntfColl->intfIs(intf("Ethernet9"), true);
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet1", 10), XpVif::VifId(5));
  system.aclIdMapping->keyToAclIdMappingIs(indexKey(0), AclId(3));
  test::TraceCapture trace(tcamHwAclIdTrace(), hwAclIdTrace());
  system.make();
  const std::string text = trace.take();
  const std::size_t blocked = text.find(" intf Ethernet9 not present in system status\n");
  const std::size_t pairs = text.find("handlePortVlanToVifMap intf Ethernet1 vlan 10\n");
  const std::size_t ids = text.find("TcamHwAclIdSm::handleKeyToAclIdMapping\n");
  ASSERT_NE(blocked, std::string::npos);
  ASSERT_NE(pairs, std::string::npos);
  ASSERT_NE(ids, std::string::npos);
  EXPECT_LT(blocked, pairs);
  EXPECT_LT(pairs, ids);
}

TEST(SmSystem, BeforeInitialisationNothingChanges) {
  SystemUnderTest system(std::vector<unsigned>{});
  system.make();
  system->initializedIs(false);
  test::TraceCapture trace(tcamHwAclIdTrace(), hwAclIdTrace());
  EXPECT_EQ(system.calls([&] {
    system.activeXpDeviceColl->deviceIdIs(device(0), true);
    system.blockedIntfColl->intfIs(intf("Ethernet2"), true);
    system.blockedIntfColl->intfIs(intf("Vlan10"), true);
    system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet1", 10), XpVif::VifId(5));
    system.aclIdMapping->keyToAclIdMappingIs(indexKey(0), AclId(3));
    system.aclIdMapping->intfDirectionToIndexKeyIs(in("Ethernet1"), indexKey(0));
  }),
            "");
  EXPECT_EQ(trace.take(), "handleXpDevicebefore init chipId 0\n");
  EXPECT_FALSE(system.chip(0));
  EXPECT_EQ(system.mapping(0), "no mapping\n");
  EXPECT_EQ(system.blocked(0), "no VLAN set\nno set\n");
  EXPECT_FALSE(system->chipPortVlanVifStatus(device(0)));
  system->handleInitialized();
  EXPECT_EQ(system.mapping(0), "Ethernet1 ingress: 0=web\nid 0=web -> 3\n");
  EXPECT_EQ(system.blocked(0), "Ethernet2\nvlan 10\n");
  EXPECT_EQ(system->chipPortVlanVifStatus(device(0))->portVlanToVifMap(pairOf("Ethernet1", 10)).value(), 5u);
}

// -------------------------------------------------------------------------------------------- chips

TEST(SmSystem, AChipIsGivenEverythingWhenItJoins) {
  SystemUnderTest system(std::vector<unsigned>{});
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet33", 10), XpVif::VifId(5));
  system.make();
  EXPECT_FALSE(system->sharedBlockedVlanColl());
  system.activeXpDeviceColl->deviceIdIs(device(1), true);
  const auto chip = system.chip(1);
  ASSERT_TRUE(chip);
  EXPECT_EQ(chip->chipId().value(), 1);
  EXPECT_EQ(chip->chipAclIdMapping().ptr(), system->chipAclIdMapping(device(1)).ptr());
  EXPECT_EQ(chip->chipBlockedIntfColl().ptr(), system->chipBlockedIntfColl(device(1)).ptr());
  EXPECT_EQ(chip->blockedVlanColl().ptr(), system->sharedBlockedVlanColl().ptr());
  EXPECT_EQ(chip->chipPortVlanVifStatus().ptr(), system->chipPortVlanVifStatus(device(1)).ptr());
  EXPECT_EQ(chip->portVlanToVifCache(pairOf("Ethernet33", 10)).value(), 5u);
}

TEST(SmSystem, AChipThatLeavesKeepsOnlyItsBlockedSet) {
  SystemUnderTest system({0, 1});
  system.make();
  system.aclIdMapping->keyToAclIdMappingIs(indexKey(0), AclId(3));
  system.blockedIntfColl->intfIs(intf("Ethernet34"), true);
  const auto blockedBefore = system->chipBlockedIntfColl(device(1));
  system.activeXpDeviceColl->deviceIdDel(device(1));
  EXPECT_FALSE(system.chip(1));
  EXPECT_EQ(system.mapping(1), "no mapping\n");
  EXPECT_EQ(system.blocked(1), "Ethernet34\n");
  EXPECT_EQ(system->chipBlockedIntfColl(device(1)).ptr(), blockedBefore.ptr());
  EXPECT_TRUE(system.chip(0));
  EXPECT_EQ(system.mapping(0), "id 0=web -> 3\n");
  // It comes back to new, empty sets.
  system.activeXpDeviceColl->deviceIdIs(device(1), true);
  EXPECT_TRUE(system.chip(1));
  EXPECT_NE(system->chipBlockedIntfColl(device(1)).ptr(), blockedBefore.ptr());
  EXPECT_EQ(system.blocked(1), "");
  EXPECT_EQ(system.mapping(1), "");
  EXPECT_EQ(system.enables(1), "");
}

// The agent tells a chip that joined late what the others know: ids, blocked interfaces, then index keys.
TEST(SmSystem, ALateChipHoldsWhatTheOthersHoldOnceItIsTold) {
  SystemUnderTest system;
  system.make();
  system.aclIdMapping->keyToAclIdMappingIs(indexKey(2), AclId(7));
  system.aclIdMapping->intfDirectionToIndexKeyIs(in("Vlan10"), indexKey(2));
  system.blockedIntfColl->intfIs(intf("Ethernet33"), true);
  system.activeXpDeviceColl->deviceIdIs(device(1), true);
  EXPECT_EQ(system.mapping(1), "");
  system.aclIdMapping->keyToAclIdMappingNotify(indexKey(2));
  system.blockedIntfColl->intfNotify(intf("Ethernet33"));
  system.aclIdMapping->intfDirectionToIndexKeyNotify(in("Vlan10"));
  EXPECT_EQ(system.mapping(1), system.mapping(0));
  EXPECT_EQ(system.enables(1), "in Ethernet33 id=0 v4 v6 mac blocked\nin Vlan10 id=7 v4\n"
                               "out Ethernet33 id=0 v4 v6 mac blocked\n");
}

TEST(SmSystem, ASecondPassForALiveChipIsRefused) {
  SystemUnderTest system;
  system.make();
  const auto before = system.chip(0);
  const std::string message = test::thrownBy([&] { system->handleXpDevice(device(0)); });
  const std::string refusal = "Reinstantiating the pointer interface where constructor parameter attribute "
                              "_chipAclIdMapping has a different value of (.*XpAcl::AclIdMapping.*) than the "
                              "current value of (.*XpAcl::AclIdMapping.*) not allowed";
  EXPECT_FALSE(test::matched(message, refusal).empty()) << message;
  EXPECT_EQ(system.chip(0).ptr(), before.ptr());
  EXPECT_THROW(system->handleXpDevice(device(0)), Vane::NameInUseException);
  // A write that changes the stored value only is such a pass.
  EXPECT_THROW(system.activeXpDeviceColl->deviceIdIs(device(0), false), Vane::NameInUseException);
}

TEST(SmSystem, AMachineThatIsGoneHearsNothing) {
  SystemUnderTest system({0, 1});
  system.make();
  const auto chip = system.chip(0);
  system.machine = nullptr;
  EXPECT_EQ(chip->references(), 1u) << "the collection has let go of it";
  EXPECT_EQ(system.calls([&] {
    system.aclIdMapping->intfDirectionToIndexKeyIs(in("Ethernet1"), indexKey(0));
    system.blockedIntfColl->intfIs(intf("Ethernet1"), true);
    system.activeXpDeviceColl->deviceIdDel(device(1));
  }),
            "");
}

TEST(SmSystem, InactivityReachesEveryChip) {
  SystemUnderTest system({0, 1});
  system.make();
  system->hasNotificationActiveIs(false);
  EXPECT_FALSE(system.chip(0)->hasNotificationActive());
  EXPECT_FALSE(system.chip(1)->hasNotificationActive());
  system.aclIdMapping->intfDirectionToIndexKeyIs(in("Vlan10"), indexKey(0));
  EXPECT_EQ(system.mapping(0), "");
  system->hasNotificationActiveIs(true);
  EXPECT_TRUE(system.chip(1)->hasNotificationActive());
  system.aclIdMapping->intfDirectionToIndexKeyIs(in("Vlan11"), indexKey(0));
  EXPECT_EQ(system.mapping(0), "Vlan11 ingress: 0=web\n");
}

// --------------------------------------------------------------------------------------- distribution

TEST(SmSystem, EveryChipReceivesEveryId) {
  SystemUnderTest system({0, 1});
  system.make();
  system.aclIdMapping->keyToAclIdMappingIs(indexKey(0), AclId(3));
  system.aclIdMapping->keyToAclIdMappingIs(indexKey(4, "mac"), AclId(4));
  for (const unsigned chip : {0u, 1u}) {
    EXPECT_EQ(system.mapping(chip), "id 0=web -> 3\nid 4=mac -> 4\n");
  }
  system.aclIdMapping->keyToAclIdMappingIs(indexKey(0), AclId(5));
  system.aclIdMapping->keyToAclIdMappingDel(indexKey(4, "mac"));
  for (const unsigned chip : {0u, 1u}) {
    EXPECT_EQ(system.mapping(chip), "id 0=web -> 5\n");
  }
}

TEST(SmSystem, AVlanReachesEveryChipAndAPortItsOwn) {
  SystemUnderTest system({0, 1});
  system.make();
  system.aclIdMapping->intfDirectionToIndexKeyIs(in("Vlan10"), indexKey(2));
  system.aclIdMapping->intfDirectionToIndexKeyIs(in("Ethernet1"), indexKey(0));
  system.aclIdMapping->intfDirectionToIndexKeyIs(out("Ethernet33"), indexKey(1));
  EXPECT_EQ(system.mapping(0), "Ethernet1 ingress: 0=web\nVlan10 ingress: 2=web\n");
  EXPECT_EQ(system.mapping(1), "Ethernet33 egress: 1=web\nVlan10 ingress: 2=web\n");
  EXPECT_EQ(system.enables(0), "in Ethernet1 id=0 v4\nin Vlan10 id=0 v4\n");
  EXPECT_EQ(system.enables(1), "in Vlan10 id=0 v4\nout Ethernet33 id=0 v6\n");
  system.aclIdMapping->intfDirectionToIndexKeyDel(in("Vlan10"));
  system.aclIdMapping->intfDirectionToIndexKeyDel(in("Ethernet1"));
  system.aclIdMapping->intfDirectionToIndexKeyDel(out("Ethernet33"));
  EXPECT_EQ(system.mapping(0), "");
  EXPECT_EQ(system.mapping(1), "");
  EXPECT_EQ(system.enables(0), "in Ethernet1 id=0\nin Vlan10 id=0\n");
}

TEST(SmSystem, AnUnknownPortThatLeavesIsTraced) {
  SystemUnderTest system;
  system.make();
  test::TraceCapture trace(tcamHwAclIdTrace());
  system->handleIntfDirectionToIndexKey(in("Ethernet9"));
  EXPECT_EQ(trace.take(), "TcamHwAclIdSm::handleIntfDirectionToIndexKey\n"
                          " intf Ethernet9 not present in current system \n");
  // The port of a chip that is not active has no mapping to leave.
  system->handleIntfDirectionToIndexKey(in("Ethernet33"));
  EXPECT_EQ(trace.take(), "TcamHwAclIdSm::handleIntfDirectionToIndexKey\n");
}

std::string systemAssertion(const char* handler, const char* text) {
  return std::string("XpAclTcamHwAclIdSm:#: void XpAcl::TcamHwAclIdSm::") + handler + ": Assertion \"" +
         text + "\" failed.\n";
}
constexpr const char* indexKeyHandler = "handleIntfDirectionToIndexKey(const XpAcl::IntfIdDirection&)";

// g++ and clang differ in how they write a reference parameter; the name and what failed are the same.
std::string withoutParameters(const std::string& text) {
  return test::replaced(text, "\\([^\n]*\\): Assertion", ": Assertion");
}

TEST(SmSystem, OnlyVlansAndPortsHaveIndexKeys) {
  for (const char* const name : {"Port-Channel1", "Loopback0", "Tunnel1", "Management1"}) {
    const std::string expected =
        withoutParameters(systemAssertion(indexKeyHandler, "false && \"Invalid interface type selected\""));
    EXPECT_EQ(withoutParameters(test::deathOf([&] {
                SystemUnderTest system;
                system.make();
                system.aclIdMapping->intfDirectionToIndexKeyIs(in(name), indexKey(0));
              })),
              expected);
    EXPECT_EQ(withoutParameters(test::deathOf([&] {
                SystemUnderTest system;
                system.make();
                system->handleIntfDirectionToIndexKey(out(name));
              })),
              expected);
  }
}

TEST(SmSystem, APortWithAnIndexKeyMustBeKnownAndItsChipActive) {
  const auto death = [](const char* name) {
    return withoutParameters(test::deathOf([name] {
      SystemUnderTest system;
      system.systemStatus->intfToChipPortIs(intf("Ethernet8"), Plex::Central::ChipPort());
      system.make();
      system.aclIdMapping->intfDirectionToIndexKeyIs(in(name), indexKey(0));
    }));
  };
  EXPECT_EQ(death("Ethernet9"), withoutParameters(systemAssertion(indexKeyHandler, "!!chipPort")));
  EXPECT_EQ(death("Ethernet8"), withoutParameters(systemAssertion(indexKeyHandler, "!!chipPort")));
  EXPECT_EQ(death("Ethernet33"),
            withoutParameters(systemAssertion(indexKeyHandler, "chipAclIdMapping( chipId )")));
}

// -------------------------------------------------------------------------------------------- blocked

TEST(SmSystem, ABlockedPortConcernsItsOwnChip) {
  SystemUnderTest system({0, 1});
  system.make();
  system.blockedIntfColl->intfIs(intf("Ethernet33"), true);
  EXPECT_EQ(system.blocked(0), "");
  EXPECT_EQ(system.blocked(1), "Ethernet33\n");
  EXPECT_EQ(system.enables(0), "");
  EXPECT_EQ(system.sdk.tables(1), "portConfig 1: id=0 en=3 mac=1\n");
  system.blockedIntfColl->intfDel(intf("Ethernet33"));
  EXPECT_EQ(system.blocked(1), "");
  EXPECT_EQ(system.sdk.tables(1), "");
}

TEST(SmSystem, ABlockedVlanConcernsEveryChipThroughOneSet) {
  SystemUnderTest system({0, 1});
  system.make();
  system.blockedIntfColl->intfIs(intf("Vlan10"), true);
  EXPECT_EQ(system.blocked(0), "vlan 10\n");
  for (const unsigned chip : {0u, 1u}) {
    EXPECT_EQ(system.chip(chip)->blockedVlanColl().ptr(), system->sharedBlockedVlanColl().ptr());
    EXPECT_EQ(system.enables(chip), "in Vlan10 id=0 v4 v6 mac blocked\nout Vlan10 id=0 v4 v6 mac blocked\n");
  }
  system.blockedIntfColl->intfDel(intf("Vlan10"));
  for (const unsigned chip : {0u, 1u}) {
    EXPECT_EQ(system.enables(chip), "in Vlan10 id=0\nout Vlan10 id=0\n");
  }
}

// A VLAN is blocked by membership, a port by the stored value.
TEST(SmSystem, TheValueCountsForPortsOnly) {
  SystemUnderTest system;
  system.make();
  system.blockedIntfColl->intfIs(intf("Vlan10"), false);
  system.blockedIntfColl->intfIs(intf("Ethernet1"), false);
  EXPECT_EQ(system.blocked(0), "vlan 10\n");
  system.blockedIntfColl->intfIs(intf("Ethernet1"), true);
  EXPECT_EQ(system.blocked(0), "Ethernet1\nvlan 10\n");
  system.blockedIntfColl->intfIs(intf("Ethernet1"), false);
  EXPECT_EQ(system.blocked(0), "vlan 10\n");
}

TEST(SmSystem, TheSharedSetIsMadeOnFirstUse) {
  SystemUnderTest system(std::vector<unsigned>{});
  system.make();
  EXPECT_EQ(system.blocked(0), "no VLAN set\nno set\n");
  system->handleBlockedIntf(intf("Vlan10")); // leaves a set that is not there
  EXPECT_EQ(system.blocked(0), "no VLAN set\nno set\n");
  system.blockedIntfColl->intfIs(intf("Vlan10"), true);
  EXPECT_EQ(system.blocked(0), "no set\nvlan 10\n");
  const auto set = system->sharedBlockedVlanColl();
  EXPECT_TRUE(set->hasNotificationActive());
  EXPECT_EQ(system->blockedVlanCollIs().ptr(), set.ptr());
  // A chip that joins finds it.
  system.activeXpDeviceColl->deviceIdIs(device(0), true);
  EXPECT_EQ(system.enables(0), "in Vlan10 id=0 v4 v6 mac blocked\nout Vlan10 id=0 v4 v6 mac blocked\n");
}

TEST(SmSystem, ANewSharedSetIsHandedToEveryChip) {
  SystemUnderTest system({0, 1});
  system.make();
  system->sharedBlockedVlanCollDel();
  system.blockedIntfColl->intfIs(intf("Vlan10"), true);
  for (const unsigned chip : {0u, 1u}) {
    EXPECT_EQ(system.chip(chip)->blockedVlanColl().ptr(), system->sharedBlockedVlanColl().ptr());
    EXPECT_EQ(system.enables(chip), "in Vlan10 id=0 v4 v6 mac blocked\nout Vlan10 id=0 v4 v6 mac blocked\n");
  }
}

TEST(SmSystem, AChipsMissingBlockedSetIsMade) {
  SystemUnderTest system;
  system.make();
  // With a machine: it is handed the set.
  system->chipBlockedIntfCollDel(device(0));
  system->handleBlockedIntf(intf("Ethernet1")); // leaves a set that is not there
  EXPECT_EQ(system.blocked(0), "no set\n");
  system.blockedIntfColl->intfIs(intf("Ethernet1"), true);
  EXPECT_EQ(system.blocked(0), "Ethernet1\n");
  EXPECT_EQ(system.chip(0)->chipBlockedIntfColl().ptr(), system->chipBlockedIntfColl(device(0)).ptr());
  EXPECT_EQ(system.sdk.tables(0), "portConfig 1: id=0 en=3 mac=1\n");
  // Without one: it stays until the chip joins.
  system.blockedIntfColl->intfIs(intf("Ethernet33"), true);
  EXPECT_EQ(system.blocked(1), "Ethernet33\n");
  EXPECT_FALSE(system.chip(1));
}

TEST(SmSystem, AnUnknownBlockedInterfaceIsTraced) {
  SystemUnderTest system;
  system.make();
  test::TraceCapture trace(tcamHwAclIdTrace());
  for (const char* const name : {"Ethernet9", "Port-Channel1"}) {
    system.blockedIntfColl->intfIs(intf(name), true);
    EXPECT_EQ(trace.take(), std::string("TcamHwAclIdSm::handleBlockedIntf\n intf ") + name +
                                " not present in system status\n");
  }
  EXPECT_EQ(system.blocked(0), "");
}

TEST(SmSystem, ABlockedPortNeedsAChipPort) {
  const std::string text = test::deathOf([] {
    SystemUnderTest system;
    system.systemStatus->intfToChipPortIs(intf("Ethernet9"), Plex::Central::ChipPort());
    system.make();
    system.blockedIntfColl->intfIs(intf("Ethernet9"), true);
  });
  EXPECT_EQ(text.substr(0, 20), "XpAclTcamHwAclIdSm:#");
  EXPECT_NE(text.find("Assertion \"!!chipPort\" failed.\n"), std::string::npos) << text;
}

TEST(SmSystem, ABlockedVlanOutOfRangeIsRefused) {
  SystemUnderTest system;
  system.make();
  for (const char* const name : {"Vlan0", "Vlan4095"}) {
    EXPECT_EQ(test::thrownBy([&] { system.blockedIntfColl->intfIs(intf(name), true); }),
              "VlanId::value < 1 or > 4094 not allowed");
  }
  EXPECT_EQ(system.blocked(0), "");
}

// ---------------------------------------------------------------------------------------------- pairs

std::string pairsOf(const SystemUnderTest& system, unsigned chip) {
  const auto status = system.machine->chipPortVlanVifStatus(device(chip));
  if (!status) {
    return "no status";
  }
  std::string text;
  for (unsigned number = 1; number <= 4094; ++number) {
    for (const Ovnet::IntfId& port : status->intfsOfVlan(vlan(number))) {
      const XpLib::PortAndVlanId pair(port, vlan(number));
      text += std::string(port.stringValue().charPtr()) + "/" + std::to_string(number) + "=" +
              std::to_string(status->portVlanToVifMap(pair).value()) + " ";
    }
  }
  return text;
}

TEST(SmSystem, EachChipHasThePairsOfItsPorts) {
  SystemUnderTest system({0, 1});
  system.make();
  EXPECT_EQ(pairsOf(system, 0), "no status");
  test::TraceCapture trace(hwAclIdTrace());
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet1", 10), XpVif::VifId(5));
  EXPECT_EQ(trace.take().substr(0, 46), "handlePortVlanToVifMap intf Ethernet1 vlan 10\n");
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet33", 10), XpVif::VifId(6));
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet33", 20), XpVif::VifId(6));
  EXPECT_EQ(pairsOf(system, 0), "Ethernet1/10=5 ");
  EXPECT_EQ(pairsOf(system, 1), "Ethernet33/10=6 Ethernet33/20=6 ");
  EXPECT_EQ(system.chip(0)->chipPortVlanVifStatus().ptr(), system->chipPortVlanVifStatus(device(0)).ptr());
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet33", 20), XpVif::VifId(7));
  system.portVlanVifStatus->portVlanToVifMapDel(pairOf("Ethernet33", 10));
  EXPECT_EQ(pairsOf(system, 1), "Ethernet33/20=7 ");
  EXPECT_EQ(pairsOf(system, 0), "Ethernet1/10=5 ");
}

TEST(SmSystem, PairsAreTraced) {
  SystemUnderTest system(std::vector<unsigned>{});
  system.make();
  test::TraceCapture trace(hwAclIdTrace());
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet1", 10), XpVif::VifId(5));
  EXPECT_EQ(trace.take(), "handlePortVlanToVifMap intf Ethernet1 vlan 10\n add port Ethernet1 to vif 5\n");
  system.portVlanVifStatus->portVlanToVifMapDel(pairOf("Ethernet1", 10));
  EXPECT_EQ(trace.take(), "handlePortVlanToVifMap intf Ethernet1 vlan 10\n delete port Ethernet1\n");
}

TEST(SmSystem, PortChannelsAndUnknownPortsReachNoChip) {
  SystemUnderTest system;
  // Even a port-channel that had a chip port would be ignored.
  system.systemStatus->intfToChipPortIs(intf("Port-Channel1"),
                                        system.systemStatus->intfToChipPort(intf("Ethernet1")));
  system.make();
  test::TraceCapture trace(hwAclIdTrace());
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Port-Channel1", 10), XpVif::VifId(5));
  EXPECT_EQ(trace.take(), "handlePortVlanToVifMap intf Port-Channel1 vlan 10\n"
                          " ignoring port channel intf Port-Channel1\n");
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet9", 10), XpVif::VifId(5));
  EXPECT_EQ(trace.take(), "handlePortVlanToVifMap intf Ethernet9 vlan 10\n"
                          " intf Ethernet9 not present in system status\n");
  EXPECT_EQ(pairsOf(system, 0), "no status");
}

TEST(SmSystem, APairOfAChipThatLeftDoesNoHarm) {
  SystemUnderTest system;
  system.make();
  system.aclIdMapping->keyToAclIdMappingIs(indexKey(2), AclId(7));
  system.aclIdMapping->intfDirectionToIndexKeyIs(in("Vlan10"), indexKey(2));
  system.activeXpDeviceColl->deviceIdDel(device(0));
  EXPECT_EQ(system.calls([&] {
    system.portVlanVifStatus->portVlanToVifMapIs(pairOf("Ethernet1", 10), XpVif::VifId(5));
  }),
            "");
  EXPECT_EQ(pairsOf(system, 0), "Ethernet1/10=5 ");
}

} // namespace
