#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "test/Random.h"
#include "test/RandomLists.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>

// Hit counters as an operator sees them: exact for every line, whatever the lines go through.

namespace {

using test::Random;
using test::RandomLists;

// A switch of two chips whose ports carry VLAN 1.
class Switch {
public:
  explicit Switch(uint32_t rows) {
    sim::DeviceConfig device;
    device.tcamRows.fill(rows);
    device.egressCapacity = device.portVlanCapacity = 16384;
    system_.deviceAdd(0, device);
    system_.deviceAdd(1, device);
    installed_.emplace(system_.install());
    agent::AgentSetup setup;
    setup.numChips = 2;
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = rows;
    }
    agent_ = std::make_unique<agent::Agent>(setup);
  }

  agent::ApplyResult apply(const agent::Config& config) {
    const agent::ApplyResult result = agent_->apply(config);
    if (result.ok) {
      attach(config);
    }
    return result;
  }
  agent::ApplyResult apply(const std::string& text) {
    const agent::Config config = agent::readConfigText(text, "c");
    EXPECT_TRUE(config.diagnostics.empty()) << config.diagnostics.front().text();
    return apply(config);
  }

  sim::Verdict judge(const packet::Packet& packet, uint8_t chip, uint32_t port,
                     std::optional<sim::PortRef> out = std::nullopt) {
    return sim::judge(system_, packet, {{chip, port}, out, 1, true});
  }
  void send(const std::string& packet, unsigned times, uint8_t chip = 0, uint32_t port = 1) {
    for (unsigned i = 0; i < times; ++i) {
      judge(packet::fromText(packet), chip, port);
    }
  }

  // "A 10: 3" for each line, then what lies behind the lists.
  std::string counters() {
    agent_->pollCounters();
    const agent::Counters counters = agent_->counters();
    std::string text;
    for (const agent::ListCounters& list : counters.lists) {
      for (const agent::LineCounter& line : list.lines) {
        text += list.name.name + (list.name.direction == agent::Direction::in ? "" : " out") +
                (list.applied ? ": " : " (not applied): ") + list.acl->textOf(line.origin) + ": " +
                std::to_string(line.hits) + (line.counted ? "" : " not counted") + "\n";
      }
      if (list.removed != 0) {
        text += list.name.name + ": removed lines: " + std::to_string(list.removed) + "\n";
      }
    }
    return text + "implicit: " + std::to_string(counters.implicitDeny[0]) + " in, " +
           std::to_string(counters.implicitDeny[1]) + " out\n";
  }

  agent::Agent& agent() { return *agent_; }
  sim::System& system() { return system_; }

private:
  void attach(const agent::Config& config) {
    for (const agent::Interface& intf : config.interfaces) {
      if (intf.kind == agent::InterfaceKind::ethernet) {
        sim::PortAttachment attachment;
        attachment.carriesIs(1, 4094, true);
        if (const auto vif = agent_->vifOf(agent::intfId(intf))) {
          attachment.vifIs(1, 4094, *vif);
        }
        system_.device(intf.chip)->attachmentIs(agent::intfId(intf).number(), attachment);
      }
    }
  }

  sim::System system_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
};

constexpr const char* web = "ip access-list extended WEB\n"
                            " 10 permit tcp any any eq 80\n"
                            " 20 permit tcp any any range 1000 1005\n"
                            " 30 deny udp any any\n"
                            "interface Ethernet1\n"
                            " ip access-group WEB in\n";

TEST(AgentCounters, CountLinesAndTheirRangePieces) {
  Switch box(64);
  ASSERT_TRUE(box.apply(web).ok);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 3);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:1000", 1);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:1004", 1);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:1005", 1);
  box.send("udp 10.0.0.1:5000 > 10.0.0.2:53", 2);
  box.send("icmp 10.0.0.1 > 10.0.0.2 8/0", 4);
  const std::string expected = "WEB: permit tcp any any eq 80: 3\n"
                               "WEB: permit tcp any any range 1000 1005: 3\n"
                               "WEB: deny udp any any: 2\n"
                               "implicit: 4 in, 0 out\n";
  EXPECT_EQ(box.counters(), expected);
  EXPECT_EQ(box.counters(), expected);
}

