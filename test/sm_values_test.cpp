#include "test/MachinesUnderTest.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

// The values and entities that the state machines hand to each other: texts, equality, and which writes
// notify.

namespace {

using namespace XpAcl;
using test::aclIdEn;
using test::intf;
using test::vlan;

std::string parsed(const std::string& text) {
  AclIdEn en;
  try {
    Vane::strepToValue(Vane::String(std::string_view(text)), &en);
  } catch (const Vane::ParseException& e) {
    return std::string("ParseException: ") + e.what();
  }
  return test::textOf(en);
}

TEST(SmValues, EnablesAreAllZeroAtFirst) {
  EXPECT_EQ(test::textOf(AclIdEn()), "id=0");
  EXPECT_TRUE(AclIdEn() == aclIdEn(0, ""));
}

TEST(SmValues, EnablesAreEqualWhenAllFiveFieldsAre) {
  const AclIdEn en = aclIdEn(3, "46mb");
  EXPECT_TRUE(en == aclIdEn(3, "46mb"));
  for (const AclIdEn& other :
       {aclIdEn(4, "46mb"), aclIdEn(3, "6mb"), aclIdEn(3, "4mb"), aclIdEn(3, "46b"), aclIdEn(3, "46m")}) {
    EXPECT_FALSE(en == other) << test::textOf(other);
  }
}

TEST(SmValues, TextOfEnables) {
  const std::string text = "Value('XpAcl::AclIdEn', ** {'aclId': 200, 'v4En': True, 'v6En': False, "
                           "'macEn': True, 'blocked': False})";
  EXPECT_EQ(valueToStrep(aclIdEn(200, "4m")), Vane::String(std::string_view(text)));
  std::ostringstream out;
  out << aclIdEn(200, "4m");
  EXPECT_EQ(out.str(), text);
  EXPECT_EQ(parsed(text), "id=200 v4 mac");
  EXPECT_EQ(parsed(std::string(valueToStrep(aclIdEn(0, "6b")).charPtr())), "id=0 v6 blocked");
}

TEST(SmValues, TextOfEnablesMustBeExact) {
  const std::string good = "Value('XpAcl::AclIdEn', ** {'aclId': 1, 'v4En': True, 'v6En': False, "
                           "'macEn': True, 'blocked': False})";
  ASSERT_EQ(parsed(good), "id=1 v4 mac");
  const auto with = [&](const std::string& from, const std::string& to) {
    std::string text = good;
    text.replace(text.find(from), from.size(), to);
    return parsed(text).substr(0, 14);
  };
  EXPECT_EQ(with("'aclId': 1", "'aclId': 256"), "ParseException");
  EXPECT_EQ(with("'aclId': 1", "'aclId':1"), "ParseException");
  EXPECT_EQ(with("True", "true"), "ParseException");
  EXPECT_EQ(with("v4En", "v6En"), "ParseException"); // the order of the fields is fixed
  EXPECT_EQ(with("})", "})x"), "ParseException");
  EXPECT_EQ(with("})", ""), "ParseException");
  EXPECT_EQ(with("AclIdEn", "AclIdEm"), "ParseException");
}

// Counts what an enable map tells its notifiees.
class MapWatcher : public ChipHwAclIdMap::NotifieeConst {
public:
  void onIngressPortAclIdEn(const Ovnet::IntfId& key) override { note("inPort", key); }
  void onIngressRouteAclIdEn(const Bridging::VlanId& key) override { note("inRoute", key); }
  void onEgressPortAclIdEn(const Ovnet::IntfId& key) override { note("outPort", key); }
  void onEgressRouteAclIdEn(const Bridging::VlanId& key) override { note("outRoute", key); }
  std::string take() { return std::exchange(seen_, std::string()); }

private:
  template <typename Key>
  void note(const char* what, const Key& key) {
    std::ostringstream line;
    line << what << ' ' << key << '\n';
    seen_ += line.str();
  }
  std::string seen_;
};

TEST(SmValues, EqualWritesNotifyOnce) {
  const auto map = chipHwAclIdMapFactory();
  const Vane::Ptr<MapWatcher> watcher(new MapWatcher);
  watcher->notifierIs(map);
  map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(3, "4"));
  map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(3, "4"));
  EXPECT_EQ(watcher->take(), "inPort Ethernet1\n");
  map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(3, "4b"));
  EXPECT_EQ(watcher->take(), "inPort Ethernet1\n");
  map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(3, "46b"));
  EXPECT_EQ(watcher->take(), "inPort Ethernet1\n");
  // The default is a value like any other: writing it to an absent key inserts a member.
  map->egressPortAclIdEnIs(intf("Ethernet2"), AclIdEn());
  map->egressPortAclIdEnIs(intf("Ethernet2"), AclIdEn());
  EXPECT_EQ(watcher->take(), "outPort Ethernet2\n");
}

