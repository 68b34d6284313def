#include "sim/Faults.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "XpXdk/Managers.h"

namespace {

using namespace XpXdk;

sim::DeviceConfig smallChip() {
  sim::DeviceConfig config;
  config.tcamRows = {8, 8, 8, 8, 8};
  return config;
}

class FaultsTest : public testing::Test {
protected:
  FaultsTest() : system(smallChip()), faulty(system), installed(faulty.install()) {
    system.logEnabledIs(true);
  }

  // One call of every operation; the statuses as text.
  std::string scenario() {
    std::string text;
    const auto call = [&](XP_STATUS status) { text += std::to_string(status) + " "; };
    xpIaclMgr* iacl = xpAclPl::instance()->iaclMgr(1);
    xpIaclkeyFieldList key;
    xpIaclData_t data;
    uint32_t number = 0;
    uint64_t count = 0;
    std::vector<uint32_t> indexes;
    call(iacl->writeKeyMask(0, TACL_V4_IACL, 0, true, &key));
    call(iacl->writeData(0, TACL_V4_IACL, 0, 0, &data));
    call(iacl->setEntryValid(0, TACL_V4_IACL, 0, true));
    call(iacl->readEntry(0, TACL_V4_IACL, 0, number, &key, &data, 0));
    call(iacl->getNumOfEntry(0, TACL_V4_IACL, number));
    call(xpAclPl::instance()->acmMgr()->readCounter(0, acmClientIngressAcl, 0, count));
    xpPortConfigMgr* ports = xpIfPl::instance()->portConfigMgr();
    xpPortConfigEntry port;
    call(ports->writeEntry(0, 0, &port));
    call(ports->readEntry(0, 0, &port, 0));
    call(ports->getNumOfEntry(0, number));
    xpPortVlanIvifMgr* portVlan = xpIfPl::instance()->portVlanIvifMgr();
    xpPortVlanIvifEntry pair;
    call(portVlan->addEntry(0, 0, &pair, indexes));
    call(portVlan->writeEntry(0, 0, 0, &pair));
    call(portVlan->readEntry(0, 0, &pair, 0));
    call(portVlan->removeEntry(0, 0));
    call(portVlan->getNumOfEntry(0, number));
    xpEgressBdEvifMgr* egress = xpIfPl::instance()->egressBdEvifMgr();
    xpEgressBdEvifEntry bd;
    call(egress->addEntry(0, &bd, indexes));
    call(egress->writeEntry(0, 0, &bd));
    call(egress->lookup(0, &bd, number));
    call(egress->readEntry(0, 0, &bd, 0));
    call(egress->removeEntry(0, 0));
    call(egress->getNumOfEntry(0, number));
    return text;
  }

  sim::System system;
  sim::FaultySdk faulty;
  sim::System::Installation installed;
};

const std::string allGood = "0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 ";

TEST_F(FaultsTest, WithoutAFaultCallsPassThrough) {
  EXPECT_EQ(scenario(), allGood);
  EXPECT_EQ(system.numCalls(), 20u);
  EXPECT_EQ(faulty.numCalls(), 20u);
  EXPECT_FALSE(faulty.fired());
  EXPECT_EQ(xpDeviceMgr::instance()->device(0), system.device(0));
}

// Every call gets its turn: the n-th answers the fault, is not executed, and the ones before it are good.
TEST_F(FaultsTest, EveryCallGetsItsTurn) {
  uint64_t turn = 1;
  for (;; ++turn) {
    system.deviceDel(0);
    system.deviceAdd(0, smallChip());
    const uint64_t callsBefore = system.numCalls();
    faulty.faultIs({turn, 77});
    const std::string statuses = scenario();
    if (!faulty.fired()) {
      EXPECT_EQ(statuses, allGood);
      break;
    }
    EXPECT_EQ(statuses.substr(0, 2 * turn + 1), allGood.substr(0, 2 * (turn - 1)) + "77 ");
    EXPECT_EQ(system.numCalls() - callsBefore, 19u);
  }
  EXPECT_EQ(turn, 21u);
}

TEST_F(FaultsTest, WritesOnly) {
  faulty.faultIs({.call = 4, .status = 9, .writesOnly = true});
  EXPECT_EQ(scenario(), "0 0 0 0 0 0 9 0 0 0 0 0 0 0 0 0 0 0 0 0 ");
  EXPECT_EQ(faulty.numCalls(), 10u);
}

TEST_F(FaultsTest, OneOperationOnly) {
  faulty.faultIs({.call = 1, .status = 41, .only = sim::Op::egressLookup});
  EXPECT_EQ(scenario(), "0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 41 0 0 0 ");
}

TEST_F(FaultsTest, ExecutedAndAnsweredWithAFault) {
  xpIaclMgr* iacl = xpAclPl::instance()->iaclMgr(1);
  faulty.faultIs({.call = 1, .status = 5, .execute = true});
  EXPECT_EQ(iacl->setEntryValid(0, TACL_V4_IACL, 3, true), 5);
  EXPECT_TRUE(system.device(0)->tcam(TACL_V4_IACL)->valid(3));
  faulty.faultIs({.call = 1, .status = 5});
  EXPECT_EQ(iacl->setEntryValid(0, TACL_V4_IACL, 4, true), 5);
  EXPECT_FALSE(system.device(0)->tcam(TACL_V4_IACL)->valid(4));
  // It fires once.
  EXPECT_EQ(iacl->setEntryValid(0, TACL_V4_IACL, 4, true), 0);
}

TEST_F(FaultsTest, WrappersStack) {
  sim::FaultySdk outer(faulty.deviceMgr(), faulty.aclPl(), faulty.ifPl());
  const sim::System::Installation installedOuter = outer.install();
  faulty.faultIs({.call = 2, .status = 5});
  outer.faultIs({.call = 1, .status = 6});
  EXPECT_EQ(scenario().substr(0, 8), "6 0 5 0 ");
}

} // namespace
