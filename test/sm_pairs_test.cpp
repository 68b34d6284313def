#include "test/MachinesUnderTest.h"
#include "test/Random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>

// (port, VLAN) pairs on one chip: who uses which shared entry, and what goes when its last user leaves.

namespace {

using namespace XpAcl;
using test::aclIdEn;
using test::ChipUnderTest;
using test::intf;
using test::pairOf;
using test::vlan;

// VLAN 10 has the ingress ACL 9, Ethernet1 and Ethernet2 the egress ACLs 3 and 4.
class Bound : public ChipUnderTest {
public:
  Bound() {
    map().ingressRouteAclIdEnIs(vlan(10), aclIdEn(9, "4"));
    map().egressPortAclIdEnIs(intf("Ethernet1"), aclIdEn(3, "4"));
    map().egressPortAclIdEnIs(intf("Ethernet2"), aclIdEn(4, "4"));
    sdk.takeCalls();
  }
};

TEST(SmPairs, TwoPortsOfOneVifShareTheirEntries) {
  Bound chip;
  EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet1", 10, 5); }),
            "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n"
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=9 en=1 -> 0\n");
  EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet2", 10, 5); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=4/10 route=0/00 -> 0\n"
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=9 en=1 -> 0\n");
  EXPECT_EQ(chip.books(), "cache Ethernet1/10 vif 5\ncache Ethernet2/10 vif 5\n"
                          "users vif 5 vlan 10: Ethernet1/10 Ethernet2/10\n");
  // The egress entry follows the user that is left.
  EXPECT_EQ(chip.calls([&] { chip.pairDel("Ethernet1", 10); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=4/10 route=0/00 -> 0\n");
  EXPECT_EQ(chip.books(), "cache Ethernet2/10 vif 5\nusers vif 5 vlan 10: Ethernet2/10\n");
  EXPECT_EQ(chip.calls([&] { chip.pairDel("Ethernet2", 10); }),
            "lookup egress d0 bd=10 vif=5 -> 0\n"
            "removeEntry egress d0 i0 -> 0\n"
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=0 -> 0\n"
            "removeEntry portVlan d0 i0 -> 0\n");
  EXPECT_EQ(chip.books(), "");
  EXPECT_EQ(chip.indexMaps(), "");
  EXPECT_EQ(chip.sdk.tables(0), "");
}

TEST(SmPairs, TheUserThatIsLeftTakesOverTheEgressEntry) {
  Bound chip;
  chip.pairIs("Ethernet1", 10, 5);
  chip.pairIs("Ethernet2", 10, 5);
  EXPECT_EQ(chip.calls([&] { chip.pairDel("Ethernet2", 10); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n");
}

TEST(SmPairs, APairThatChangesItsVifLeavesFirst) {
  Bound chip;
  chip.pairIs("Ethernet1", 10, 5);
  EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet1", 10, 6); }),
            "lookup egress d0 bd=10 vif=5 -> 0\n"
            "removeEntry egress d0 i0 -> 0\n"
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=0 en=0 -> 0\n"
            "removeEntry portVlan d0 i0 -> 0\n"
            "addEntry egress d0 bd=10 vif=6 port=3/10 route=0/00 -> 0\n"
            "addEntry portVlan d0 c0 vlan=10 vif=6 id=9 en=1 -> 0\n");
  EXPECT_EQ(chip.books(), "cache Ethernet1/10 vif 6\nusers vif 6 vlan 10: Ethernet1/10\n");
  EXPECT_EQ(chip.indexMaps(), "egress 0 -> 10/6\negress 10/6 -> 0\nportVlan 0 -> 10/6\nportVlan 10/6 -> 0\n");
  EXPECT_EQ(chip.sdk.tables(0), "portVlan 0: vlan=10 vif=6 id=9 en=1\n"
                                "egress 0: bd=10 vif=6 port=3/10 route=0/00\n");
}

TEST(SmPairs, AChangeOfVifLeavesTheOtherUsersWhereTheyAre) {
  Bound chip;
  chip.pairIs("Ethernet1", 10, 5);
  chip.pairIs("Ethernet2", 10, 5);
  EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet2", 10, 6); }),
            "writeEntry egress d0 i0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n"
            "addEntry egress d0 bd=10 vif=6 port=4/10 route=0/00 -> 0\n"
            "addEntry portVlan d0 c0 vlan=10 vif=6 id=9 en=1 -> 0\n");
  EXPECT_EQ(chip.books(), "cache Ethernet1/10 vif 5\ncache Ethernet2/10 vif 6\n"
                          "users vif 5 vlan 10: Ethernet1/10\nusers vif 6 vlan 10: Ethernet2/10\n");
}

TEST(SmPairs, OnePortInTwoVlansHasTwoEntries) {
  Bound chip;
  chip.pairIs("Ethernet1", 10, 5);
  chip.pairIs("Ethernet1", 20, 5);
  EXPECT_EQ(chip.books(), "cache Ethernet1/10 vif 5\ncache Ethernet1/20 vif 5\n"
                          "users vif 5 vlan 10: Ethernet1/10\nusers vif 5 vlan 20: Ethernet1/20\n");
  EXPECT_EQ(chip.calls([&] { chip.pairDel("Ethernet1", 20); }),
            "lookup egress d0 bd=20 vif=5 -> 0\nremoveEntry egress d0 i1 -> 0\n");
  EXPECT_EQ(chip.sdk.tables(0), "portVlan 0: vlan=10 vif=5 id=9 en=1\n"
                                "egress 0: bd=10 vif=5 port=3/10 route=0/00\n");
}

// Without an ACL a pair needs no entry; its last leave only looks.
TEST(SmPairs, PairsWithoutAclsWriteNothing) {
  ChipUnderTest chip;
  EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet1", 10, 5); }), "");
  EXPECT_EQ(chip.books(), "cache Ethernet1/10 vif 5\nusers vif 5 vlan 10: Ethernet1/10\n");
  EXPECT_EQ(chip.calls([&] { chip.pairDel("Ethernet1", 10); }), "lookup egress d0 bd=10 vif=5 -> 41\n");
  EXPECT_EQ(chip.books(), "");
}

TEST(SmPairs, APairThatWasNeverCachedBelongsToVif65535) {
  Bound chip;
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] { chip->handlePortVlan(pairOf("Ethernet1", 10)); }),
            "lookup egress d0 bd=10 vif=65535 -> 41\n");
  EXPECT_EQ(trace.take(), "handlePortVlan chip 0 intf Ethernet1 vlan 10\n"
                          "ChipHwAclIdSm::handlePortVlan delete  port Ethernet1\n"
                          " no more references. delete  vifId 65535\n"
                          " vlanId 10 entry not present for removal\n");
  EXPECT_EQ(chip.books(), "");
  // An entry that stands under that key goes.
  XpXdk::xpEgressBdEvifEntry stale;
  stale.egressBd = 10;
  stale.egressVif = 65535;
  chip.sdk.egressIs(0, 3, stale);
  EXPECT_EQ(chip.calls([&] { chip->handlePortVlan(pairOf("Ethernet1", 10)); }),
            "lookup egress d0 bd=10 vif=65535 -> 0\nremoveEntry egress d0 i3 -> 0\n");
  EXPECT_EQ(chip.sdk.tables(0), "");
  EXPECT_EQ(chip.books(), "");
}

// A pair may be known before its VIF is.
TEST(SmPairs, APairWithoutAVifGetsItsEntriesWithTheVif) {
  Bound chip;
  EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet1", 10, 0xFFFFFFFF); }), "");
  EXPECT_EQ(chip.indexMaps(), "");
  EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet1", 10, 5); }),
            "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n"
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=9 en=1 -> 0\n");
}

TEST(SmPairs, TheLargestNumbersKeepTheirKeys) {
  ChipUnderTest chip;
  chip.map().ingressRouteAclIdEnIs(vlan(4094), aclIdEn(9, "4"));
  chip.map().egressRouteAclIdEnIs(vlan(4094), aclIdEn(9, "4"));
  chip.pairIs("Ethernet1", 4094, 65534);
  chip.pairIs("Ethernet2", 4094, 32768);
  EXPECT_EQ(chip.books(), "cache Ethernet1/4094 vif 65534\ncache Ethernet2/4094 vif 32768\n"
                          "users vif 32768 vlan 4094: Ethernet2/4094\n"
                          "users vif 65534 vlan 4094: Ethernet1/4094\n");
  EXPECT_EQ(chip.sdk.tables(0), "portVlan 0: vlan=4094 vif=65534 id=9 en=1\n"
                                "portVlan 1: vlan=4094 vif=32768 id=9 en=1\n"
                                "egress 0: bd=4094 vif=65534 port=0/00 route=9/10\n"
                                "egress 1: bd=4094 vif=32768 port=0/00 route=9/10\n");
  chip.pairDel("Ethernet1", 4094);
  chip.pairDel("Ethernet2", 4094);
  EXPECT_EQ(chip.books() + chip.indexMaps() + chip.sdk.tables(0), "");
}

TEST(SmPairs, EveryStepIsTraced) {
  ChipUnderTest chip;
  test::TraceCapture trace(hwAclIdTrace());
  chip.pairIs("Ethernet1", 10, 5);
  chip.pairIs("Ethernet2", 10, 5);
  EXPECT_EQ(trace.take(), "handlePortVlan chip 0 intf Ethernet1 vlan 10\n"
                          " add  port Ethernet1\n"
                          " removing egress vlanId 10 for an entry not present\n"
                          " vlanId 10 entry not present for removal\n"
                          "handlePortVlan chip 0 intf Ethernet2 vlan 10\n"
                          " add  port Ethernet2\n"
                          " removing egress vlanId 10 for an entry not present\n"
                          " vlanId 10 entry not present for removal\n");
  chip.pairDel("Ethernet1", 10);
  EXPECT_EQ(trace.take(), "handlePortVlan chip 0 intf Ethernet1 vlan 10\n"
                          "ChipHwAclIdSm::handlePortVlan delete  port Ethernet1\n"
                          "ChipHwAclIdSm::processPortVlanDeletion reprogram port Ethernet2 vlan 10\n"
                          " removing egress vlanId 10 for an entry not present\n"
                          " vlanId 10 entry not present for removal\n");
  chip.pairDel("Ethernet2", 10);
  EXPECT_EQ(trace.take(), "handlePortVlan chip 0 intf Ethernet2 vlan 10\n"
                          "ChipHwAclIdSm::handlePortVlan delete  port Ethernet2\n"
                          " no more references. delete  vifId 5\n"
                          " vlanId 10 entry not present for removal\n");
}

TEST(SmPairs, BeforeInitialisationPairsAreIgnoredAndThenReplayed) {
  Bound chip;
  chip->initializedIs(false);
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] {
    chip.pairIs("Ethernet1", 10, 5);
    chip.pairIs("Ethernet2", 10, 5);
  }),
            "");
  EXPECT_EQ(chip.books(), "");
  EXPECT_EQ(trace.take(), "");
  chip->initializedIs(true);
  EXPECT_EQ(chip.calls([&] { chip->handlePortVlan(); }),
            "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n"
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=9 en=1 -> 0\n"
            "writeEntry egress d0 i0 bd=10 vif=5 port=4/10 route=0/00 -> 0\n"
            "writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=9 en=1 -> 0\n");
  EXPECT_EQ(trace.take().substr(0, 24), "handlePortVlan chipId 0\n");
}

