#include "sim/System.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "XpXdk/Managers.h"
#include "sim/PortTables.h"
#include "test/Random.h"

// The simulated chip as the SDK's callers see it. The call log is compared whole, statuses included.

namespace {

using namespace XpXdk;

// Adds a field to a key list behind those that it has.
void add(xpIaclkeyFieldList& key, uint8_t fieldId, std::vector<uint8_t> value, std::vector<uint8_t> mask) {
  const auto width = static_cast<uint8_t>(value.size());
  key.fields[key.numFields++] = {fieldId, width, key.length};
  std::copy(value.begin(), value.end(), key.value.begin() + key.length);
  std::copy(mask.begin(), mask.end(), key.mask.begin() + key.length);
  key.length = static_cast<uint8_t>(key.length + width);
}

xpIaclkeyFieldList v4Key() {
  xpIaclkeyFieldList key;
  add(key, IACL_IP_ACL_ID, {1, 0}, {0, 0});
  add(key, IACL_IP_FLAGS, {0}, {0xFE});
  return key;
}

xpIaclData_t forwardAndCount(uint16_t counter) {
  xpIaclData_t data;
  data.countEnIs(true);
  data.resultIs(1);
  data.cntrIdxIs(counter);
  return data;
}

class SdkTest : public testing::Test {
protected:
  SdkTest() : system(config()), installed(system.install()) { system.logEnabledIs(true); }

  static sim::DeviceConfig config() {
    sim::DeviceConfig config;
    config.tcamRows = {100, 50, 0, 10, 20};
    config.numTableCopies = 2;
    config.numPorts = 4;
    config.portVlanCapacity = 3;
    config.egressCapacity = 2;
    return config;
  }
  std::string takeLog() {
    const std::string text = system.logText();
    system.logClear();
    return text;
  }
  // "0 invalid" and the like, read back through the SDK.
  std::string readBack(xpIaclType_e table, uint32_t row, uint8_t copy = 0) {
    uint32_t isValid = 7;
    xpIaclkeyFieldList key;
    key.keyType = iaclTable(table)->keyType;
    xpIaclData_t data;
    const XP_STATUS status = iacl->readEntry(0, table, row, isValid, &key, &data, copy);
    if (status != statusOk) {
      return "status " + std::to_string(status);
    }
    std::ostringstream text;
    text << (isValid ? "valid" : "invalid");
    for (unsigned i = 0; i < key.numFields; ++i) {
      const IaclFieldLayout& f = key.fields[i];
      text << " " << unsigned{f.fieldId} << ":";
      for (unsigned b = 0; b < f.width; ++b) {
        text << " " << unsigned{key.value[f.offset + b]} << "/" << unsigned{key.mask[f.offset + b]};
      }
    }
    text << " " << sim::dataText(data);
    return text.str();
  }

