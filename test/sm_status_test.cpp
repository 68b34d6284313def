#include "test/MachinesUnderTest.h"
#include "test/Random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

// The (port, VLAN) to VIF map and its two indexes, against a plain map that is searched from end to end.

namespace {

using test::intf;
using test::pairOf;
using test::vlan;
using XpVif::PortVlanVifStatus;
using XpVif::VifId;

// Interfaces by number, so that the twin's order is that of the indexes.
Ovnet::IntfId ethernet(unsigned number) {
  return Ovnet::IntfId(Ovnet::IntfId::ethernet, number);
}

std::string vlansText(const PortVlanVifStatus& status, const Ovnet::IntfId& port) {
  std::string text;
  for (const Bridging::VlanId& found : status.vlansOfIntf(port)) {
    text += " " + std::to_string(found.value());
  }
  return text;
}

std::string intfsText(const PortVlanVifStatus& status, const Bridging::VlanId& number) {
  std::string text;
  for (const Ovnet::IntfId& found : status.intfsOfVlan(number)) {
    text += std::string(" ") + found.stringValue().charPtr();
  }
  return text;
}

// Writes down what the indexes hold at the time of each notification.
class Watcher : public PortVlanVifStatus::NotifieeConst {
public:
  explicit Watcher(const PortVlanVifStatus& status) : status_(status) {}
  void onPortVlanToVifMap(const XpLib::PortAndVlanId& pair) override {
    seen_ += std::string(pair.intf().stringValue().charPtr()) + vlansText(status_, pair.intf()) + ";" +
             intfsText(status_, pair.vlanId()) + "\n";
  }
  std::string take() { return std::exchange(seen_, std::string()); }

private:
  const PortVlanVifStatus& status_;
  std::string seen_;
};

TEST(SmStatus, IndexesAreInAscendingOrder) {
  const auto status = XpVif::portVlanVifStatusFactory("chip0");
  EXPECT_EQ(status->name(), Vane::String("chip0"));
  for (const unsigned number : {4094u, 10u, 1u, 300u}) {
    status->portVlanToVifMapIs(pairOf("Ethernet2", number), VifId(5));
  }
  status->portVlanToVifMapIs(pairOf("Ethernet10", 10), VifId(6));
  status->portVlanToVifMapIs(pairOf("Ethernet1", 10), VifId(7));
  EXPECT_EQ(vlansText(*status, intf("Ethernet2")), " 1 10 300 4094");
  EXPECT_EQ(intfsText(*status, vlan(10)), " Ethernet1 Ethernet2 Ethernet10");
  EXPECT_EQ(vlansText(*status, intf("Ethernet3")), "");
  EXPECT_EQ(intfsText(*status, vlan(11)), "");
}

TEST(SmStatus, NotificationsFindTheIndexesInStep) {
  const auto status = XpVif::portVlanVifStatusFactory("chip0");
  const Vane::Ptr<Watcher> watcher(new Watcher(*status));
  watcher->notifierIs(status);
  status->portVlanToVifMapIs(pairOf("Ethernet1", 10), VifId(5));
  EXPECT_EQ(watcher->take(), "Ethernet1 10; Ethernet1\n");
  status->portVlanToVifMapIs(pairOf("Ethernet1", 10), VifId(5));
  EXPECT_EQ(watcher->take(), "");
  status->portVlanToVifMapIs(pairOf("Ethernet1", 10), VifId(6)); // another VIF moves no index
  EXPECT_EQ(watcher->take(), "Ethernet1 10; Ethernet1\n");
  status->portVlanToVifMapIs(pairOf("Ethernet1", 20), VifId(6));
  EXPECT_EQ(watcher->take(), "Ethernet1 10 20; Ethernet1\n");
  status->portVlanToVifMapDel(pairOf("Ethernet1", 10));
  EXPECT_EQ(watcher->take(), "Ethernet1 20;\n");
  status->portVlanToVifMapDel(pairOf("Ethernet1", 10));
  EXPECT_EQ(watcher->take(), "");
}

TEST(SmStatus, DeletingAllNotifiesEveryPair) {
  const auto status = XpVif::portVlanVifStatusFactory("chip0");
  status->portVlanToVifMapIs(pairOf("Ethernet1", 10), VifId(5));
  status->portVlanToVifMapIs(pairOf("Ethernet2", 10), VifId(5));
  const Vane::Ptr<Watcher> watcher(new Watcher(*status));
  watcher->notifierIs(status);
  status->portVlanToVifMapDelAll();
  const std::string seen = watcher->take();
  EXPECT_EQ(std::count(seen.begin(), seen.end(), '\n'), 2);
  EXPECT_EQ(status->portVlanToVifMapCount(), 0u);
  EXPECT_EQ(intfsText(*status, vlan(10)), "");
  EXPECT_EQ(vlansText(*status, intf("Ethernet1")), "");
}

// A walk over the ports of a VLAN may delete the very pairs that it walks.
TEST(SmStatus, IndexesAreCopies) {
  const auto status = XpVif::portVlanVifStatusFactory("chip0");
  for (unsigned port = 1; port <= 4; ++port) {
    status->portVlanToVifMapIs(XpLib::PortAndVlanId(ethernet(port), vlan(10)), VifId(5));
  }
  unsigned walked = 0;
  for (const Ovnet::IntfId& port : status->intfsOfVlan(vlan(10))) {
    status->portVlanToVifMapDel(XpLib::PortAndVlanId(port, vlan(10)));
    ++walked;
  }
  EXPECT_EQ(walked, 4u);
  EXPECT_EQ(status->portVlanToVifMapCount(), 0u);
}

class Twin {
public:
  std::map<std::pair<unsigned, unsigned>, Vane::U32> pairs; // (port, VLAN) to VIF

