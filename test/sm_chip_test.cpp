#include "test/MachinesUnderTest.h"

#include <gtest/gtest.h>

#include <string>

// The machine of one chip: from its mapping, its blocked ports and the blocked VLANs to its enable map.

namespace {

using namespace XpAcl;
using test::device;
using test::in;
using test::indexKey;
using test::intf;
using test::out;
using test::vlan;

class TcamChip : public test::MachineInputs {
public:
  TcamChip()
      : mapping(aclIdMappingFactory()), blockedIntfs(blockedIntfCollFactory()),
        blockedVlans(blockedVlanCollFactory()) {}
  // Makes the machine; `sets` gives it its sets as well.
  void make(bool sets = true) {
    machine =
        tcamChipHwAclIdSmFactory(device(0), portVifStatus, systemStatus, xpcsd, dal, partition, mapping);
    if (sets) {
      machine->chipBlockedIntfCollIs(blockedIntfs);
      machine->blockedVlanCollIs(blockedVlans);
    }
  }
  std::string enables() const { return test::enablesOf(*machine->chipHwAclIdMap()); }
  // The interface uses an index key with this id in the direction.
  void bind(const IntfIdDirection& key, const HwAclIndexKey& index, unsigned id) {
    mapping->keyToAclIdMappingIs(index, AclId(static_cast<Vane::U16>(id)));
    mapping->intfDirectionToIndexKeyIs(key, index);
  }