TEST(SmValues, EachCollectionNotifiesForItself) {
  const auto map = chipHwAclIdMapFactory();
  const Vane::Ptr<MapWatcher> watcher(new MapWatcher);
  watcher->notifierIs(map);
  map->egressRouteAclIdEnIs(vlan(10), aclIdEn(1, "4"));
  map->ingressRouteAclIdEnIs(vlan(10), aclIdEn(1, "4"));
  map->egressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(1, "4"));
  map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(1, "4"));
  EXPECT_EQ(watcher->take(), "outRoute 10\ninRoute 10\noutPort Ethernet1\ninPort Ethernet1\n");
  EXPECT_EQ(test::textOf(map->ingressRouteAclIdEn(vlan(11))), "id=0");
  EXPECT_EQ(map->ingressRouteAclIdEnCount(), 1u); // a look at an absent key inserts nothing
}

TEST(SmValues, DeletionNotifiesOnlyWhatWasThere) {
  const auto map = chipHwAclIdMapFactory();
  map->ingressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(1, "4"));
  map->ingressPortAclIdEnIs(intf("Ethernet2"), aclIdEn(2, "4"));
  const Vane::Ptr<MapWatcher> watcher(new MapWatcher);
  watcher->notifierIs(map);
  map->ingressPortAclIdEnDel(intf("Ethernet3"));
  EXPECT_EQ(watcher->take(), "");
  map->ingressPortAclIdEnDel(intf("Ethernet1"));
  EXPECT_EQ(watcher->take(), "inPort Ethernet1\n");
  EXPECT_EQ(test::textOf(map->ingressPortAclIdEn(intf("Ethernet1"))), "id=0");
  map->ingressPortAclIdEnDelAll();
  EXPECT_EQ(watcher->take(), "inPort Ethernet2\n");
  EXPECT_EQ(map->ingressPortAclIdEnCount(), 0u);
}

TEST(SmValues, AttributesOfTheEnableMap) {
  std::string text;
  for (const Vane::Attribute& attribute : ChipHwAclIdMap::vaneType().attributes()) {
    text += std::string(attribute.name) + ": " + attribute.keyType + " to " + attribute.valueType + "\n";
  }
  EXPECT_EQ(text, "ingressPortAclIdEn: Ovnet::IntfId to AclIdEn\n"
                  "ingressRouteAclIdEn: Bridging::VlanId to AclIdEn\n"
                  "egressPortAclIdEn: Ovnet::IntfId to AclIdEn\n"
                  "egressRouteAclIdEn: Bridging::VlanId to AclIdEn\n");
}

TEST(SmValues, AllVersionsAreOffAtFirst) {
  const auto all = allAclVerEnFactory();
  std::string text;
  for (const Vane::Attribute& attribute : all->fwkType().attributes()) {
    text += std::string(attribute.name) + "\n";
  }
  EXPECT_EQ(text, "ingressPaclV4En\ningressPaclV6En\ningressRaclV4En\ningressRaclV6En\n"
                  "egressPaclV4En\negressPaclV6En\negressRaclV4En\negressRaclV6En\n");
  EXPECT_FALSE(all->ingressPaclV4En() || all->ingressPaclV6En() || all->ingressRaclV4En() ||
               all->ingressRaclV6En() || all->egressPaclV4En() || all->egressPaclV6En() ||
               all->egressRaclV4En() || all->egressRaclV6En());
  all->egressRaclV6EnIs(true);
  EXPECT_TRUE(all->egressRaclV6En());
  EXPECT_FALSE(all->egressRaclV4En());
}

class UserWatcher : public VifVlanInfo::NotifieeConst {
public:
  void onPortVlan(const XpLib::PortAndVlanId&) override { ++count; }
  unsigned count = 0;
};

TEST(SmValues, UsersOfASharedEntryAreCounted) {
  const Vane::Ptr<VifVlanInfo> info(new VifVlanInfo(XpLib::PortVlanIvifTableKey((5u << 16) | 10)));
  const Vane::Ptr<UserWatcher> watcher(new UserWatcher);
  watcher->notifierIs(info);
  EXPECT_EQ(info->tableKey().value(), 327690u);
  info->portVlanIs(test::pairOf("Ethernet1", 10), true);
  info->portVlanIs(test::pairOf("Ethernet1", 10), true);
  info->portVlanIs(test::pairOf("Ethernet2", 10), true);
  EXPECT_EQ(info->portVlanCount(), 2u);
  EXPECT_EQ(watcher->count, 2u);
  info->portVlanDel(test::pairOf("Ethernet3", 10));
  info->portVlanDel(test::pairOf("Ethernet1", 10));
  EXPECT_EQ(info->portVlanCount(), 1u);
  EXPECT_EQ(watcher->count, 3u);
  info->portVlanDelAll();
  EXPECT_EQ(info->portVlanCount(), 0u);
}

