#include "agent/Agent.h"
#include "packet/PacketText.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "verify/LineEvaluator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>

// Long random lives of a switch with two chips: lists are edited, applied, moved and taken away, interfaces
// are blocked, chips leave and return. After every step the books, the chips and the configured lines must
// agree.

namespace {

using test::Random;
using test::RandomLists;

constexpr unsigned numPorts = 4;
constexpr uint32_t tableRows = 600;
constexpr uint16_t vlans[] = {1, 10};

class Life {
public:
  explicit Life(uint64_t seed) : random_(seed), lists_(random_) {
    sim::DeviceConfig device;
    device.tcamRows.fill(tableRows);
    system_.deviceAdd(0, device);
    system_.deviceAdd(1, device);
    installed_.emplace(system_.install());
    agent::AgentSetup setup;
    setup.numChips = 2;
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = tableRows;
    }
    agent_ = std::make_unique<agent::Agent>(setup);
    makeConfig();
    agent_->apply(config_);
    attach();
  }

  // One step; answers its name.
  std::string step() {
    switch (random_.below(10)) {
    case 0:
    case 1:
    case 2:
      return edit();
    case 3:
    case 4:
      return bind();
    case 5:
      return unbind();
    case 6:
      return block();
    case 7:
      return chip();
    default:
      return "again " + apply();
    }
  }

  std::vector<std::string> audit() {
    std::vector<std::string> broken = agent_->audit();
    for (const auto& [number, device] : system_.devices()) {
      for (const std::string& finding : device->audit()) {
        broken.push_back("simulated chip " + std::to_string(number) + ": " + finding);
      }
    }
    return broken;
  }

  // What the chip says of a packet, and what the lines say.
  void check(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      const agent::Interface& in = config_.interfaces[random_.below(numPorts)];
      const agent::Interface& out = config_.interfaces[random_.below(numPorts)];
      if (!active(in) || !active(out)) {
        continue;
      }
      packet::Packet packet =
          lists_.packet(config_.lists[random_.below(static_cast<uint32_t>(config_.lists.size()))]);
      packet.vlan = random_.oneIn(2) ? 0 : 10;
      sim::Ingress ingress{{in.chip, number(in)}, sim::PortRef{out.chip, number(out)}, 1, true};
      const sim::Verdict verdict = sim::judge(system_, packet, ingress);
      ASSERT_EQ(verdict.permit(), expected(packet, in, out))
          << "in " << in.name << " out " << out.name << ": " << packet::toText(packet) << "\n"
          << sim::verdictText(verdict);
    }
  }