  Vane::Ptr<AclIdMapping> mapping;
  Vane::Ptr<BlockedIntfColl> blockedIntfs;
  Vane::Ptr<BlockedVlanColl> blockedVlans;
  Vane::Ptr<TcamChipHwAclIdSm> machine;
};

TEST(SmChip, TheFirstPassAppliesWhatIsThere) {
  TcamChip chip;
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  chip.bind(out("Vlan10"), indexKey(3, "six"), 4);
  test::TraceCapture trace(tcamHwAclIdTrace());
  chip.make(false);
  EXPECT_EQ(trace.take(), "ChipHwAclIdSm::handleInitialized chip 0\n"
                          "doApplyConfig chip 0\n"
                          "setAclIdEn intf Ethernet1 direction ingress\n"
                          "setAclIdEn intf Vlan10 direction egress\n");
  EXPECT_TRUE(chip.machine->initialized());
  EXPECT_EQ(chip.machine->portCfgMgr(), chip.sdk.portConfigMgr());
  EXPECT_EQ(chip.machine->portVlanIvifMgr(), chip.sdk.portVlanIvifMgr());
  EXPECT_EQ(chip.machine->egressBdEvifMgr(), chip.sdk.egressBdEvifMgr());
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=3 v4\nout Vlan10 id=4 v6\n");
  EXPECT_EQ(chip.sdk.takeCalls(), "writeEntry portConfig d0 p1 id=3 en=1 mac=0 -> 0\n");
}

TEST(SmChip, TheConfigurationIsAppliedInOrder) {
  TcamChip chip;
  chip.make();
  chip.blockedIntfs->intfIs(intf("Ethernet2"), true);
  chip.blockedVlans->vlanIs(vlan(10), true);
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  test::TraceCapture trace(tcamHwAclIdTrace());
  chip.machine->doApplyConfig();
  EXPECT_EQ(trace.take(), "doApplyConfig chip 0\n"
                          "TcamChipHwAclIdSm::handleBlockedIntf chipId 0\n"
                          "TcamChipHwAclIdSm::handleBlockedIntf chip 0 intf Ethernet2\n"
                          "setAclIdEn intf Ethernet2 direction ingress\n"
                          "setAclIdEn intf Ethernet2 direction egress\n"
                          "TcamChipHwAclIdSm::handleBlockedVlan chip 0 vlan 10\n"
                          "setAclIdEn intf Vlan10 direction ingress\n"
                          "setAclIdEn intf Vlan10 direction egress\n"
                          "setAclIdEn intf Ethernet1 direction ingress\n");
}

TEST(SmChip, TheEnableMapIsMadeAnew) {
  TcamChip chip;
  chip.make();
  const auto first = chip.machine->chipHwAclIdMap();
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  chip.sdk.takeCalls();
  chip.machine->handleInitialized();
  const auto second = chip.machine->chipHwAclIdMap();
  EXPECT_NE(first.ptr(), second.ptr());
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=3 v4\n");
  EXPECT_EQ(chip.sdk.takeCalls(), "writeEntry portConfig d0 p1 id=3 en=1 mac=0 -> 0\n");
  first->ingressPortAclIdEnIs(intf("Ethernet2"), test::aclIdEn(1, "4"));
  EXPECT_EQ(chip.sdk.takeCalls(), "") << "the old map is not watched any more";
}

TEST(SmChip, EverySlotBelongsToOneGroup) {
  const char* const flags[] = {"v4", "v6", "v4", "v6", "mac", "v4", "v6", "v4", "v6", ""};
  TcamChip chip;
  chip.make();
  for (unsigned slot = 0; slot < HwAclIndexKey::numSlots; ++slot) {
    chip.bind(in("Ethernet1"), indexKey(slot), 3);
    const std::string on(flags[slot]);
    EXPECT_EQ(chip.enables(), "in Ethernet1 id=3" + (on.empty() ? "" : " " + on) + "\n") << "slot " << slot;
  }
  HwAclIndexKey mixed = indexKey(7);
  mixed.slotIs(8, indexKey(8).slot(8));
  mixed.slotIs(9, indexKey(9).slot(9));
  chip.bind(in("Ethernet1"), mixed, 5);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=5 v4 v6\n");
}

// A slot holds an ACL when it differs from the default key in anything, not in its name alone.
TEST(SmChip, ASlotIsComparedWhole) {
  TcamChip chip;
  chip.make();
  Plex::AclKey almost;
  almost.generationIs(1);
  HwAclIndexKey key;
  key.slotIs(1, almost);
  chip.bind(in("Ethernet1"), key, 3);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=3 v6\n");
}

TEST(SmChip, OnlyTheLowEightBitsOfAnIdCount) {
  TcamChip chip;
  chip.make();
  chip.bind(in("Ethernet1"), indexKey(0), 0x1FE);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=254 v4\n");
  chip.bind(in("Ethernet1"), indexKey(0, "other"), 256);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0 v4\n");
}

TEST(SmChip, AnIndexKeyWithoutAnIdHasIdZero) {
  TcamChip chip;
  chip.make();
  chip.mapping->intfDirectionToIndexKeyIs(in("Ethernet1"), indexKey(0));
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0 v4\n");
}

// The removal of an ACL is a value like any other: zero, and written.
TEST(SmChip, NoAclIsWrittenAsZero) {
  TcamChip chip;
  chip.make();
  chip.mapping->intfDirectionToIndexKeyIs(in("Ethernet1"), HwAclIndexKey());
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0\n");
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  chip.sdk.takeCalls();
  chip.mapping->intfDirectionToIndexKeyDel(in("Ethernet1"));
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0\n");
  EXPECT_EQ(chip.sdk.takeCalls(), "writeEntry portConfig d0 p1 id=0 en=0 mac=0 -> 0\n");
}

TEST(SmChip, EachDirectionHasItsOwnValue) {
  TcamChip chip;
  chip.make();
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  chip.bind(out("Ethernet1"), indexKey(1), 4);
  chip.bind(in("Vlan10"), indexKey(2), 5);
  chip.bind(out("Vlan10"), indexKey(3), 6);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=3 v4\nin Vlan10 id=5 v4\nout Ethernet1 id=4 v6\n"
                            "out Vlan10 id=6 v6\n");
}

TEST(SmChip, AChangedIdWaitsUntilTheInterfaceIsProcessed) {
  TcamChip chip;
  chip.make();
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  chip.sdk.takeCalls();
  test::TraceCapture trace(tcamHwAclIdTrace());
  chip.mapping->keyToAclIdMappingIs(indexKey(0), AclId(4));
  EXPECT_EQ(trace.take(), "");
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=3 v4\n");
  EXPECT_EQ(chip.sdk.takeCalls(), "");
  chip.mapping->intfDirectionToIndexKeyNotify(in("Ethernet1"));
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=4 v4\n");
  EXPECT_EQ(chip.sdk.takeCalls(), "writeEntry portConfig d0 p1 id=4 en=1 mac=0 -> 0\n");
}