  std::string vlans(unsigned port) const {
    std::string text;
    for (const auto& [pair, vif] : pairs) {
      text += pair.first == port ? " " + std::to_string(pair.second) : "";
    }
    return text;
  }
  std::string intfs(unsigned number) const {
    std::string text;
    for (const auto& [pair, vif] : pairs) {
      text += pair.second == number ? " Ethernet" + std::to_string(pair.first) : "";
    }
    return text;
  }
};

// A few ports and VLANs, so that pairs are hit again and again; the ends of the VLAN range among them.
TEST(SmStatus, AgreesWithItsTwin) {
  test::Random random(test::Random::seed("SmStatus.AgreesWithItsTwin"));
  const std::vector<unsigned> vlans{1, 2, 63, 64, 65, 1000, 4093, 4094};
  const auto status = XpVif::portVlanVifStatusFactory("twin");
  Twin twin;
  for (unsigned step = 0; step < 20000; ++step) {
    const unsigned port = 1 + random.below(12);
    const unsigned number = vlans[random.below(static_cast<uint32_t>(vlans.size()))];
    const XpLib::PortAndVlanId pair(ethernet(port), vlan(number));
    if (random.oneIn(3000)) {
      status->portVlanToVifMapDelAll();
      twin.pairs.clear();
    } else if (random.oneIn(2)) {
      const Vane::U32 vif = 1 + random.below(3);
      status->portVlanToVifMapIs(pair, VifId(vif));
      twin.pairs[{port, number}] = vif;
    } else {
      status->portVlanToVifMapDel(pair);
      twin.pairs.erase({port, number});
    }
    ASSERT_EQ(vlansText(*status, ethernet(port)), twin.vlans(port)) << "step " << step;
    ASSERT_EQ(intfsText(*status, vlan(number)), twin.intfs(number)) << "step " << step;
    ASSERT_EQ(status->portVlanToVifMapCount(), twin.pairs.size()) << "step " << step;
    const auto held = twin.pairs.find({port, number});
    ASSERT_EQ(status->portVlanToVifMap(pair).value(), held == twin.pairs.end() ? 0xFFFFFFFFu : held->second)
        << "step " << step;
  }
}

// The matrix has a word for 64 ports: a port that leaves makes room for another one, whatever its number.
TEST(SmStatus, PortsComeAndGoBeyondSixtyFour) {
  test::Random random(test::Random::seed("SmStatus.PortsComeAndGoBeyondSixtyFour"));
  const auto status = XpVif::portVlanVifStatusFactory("twin");
  Twin twin;
  for (unsigned step = 0; step < 4000; ++step) {
    const unsigned port = 1 + random.below(300);
    const unsigned number = 10 + random.below(2);
    const XpLib::PortAndVlanId pair(ethernet(port), vlan(number));
    if (random.oneIn(3)) {
      status->portVlanToVifMapDel(pair);
      twin.pairs.erase({port, number});
    } else {
      status->portVlanToVifMapIs(pair, VifId(port));
      twin.pairs[{port, number}] = port;
    }
    ASSERT_EQ(vlansText(*status, ethernet(port)), twin.vlans(port)) << "step " << step;
    if (step % 16 == 0) {
      ASSERT_EQ(intfsText(*status, vlan(number)), twin.intfs(number)) << "step " << step;
    }
  }
}

} // namespace