TEST(SmValues, TableKeysAreComputedIn32Bits) {
  const auto key = [](Vane::U32 vif, unsigned vlanNumber) {
    return portVlanIvifTableKey(XpVif::VifId(vif), vlan(vlanNumber)).value();
  };
  EXPECT_EQ(key(5, 10), 0x0005000Au);
  EXPECT_EQ(key(32768, 1), 0x80000001u);
  EXPECT_EQ(key(65535, 4094), 0xFFFF0FFEu);
  EXPECT_EQ(key(0xFFFFFFFF, 4094), 0xFFFF0FFEu); // no VIF shares the key of VIF 65535
}

TEST(SmValues, AnIndexIsRememberedBothWays) {
  test::MachineInputs inputs;
  const auto& map = inputs.xpcsd->portVlanIvifKeyAndIndexMap();
  const auto key = [](unsigned vlanNumber, Vane::U32 vif) {
    return XpAclVlanVifKey(vlan(vlanNumber), XpVif::VifId(vif));
  };
  map->newKeyAndIndexList(key(10, 5), {7, 8});
  EXPECT_EQ(inputs.indexMaps(), "portVlan 10/5 -> 7\nportVlan 7 -> 10/5\n");
  map->keyDel(key(10, 6));
  EXPECT_EQ(inputs.indexMaps(), "portVlan 10/5 -> 7\nportVlan 7 -> 10/5\n");
  // Another chip uses the same index for its own key: the way back is the newer one's and stays its.
  map->newKeyAndIndexList(key(10, 6), {7});
  EXPECT_EQ(inputs.indexMaps(), "portVlan 10/5 -> 7\nportVlan 10/6 -> 7\nportVlan 7 -> 10/6\n");
  map->keyDel(key(10, 5));
  EXPECT_EQ(inputs.indexMaps(), "portVlan 10/6 -> 7\nportVlan 7 -> 10/6\n");
  map->keyDel(key(10, 6));
  EXPECT_EQ(inputs.indexMaps(), "");
  EXPECT_EQ(map->count(), 0u);
}

TEST(SmValues, AnIndexListIsNeverEmpty) {
  EXPECT_NE(test::exactDeathOf([] {
              test::MachineInputs inputs;
              inputs.xpcsd->egressVlanVifKeyAndIndexMap()->newKeyAndIndexList(XpAclVlanVifKey(), {});
            }).find("Assertion \"numIndices != 0\" failed."),
            std::string::npos);
}

TEST(SmValues, UnmappedInterfacesHaveTheDefaultIndexKey) {
  const auto mapping = aclIdMappingFactory();
  const HwAclIndexKey none = mapping->intfDirectionToIndexKey(test::in("Ethernet1"));
  for (unsigned slot = 0; slot < HwAclIndexKey::numSlots; ++slot) {
    EXPECT_EQ(none.slot(slot).name(), Vane::String("aclGroupDefault"));
    EXPECT_EQ(none.slot(slot).generation(), 0u);
  }
  EXPECT_TRUE(none.isDefault());
  EXPECT_EQ(mapping->keyToAclIdMapping(none).value(), 0);
  EXPECT_EQ(mapping->intfDirectionToIndexKeyCount(), 0u);
  // The default key has an id only when it was given one.
  mapping->keyToAclIdMappingIs(none, AclId(9));
  EXPECT_EQ(mapping->keyToAclIdMapping(none).value(), 9);
  // A mapped interface reads back its key in its own direction only, and the default once it is deleted.
  mapping->intfDirectionToIndexKeyIs(test::in("Ethernet1"), test::indexKey(6));
  EXPECT_TRUE(mapping->intfDirectionToIndexKey(test::in("Ethernet1")) == test::indexKey(6));
  EXPECT_TRUE(mapping->intfDirectionToIndexKey(test::out("Ethernet1")).isDefault());
  mapping->intfDirectionToIndexKeyDel(test::in("Ethernet1"));
  EXPECT_TRUE(mapping->intfDirectionToIndexKey(test::in("Ethernet1")).isDefault());
}

} // namespace