TEST(SmChip, ABlockedPortMakesEveryLookupInBothDirections) {
  TcamChip chip;
  chip.make();
  chip.blockedIntfs->intfIs(intf("Ethernet1"), true);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0 v4 v6 mac blocked\nout Ethernet1 id=0 v4 v6 mac blocked\n");
  EXPECT_EQ(chip.sdk.takeCalls(), "writeEntry portConfig d0 p1 id=0 en=3 mac=1 -> 0\n");
  chip.blockedIntfs->intfDel(intf("Ethernet1"));
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0\nout Ethernet1 id=0\n");
  EXPECT_EQ(chip.sdk.takeCalls(), "writeEntry portConfig d0 p1 id=0 en=0 mac=0 -> 0\n");
}

TEST(SmChip, ABlockedPortKeepsItsId) {
  TcamChip chip;
  chip.make();
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  chip.blockedIntfs->intfIs(intf("Ethernet1"), true);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=3 v4 v6 mac blocked\nout Ethernet1 id=0 v4 v6 mac blocked\n");
  chip.blockedIntfs->intfDel(intf("Ethernet1"));
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=3 v4\nout Ethernet1 id=0\n");
}

// On the chip a member is blocked, whatever its value.
TEST(SmChip, AMemberOfTheChipsSetIsBlocked) {
  TcamChip chip;
  chip.make();
  chip.blockedIntfs->intfIs(intf("Ethernet1"), false);
  chip.blockedVlans->vlanIs(vlan(10), false);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0 v4 v6 mac blocked\nin Vlan10 id=0 v4 v6 mac blocked\n"
                            "out Ethernet1 id=0 v4 v6 mac blocked\nout Vlan10 id=0 v4 v6 mac blocked\n");
}

TEST(SmChip, ABlockedVlanBlocksItsInterface) {
  TcamChip chip;
  chip.make();
  chip.bind(in("Vlan10"), indexKey(2), 5);
  test::TraceCapture trace(tcamHwAclIdTrace());
  chip.blockedVlans->vlanIs(vlan(10), true);
  EXPECT_EQ(trace.take(), "TcamChipHwAclIdSm::handleBlockedVlan chip 0 vlan 10\n"
                          "setAclIdEn intf Vlan10 direction ingress\n"
                          "setAclIdEn intf Vlan10 direction egress\n");
  EXPECT_EQ(chip.enables(), "in Vlan10 id=5 v4 v6 mac blocked\nout Vlan10 id=0 v4 v6 mac blocked\n");
  chip.blockedVlans->vlanDel(vlan(10));
  EXPECT_EQ(chip.enables(), "in Vlan10 id=5 v4\nout Vlan10 id=0\n");
  chip.blockedVlans->vlanIs(vlan(4094), true);
  EXPECT_EQ(chip.enables(), "in Vlan10 id=5 v4\nin Vlan4094 id=0 v4 v6 mac blocked\nout Vlan10 id=0\n"
                            "out Vlan4094 id=0 v4 v6 mac blocked\n");
}

// A VLAN interface is blocked by its VLAN alone, a port by itself alone.
TEST(SmChip, TheTwoSetsDoNotMix) {
  TcamChip chip;
  chip.make();
  chip.blockedIntfs->intfIs(intf("Vlan10"), true);
  EXPECT_EQ(chip.enables(), "in Vlan10 id=0\nout Vlan10 id=0\n");
}

TEST(SmChip, OtherInterfacesAreTreatedAsPorts) {
  TcamChip chip;
  chip.make();
  chip.bind(in("Port-Channel1"), indexKey(0), 3);
  chip.blockedIntfs->intfIs(intf("Port-Channel1"), true);
  EXPECT_EQ(chip.enables(),
            "in Port-Channel1 id=3 v4 v6 mac blocked\nout Port-Channel1 id=0 v4 v6 mac blocked\n");
  EXPECT_EQ(chip.sdk.takeCalls(), "");
}

TEST(SmChip, AVlanInterfaceOutOfRangeIsRefused) {
  TcamChip chip;
  chip.make();
  for (const char* const name : {"Vlan0", "Vlan4095", "Vlan65546"}) {
    EXPECT_EQ(test::thrownBy([&] { chip.mapping->intfDirectionToIndexKeyIs(in(name), indexKey(2)); }),
              "VlanId::value < 1 or > 4094 not allowed");
  }
  EXPECT_EQ(chip.enables(), "");
}

TEST(SmChip, WithoutASetTheKeylessFormsDoNothing) {
  TcamChip chip;
  chip.make(false);
  test::TraceCapture trace(tcamHwAclIdTrace());
  chip.machine->handleBlockedIntf();
  chip.machine->handleBlockedVlan();
  EXPECT_EQ(trace.take(), "");
  // A port without the chip's set is not blocked.
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  chip.bind(in("Vlan10"), indexKey(2), 5);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=3 v4\nin Vlan10 id=5 v4\n");
}

