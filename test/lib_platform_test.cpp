#include "test/HelperUnderTest.h"

#include "XpAclTcam/XpAclAgentCommon.h"
#include "XpLib/KeyAndIndexMap.h"
#include "XpLib/OvIaclKey.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

// The agent's layers that the helper stands on: key builder, data word, partition, counters, ids, maps.

namespace {

using test::deathOf;
using XpAcl::addIaclKeyField;
using XpAcl::OvIaclKey;
using XpAcl::readIaclKeyField;

std::string hex(const uint8_t* bytes, unsigned count) {
  std::string text;
  for (unsigned i = 0; i < count; ++i) {
    text += Vane::format("%02x", bytes[i]).charPtr();
  }
  return text;
}

std::string field(const OvIaclKey& key, uint8_t fieldId, unsigned length) {
  uint8_t value[16];
  uint8_t mask[16];
  readIaclKeyField(key.sdkKey.keyType, fieldId, key, length, value, mask);
  return hex(value, length) + "/" + hex(mask, length);
}

void add(OvIaclKey& key, uint8_t fieldId, std::initializer_list<uint8_t> value,
         std::initializer_list<uint8_t> mask) {
  addIaclKeyField(key.sdkKey.keyType, fieldId, value.begin(), mask.begin(),
                  static_cast<unsigned>(value.size()), key);
}

TEST(LibPlatform, KeysOfFields) {
  OvIaclKey key(XpXdk::IACL_V4_KEY_TYPE);
  EXPECT_EQ(key.sdkKey.keyType, 5u);
  key.finalize();
  EXPECT_EQ(key.sdkKey.numFields, 0);
  EXPECT_EQ(field(key, 6, 4), "00000000/ffffffff") << "a field that was never added matches anything";
  add(key, 4, {6}, {0});
  add(key, 2, {0x50, 0}, {0, 0xFF});
  add(key, 4, {17}, {0x0F});
  EXPECT_EQ(key.sdkKey.numFields, 0) << "until it is finalized";
  key.finalize();
  EXPECT_EQ(key.sdkKey.numFields, 2);
  EXPECT_EQ(key.sdkKey.length, 3);
  EXPECT_EQ(key.sdkKey.fields[0].fieldId, 4);
  EXPECT_EQ(field(key, 4, 1), "11/0f") << "a field added again replaces what was there";
  EXPECT_EQ(field(key, 2, 2), "5000/00ff");
  EXPECT_EQ(field(key, 3, 2), "0000/ffff");
  key.reinitialize(XpXdk::IACL_MAC_KEY_TYPE);
  EXPECT_EQ(key.sdkKey.keyType, 7u);
  key.finalize();
  EXPECT_EQ(field(key, 4, 6), "000000000000/ffffffffffff");
  add(key, 4, {1, 2, 3, 4, 5, 6}, {0, 0, 0, 0, 0, 0});
  key.clear();
  key.finalize();
  EXPECT_EQ(key.sdkKey.numFields, 0);
}

TEST(LibPlatform, AKeyWithEveryField) {
  OvIaclKey key(XpXdk::IACL_V6_KEY_TYPE);
  const uint8_t value[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  const XpXdk::IaclKeyLayout& layout = *XpXdk::iaclKeyLayout(XpXdk::IACL_V6_KEY_TYPE);
  for (unsigned i = 0; i < layout.numFields; ++i) {
    addIaclKeyField(XpXdk::IACL_V6_KEY_TYPE, layout.fields[i].fieldId, value, value, layout.fields[i].width,
                    key);
  }
  key.finalize();
  EXPECT_EQ(key.sdkKey.length, 41);
  EXPECT_EQ(field(key, 7, 16), "000102030405060708090a0b0c0d0e0f/000102030405060708090a0b0c0d0e0f");
  EXPECT_NE(deathOf([&] { addIaclKeyField(XpXdk::IACL_V4_KEY_TYPE, 0, value, value, 2, key); }), "returned")
      << "a field of another key type";
  EXPECT_NE(deathOf([&] { addIaclKeyField(XpXdk::IACL_V6_KEY_TYPE, 0, value, value, 17, key); }), "returned")
      << "no field is wider than 16 bytes";
}

TEST(LibPlatform, LayoutsAreDense) {
  std::string text;
  for (const XpXdk::IaclKeyLayout& layout : XpXdk::iaclKeyLayouts) {
    unsigned offset = 0;
    text += std::to_string(layout.keyType) + ":";
    for (unsigned i = 0; i < layout.numFields; ++i) {
      EXPECT_EQ(layout.fields[i].fieldId, i);
      EXPECT_EQ(layout.fields[i].offset, offset);
      offset += layout.fields[i].width;
      text += " " + std::to_string(layout.fields[i].width);
    }
    EXPECT_EQ(layout.length, offset);
    text += "\n";
  }
  EXPECT_EQ(text, "5: 2 1 2 2 1 1 4 4\n6: 2 1 2 2 1 1 16 16\n7: 2 2 2 6 6\n");
  EXPECT_EQ(XpXdk::iaclKeyLayout(static_cast<XpXdk::xpIaclKeyType>(4)), nullptr);
  EXPECT_EQ(XpXdk::iaclTable(static_cast<XpXdk::xpIaclType_e>(6)), nullptr);
}

TEST(LibPlatform, DataWord) {
  XpXdk::xpIaclData_t data;
  data.logEnIs(true);
  data.countEnIs(true);
  data.resultIs(2);
  data.cntrIdxIs(0xABCD);
  EXPECT_EQ(data.word(), 0xABCDBu);
  EXPECT_TRUE(XpXdk::xpIaclData_t::fromWord(0xABCDB) == data);
  data.resultIs(5);
  EXPECT_EQ(data.result(), 1u) << "two bits";
  XpAcl::clearIaclData(data);
  EXPECT_EQ(data.word(), 0u);
}

TEST(LibPlatform, PartitionProfile) {
  const auto status = XpLib::tcamPartitionStatusFactory();
  const auto all = [&] {
    std::string text;
    for (const auto test :
         {XpLib::isDbAllocatedForIAclV4, XpLib::isDbAllocatedForIAclV6, XpLib::isDbAllocatedForEAclV4,
          XpLib::isDbAllocatedForEAclV6, XpLib::isDbAllocatedForMacAcl}) {
      text += test(status) ? '1' : '0';
    }
    return text;
  };
  EXPECT_EQ(all(), "11111") << "no profile: every table exists";
  EXPECT_TRUE(XpLib::isDbAllocatedForFeature(12345, status));
  status->featureAllocationIs(64, XpLib::FeatureAllocation(true));
  EXPECT_EQ(all(), "10000");
  EXPECT_FALSE(XpLib::isDbAllocatedForFeature(12345, status));
  status->featureAllocationIs(64, XpLib::FeatureAllocation(false));
  EXPECT_EQ(all(), "00000") << "listed, but without space";
  for (const Vane::U32 feature : {65, 66, 67, 68}) {
    status->featureAllocationIs(feature, XpLib::FeatureAllocation(true));
  }
  EXPECT_EQ(all(), "01111");
  status->featureAllocationDelAll();
  EXPECT_EQ(all(), "11111");
}

TEST(LibPlatform, CounterHelper) {
  test::RecordingSdk sdk;
  const auto dal = Scribe::dalFactory(sdk.acm());
  const auto acm = XpLib::acmHelperFactory(XpXdk::XpDeviceId(2), XpXdk::acmClientIngressAcl,
                                           XpXdk::acmConfigModeCounter, 4u, dal);
  sdk.counterIs(XpXdk::acmClientIngressAcl, 15, 1000);
  EXPECT_EQ(acm->getAcmIdx(15, "web:1.0"), 15u);
  EXPECT_EQ(acm->getAcmIdx(15, "mail:1.0"), 4u) << "in use: the base index";
  EXPECT_STREQ(acm->acmIdx(15).charPtr(), "web:1.0");
  EXPECT_EQ(acm->getCounterValue(15), 0u) << "from when it was taken";
  sdk.counterIs(XpXdk::acmClientIngressAcl, 15, 1007);
  EXPECT_EQ(acm->getCounterValue(15), 7u);
  EXPECT_EQ(acm->getCounterValue(15), 0u);
  sdk.counterIs(XpXdk::acmClientIngressAcl, 15, ~Vane::U64{0});
  acm->getCounterValue(15);
  sdk.counterIs(XpXdk::acmClientIngressAcl, 15, 4);
  EXPECT_EQ(acm->getCounterValue(15), 5u) << "a counter that wrapped";
  acm->freeAcmIdx(99);
  acm->freeAcmIdx(15);
  acm->freeAcmIdx(15);
  EXPECT_EQ(acm->getAcmIdx(15, "mail:1.0"), 15u);
  EXPECT_EQ(sdk.takeCalls().substr(0, 21), "readCounter d2 c39 15");
  EXPECT_GT(dal->numReads(), 0u);
  EXPECT_EQ(Scribe::dalFactory(static_cast<XpXdk::xpAcmMgr*>(nullptr))
                ->readCounter(0, XpXdk::acmClientIngressAcl, 1),
            0u);
  sdk.failCall(1, 4);
  EXPECT_EQ(dal->readCounter(2, XpXdk::acmClientIngressAcl, 15), 0u) << "a counter that the chip refuses";
}

using Map = XpAcl::VlanVifIndexMap;

XpAcl::XpAclVlanVifKey key(unsigned vlan, unsigned vif) {
  return XpAcl::XpAclVlanVifKey(Bridging::VlanId(vlan), XpVif::VifId(vif));
}

TEST(LibPlatform, KeysAndIndexes) {
  const Vane::Ptr<Map> map(new Map);
  EXPECT_NE(deathOf([&] { map->newKeyAndIndexList(key(1, 1), {}); }).find("Assertion \"numIndices != 0\""),
            std::string::npos);
  EXPECT_EQ(map->index(key(1, 1)), nullptr);
  map->newKeyAndIndexList(key(1, 1), {7, 8});
  ASSERT_NE(map->index(key(1, 1)), nullptr);
  EXPECT_EQ(*map->index(key(1, 1)), 7u) << "the first of its indexes";
  EXPECT_EQ(map->key(8), nullptr);
  map->newKeyAndIndexList(key(2, 2), {7});
  EXPECT_TRUE(*map->key(7) == key(2, 2));
  map->keyDel(key(1, 1));
  EXPECT_EQ(map->index(key(1, 1)), nullptr);
  ASSERT_NE(map->key(7), nullptr) << "it points to the other key";
  map->keyDel(key(1, 1));
  map->keyDel(key(2, 2));
  EXPECT_EQ(map->key(7), nullptr);
  EXPECT_EQ(map->count(), 0u);
}

// Keys stand in pages of 64 indexes; the chip may number its entries as it likes.
TEST(LibPlatform, IndexesFarApart) {
  const Vane::Ptr<Map> map(new Map);
  const auto text = [&] {
    std::map<Vane::U32, unsigned> members;
    for (const auto& member : map->indexToKey().all()) {
      members[member.key()] = member.value().vlanId().value();
    }
    std::string lines;
    for (const auto& [index, vlan] : members) {
      lines += std::to_string(index) + ":" + std::to_string(vlan) + " ";
    }
    return lines;
  };
  const Vane::U32 last = ~Vane::U32{0};
  unsigned vlan = 1;
  for (const Vane::U32 index : {Vane::U32{0}, Vane::U32{63}, Vane::U32{64}, Vane::U32{6400}, last}) {
    map->newKeyAndIndexList(key(vlan++, 1), {index});
  }
  EXPECT_EQ(text(), "0:1 63:2 64:3 6400:4 4294967295:5 ");
  EXPECT_EQ(map->indexToKey().size(), 5u);
  EXPECT_EQ(map->key(1), nullptr);
  EXPECT_EQ(map->key(6401), nullptr);
  ASSERT_NE(map->key(last), nullptr);
  map->keyDel(key(3, 1));
  EXPECT_EQ(map->key(64), nullptr) << "the last one of its page";
  map->newKeyAndIndexList(key(9, 9), {65});
  map->keyDel(key(1, 1));
  EXPECT_EQ(text(), "63:2 65:9 6400:4 4294967295:5 ");
}

TEST(LibPlatform, NumbersThatExpire) {
  class Clock : public Plex::ActivityClock {
  public:
    double seconds() const override { return now; }
    double now = 0;
  };
  const Vane::Ptr<Clock> clock(new Clock);
  const Vane::Ptr<Plex::NumAllocator> numbers(new Plex::NumAllocator(clock));
  numbers->configIs(Plex::Range(1, 2), 10);
  EXPECT_EQ(numbers->allocate(), 1u);
  EXPECT_TRUE(numbers->take(2));
  EXPECT_FALSE(numbers->take(2));
  EXPECT_FALSE(numbers->take(3));
  EXPECT_EQ(numbers->allocate(), std::nullopt);
  numbers->release(1);
  numbers->release(1);
  clock->now = 9;
  EXPECT_EQ(numbers->allocate(), std::nullopt) << "not before it has expired";
  clock->now = 10;
  EXPECT_EQ(numbers->allocate(), 1u);
  EXPECT_TRUE(numbers->inUse(1));
  EXPECT_EQ(numbers->numFree(), 0u);
}

TEST(LibPlatform, IndexKeys) {
  XpAcl::HwAclIndexKey index;
  EXPECT_TRUE(index.isDefault());
  for (unsigned slot = 0; slot < 10; ++slot) {
    EXPECT_STREQ(index.slot(slot).name().charPtr(), "aclGroupDefault");
    XpAcl::HwAclIndexKey other;
    other.slotIs(slot, test::aclKey("web"));
    EXPECT_FALSE(other.isDefault());
    EXPECT_TRUE(other.slot(slot) == test::aclKey("web"));
    EXPECT_TRUE(other.slot((slot + 1) % 10) == Plex::AclKey());
  }
  EXPECT_NE(deathOf([&] { index.slot(10); }), "returned");
}

TEST(LibPlatform, PairsOfInterfaces) {
  const Ovnet::IntfId eth(Ovnet::IntfId::ethernet, 1);
  const Ovnet::IntfId vlan(Ovnet::IntfId::vlan, 1);
  EXPECT_TRUE(Plex::IntfPairKey(eth, vlan).intf() == eth);
  EXPECT_TRUE(Plex::IntfPairKey(Ovnet::IntfId(), vlan).intf() == vlan);
  EXPECT_TRUE(Plex::IntfPairKey(eth, Ovnet::IntfId()).intf() == eth);
}

TEST(LibPlatform, UnitErrors) {
  test::HelperUnderTest h({.hwInit = false});
  h->publishUnitErrorIs("full", true);
  h->unitErrorIs("full", Plex::aclCreateErrorTcamExhaustion);
  EXPECT_STREQ(h->unitErrorText().charPtr(), "full");
  EXPECT_EQ(h->unitErrorCode(), 2u);
  EXPECT_TRUE(h->unitErrorPublished());
  h->publishUnitErrorIs("full", false);
  EXPECT_STREQ(h->unitErrorText().charPtr(), "");
  EXPECT_FALSE(h->unitErrorPublished());
}

TEST(LibPlatform, InstalledSdk) {
  XpXdk::xpAclPl* const before = XpXdk::xpAclPl::instance();
  {
    test::RecordingSdk outer;
    XpXdk::xpAclPl* const installed = XpXdk::xpAclPl::instance();
    EXPECT_NE(installed, before);
    { test::RecordingSdk inner; }
    EXPECT_EQ(XpXdk::xpAclPl::instance(), installed);
  }
  EXPECT_EQ(XpXdk::xpAclPl::instance(), before);
  const uint32_t first = XpXdk::getNewPlMgrId();
  EXPECT_EQ(XpXdk::getNewPlMgrId(), first + 1);
}

} // namespace
