#include "test/MachinesUnderTest.h"

#include <gtest/gtest.h>

#include <string>

// The whole chain: from what the generic ACL layer publishes to what the chips' tables hold.

namespace {

using namespace XpAcl;
using test::device;
using test::in;
using test::indexKey;
using test::intf;
using test::out;
using test::pairOf;
using test::SystemUnderTest;

void idIs(SystemUnderTest& system, const HwAclIndexKey& key, unsigned id) {
  system.aclIdMapping->keyToAclIdMappingIs(key, AclId(static_cast<Vane::U16>(id)));
}
void bind(SystemUnderTest& system, const IntfIdDirection& where, const HwAclIndexKey& key) {
  system.aclIdMapping->intfDirectionToIndexKeyIs(where, key);
}
void pairIs(SystemUnderTest& system, const char* port, unsigned vlan, Vane::U32 vif) {
  system.portVlanVifStatus->portVlanToVifMapIs(pairOf(port, vlan), XpVif::VifId(vif));
}

// An ACL moves to a new hardware id while its index key stays: the interface is blocked, the id published,
// and the interface let go. The chip sees id 0 with every lookup on, then the new id with its own.
TEST(SmChain, ANewIdUnderAnUnchangedIndexKey) {
  SystemUnderTest system;
  idIs(system, indexKey(0), 3);
  bind(system, in("Ethernet1"), indexKey(0));
  system.make();
  EXPECT_EQ(system.sdk.takeCalls(), "writeEntry portConfig d0 p1 id=3 en=1 mac=0 -> 0\n");
  EXPECT_EQ(system.calls([&] { system.blockedIntfColl->intfIs(intf("Ethernet1"), true); }),
            "writeEntry portConfig d0 p1 id=0 en=3 mac=1 -> 0\n");
  EXPECT_EQ(system.calls([&] { idIs(system, indexKey(0), 4); }), "");
  EXPECT_EQ(system.calls([&] { system.blockedIntfColl->intfDel(intf("Ethernet1")); }),
            "writeEntry portConfig d0 p1 id=4 en=1 mac=0 -> 0\n");
  // Without the bracket nothing tells the chip.
  EXPECT_EQ(system.calls([&] { idIs(system, indexKey(0), 5); }), "");
  EXPECT_EQ(system.sdk.tables(0), "portConfig 1: id=4 en=1 mac=0\n");
}

TEST(SmChain, ANewIdOfAVlanReachesEveryTableOfEveryChip) {
  SystemUnderTest system({0, 1});
  const HwAclIndexKey key = indexKey(2);
  idIs(system, key, 3);
  bind(system, in("Vlan10"), key);
  bind(system, out("Vlan10"), key);
  pairIs(system, "Ethernet1", 10, 5);
  pairIs(system, "Ethernet33", 10, 6);
  system.make();
  system.sdk.takeCalls();
  EXPECT_EQ(system.sdk.tables(0), "portVlan 0: vlan=10 vif=5 id=3 en=1\n"
                                  "egress 0: bd=10 vif=5 port=0/00 route=3/10\n");
  EXPECT_EQ(system.sdk.tables(1), "portVlan 0: vlan=10 vif=6 id=3 en=1\n"
                                  "egress 0: bd=10 vif=6 port=0/00 route=3/10\n");
  EXPECT_EQ(system.calls([&] { system.blockedIntfColl->intfIs(intf("Vlan10"), true); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=3 -> 0\n"
            "writeEntry egress d0 i0 bd=10 vif=5 port=0/00 route=0/11 -> 0\n"
            "writeEntry portVlan d1 c0 i0 vlan=10 vif=6 id=0 en=3 -> 0\n"
            "writeEntry egress d1 i0 bd=10 vif=6 port=0/00 route=0/11 -> 0\n");
  EXPECT_EQ(system.calls([&] { idIs(system, key, 4); }), "");
  EXPECT_EQ(system.calls([&] { system.blockedIntfColl->intfDel(intf("Vlan10")); }),
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=4 en=1 -> 0\n"
            "writeEntry egress d0 i0 bd=10 vif=5 port=0/00 route=4/10 -> 0\n"
            "writeEntry portVlan d1 c0 i0 vlan=10 vif=6 id=4 en=1 -> 0\n"
            "writeEntry egress d1 i0 bd=10 vif=6 port=0/00 route=4/10 -> 0\n");
}

// Interfaces that share an index key share its id; each is let go by itself.
TEST(SmChain, TwoPortsOfOneIndexKey) {
  SystemUnderTest system;
  system.make();
  idIs(system, indexKey(0), 3);
  bind(system, in("Ethernet1"), indexKey(0));
  bind(system, in("Ethernet2"), indexKey(0));
  system.blockedIntfColl->intfIs(intf("Ethernet1"), true);
  system.blockedIntfColl->intfIs(intf("Ethernet2"), true);
  idIs(system, indexKey(0), 4);
  EXPECT_EQ(system.calls([&] { system.blockedIntfColl->intfDel(intf("Ethernet1")); }),
            "writeEntry portConfig d0 p1 id=4 en=1 mac=0 -> 0\n");
  EXPECT_EQ(system.sdk.tables(0), "portConfig 1: id=4 en=1 mac=0\nportConfig 2: id=0 en=3 mac=1\n");
  EXPECT_EQ(system.calls([&] { system.blockedIntfColl->intfDel(intf("Ethernet2")); }),
            "writeEntry portConfig d0 p2 id=4 en=1 mac=0 -> 0\n");
}

TEST(SmChain, ABlockedPortWithoutAnAclGoesBackToNothing) {
  SystemUnderTest system;
  system.make();
  pairIs(system, "Ethernet1", 10, 5);
  EXPECT_EQ(system.calls([&] { system.blockedIntfColl->intfIs(intf("Ethernet1"), true); }),
            "writeEntry portConfig d0 p1 id=0 en=3 mac=1 -> 0\n"
            "addEntry egress d0 bd=10 vif=5 port=0/11 route=0/00 -> 0\n");
  EXPECT_EQ(system.calls([&] { system.blockedIntfColl->intfDel(intf("Ethernet1")); }),
            "writeEntry portConfig d0 p1 id=0 en=0 mac=0 -> 0\n"
            "removeEntry egress d0 i0 -> 0\n");
  EXPECT_EQ(system.sdk.tables(0) + system.indexMaps(), "");
}

TEST(SmChain, AnEthernetAclIsOnItsOwnChipOnly) {
  SystemUnderTest system({0, 1});
  system.make();
  idIs(system, indexKey(0), 3);
  bind(system, in("Ethernet33"), indexKey(0));
  bind(system, out("Ethernet33"), indexKey(0));
  pairIs(system, "Ethernet1", 10, 5);
  pairIs(system, "Ethernet33", 10, 6);
  EXPECT_EQ(system.sdk.tables(0), "");
  EXPECT_EQ(system.sdk.tables(1), "portConfig 1: id=3 en=1 mac=0\n"
                                  "egress 0: bd=10 vif=6 port=3/10 route=0/00\n");
}

// After the last pair of a VLAN has left, the chips and the books hold nothing of it, though its ACLs are
// still bound.
TEST(SmChain, NothingOfAVlanOutlivesItsPairs) {
  SystemUnderTest system({0, 1});
  system.make();
  idIs(system, indexKey(2), 3);
  bind(system, in("Vlan10"), indexKey(2));
  bind(system, out("Vlan10"), indexKey(2));
  pairIs(system, "Ethernet1", 10, 5);
  pairIs(system, "Ethernet2", 10, 5);
  pairIs(system, "Ethernet33", 10, 6);
  pairIs(system, "Ethernet1", 10, 7); // on the move, too
  pairIs(system, "Ethernet2", 10, 7);
  EXPECT_EQ(system.sdk.tables(0), "portVlan 1: vlan=10 vif=7 id=3 en=1\n"
                                  "egress 1: bd=10 vif=7 port=0/00 route=3/10\n");
  for (const char* const port : {"Ethernet1", "Ethernet2", "Ethernet33"}) {
    system.portVlanVifStatus->portVlanToVifMapDel(pairOf(port, 10));
  }
  EXPECT_EQ(system.sdk.tables(0) + system.sdk.tables(1) + system.indexMaps(), "");
  for (const unsigned chip : {0u, 1u}) {
    EXPECT_EQ(system.chip(chip)->vifVlanInfoCount(), 0u);
    EXPECT_EQ(system.chip(chip)->portVlanToVifCacheCount(), 0u);
    EXPECT_EQ(system->chipPortVlanVifStatus(device(chip))->portVlanToVifMapCount(), 0u);
  }
}

// The same indexes on two chips: each key keeps its own, and the way back is the last one's.
TEST(SmChain, TheIndexMapsSpanTheChips) {
  SystemUnderTest system({0, 1});
  system.make();
  idIs(system, indexKey(2), 3);
  bind(system, in("Vlan10"), indexKey(2));
  pairIs(system, "Ethernet1", 10, 5);
  pairIs(system, "Ethernet33", 10, 6);
  EXPECT_EQ(system.indexMaps(), "portVlan 0 -> 10/6\nportVlan 10/5 -> 0\nportVlan 10/6 -> 0\n");
  system.portVlanVifStatus->portVlanToVifMapDel(pairOf("Ethernet1", 10));
  EXPECT_EQ(system.indexMaps(), "portVlan 0 -> 10/6\nportVlan 10/6 -> 0\n");
  EXPECT_EQ(system.sdk.tables(1), "portVlan 0: vlan=10 vif=6 id=3 en=1\n");
  system.portVlanVifStatus->portVlanToVifMapDel(pairOf("Ethernet33", 10));
  EXPECT_EQ(system.indexMaps() + system.sdk.tables(0) + system.sdk.tables(1), "");
}

} // namespace