// An unchanged line keeps its hits through edits of its neighbours; a changed one starts anew, on a row that
// somebody else's hits are on; what the old one counted stays with the list.
TEST(AgentCounters, OutliveEditsOfOtherLines) {
  Switch box(64);
  ASSERT_TRUE(box.apply(web).ok);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 3);
  box.send("udp 10.0.0.1:5000 > 10.0.0.2:53", 2);
  ASSERT_TRUE(box.apply("ip access-list extended WEB\n"
                        " 5 deny tcp any host 10.9.9.9\n"
                        " 10 permit tcp any any eq 80\n"
                        " 30 permit udp any any\n"
                        "interface Ethernet1\n"
                        " ip access-group WEB in\n")
                  .ok);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 1);
  box.send("udp 10.0.0.1:5000 > 10.0.0.2:53", 1);
  EXPECT_EQ(box.counters(), "WEB: deny tcp any host 10.9.9.9: 0\n"
                            "WEB: permit tcp any any eq 80: 4\n"
                            "WEB: permit udp any any: 1\n"
                            "WEB: removed lines: 2\n"
                            "implicit: 0 in, 0 out\n");
  ASSERT_TRUE(box.apply("interface Ethernet1\n").ok);
  EXPECT_EQ(box.counters(), "WEB (not applied): deny tcp any host 10.9.9.9: 0\n"
                            "WEB (not applied): permit tcp any any eq 80: 4\n"
                            "WEB (not applied): permit udp any any: 1\n"
                            "WEB: removed lines: 2\n"
                            "implicit: 0 in, 0 out\n");
}

constexpr const char* mixed = "ipv6 access-list SIX\n"
                              " permit tcp any any eq 80\n"
                              " permit udp any any\n"
                              "mac access-list MAC\n"
                              " permit any any\n"
                              "interface Ethernet1\n"
                              " ipv6 traffic-filter SIX in\n"
                              " mac access-group MAC in\n";

// Rows of the IPv6 and the MAC table with the same number would count at one counter, and row 0 of both at
// the one of the implicit denies: the lists are kept apart.
TEST(AgentCounters, KeepIpv6AndMacRowsApart) {
  Switch box(64);
  const agent::ApplyResult result = box.apply(mixed);
  ASSERT_TRUE(result.ok);
  EXPECT_EQ(result.warnings, std::vector<std::string>());
  EXPECT_EQ(box.agent().rowOwner(0, XpAcl::ingressV6, 0), nullptr);
  EXPECT_EQ(box.agent().rowOwner(0, XpAcl::ingressMac, 0), nullptr);
  EXPECT_EQ(box.agent().rowOwner(0, XpAcl::ingressMac, 1), nullptr);
  EXPECT_EQ(box.agent().audit(), std::vector<std::string>());
  box.send("tcp [2001:db8::1]:5000 > [2001:db8::2]:80", 2);
  box.send("udp [2001:db8::1]:5000 > [2001:db8::2]:53", 3);
  box.send("icmp6 2001:db8::1 > 2001:db8::2 135/0", 1);
  box.send("tcp [2001:db8::1]:5000 > [2001:db8::2]:81", 1);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 1);
  EXPECT_EQ(box.counters(), "MAC: permit any any: 8\n"
                            "SIX: permit tcp any any eq 80: 2\n"
                            "SIX: permit udp any any: 3\n"
                            "SIX: (implicit) permit icmp any any neighbor-solicitation: 1\n"
                            "SIX: (implicit) permit icmp any any neighbor-advertisement: 0\n"
                            "implicit: 1 in, 0 out\n");
}

// A table that is too full for that takes the list all the same, and says which lines do without.
TEST(AgentCounters, SayWhichLinesHaveNone) {
  Switch box(7);
  const agent::ApplyResult result = box.apply(mixed);
  ASSERT_TRUE(result.ok);
  std::string warnings;
  for (const std::string& warning : result.warnings) {
    warnings += warning + "\n";
  }
  EXPECT_EQ(warnings,
            "list SIX: table ingressV6 of chip 0 is too full to give \"(implicit) permit icmp any any "
            "neighbor-advertisement\" a counter of its own; its hits are not counted\n");
  box.send("tcp [2001:db8::1]:5000 > [2001:db8::2]:80", 2);
  box.send("udp [2001:db8::1]:5000 > [2001:db8::2]:53", 3);
  EXPECT_EQ(box.counters(), "MAC: permit any any: 5\n"
                            "SIX: permit tcp any any eq 80: 2\n"
                            "SIX: permit udp any any: 3\n"
                            "SIX: (implicit) permit icmp any any neighbor-solicitation: 0\n"
                            "SIX: (implicit) permit icmp any any neighbor-advertisement: 0 not counted\n"
                            "implicit: 0 in, 0 out\n");
}