TEST(SmPairs, AStatusThatIsHandedOverIsAppliedAtOnce) {
  Bound chip;
  const auto fresh = XpVif::portVlanVifStatusFactory("fresh");
  fresh->portVlanToVifMapIs(pairOf("Ethernet1", 10), XpVif::VifId(5));
  test::TraceCapture trace(hwAclIdTrace());
  EXPECT_EQ(chip.calls([&] { chip->handleChipPortVlanVifStatus(fresh); }),
            "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n"
            "addEntry portVlan d0 c0 vlan=10 vif=5 id=9 en=1 -> 0\n");
  EXPECT_EQ(trace.take().substr(0, 61), "handleChipPortVlanVifStatus chipId 0\nhandlePortVlan chipId 0\n");
  // The old status is not heard any more.
  EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet2", 10, 5); }), "");
}

// ---------------------------------------------------------------------------------------------- mode

TEST(SmPairs, InOtherModesAPairOnlyProgramsTheRoutedAcl) {
  for (const unsigned mode : {0u, 1u, 2u, 4u, 6u, 255u}) {
    Bound chip;
    chip.systemStatus->modeIs(mode);
    EXPECT_EQ(chip.calls([&] { chip.pairIs("Ethernet1", 10, 5); }),
              "addEntry portVlan d0 c0 vlan=10 vif=5 id=9 en=1 -> 0\n")
        << "mode " << mode;
    EXPECT_EQ(chip.books(), "");
    // The pair's VIF is gone by then, so there is nothing to program.
    EXPECT_EQ(chip.calls([&] { chip.pairDel("Ethernet1", 10); }), "") << "mode " << mode;
  }
}

