#include "agent/Agent.h"
#include "packet/PacketText.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "verify/LineEvaluator.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

// The chip's rows against the configured lines: two answers that share no code. Lists of every family and
// role, packets on the edges of their lines.

namespace {

using test::Random;
using test::RandomLists;

constexpr uint16_t nativeVlan = 1;

struct Placed {
  agent::Config config;
  const agent::AccessList* list = nullptr;
  bool out = false;
};

// The list on one port or VLAN interface, in one direction, with a neighbour of another family at times.
Placed place(Random& random, RandomLists& lists) {
  Placed placed;
  const auto family = static_cast<agent::Family>(random.below(3));
  agent::Config& config = placed.config;
  config.lists.push_back(lists.list("L", family, 24));
  agent::Interface in;
  in.name = in.portName = "Ethernet1";
  agent::Interface outPort;
  outPort.name = outPort.portName = "Ethernet2";
  agent::Interface vlan;
  vlan.name = "Vlan1";
  vlan.kind = agent::InterfaceKind::vlan;
  vlan.vlan = nativeVlan;
  placed.out = family != agent::Family::mac && random.oneIn(3);
  const bool routed = family != agent::Family::mac && random.oneIn(3);
  const agent::Binding binding{"L", family, placed.out ? agent::Direction::out : agent::Direction::in, {}};
  (routed ? vlan : placed.out ? outPort : in).bindings.push_back(binding);
  config.interfaces = {in, outPort, vlan};
  placed.list = &config.lists.front();
  return placed;
}

std::string listText(const agent::AccessList& list) {
  std::string text;
  for (const agent::Rule& rule : list.rules) {
    text += std::string(rule.permit ? "permit" : "deny") + " with " +
            std::to_string(rule.alternatives.size()) + " alternatives\n";
  }
  return text;
}

TEST(Differential, ChipAndLinesAgreeOnEveryPacket) {
  const uint64_t seed = Random::seed("differential");
  const char* const many = std::getenv("XPACL_PAIRS");
  const uint64_t pairs = many != nullptr ? std::strtoull(many, nullptr, 10) : 240000;
  constexpr unsigned packetsPerList = 1500;
  Random random(seed);
  RandomLists lists(random);
  uint64_t permitted = 0;
  for (uint64_t done = 0; done < pairs; done += packetsPerList) {
    sim::System system;
    sim::DeviceConfig device;
    device.tcamRows = {8192, 8192, 8192, 8192, 8192};
    system.deviceAdd(0, device);
    const auto installed = system.install();
    agent::AgentSetup setup;
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = 8192;
    }
    agent::Agent agent(setup);
    const Placed placed = place(random, lists);
    const agent::ApplyResult applied = agent.apply(placed.config);
    ASSERT_TRUE(applied.ok) << (applied.errors.empty() ? "" : applied.errors.front());
    for (uint32_t port = 1; port <= 2; ++port) {
      sim::PortAttachment attachment;
      attachment.accessVlanIs(nativeVlan);
      attachment.carriesIs(1, 4094, true);
      attachment.vifIs(1, 4094, *agent.vifOf(Ovnet::IntfId(Ovnet::IntfId::ethernet, port)));
      system.device(0)->attachmentIs(port, attachment);
    }
    // Each packet in a burst too.
    sim::Burst burst(system);
    std::vector<sim::Verdict> verdicts(packetsPerList);
    std::vector<sim::Verdict> inBurst(packetsPerList);
    for (unsigned i = 0; i < packetsPerList; ++i) {
      packet::Packet packet = lists.packet(*placed.list);
      if (placed.list->family != agent::Family::mac) {
        packet.vlan = 0; // the routed entry stands for the native VLAN
      }
      sim::Ingress ingress{{0, 1}, std::nullopt, nativeVlan, true};
      if (placed.out) {
        ingress.out = sim::PortRef{0, 2};
      }
      const sim::Verdict& verdict = verdicts[i] = sim::judge(system, packet, ingress);
      burst.add(packet, ingress, inBurst[i]);
      const uint16_t vlan = packet.vlan != 0 ? packet.vlan : nativeVlan;
      const verify::Judgement expected = verify::evaluate(*placed.list, packet, vlan);
      const bool expectPermit = expected.decider == verify::Decider::otherFamily || expected.permit;
      ASSERT_EQ(verdict.permit(), expectPermit)
          << "seed " << seed << ", list " << done / packetsPerList << ", packet " << i << ": "
          << packet::toText(packet) << "\nchip: " << sim::verdictText(verdict) << "\nlines: index "
          << expected.index << "\n"
          << listText(*placed.list);
      permitted += verdict.permit() ? 1 : 0;
    }
    burst.finish();
    for (unsigned i = 0; i < packetsPerList; ++i) {
      ASSERT_EQ(sim::verdictText(inBurst[i]), sim::verdictText(verdicts[i]))
          << "seed " << seed << ", list " << done / packetsPerList << ", packet " << i;
    }
    ASSERT_EQ(agent.audit(), std::vector<std::string>());
  }
  std::cout << pairs << " pairs, " << permitted << " permitted\n";
}

} // namespace