// A list at a VLAN interface stands on both chips; its figure is the sum. One at a port stands on its own.
TEST(AgentCounters, AddUpTheChips) {
  Switch box(64);
  ASSERT_TRUE(box.apply("ip access-list extended WEB\n"
                        " permit tcp any any eq 80\n"
                        "hardware chip 1 interface Ethernet2\n"
                        "interface Ethernet1\n"
                        "interface Ethernet2\n"
                        "interface Vlan1\n"
                        " ip access-group WEB in\n")
                  .ok);
  EXPECT_EQ(box.system().device(1)->tcam(XpXdk::TACL_V4_IACL)->numValid(), 3u);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 2, 0, 1);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 3, 1, 2);
  box.send("udp 10.0.0.1:5000 > 10.0.0.2:80", 1, 1, 2);
  EXPECT_EQ(box.counters(), "WEB: permit tcp any any eq 80: 5\nimplicit: 1 in, 0 out\n");
  // A chip leaves with its hits read.
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 4, 1, 2);
  ASSERT_TRUE(box.agent().chipRemove(1).ok);
  EXPECT_EQ(box.counters(), "WEB: permit tcp any any eq 80: 9\nimplicit: 1 in, 0 out\n");
  ASSERT_TRUE(box.agent().chipAdd(1).ok);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 1, 1, 2);
  EXPECT_EQ(box.counters(), "WEB: permit tcp any any eq 80: 10\nimplicit: 1 in, 0 out\n");
}

TEST(AgentCounters, AnEthernetListStandsOnItsOwnChipOnly) {
  Switch box(64);
  ASSERT_TRUE(box.apply("ip access-list extended WEB\n"
                        " permit tcp any any eq 80\n"
                        "hardware chip 1 interface Ethernet2\n"
                        "interface Ethernet1\n"
                        "interface Ethernet2\n"
                        " ip access-group WEB in\n")
                  .ok);
  EXPECT_EQ(box.system().device(0)->tcam(XpXdk::TACL_V4_IACL)->numValid(), 1u);
  EXPECT_EQ(box.system().device(1)->tcam(XpXdk::TACL_V4_IACL)->numValid(), 3u);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 2, 0, 1);
  box.send("tcp 10.0.0.1:5000 > 10.0.0.2:80", 3, 1, 2);
  EXPECT_EQ(box.counters(), "WEB: permit tcp any any eq 80: 3\nimplicit: 0 in, 0 out\n");
}

// Packets flow while lists are edited, bound, moved and taken away, in tables that are sometimes too small.
// A tally kept beside the chip, by asking whose row each packet hits, must agree with what the counters say:
// for every line, and all in all with the number of packets.
class Traffic {
public:
  explicit Traffic(uint64_t seed) : random_(seed), lists_(random_), box_(24 + random_.below(100)) {
    for (unsigned port = 1; port <= 3; ++port) {
      agent::Interface intf;
      intf.name = intf.portName = "Ethernet" + std::to_string(port);
      intf.chip = static_cast<uint8_t>(port / 3);
      intf.trunk = true;
      intf.allowedVlans.push_back({1, 1});
      config_.interfaces.push_back(intf);
    }
    config_.numChips = 2;
    for (const auto family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
      for (const char* const name : {"A", "B"}) {
        config_.lists.push_back(lists_.list(name, family, 4));
      }
    }
    box_.system().afterWriteIs([this](const sim::Call&) {
      if (random_.oneIn(2)) {
        packet();
      }
    });
  }
  ~Traffic() { box_.system().afterWriteIs({}); }

  void step() {
    const agent::Config before = config_;
    edit();
    if (!box_.apply(config_).ok) {
      config_ = before;
    }
    for (unsigned i = random_.below(10); i > 0; --i) {
      packet();
    }
    if (random_.oneIn(3)) {
      box_.agent().pollCounters();
    }
    if (random_.oneIn(10)) {
      const Ovnet::IntfId intf = agent::intfId(config_.interfaces[random_.below(3)]);
      box_.agent().blockIntf(intf, random_.oneIn(2));
    }
    if (random_.oneIn(20)) {
      if (box_.agent().activeChips().count(1) != 0) {
        box_.agent().chipRemove(1);
      } else {
        box_.agent().chipAdd(1);
      }
    }
  }

