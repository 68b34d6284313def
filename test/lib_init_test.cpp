#include "test/HelperUnderTest.h"

#include <gtest/gtest.h>

#include <string>

// The helper object and hardware initialisation: call sequences whole, texts of failures exact.

namespace {

using namespace XpAcl;
using test::deathOf;
using test::HelperOptions;
using test::HelperUnderTest;

HelperOptions uninitialised(HelperOptions options = {}) {
  options.hwInit = false;
  return options;
}

std::string capabilities(HelperUnderTest& h) {
  const auto can = h->capabilities();
  std::string text = "flags=" + std::to_string(can->supportedTcpFlags());
  const auto add = [&](bool on, const char* name) { text += on ? std::string(" ") + name : ""; };
  add(can->ipIngressAclSupported(), "ipIn");
  add(can->ipEgressAclSupported(), "ipOut");
  add(can->macAclSupported(), "mac");
  add(can->ip6IngressAclSupported(), "ip6In");
  add(can->ip6EgressAclSupported(), "ip6Out");
  add(can->dscpFilterSupported(), "dscp");
  return text + " ip6Capability=" + std::to_string(can->ip6Capability()) +
         (h->needToInstallIcmp6NeighborDiscoveryRules() ? " nd" : "");
}

TEST(LibInit, OneTable) {
  HelperUnderTest h(uninitialised({.rows = {{ingressV4, 4}}}));
  EXPECT_EQ(h->iaclMgr(), nullptr);
  EXPECT_EQ(h->numTableCopies(), 0);
  h->hwInit();
  EXPECT_EQ(h.sdk.takeCalls(), "setEntryValid d0 TACL_V4_IACL 0 0\n"
                               "setEntryValid d0 TACL_V4_IACL 1 0\n"
                               "setEntryValid d0 TACL_V4_IACL 2 0\n"
                               "setEntryValid d0 TACL_V4_IACL 3 0\n"
                               "writeKeyMask d0 TACL_V4_IACL 3 0=0000/0000\n"
                               "writeData d0 TACL_V4_IACL t0 3 log=0 en=0 res=0 cnt=0\n"
                               "setEntryValid d0 TACL_V4_IACL 3 1\n");
  EXPECT_EQ(h.pool(ingressV4), "{0-2}");
  for (const TcamType other : {ingressV6, egressV4, egressV6, ingressMac}) {
    EXPECT_EQ(h.pool(other), "no pool");
  }
  EXPECT_NE(h->iaclMgr(), nullptr);
  EXPECT_EQ(h->numTableCopies(), 1);
  EXPECT_EQ(h.audit(), "");
}

TEST(LibInit, AllTablesInAscendingOrderWithTwoCopies) {
  HelperOptions options = test::allTables(1);
  options.copies = 2;
  options.device = 3;
  HelperUnderTest h(uninitialised(options));
  h->hwInit();
  std::string expected;
  const char* const names[] = {"TACL_V4_IACL", "TACL_V6_IACL", "TACL_V4_EACL", "TACL_V6_EACL",
                               "TACL_MAC_ACL"};
  const char* const keys[] = {"0=0000/0000", "0=0000/0000", "0=0000/0000", "0=0000/0000", "1=0000/0000"};
  for (unsigned i = 0; i < 5; ++i) {
    const std::string table = std::string(" d3 ") + names[i];
    expected += "setEntryValid" + table + " 0 0\n";
    expected += "writeKeyMask" + table + " 0 " + keys[i] + "\n";
    expected += "writeData" + table + " t0 0 log=0 en=0 res=0 cnt=0\n";
    expected += "writeData" + table + " t1 0 log=0 en=0 res=0 cnt=0\n";
    expected += "setEntryValid" + table + " 0 1\n";
  }
  EXPECT_EQ(h.sdk.takeCalls(), expected);
  EXPECT_EQ(h.pool(ingressMac), "{}");
  EXPECT_EQ(h->numTableCopies(), 2);
}

TEST(LibInit, LastOfManyRowsIsTheDefaultEntry) {
  HelperUnderTest h(uninitialised({.rows = {{ingressV4, 1024}}, .copies = 2}));
  h->hwInit();
  const std::string calls = h.sdk.takeCalls();
  EXPECT_EQ(calls.substr(calls.find("setEntryValid d0 TACL_V4_IACL 1022 ")),
            "setEntryValid d0 TACL_V4_IACL 1022 0\n"
            "setEntryValid d0 TACL_V4_IACL 1023 0\n"
            "writeKeyMask d0 TACL_V4_IACL 1023 0=0000/0000\n"
            "writeData d0 TACL_V4_IACL t0 1023 log=0 en=0 res=0 cnt=0\n"
            "writeData d0 TACL_V4_IACL t1 1023 log=0 en=0 res=0 cnt=0\n"
            "setEntryValid d0 TACL_V4_IACL 1023 1\n");
  EXPECT_EQ(h.pool(ingressV4), "{0-1022}");
}

// A table of no rows wraps to the last number of 32 bits; the chip answers that it has no such row, and that
// is accepted.
TEST(LibInit, TableOfNoRows) {
  HelperUnderTest h(uninitialised({.rows = {{egressV6, 0}}}));
  h->hwInit();
  EXPECT_EQ(h.sdk.takeCalls(), "writeKeyMask d0 TACL_V6_EACL 4294967295 0=0000/0000\n"
                               "writeData d0 TACL_V6_EACL t0 4294967295 log=0 en=0 res=0 cnt=0\n"
                               "setEntryValid d0 TACL_V6_EACL 4294967295 1\n");
  EXPECT_EQ(h.pool(egressV6), "{}");
  EXPECT_EQ(h.audit(), "");
}

TEST(LibInit, NoTables) {
  HelperUnderTest h(uninitialised({.rows = {}}));
  h->hwInit();
  EXPECT_EQ(h.sdk.takeCalls(), "");
  EXPECT_FALSE(h->acmHelper(Acl::ingress)) << "counter helpers are made on each pass over the tables";
}

TEST(LibInit, CounterHelpers) {
  HelperUnderTest both({.rows = {{ingressV4, 2}, {ingressV6, 2}}});
  const auto in = both->acmHelper(Acl::ingress);
  const auto out = both->acmHelper(Acl::egress);
  ASSERT_TRUE(in && out);
  EXPECT_EQ(in->client(), 39u);
  EXPECT_EQ(out->client(), 40u);
  EXPECT_EQ(in->mode(), 1u);
  EXPECT_EQ(in->baseIndex(), 0u);
  EXPECT_TRUE(in->device() == XpXdk::XpDeviceId(0));
  EXPECT_TRUE(in->hasNotificationActive());
  EXPECT_EQ(both->unusedAcmIndex(), 0u);

  HelperUnderTest ingressOnly({.rows = {{ingressV4, 2}}, .deviceType = 6});
  EXPECT_TRUE(ingressOnly->acmHelper(Acl::ingress));
  EXPECT_FALSE(ingressOnly->acmHelper(Acl::egress));
}

TEST(LibInit, CapabilitiesFollowDeviceTypeAndPartition) {
  const auto of = [](Vane::U32 deviceType, std::map<Vane::U32, bool> partition) {
    HelperUnderTest h({.rows = {}, .deviceType = deviceType, .partition = std::move(partition)});
    return capabilities(h);
  };
  EXPECT_EQ(of(5, {}), "flags=0 ipIn ipOut mac ip6In ip6Out dscp ip6Capability=1 nd");
  EXPECT_EQ(of(5, {{64, true}}), "flags=0 ipIn ip6Capability=0");
  EXPECT_EQ(of(5, {{64, false}, {66, true}}), "flags=0 ipOut ip6Capability=0");
  EXPECT_EQ(of(5, {{65, true}}), "flags=0 ip6In ip6Capability=1 nd");
  EXPECT_EQ(of(5, {{67, true}}), "flags=0 ip6Out ip6Capability=1 nd");
  EXPECT_EQ(of(5, {{68, true}}), "flags=0 mac ip6Capability=0");
  EXPECT_EQ(of(5, {{43, true}}), "flags=0 dscp ip6Capability=0");
  EXPECT_EQ(of(5, {{44, true}}), "flags=0 dscp ip6Capability=0");
  EXPECT_EQ(of(5, {{43, false}, {44, false}}), "flags=0 ip6Capability=0");
  EXPECT_EQ(of(6, {}), "flags=0 ipIn ip6Capability=1 nd");
  EXPECT_EQ(of(6, {{64, false}}), "flags=0 ipIn ip6Capability=0");
  EXPECT_EQ(of(4, {}), "flags=0 ip6Capability=1 nd");
}

TEST(LibInit, AclIdAllocators) {
  HelperUnderTest h(uninitialised({.rows = {}}));
  h->aclIdCountIs(portIngress, 3);
  h->aclIdCountIs(routedEgress, 255);
  h->hwInit();
  const auto port = h->hwAclIdAllocator(portIngress);
  ASSERT_TRUE(port);
  EXPECT_EQ(port->config().min(), 1u);
  EXPECT_EQ(port->config().max(), 3u);
  EXPECT_EQ(h->hwAclIdAllocator(routedEgress)->numFree(), 255u);
  EXPECT_FALSE(h->hwAclIdAllocator(portEgress));
  EXPECT_EQ(port->allocate(), 1u);
  EXPECT_EQ(port->allocate(), 2u);
  EXPECT_EQ(port->allocate(), 3u);
  EXPECT_EQ(port->allocate(), std::nullopt);
  EXPECT_EQ(port->status()->numUsed(), 3u);
  port->release(2);
  EXPECT_EQ(port->allocate(), 2u) << "nothing expires later";

  HelperUnderTest zero(uninitialised({.rows = {}}));
  zero->aclIdCountIs(portEgress, 0);
  EXPECT_EQ(test::thrownBy([&] { zero->hwInit(); }), "RangeException: Range::min > Range::max not allowed");
}

TEST(LibInit, HandleInitializedOnlyMarks) {
  HelperUnderTest h(uninitialised());
  EXPECT_FALSE(h->initialized());
  h->handleInitialized();
  EXPECT_TRUE(h->initialized());
  EXPECT_EQ(h.sdk.takeCalls(), "");
  EXPECT_EQ(h.pool(ingressV4), "no pool");
  EXPECT_EQ(h->iaclMgr(), nullptr);
}

TEST(LibInit, ChipName) {
  HelperUnderTest h(uninitialised());
  h.helperInfo->chipIs(Plex::Central::DeviceId(0), ChipRecord("Linecard0"));
  h.helperInfo->chipIs(Plex::Central::DeviceId(64), ChipRecord("none"));
  EXPECT_STREQ(h->getChipName().charPtr(), "Linecard0");
  h->xpDevIdIs(XpXdk::XpDeviceId(63));
  EXPECT_STREQ(h->getChipName().charPtr(), ChipRecord().name().charPtr()) << "a chip that is not listed";
  h->xpDevIdIs(XpXdk::XpDeviceId(64));
  EXPECT_STREQ(h->getChipName().charPtr(), "none");
  for (const unsigned device : {65u, 127u, 255u}) {
    h->xpDevIdIs(XpXdk::XpDeviceId(static_cast<Vane::U8>(device)));
    EXPECT_EQ(test::thrownBy([&] { h->getChipName(); }),
              "RangeException: DeviceId::value < DeviceId::min or > DeviceId::null not allowed");
  }
}

TEST(LibInit, AFreshHelper) {
  HelperUnderTest h(uninitialised());
  EXPECT_STREQ(h->fwkType().name(), "XpAcl::XpAclPlexAggregatorHelper");
  EXPECT_FALSE(HelperUnderTest(uninitialised())->initialized());
  EXPECT_TRUE(
      Vane::Ptr<XpAclPlexAggregatorHelper>(
          xpAclPlexAggregatorHelperFactory(h.helperInfo, h.aclIdMapping, h.paramConfig, h.blockedIntfColl,
                                           h.limit, h.systemStatus, h.partition, h.dal))
          ->xpDevId() == XpXdk::XpDeviceId(127))
      << "the null device until its owner says otherwise";
}

TEST(LibInit, WhatIsMissingIsNamed) {
  const auto death = [](unsigned device, const std::function<void(test::RecordingSdk&)>& damage) {
    return deathOf([&] {
      HelperOptions options = uninitialised();
      options.device = device;
      HelperUnderTest h(options);
      damage(h.sdk);
      h->hwInit();
    });
  };
  const auto text = [](const char* what) {
    return std::string("XpAclPlexAggregatorHelper:#: findManagers: Assertion \"") + what + "\" failed.\n";
  };
  EXPECT_EQ(death(0, [](test::RecordingSdk& sdk) { sdk.hasIaclMgrIs(false); }), text("iaclMgr()"));
  EXPECT_EQ(death(0, [](test::RecordingSdk&) { XpXdk::xpAclPl::install(nullptr); }), text("iaclMgr()"));
  EXPECT_EQ(death(0, [](test::RecordingSdk& sdk) { sdk.hasDeviceIs(false); }), text("device"));
  EXPECT_EQ(death(0, [](test::RecordingSdk&) { XpXdk::xpDeviceMgr::install(nullptr); }), text("device"));
  EXPECT_EQ(death(64, [](test::RecordingSdk&) {}), text("device"));
  EXPECT_EQ(death(63, [](test::RecordingSdk&) {}), "returned");
  EXPECT_EQ(death(0, [](test::RecordingSdk& sdk) { sdk.hasTableProfileIs(false); }), text("tableProfile"));
}

// Rows of hwInit with two copies of one table of two rows: 0 and 1 invalid, key, data, data, valid.
TEST(LibInit, EveryFailingCallNamesItself) {
  const struct {
    TcamType type;
    const char* name;
  } tables[] = {{ingressV4, "TACL_V4_IACL"},
                {ingressV6, "TACL_V6_IACL"},
                {egressV4, "TACL_V4_EACL"},
                {egressV6, "TACL_V6_EACL"},
                {ingressMac, "TACL_MAC_ACL"}};
  for (const auto& table : tables) {
    const std::string t = std::string("( xpDevId().value(), ") + table.name + ", ";
    const std::pair<std::string, std::string> calls[] = {
        {"setEntryValid", "((iaclMgr()->setEntryValid" + t + "i, false )))"},
        {"setEntryValid", "((iaclMgr()->setEntryValid" + t + "i, false )))"},
        {"writeKeyMask", "((iaclMgr()->writeKeyMask" + t + "lastTcamIdx, true, &key.sdkKey )))"},
        {"writeData", "((iaclMgr()->writeData" + t + "tblNum, lastTcamIdx, &data )))"},
        {"writeData", "((iaclMgr()->writeData" + t + "tblNum, lastTcamIdx, &data )))"},
        {"setEntryValid", "((iaclMgr()->setEntryValid" + t + "lastTcamIdx, true )))"}};
    unsigned n = 0;
    for (const auto& [function, call] : calls) {
      ++n;
      EXPECT_EQ(deathOf([&] {
                  HelperUnderTest h(uninitialised({.rows = {{table.type, 2}}, .copies = 2}));
                  h.sdk.failCall(n, 1);
                  h->hwInit();
                }),
                "XpAclPlexAggregatorHelper:# " + call + " API ERROR 1\nXpAclPlexAggregatorHelper:#: " +
                    function + ": Assertion \"!(true)\" failed.\n");
    }
  }
}

TEST(LibInit, AcceptedStatusesContinueLikeSuccess) {
  for (const int status : {0, 9, 41, 42}) {
    HelperUnderTest h(uninitialised({.rows = {{ingressV4, 2}}}));
    h.sdk.everyStatusIs(status);
    h->hwInit();
    EXPECT_EQ(h.sdk.numCalls(), 5u) << status;
    EXPECT_EQ(h.pool(ingressV4), "{0}") << status;
  }
  for (const int status : {1, 2, 8, 10, 40, 43, -1, 255}) {
    const std::string death = deathOf([&] {
      HelperUnderTest h(uninitialised({.rows = {{ingressV4, 2}}}));
      h.sdk.failCall(1, status);
      h->hwInit();
    });
    EXPECT_NE(death.find(" API ERROR " + std::to_string(status) + "\n"), std::string::npos) << death;
  }
}

// The line that is printed and the assertion name the same place.
TEST(LibInit, TheErrorLineAndTheAssertionNameOnePlace) {
  testing::FLAGS_gtest_death_test_style = "fast";
  EXPECT_DEATH(
      {
        HelperUnderTest h(uninitialised({.rows = {{ingressV4, 2}}}));
        h.sdk.failCall(1, 1);
        h->hwInit();
      },
      "^XpAclPlexAggregatorHelper:[0-9]+ .*API ERROR 1\nXpAclPlexAggregatorHelper:[0-9]+: void "
      "XpAcl::XpAclPlexAggregatorHelper::setEntryValid\\(.*\\): Assertion \"!\\(true\\)\" failed\\.");
}

TEST(LibInit, UnknownTable) {
  EXPECT_EQ(deathOf([] { tcamTable(static_cast<TcamType>(5)); }),
            "XpAclTcamTypes:#: tcamTable: Assertion \"false && \"not yet implemented other tcamType\"\" "
            "failed.\n");
  EXPECT_EQ(deathOf([] {
              HelperOptions options = uninitialised({.rows = {}});
              HelperUnderTest h(options);
              h.limit->maxTcamIdxIs(static_cast<TcamType>(5), 4);
              h->hwInit();
            }),
            "XpAclTcamTypes:#: tcamTable: Assertion \"false && \"not yet implemented other tcamType\"\" "
            "failed.\n");
}

} // namespace