  sim::System system;
  sim::System::Installation installed;
  xpIaclMgr* iacl = xpAclPl::instance()->iaclMgr(1);
  xpAcmMgr* acm = xpAclPl::instance()->acmMgr();
  xpPortConfigMgr* ports = xpIfPl::instance()->portConfigMgr();
  xpPortVlanIvifMgr* portVlan = xpIfPl::instance()->portVlanIvifMgr();
  xpEgressBdEvifMgr* egress = xpIfPl::instance()->egressBdEvifMgr();
};

TEST_F(SdkTest, WritesAreLoggedAndReadBack) {
  const xpIaclkeyFieldList key = v4Key();
  const xpIaclData_t data = forwardAndCount(11);
  EXPECT_EQ(iacl->writeData(0, TACL_V4_IACL, 0, 5, &data), 0);
  EXPECT_EQ(iacl->writeKeyMask(0, TACL_V4_IACL, 5, true, &key), 0);
  EXPECT_EQ(iacl->setEntryValid(0, TACL_V4_IACL, 5, true), 0);
  EXPECT_EQ(takeLog(), "writeData d0 TACL_V4_IACL 5 copy 0 log=0 count=1 result=1 cntr=11\n"
                       "writeKeyMask d0 TACL_V4_IACL 5 aclId=0001/0000 flags=00/fe\n"
                       "setEntryValid d0 TACL_V4_IACL 5 1\n");
  EXPECT_EQ(
      readBack(TACL_V4_IACL, 5),
      "valid 0: 1/0 0/0 1: 0/254 2: 0/255 0/255 3: 0/255 0/255 4: 0/255 5: 0/255 6: 0/255 0/255 0/255 0/255 "
      "7: 0/255 0/255 0/255 0/255 log=0 count=1 result=1 cntr=11");
  EXPECT_EQ(readBack(TACL_V4_IACL, 5, 1).substr(0, 5), "valid");
  EXPECT_NE(readBack(TACL_V4_IACL, 5, 1).find("log=0 count=0 result=0 cntr=0"), std::string::npos);
  EXPECT_EQ(takeLog(), "readEntry d0 TACL_V4_IACL 5 copy 0\nreadEntry d0 TACL_V4_IACL 5 copy 1\n"
                       "readEntry d0 TACL_V4_IACL 5 copy 1\n");
  EXPECT_EQ(system.device(0)->tablesText(), "TACL_V4_IACL 5 valid aclId=0001/0000 flags=00/fe data log=0 "
                                            "count=1 result=1 cntr=11 data log=0 count=0 "
                                            "result=0 cntr=0\n");
}

TEST_F(SdkTest, AKeyIsReplacedAsAWhole) {
  xpIaclkeyFieldList other;
  add(other, IACL_IP_PROTO, {6}, {0});
  const xpIaclkeyFieldList key = v4Key();
  iacl->writeKeyMask(0, TACL_V4_IACL, 5, true, &key);
  iacl->writeKeyMask(0, TACL_V4_IACL, 5, true, &other);
  EXPECT_EQ(sim::rowText(*system.device(0), TACL_V4_IACL, 5).substr(0, 23), "5 invalid proto=06/00 d");
}

TEST_F(SdkTest, RowsNeverWritten) {
  EXPECT_EQ(
      readBack(TACL_MAC_ACL, 19),
      "invalid 0: 0/255 0/255 1: 0/255 0/255 2: 0/255 0/255 3: 0/255 0/255 0/255 0/255 0/255 0/255 4: 0/255 "
      "0/255 0/255 0/255 0/255 0/255 log=0 count=0 result=0 cntr=0");
}

TEST_F(SdkTest, RefusalsOfTcamCalls) {
  const xpIaclkeyFieldList key = v4Key();
  const xpIaclData_t data;
  const std::string before = system.device(0)->tablesText();
  const auto keyStatus = [&](const xpIaclkeyFieldList& bad) {
    return iacl->writeKeyMask(0, TACL_V4_IACL, 5, true, &bad);
  };
  // Devices and tables.
  EXPECT_EQ(iacl->setEntryValid(1, TACL_V4_IACL, 0, true), statusInvalidDevice);
  EXPECT_EQ(iacl->setEntryValid(64, TACL_V4_IACL, 0, true), statusInvalidDevice);
  EXPECT_EQ(iacl->setEntryValid(0, static_cast<xpIaclType_e>(6), 0, true), statusInvalidTable);
  // Rows; a table of size 0 has none to be out of.
  EXPECT_EQ(iacl->setEntryValid(0, TACL_V4_IACL, 100, true), statusRowOutOfRange);
  EXPECT_EQ(iacl->setEntryValid(0, TACL_V4_IACL, 0xFFFFFFFF, true), statusRowOutOfRange);
  EXPECT_EQ(iacl->setEntryValid(0, TACL_V4_EACL, 0, true), statusNotPresent);
  EXPECT_EQ(iacl->writeKeyMask(0, TACL_V4_EACL, 0xFFFFFFFF, true, &key), statusNotPresent);
  EXPECT_EQ(iacl->writeData(0, TACL_V4_EACL, 0, 0xFFFFFFFF, &data), statusNotPresent);
  EXPECT_EQ(readBack(TACL_V4_EACL, 0xFFFFFFFF), "status 9");
  // Arguments.
  EXPECT_EQ(iacl->writeKeyMask(0, TACL_V4_IACL, 5, true, nullptr), statusInvalidArgument);
  EXPECT_EQ(iacl->writeKeyMask(0, TACL_V6_IACL, 5, true, &key), statusInvalidArgument);
  EXPECT_EQ(iacl->writeData(0, TACL_V4_IACL, 2, 5, &data), statusInvalidArgument);
  EXPECT_EQ(iacl->writeData(0, TACL_V4_IACL, 0, 5, nullptr), statusInvalidArgument);
  EXPECT_EQ(readBack(TACL_V4_IACL, 5, 2), "status 1");
  // Fields.
  xpIaclkeyFieldList bad = key;
  add(bad, 8, {0}, {0});
  EXPECT_EQ(keyStatus(bad), statusInvalidField);
  bad = key;
  add(bad, IACL_IP_FLAGS, {0}, {0});
  EXPECT_EQ(keyStatus(bad), statusInvalidField);
  bad = key;
  bad.numFields = 9;
  EXPECT_EQ(keyStatus(bad), statusInvalidField);
  bad = key;
  add(bad, IACL_IP_PROTO, {0, 0}, {0, 0});
  EXPECT_EQ(keyStatus(bad), statusInvalidWidth);
  bad = key;
  bad.length = 2;
  EXPECT_EQ(keyStatus(bad), statusInvalidWidth);
  bad = key;
  bad.fields[1].offset = 255;
  EXPECT_EQ(keyStatus(bad), statusInvalidWidth);
  xpIaclkeyFieldList mac;
  mac.keyType = IACL_MAC_KEY_TYPE;
  add(mac, 5, {0}, {0});
  EXPECT_EQ(iacl->writeKeyMask(0, TACL_MAC_ACL, 5, true, &mac), statusInvalidField);
  EXPECT_EQ(system.device(0)->tablesText(), before);
  EXPECT_EQ(sim::rowText(*system.device(0), TACL_V4_IACL, 5).substr(0, 14), "5 invalid data");
}

TEST_F(SdkTest, RefusedCallsAreLoggedWithTheirStatus) {
  iacl->setEntryValid(0, TACL_V4_IACL, 100, false);
  iacl->setEntryValid(3, static_cast<xpIaclType_e>(6), 1, true);
  iacl->writeKeyMask(0, TACL_V4_EACL, 0xFFFFFFFF, true, nullptr);
  EXPECT_EQ(takeLog(), "setEntryValid d0 TACL_V4_IACL 100 0 -> 4\n"
                       "setEntryValid d3 table6 1 1 -> 2\n"
                       "writeKeyMask d0 TACL_V4_EACL 4294967295 null -> 9\n");
}

TEST_F(SdkTest, NumberOfEntriesAndTheSdkLog) {
  uint32_t count = 77;
  EXPECT_EQ(iacl->getNumOfEntry(0, TACL_V6_IACL, count), 0);
  EXPECT_EQ(count, 50u);
  EXPECT_EQ(iacl->getNumOfEntry(0, TACL_V4_EACL, count), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(ports->getNumOfEntry(0, count), 0);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(portVlan->getNumOfEntry(0, count), 0);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(egress->getNumOfEntry(0, count), 0);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(system.sdkLog(), "");
  EXPECT_EQ(ports->getNumOfEntry(64, count), statusInvalidDevice);
  EXPECT_EQ(egress->getNumOfEntry(63, count), statusInvalidDevice);
  EXPECT_EQ(iacl->getNumOfEntry(0, static_cast<xpIaclType_e>(9), count), statusInvalidTable);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(system.sdkLog(), "Invalid device Id 64 specified\n"
                             "The device 63 is not added in primitive manager\n"
                             "The tabletype 9 is not valid\n");
}

TEST_F(SdkTest, Counters) {
  uint64_t count = 0;
  system.device(0)->counterIs(acmClientIngressAcl, 65535, 9);
  EXPECT_EQ(acm->readCounter(0, acmClientIngressAcl, 65535, count), 0);
  EXPECT_EQ(count, 9u);
  EXPECT_EQ(acm->readCounter(0, acmClientIngressAcl, 65535, count), 0);
  EXPECT_EQ(count, 9u); // reading does not clear
  EXPECT_EQ(acm->readCounter(0, acmClientEgressAcl, 65535, count), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(acm->readCounter(0, acmClientEgressAcl, 65536, count), statusRowOutOfRange);
  EXPECT_EQ(acm->readCounter(0, static_cast<xpAcmClient_e>(41), 0, count), statusInvalidArgument);
  EXPECT_EQ(acm->readCounter(9, acmClientEgressAcl, 0, count), statusInvalidDevice);
}

TEST_F(SdkTest, PortConfig) {
  const xpPortConfigEntry entry{7, 3, 1};
  xpPortConfigEntry read{1, 1, 1};
  EXPECT_EQ(ports->readEntry(0, 3, &read, 0), 0);
  EXPECT_EQ(read, xpPortConfigEntry{});
  EXPECT_EQ(ports->writeEntry(0, 3, &entry), 0);
  EXPECT_EQ(ports->readEntry(0, 3, &read, 0), 0);
  EXPECT_EQ(read, entry);
  EXPECT_EQ(ports->writeEntry(0, 4, &entry), statusRowOutOfRange);
  EXPECT_EQ(ports->writeEntry(0, 65535, &entry), statusRowOutOfRange);
  EXPECT_EQ(ports->writeEntry(1, 0, &entry), statusInvalidDevice);
  EXPECT_EQ(ports->writeEntry(0, 0, nullptr), statusInvalidArgument);
  EXPECT_EQ(ports->readEntry(0, 0, &read, 1), statusInvalidArgument);
  const xpPortConfigEntry wide{7, 4, 0};
  EXPECT_EQ(ports->writeEntry(0, 0, &wide), statusInvalidWidth);
  EXPECT_EQ(takeLog(), "portConfigRead d0 3\n"
                       "portConfigWrite d0 3 PAclId=7 aclEnBits=3 macAclEn=1\n"
                       "portConfigRead d0 3\n"
                       "portConfigWrite d0 4 PAclId=7 aclEnBits=3 macAclEn=1 -> 4\n"
                       "portConfigWrite d0 65535 PAclId=7 aclEnBits=3 macAclEn=1 -> 4\n"
                       "portConfigWrite d1 0 PAclId=7 aclEnBits=3 macAclEn=1 -> 2\n"
                       "portConfigWrite d0 0 null -> 1\n"
                       "portConfigRead d0 0 -> 1\n"
                       "portConfigWrite d0 0 PAclId=7 aclEnBits=4 macAclEn=0 -> 6\n");
  EXPECT_EQ(system.device(0)->tablesText(), "portConfig 3 PAclId=7 aclEnBits=3 macAclEn=1\n");
}

TEST_F(SdkTest, PortVlanTable) {
  std::vector<uint32_t> indexes;
  const auto addPair = [&](uint16_t vlan, uint16_t vif) {
    const xpPortVlanIvifEntry entry{vlan, vif, 1, 3};
    return portVlan->addEntry(0, 0, &entry, indexes);
  };
  EXPECT_EQ(addPair(10, 5), 0);
  EXPECT_EQ(addPair(11, 5), 0);
  EXPECT_EQ(addPair(10, 5), statusDuplicateKey);
  EXPECT_EQ(addPair(10, 6), 0);
  EXPECT_EQ(addPair(12, 6), statusTableFull);
  EXPECT_EQ(addPair(4095, 6), statusInvalidArgument);
  EXPECT_EQ(indexes, (std::vector<uint32_t>{0, 1, 2}));
  EXPECT_EQ(portVlan->removeEntry(0, 1), 0);
  EXPECT_EQ(portVlan->removeEntry(0, 1), statusInvalidArgument);
  EXPECT_EQ(portVlan->removeEntry(0, 3), statusRowOutOfRange);
  xpPortVlanIvifEntry entry{10, 5, 9, 1};
  EXPECT_EQ(portVlan->writeEntry(0, 0, 1, &entry), statusInvalidArgument);
  EXPECT_EQ(portVlan->writeEntry(0, 0, 2, &entry), statusDuplicateKey);
  EXPECT_EQ(portVlan->writeEntry(0, 1, 0, &entry), statusInvalidArgument);
  EXPECT_EQ(portVlan->writeEntry(0, 0, 0, &entry), 0);
  xpPortVlanIvifEntry read;
  EXPECT_EQ(portVlan->readEntry(0, 0, &read, 0), 0);
  EXPECT_EQ(read, entry);
  EXPECT_EQ(portVlan->readEntry(0, 1, &read, 0), statusNotFound);
  EXPECT_EQ(read, entry);
  EXPECT_EQ(portVlan->readEntry(0, 3, &read, 0), statusRowOutOfRange);
  EXPECT_EQ(addPair(12, 6), 0);
  EXPECT_EQ(indexes.back(), 1u);
  EXPECT_EQ(system.device(0)->tablesText(), "portVlan 0 vlan=10 ivif=5 routeAclId=9 routeAclEn=1\n"
                                            "portVlan 1 vlan=12 ivif=6 routeAclId=1 routeAclEn=3\n"
                                            "portVlan 2 vlan=10 ivif=6 routeAclId=1 routeAclEn=3\n");
  EXPECT_TRUE(system.device(0)->audit().empty());
}

TEST_F(SdkTest, EgressTable) {
  std::vector<uint32_t> indexes;
  const xpEgressBdEvifEntry entry{10, 5, 1, 1, 0, 2, 0, 1};
  EXPECT_EQ(egress->addEntry(0, &entry, indexes), 0);
  EXPECT_EQ(egress->addEntry(0, &entry, indexes), statusDuplicateKey);
  uint32_t index = 99;
  const xpEgressBdEvifEntry keyOnly{10, 5, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(egress->lookup(0, &keyOnly, index), 0);
  EXPECT_EQ(index, 0u);
  const xpEgressBdEvifEntry absent{10, 6, 0, 0, 0, 0, 0, 0};
  index = 99;
  EXPECT_EQ(egress->lookup(0, &absent, index), statusNotFound);
  EXPECT_EQ(index, 99u);
  EXPECT_EQ(egress->addEntry(0, &absent, indexes), 0);
  const xpEgressBdEvifEntry third{10, 7, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(egress->addEntry(0, &third, indexes), statusTableFull);
  EXPECT_EQ(egress->writeEntry(0, 1, &third), 0);
  const xpEgressBdEvifEntry wide{10, 7, 0, 2, 0, 0, 0, 0};
  EXPECT_EQ(egress->writeEntry(0, 1, &wide), statusInvalidWidth);
  EXPECT_EQ(egress->removeEntry(0, 0), 0);
  EXPECT_EQ(egress->removeEntry(0, 0), statusInvalidArgument);
  EXPECT_EQ(egress->readEntry(0, 0, nullptr, 0), statusInvalidArgument);
  EXPECT_EQ(takeLog(), "egressAdd d0 bd=10 evif=5 ePaclId=1 v4En=1 v6En=0 eRaclId=2 v4En=0 v6En=1\n"
                       "egressAdd d0 bd=10 evif=5 ePaclId=1 v4En=1 v6En=0 eRaclId=2 v4En=0 v6En=1 -> 8\n"
                       "egressLookup d0 bd=10 evif=5 ePaclId=0 v4En=0 v6En=0 eRaclId=0 v4En=0 v6En=0\n"
                       "egressLookup d0 bd=10 evif=6 ePaclId=0 v4En=0 v6En=0 eRaclId=0 v4En=0 v6En=0 -> 41\n"
                       "egressAdd d0 bd=10 evif=6 ePaclId=0 v4En=0 v6En=0 eRaclId=0 v4En=0 v6En=0\n"
                       "egressAdd d0 bd=10 evif=7 ePaclId=0 v4En=0 v6En=0 eRaclId=0 v4En=0 v6En=0 -> 7\n"
                       "egressWrite d0 1 bd=10 evif=7 ePaclId=0 v4En=0 v6En=0 eRaclId=0 v4En=0 v6En=0\n"
                       "egressWrite d0 1 bd=10 evif=7 ePaclId=0 v4En=2 v6En=0 eRaclId=0 v4En=0 v6En=0 -> 6\n"
                       "egressRemove d0 0\n"
                       "egressRemove d0 0 -> 1\n"
                       "egressRead d0 0 -> 1\n");
  EXPECT_TRUE(system.device(0)->audit().empty());
}

TEST_F(SdkTest, HooksSeeTheChipBeforeAndAfterEachWrite) {
  system.logEnabledIs(false);
  std::string seen;
  const auto look = [&](const char* when) {
    return [this, &seen, when](const sim::Call& call) {
      seen += std::string(when) + " " + call.text() + ": " +
              std::to_string(system.device(0)->tcam(TACL_V4_IACL)->numValid()) + " valid\n";
    };
  };
  system.beforeWriteIs(look("before"));
  system.afterWriteIs(look("after"));
  iacl->setEntryValid(0, TACL_V4_IACL, 5, true);
  iacl->setEntryValid(0, TACL_V4_IACL, 100, true);
  readBack(TACL_V4_IACL, 5);
  EXPECT_EQ(seen, "before setEntryValid d0 TACL_V4_IACL 5 1: 0 valid\n"
                  "after setEntryValid d0 TACL_V4_IACL 5 1: 1 valid\n"
                  "before setEntryValid d0 TACL_V4_IACL 100 1: 1 valid\n"
                  "after setEntryValid d0 TACL_V4_IACL 100 1 -> 4: 1 valid\n");
  EXPECT_EQ(takeLog(), "");
  EXPECT_EQ(system.numCalls(), 3u);
  EXPECT_EQ(system.numWrites(), 2u);
}

TEST_F(SdkTest, InstallationsNest) {
  xpAclPl* const outer = xpAclPl::instance();
  {
    sim::System other(config());
    const sim::System::Installation inner = other.install();
    EXPECT_NE(xpAclPl::instance(), outer);
    EXPECT_EQ(xpDeviceMgr::instance()->device(0), other.device(0));
  }
  EXPECT_EQ(xpAclPl::instance(), outer);
  EXPECT_EQ(xpDeviceMgr::instance()->device(0), system.device(0));
}

TEST_F(SdkTest, DevicesComeAndGo) {
  EXPECT_EQ(xpDeviceMgr::instance()->device(0)->tableProfile()->numTableCopies, 2);
  EXPECT_EQ(xpDeviceMgr::instance()->device(5), nullptr);
  system.deviceAdd(5, config());
  EXPECT_EQ(iacl->setEntryValid(5, TACL_V4_IACL, 1, true), 0);
  EXPECT_FALSE(system.device(0)->tcam(TACL_V4_IACL)->valid(1));
  system.deviceDel(5);
  EXPECT_EQ(iacl->setEntryValid(5, TACL_V4_IACL, 1, true), statusInvalidDevice);
  // A chip that returns is empty.
  EXPECT_EQ(system.deviceAdd(5, config()).tablesText(), "");
}

// Entries come and go at random; the lowest free index is always the next.
TEST(KeyedTable, LowestFreeIndexAtRandom) {
  test::Random random(test::Random::seed("LowestFreeIndexAtRandom"));
  sim::EgressTable table(20);
  std::vector<bool> used(20);
  for (int step = 0; step < 5000; ++step) {
    if (random.below(100) < 55) {
      xpEgressBdEvifEntry entry;
      entry.egressBd = static_cast<uint16_t>(random.below(30));
      const bool known = table.find(sim::keyOf(entry)) != nullptr;
      const auto free = std::find(used.begin(), used.end(), false);
      uint32_t index = 99;
      const XP_STATUS status = table.add(entry, index);
      ASSERT_EQ(status, known ? statusDuplicateKey : free == used.end() ? statusTableFull : statusOk);
      if (status == statusOk) {
        ASSERT_EQ(index, static_cast<uint32_t>(free - used.begin()));
        used[index] = true;
      }
    } else {
      const uint32_t index = random.below(20);
      ASSERT_EQ(table.remove(index), used[index] ? statusOk : statusInvalidArgument);
      used[index] = false;
    }
    ASSERT_EQ(table.audit(), nullptr);
    ASSERT_EQ(table.used(), static_cast<uint32_t>(std::count(used.begin(), used.end(), true)));
  }
}

} // namespace