private:
  static uint32_t number(const agent::Interface& intf) { return agent::intfId(intf).number(); }

  void makeConfig() {
    config_.numChips = 2;
    config_.vlans = {10};
    for (unsigned port = 1; port <= numPorts; ++port) {
      agent::Interface intf;
      intf.name = intf.portName = "Ethernet" + std::to_string(port);
      intf.chip = static_cast<uint8_t>(port % 2);
      config_.interfaces.push_back(intf);
    }
    for (const uint16_t vlan : vlans) {
      agent::Interface intf;
      intf.name = "Vlan" + std::to_string(vlan);
      intf.kind = agent::InterfaceKind::vlan;
      intf.vlan = vlan;
      config_.interfaces.push_back(intf);
    }
    for (const auto family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
      for (const char* const name : {"A", "B", "C"}) {
        config_.lists.push_back(lists_.list(name, family, 8));
      }
    }
  }

  void attach() {
    for (unsigned port = 0; port < numPorts; ++port) {
      const agent::Interface& intf = config_.interfaces[port];
      sim::PortAttachment attachment;
      attachment.carriesIs(1, 4094, true);
      if (const auto vif = agent_->vifOf(agent::intfId(intf))) {
        attachment.vifIs(1, 4094, *vif);
      }
      system_.device(intf.chip)->attachmentIs(number(intf), attachment);
    }
  }

  bool active(const agent::Interface& intf) const { return agent_->activeChips().count(intf.chip) != 0; }

  // A change that does not fit leaves everything as it was, so the model goes back too.
  std::string apply() {
    const agent::ApplyResult result = agent_->apply(config_);
    if (!result.ok) {
      config_ = applied_;
      EXPECT_NE(agent_->unitError(), "");
      return "refused";
    }
    EXPECT_EQ(agent_->unitError(), "");
    applied_ = config_;
    attach();
    return "done";
  }

  std::string edit() {
    agent::AccessList& list = config_.lists[random_.below(static_cast<uint32_t>(config_.lists.size()))];
    const unsigned kind = random_.below(4);
    if (kind == 0) {
      list = lists_.list(list.name, list.family, 12);
    } else if (kind == 1 && list.rules.size() > 1) {
      list.rules.erase(list.rules.begin() + random_.below(static_cast<uint32_t>(list.rules.size())));
    } else {
      const agent::AccessList other = lists_.list("x", list.family, 1);
      list.rules.insert(list.rules.begin() + random_.below(static_cast<uint32_t>(list.rules.size() + 1)),
                        other.rules.front());
    }
    return "edit " + list.name + " " + apply();
  }

  std::string bind() {
    agent::Interface& intf =
        config_.interfaces[random_.below(static_cast<uint32_t>(config_.interfaces.size()))];
    const agent::AccessList& list = config_.lists[random_.below(static_cast<uint32_t>(config_.lists.size()))];
    const bool isVlan = intf.kind == agent::InterfaceKind::vlan;
    if (list.family == agent::Family::mac && isVlan) {
      return "nothing";
    }
    const auto direction =
        list.family != agent::Family::mac && random_.oneIn(2) ? agent::Direction::out : agent::Direction::in;
    std::erase_if(intf.bindings, [&](const agent::Binding& binding) {
      return binding.family == list.family && binding.direction == direction;
    });
    intf.bindings.push_back({list.name, list.family, direction, {}});
    return "bind " + list.name + " to " + intf.name + " " + apply();
  }

  std::string unbind() {
    agent::Interface& intf =
        config_.interfaces[random_.below(static_cast<uint32_t>(config_.interfaces.size()))];
    if (!intf.bindings.empty()) {
      intf.bindings.erase(intf.bindings.begin() + random_.below(static_cast<uint32_t>(intf.bindings.size())));
    }
    return "unbind " + intf.name + " " + apply();
  }

  std::string block() {
    const agent::Interface& intf =
        config_.interfaces[random_.below(static_cast<uint32_t>(config_.interfaces.size()))];
    const Ovnet::IntfId id = agent::intfId(intf);
    const bool on = blocked_.count(id) == 0;
    if (on) {
      blocked_.insert(id);
    } else {
      blocked_.erase(id);
    }
    agent_->blockIntf(id, on);
    return (on ? "block " : "unblock ") + intf.name;
  }

  std::string chip() {
    if (agent_->activeChips().count(1) != 0) {
      EXPECT_TRUE(agent_->chipRemove(1).ok);
      return "chip 1 leaves";
    }
    const bool ok = agent_->chipAdd(1).ok;
    if (ok) {
      attach();
    }
    return ok ? "chip 1 joins" : "chip 1 is refused";
  }

  bool lists(const packet::Packet& packet, const agent::Interface& intf, agent::Direction direction,
             uint16_t vlan) {
    if (blocked_.count(agent::intfId(intf)) != 0) {
      // A blocked interface drops IP, and at a port's ingress every frame.
      const bool port = intf.kind == agent::InterfaceKind::ethernet && direction == agent::Direction::in;
      return packet.l3 == packet::L3::none && !port;
    }
    for (const agent::Binding& binding : intf.bindings) {
      if (binding.direction != direction) {
        continue;
      }
      const verify::Judgement judgement =
          verify::evaluate(*config_.list(binding.family, binding.list), packet, vlan);
      if (!judgement.permit && judgement.decider != verify::Decider::otherFamily &&
          judgement.decider != verify::Decider::noList) {
        return false;
      }
    }
    return true;
  }

  const agent::Interface& vlanInterface(uint16_t vlan) const {
    return *std::find_if(config_.interfaces.begin(), config_.interfaces.end(),
                         [&](const agent::Interface& intf) {
                           return intf.kind == agent::InterfaceKind::vlan && intf.vlan == vlan;
                         });
  }

  bool expected(const packet::Packet& packet, const agent::Interface& in, const agent::Interface& out) {
    const uint16_t vlan = packet.vlan != 0 ? packet.vlan : 1;
    return lists(packet, in, agent::Direction::in, vlan) &&
           lists(packet, vlanInterface(vlan), agent::Direction::in, vlan) &&
           lists(packet, out, agent::Direction::out, vlan) &&
           lists(packet, vlanInterface(vlan), agent::Direction::out, vlan);
  }

  Random random_;
  RandomLists lists_;
  sim::System system_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
  agent::Config config_;
  agent::Config applied_;
  std::set<Ovnet::IntfId> blocked_;
};

TEST(Scenario, EveryStepLeavesBooksChipsAndLinesInAgreement) {
  const uint64_t seed = Random::seed("scenario");
  const char* const given = std::getenv("XPACL_STEPS");
  const unsigned steps = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 600;
  Life life(seed);
  std::map<std::string, unsigned> seen;
  for (unsigned i = 0; i < steps; ++i) {
    const std::string step = life.step();
    ++seen[step.substr(0, step.find(' '))];
    ASSERT_EQ(life.audit(), std::vector<std::string>()) << "seed " << seed << ", step " << i << ": " << step;
    life.check(20);
    ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed << ", step " << i << ": " << step;
  }
  for (const auto& [name, count] : seen) {
    std::cout << name << " " << count << "\n";
  }
}

} // namespace