TEST(SmPairs, InMode5ThePartitionDecides) {
  const std::string both = "addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 0\n"
                           "addEntry portVlan d0 c0 vlan=10 vif=5 id=9 en=1 -> 0\n";
  const std::string routedOnly = "addEntry portVlan d0 c0 vlan=10 vif=5 id=9 en=1 -> 0\n";
  const auto pairAdded = [](unsigned mode, bool profile, bool egressV4, bool egressV6) {
    Bound chip;
    chip.systemStatus->modeIs(mode);
    if (profile) {
      chip.partitionIs(egressV4, egressV6);
    }
    return chip.calls([&] { chip.pairIs("Ethernet1", 10, 5); });
  };
  EXPECT_EQ(pairAdded(5, true, false, false), routedOnly);
  EXPECT_EQ(pairAdded(5, true, true, false), both);
  EXPECT_EQ(pairAdded(5, true, false, true), both);
  EXPECT_EQ(pairAdded(5, true, true, true), both);
  EXPECT_EQ(pairAdded(5, false, false, false), both) << "without a profile every table exists";
  EXPECT_EQ(pairAdded(3, true, false, false), both) << "mode 3 asks no partition";
}

// ------------------------------------------------------------------------------------- nothing leaks

// What the tables of a chip must hold, computed from the pairs and enables alone.
class Expected {
public:
  std::map<std::pair<unsigned, unsigned>, unsigned> pairs; // (port, VLAN) to VIF
  std::map<unsigned, AclIdEn> routeIn;                     // by VLAN
  std::map<unsigned, AclIdEn> routeOut;
  std::map<unsigned, AclIdEn> portOut; // by VIF: ports that share one are bound alike