  // Differences between the two tallies; empty when there are none.
  std::string differences() {
    box_.agent().pollCounters();
    const agent::Counters counters = box_.agent().counters();
    uint64_t counted = counters.implicitDeny[0] + counters.implicitDeny[1];
    std::map<std::string, uint64_t> read;
    for (const agent::ListCounters& list : counters.lists) {
      for (const agent::LineCounter& line : list.lines) {
        counted += line.hits;
      }
      counted += list.removed;
    }
    std::string text;
    if (counters.implicitDeny[0] + counters.implicitDeny[1] != implicit_) {
      text += "implicit " + std::to_string(counters.implicitDeny[0] + counters.implicitDeny[1]) + ", but " +
              std::to_string(implicit_) + "\n";
    }
    if (counted + blocked_ != lookups_) {
      text += "all in all " + std::to_string(counted + blocked_) + ", but " + std::to_string(lookups_) + "\n";
    }
    for (const agent::ListCounters& list : counters.lists) {
      const agent::AclGeneration& generation = *box_.agent().registry().current(list.name);
      for (const agent::LineCounter& line : list.lines) {
        const std::size_t index =
            line.origin >= 0 ? static_cast<std::size_t>(line.origin)
                             : list.acl->source.rules.size() + static_cast<std::size_t>(-line.origin - 1);
        const uint64_t expected = tally_[generation.uniqueIds[index]];
        if (line.hits != expected) {
          text += list.name.name + " " + list.acl->textOf(line.origin) + ": " + std::to_string(line.hits) +
                  ", but " + std::to_string(expected) + "\n";
        }
      }
    }
    return text;
  }

  uint64_t lookups() const { return lookups_; }
  uint64_t warned() const { return uncounted_; }
  std::vector<std::string> audit() { return box_.agent().audit(); }

private:
  void edit() {
    agent::AccessList& list = config_.lists[random_.below(static_cast<uint32_t>(config_.lists.size()))];
    if (random_.oneIn(2)) {
      const agent::AccessList other = lists_.list("x", list.family, 1);
      if (random_.oneIn(2) && list.rules.size() > 1) {
        std::vector<agent::Rule>& rules = list.rules.edit();
        rules.erase(rules.begin() + random_.below(static_cast<uint32_t>(rules.size())));
      } else {
        std::vector<agent::Rule>& rules = list.rules.edit();
        rules.insert(rules.begin(), other.rules.front());
      }
      return;
    }
    agent::Interface& intf = config_.interfaces[random_.below(3)];
    const auto direction =
        list.family != agent::Family::mac && random_.oneIn(3) ? agent::Direction::out : agent::Direction::in;
    std::erase_if(intf.bindings, [&](const agent::Binding& binding) {
      return binding.family == list.family && binding.direction == direction;
    });
    if (!random_.oneIn(3)) {
      intf.bindings.push_back({list.name, list.family, direction, {}});
    }
  }

  void packet() {
    packet::Packet packet =
        lists_.packet(config_.lists[random_.below(static_cast<uint32_t>(config_.lists.size()))]);
    packet.vlan = 0;
    const agent::Interface& in = config_.interfaces[random_.below(3)];
    const agent::Interface& out = config_.interfaces[random_.below(3)];
    const sim::PortRef outPort{out.chip, agent::intfId(out).number()};
    const sim::Verdict verdict = box_.judge(packet, in.chip, agent::intfId(in).number(), outPort);
    for (const sim::LookupResult& lookup : verdict.lookups()) {
      ++lookups_;
      const XpAcl::TcamTableInfo& table =
          *std::find_if(std::begin(XpAcl::tcamTables), std::end(XpAcl::tcamTables),
                        [&](const XpAcl::TcamTableInfo& info) { return info.table == lookup.table; });
      const agent::RowOwner* const owner = box_.agent().rowOwner(
          table.direction == Acl::egress ? out.chip : in.chip, table.tcamType, lookup.row);
      if (owner == nullptr) {
        ++blocked_;
      } else if (owner->ownCounter) {
        ++tally_[owner->uniqueId];
      } else {
        ++implicit_;
        uncounted_ += owner->origin == agent::originFinal ? 0 : 1;
      }
    }
  }

  Random random_;
  RandomLists lists_;
  Switch box_;
  agent::Config config_;
  std::map<uint64_t, uint64_t> tally_;
  uint64_t implicit_ = 0;
  uint64_t blocked_ = 0;
  uint64_t lookups_ = 0;
  uint64_t uncounted_ = 0;
};

TEST(AgentCounters, AgreeWithATallyUnderTraffic) {
  const uint64_t seed = Random::seed("counters");
  uint64_t lookups = 0;
  uint64_t uncounted = 0;
  for (unsigned life = 0; life < 40; ++life) {
    Traffic traffic(seed + life);
    for (unsigned step = 0; step < 60; ++step) {
      traffic.step();
      ASSERT_EQ(traffic.audit(), std::vector<std::string>()) << "seed " << seed + life << ", step " << step;
      ASSERT_EQ(traffic.differences(), "") << "seed " << seed + life << ", step " << step;
    }
    lookups += traffic.lookups();
    uncounted += traffic.warned();
  }
  std::cout << lookups << " lookups, " << uncounted << " hit rows without a counter of their own\n";
}

} // namespace