TEST(SmChip, ASetThatIsHandedOverIsApplied) {
  TcamChip chip;
  chip.make(false);
  chip.blockedIntfs->intfIs(intf("Ethernet1"), true);
  chip.blockedVlans->vlanIs(vlan(10), true);
  chip.machine->chipBlockedIntfCollIs(chip.blockedIntfs);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0 v4 v6 mac blocked\nout Ethernet1 id=0 v4 v6 mac blocked\n");
  chip.machine->blockedVlanCollIs(chip.blockedVlans);
  EXPECT_EQ(chip.enables(), "in Ethernet1 id=0 v4 v6 mac blocked\nin Vlan10 id=0 v4 v6 mac blocked\n"
                            "out Ethernet1 id=0 v4 v6 mac blocked\nout Vlan10 id=0 v4 v6 mac blocked\n");
}

std::string assertion(const char* handler, const char* text) {
  return std::string("XpAclTcamHwAclIdSm:#: void XpAcl::TcamChipHwAclIdSm::") + handler + ": Assertion \"" +
         text + "\" failed.\n";
}

TEST(SmChip, BlockedReactionsNeedAnInitialisedMachineWithItsSet) {
  const auto death = [](bool initialized, void (*react)(TcamChipHwAclIdSm&)) {
    return test::deathOf([=] {
      TcamChip chip;
      chip.make(false);
      chip.machine->initializedIs(initialized);
      react(*chip.machine);
    });
  };
  const auto blockIntf = [](TcamChipHwAclIdSm& machine) { machine.handleBlockedIntf(intf("Ethernet1")); };
  const auto blockVlan = [](TcamChipHwAclIdSm& machine) { machine.handleBlockedVlan(vlan(10)); };
  EXPECT_EQ(death(false, blockIntf), assertion("handleBlockedIntf(Ovnet::IntfId)", "initialized()"));
  EXPECT_EQ(death(true, blockIntf), assertion("handleBlockedIntf(Ovnet::IntfId)", "chipBlockedIntfColl()"));
  EXPECT_EQ(death(false, blockVlan), assertion("handleBlockedVlan(Bridging::VlanId)", "initialized()"));
  EXPECT_EQ(death(true, blockVlan), assertion("handleBlockedVlan(Bridging::VlanId)", "blockedVlanColl()"));
}

// A machine that is made by hand has not been initialised: its mapping is watched, and nothing follows.
TEST(SmChip, BeforeInitialisationIndexKeysChangeNothing) {
  TcamChip chip;
  const Vane::Ptr<TcamChipHwAclIdSm> machine(new TcamChipHwAclIdSm(
      device(0), chip.portVifStatus, chip.systemStatus, chip.xpcsd, chip.dal, chip.partition, chip.mapping));
  test::TraceCapture trace(tcamHwAclIdTrace());
  machine->chipHwAclIdMapIs(chipHwAclIdMapFactory());
  machine->chipAclIdMappingIs(chip.mapping);
  chip.bind(in("Ethernet1"), indexKey(0), 3);
  EXPECT_EQ(test::enablesOf(*machine->chipHwAclIdMap()), "");
  EXPECT_EQ(trace.take(), "");
  machine->handleInitialized();
  EXPECT_EQ(test::enablesOf(*machine->chipHwAclIdMap()), "in Ethernet1 id=3 v4\n");
}

TEST(SmChip, AnInactiveOrZombieMachineHearsNothing) {
  for (const bool zombie : {false, true}) {
    TcamChip chip;
    chip.make();
    if (zombie) {
      chip.machine->vaneDoZombieReactors(true);
    } else {
      chip.machine->hasNotificationActiveIs(false);
    }
    chip.bind(in("Ethernet1"), indexKey(0), 3);
    chip.blockedIntfs->intfIs(intf("Ethernet2"), true);
    chip.blockedVlans->vlanIs(vlan(10), true);
    chip.machine->chipHwAclIdMap()->ingressPortAclIdEnIs(intf("Ethernet3"), test::aclIdEn(1, "4"));
    EXPECT_EQ(chip.enables(), "in Ethernet3 id=1 v4\n");
    EXPECT_EQ(chip.sdk.takeCalls(), "");
  }
}

} // namespace