  std::set<std::string> entries() const {
    std::set<std::string> lines;
    for (const auto& [pair, vif] : pairs) {
      const unsigned number = pair.second;
      const AclIdEn in = at(routeIn, number);
      const AclIdEn port = at(portOut, vif);
      const AclIdEn route = at(routeOut, number);
      std::ostringstream line;
      if (!(in == AclIdEn())) {
        line << "portVlan: vlan=" << number << " vif=" << vif << " id=" << (in.blocked() ? 0u : in.aclId())
             << " en=" << (in.v4En() ? 1 : 0) + (in.v6En() ? 2 : 0);
        lines.insert(line.str());
      }
      if (port.v4En() || port.v6En() || route.v4En() || route.v6En()) {
        line.str("");
        line << "egress: bd=" << number << " vif=" << vif << " port=" << side(port)
             << " route=" << side(route);
        lines.insert(line.str());
      }
    }
    return lines;
  }

private:
  static AclIdEn at(const std::map<unsigned, AclIdEn>& map, unsigned key) {
    const auto found = map.find(key);
    return found == map.end() ? AclIdEn() : found->second;
  }
  static std::string side(const AclIdEn& en) {
    return std::to_string(en.blocked() ? 0 : en.aclId()) + "/" + (en.v4En() ? "1" : "0") +
           (en.v6En() ? "1" : "0");
  }
};

// The same lines from the chip, without their indexes.
std::set<std::string> entriesOf(const ChipUnderTest& chip) {
  std::set<std::string> lines;
  std::istringstream text(chip.sdk.tables(0));
  for (std::string line; std::getline(text, line);) {
    lines.insert(line.substr(0, line.find(' ')) + line.substr(line.find(':')));
  }
  return lines;
}

class RandomPairs {
public:
  explicit RandomPairs(test::Random& random) : random_(random) { chip_.sdk.numEntriesIs(256); }

  void step() {
    const unsigned port = 1 + random_.below(4);
    const unsigned number = 10 + random_.below(3);
    switch (random_.below(6)) {
    case 0:
    case 1:
      pairIs(port, number, 5 + random_.below(3));
      break;
    case 2:
      expected_.pairs.erase({port, number});
      chip_.status->portVlanToVifMapDel(pair(port, number));
      break;
    case 3:
      expected_.routeIn[number] = enables();
      chip_.map().ingressRouteAclIdEnIs(vlan(number), expected_.routeIn[number]);
      break;
    case 4:
      expected_.routeOut[number] = enables();
      chip_.map().egressRouteAclIdEnIs(vlan(number), expected_.routeOut[number]);
      break;
    default:
      portOutIs(5 + random_.below(3));
    }
  }
  void clear() {
    while (!expected_.pairs.empty()) {
      const auto [port, number] = expected_.pairs.begin()->first;
      expected_.pairs.erase({port, number});
      chip_.status->portVlanToVifMapDel(pair(port, number));
      check();
    }
    EXPECT_EQ(chip_.sdk.tables(0) + chip_.indexMaps() + chip_.books(), "");
  }
  void check() {
    const std::set<std::string> entries = expected_.entries();
    ASSERT_EQ(entriesOf(chip_), entries);
    // Both directions of the two maps.
    const std::string maps = chip_.indexMaps();
    ASSERT_EQ(std::count(maps.begin(), maps.end(), '\n'), 2 * static_cast<long>(entries.size())) << maps;
  }

private:
  static XpLib::PortAndVlanId pair(unsigned port, unsigned number) {
    return XpLib::PortAndVlanId(Ovnet::IntfId(Ovnet::IntfId::ethernet, port), vlan(number));
  }
  AclIdEn enables() {
    return random_.oneIn(3) ? AclIdEn()
                            : AclIdEn(random_.byte(), random_.oneIn(2), random_.oneIn(2), random_.oneIn(2),
                                      random_.oneIn(4));
  }
  // A port has one VIF in all its VLANs; it is bound as the other ports of that VIF are, before it moves.
  void pairIs(unsigned port, unsigned number, unsigned vif) {
    chip_.map().egressPortAclIdEnIs(Ovnet::IntfId(Ovnet::IntfId::ethernet, port), expected_.portOut[vif]);
    for (auto& [held, heldVif] : expected_.pairs) {
      if (held.first == port && heldVif != vif) {
        heldVif = vif;
        chip_.status->portVlanToVifMapIs(pair(port, held.second), XpVif::VifId(vif));
      }
    }
    expected_.pairs[{port, number}] = vif;
    chip_.status->portVlanToVifMapIs(pair(port, number), XpVif::VifId(vif));
  }
  void portOutIs(unsigned vif) {
    expected_.portOut[vif] = enables();
    for (const auto& [held, heldVif] : expected_.pairs) {
      if (heldVif == vif) {
        chip_.map().egressPortAclIdEnIs(Ovnet::IntfId(Ovnet::IntfId::ethernet, held.first),
                                        expected_.portOut[vif]);
      }
    }
  }

  test::Random& random_;
  ChipUnderTest chip_;
  Expected expected_;
};

TEST(SmPairs, TheTablesHoldWhatThePairsNeedAndNothingElse) {
  test::Random random(test::Random::seed("SmPairs.TheTablesHoldWhatThePairsNeedAndNothingElse"));
  for (unsigned run = 0; run < 20; ++run) {
    RandomPairs pairs(random);
    for (unsigned step = 0; step < 300; ++step) {
      pairs.step();
      pairs.check();
      if (HasFatalFailure()) {
        FAIL() << "run " << run << " step " << step;
      }
    }
    pairs.clear();
  }
}

} // namespace
