#pragma once

#include "agent/Agent.h"
#include "packet/PacketText.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "test/ChipPicture.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "verify/LineEvaluator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

// The random life of a switch with two chips: lists are edited, applied, moved and taken away, interfaces are
// blocked, ports join and leave VLANs and port-channels, chips leave and return. After every step the books,
// the chips and the configured lines must agree, and the chips must be as a system is that was built from
// scratch with the same configuration.

namespace test {

inline constexpr unsigned lifePorts = 4;
inline constexpr uint32_t lifeTableRows = 600;
inline constexpr uint16_t lifeVlans[] = {1, 10, 20};

class RandomLife {
public:
  explicit RandomLife(uint64_t seed) : random_(seed), lists_(random_) {
    sim::DeviceConfig device;
    device.tcamRows.fill(lifeTableRows);
    device.egressCapacity = device.portVlanCapacity = lifePorts * 4096;
    system_.deviceAdd(0, device);
    system_.deviceAdd(1, device);
    installed_.emplace(system_.install());
    agent::AgentSetup setup;
    setup.numChips = 2;
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = lifeTableRows;
    }
    agent_ = std::make_unique<agent::Agent>(setup);
    makeConfig();
    agent_->apply(config_);
    applied_ = config_;
    attach();
  }

  // One step; answers its name.
  std::string step() {
    switch (random_.below(12)) {
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
    case 8:
      return port();
    case 9:
      return vlan();
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
      const agent::Interface& in = config_.interfaces[random_.below(lifePorts)];
      const agent::Interface& out = config_.interfaces[random_.below(lifePorts)];
      if (!active(in) || !active(out)) {
        continue;
      }
      packet::Packet packet =
          lists_.packet(config_.lists[random_.below(static_cast<uint32_t>(config_.lists.size()))]);
      packet.vlan = random_.oneIn(2) ? 0 : lifeVlans[random_.below(std::size(lifeVlans))];
      const uint16_t vlan = packet.vlan != 0 ? packet.vlan : in.accessVlan.value_or(1);
      if (!carries(in, vlan) || !carries(out, out.accessVlan.value_or(vlan))) {
        continue;
      }
      sim::Ingress ingress{{in.chip, number(in)}, sim::PortRef{out.chip, number(out)}, 1, true};
      const sim::Verdict verdict = sim::judge(system_, packet, ingress);
      ASSERT_EQ(verdict.permit(), expected(packet, in, out))
          << "in " << in.name << " out " << out.name << ": " << packet::toText(packet) << "\n"
          << sim::verdictText(verdict);
    }
  }

  // The chips against those of a system that never had another configuration.
  void compareWithScratch() {
    sim::System scratch;
    for (const auto& [number, device] : system_.devices()) {
      scratch.deviceAdd(number, device->config());
    }
    const sim::System::Installation installed = scratch.install();
    agent::Agent agent(agent_->setup());
    if (agent_->activeChips().count(1) == 0) {
      agent.chipRemove(1);
    }
    const agent::ApplyResult applied = agent.apply(applied_);
    ASSERT_TRUE(applied.ok) << (applied.errors.empty() ? "no reason" : applied.errors.front());
    for (const Ovnet::IntfId intf : blocked_) {
      agent.blockIntf(intf, true);
    }
    for (const auto& [number, device] : system_.devices()) {
      if (agent_->activeChips().count(number) != 0) {
        ASSERT_EQ(test::chipPicture(*device, vifNames(*agent_)),
                  test::chipPicture(*scratch.device(number), vifNames(agent)))
            << "chip " << unsigned{number};
      }
    }
  }

  // A moment of rest: no list is applied, nothing is blocked, every port is a trunk of every VLAN, both chips
  // are there. What is alive then does not depend on what went before, the lists' lines left aside.
  void rest() {
    for (const Ovnet::IntfId intf : std::set<Ovnet::IntfId>(blocked_)) {
      agent_->blockIntf(intf, false);
    }
    blocked_.clear();
    if (agent_->activeChips().count(1) == 0) {
      EXPECT_EQ(chip(), "chip 1 joins");
    }
    std::vector<agent::AccessList> lists = std::move(config_.lists);
    for (agent::AccessList& list : lists) {
      list.rules.edit().resize(1);
    }
    config_ = agent::Config();
    config_.lists = std::move(lists);
    makeInterfaces();
    EXPECT_EQ(apply(), "done");
  }

private:
  std::function<std::string(uint16_t)> vifNames(const agent::Agent& agent) const {
    std::map<uint16_t, std::string> names;
    for (const agent::Interface& intf : applied_.interfaces) {
      if (intf.kind == agent::InterfaceKind::ethernet) {
        if (const auto vif = agent.vifOf(agent::intfId(intf))) {
          names[*vif] += intf.name;
        }
      }
    }
    return [names](uint16_t vif) { return names.count(vif) != 0 ? names.at(vif) : "nobody's VIF"; };
  }

  bool carries(const agent::Interface& intf, uint16_t vlan) const {
    return agent_->portVlanVifStatus()->portVlanToVifMapHas(
        XpLib::PortAndVlanId(agent::intfId(intf), Bridging::VlanId(vlan)));
  }

  static uint32_t number(const agent::Interface& intf) { return agent::intfId(intf).number(); }

  void makeConfig() {
    makeInterfaces();
    for (const auto family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
      for (const char* const name : {"A", "B", "C"}) {
        config_.lists.push_back(lists_.list(name, family, 8));
      }
    }
  }

  void makeInterfaces() {
    config_.numChips = 2;
    config_.vlans = {10, 20};
    for (unsigned port = 1; port <= lifePorts; ++port) {
      agent::Interface intf;
      intf.name = intf.portName = "Ethernet" + std::to_string(port);
      intf.chip = static_cast<uint8_t>(port % 2);
      intf.trunk = true;
      for (const uint16_t vlan : lifeVlans) {
        intf.allowedVlans.push_back({vlan, vlan});
      }
      config_.interfaces.push_back(intf);
    }
    for (const uint16_t vlan : lifeVlans) {
      addVlanInterface(vlan);
    }
  }

  void attach() {
    for (unsigned port = 0; port < lifePorts; ++port) {
      const agent::Interface& intf = config_.interfaces[port];
      sim::PortAttachment attachment;
      attachment.accessVlanIs(intf.accessVlan.value_or(0));
      for (const uint16_t vlan : lifeVlans) {
        attachment.carriesIs(vlan, vlan, carries(intf, vlan));
      }
      if (const auto vif = agent_->vifOf(agent::intfId(intf))) {
        attachment.vifIs(1, 4094, *vif);
      }
      system_.device(intf.chip)->attachmentIs(number(intf), attachment);
    }
  }

  bool active(const agent::Interface& intf) const { return agent_->activeChips().count(intf.chip) != 0; }

  // A change that does not fit leaves everything as it was, so the model goes back too.
  std::string apply() {
    equalMembers();
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

  // The ports of a port-channel on one chip have the same egress lists.
  void equalMembers() {
    for (unsigned i = 0; i < lifePorts; ++i) {
      for (unsigned j = i + 1; j < lifePorts; ++j) {
        agent::Interface& member = config_.interfaces[j];
        if (!siblings(config_.interfaces[i], member)) {
          continue;
        }
        const auto isEgress = [](const agent::Binding& binding) {
          return binding.direction == agent::Direction::out;
        };
        std::erase_if(member.bindings, isEgress);
        std::copy_if(config_.interfaces[i].bindings.begin(), config_.interfaces[i].bindings.end(),
                     std::back_inserter(member.bindings), isEgress);
      }
    }
  }

  static bool siblings(const agent::Interface& a, const agent::Interface& b) {
    return a.channelGroup && a.channelGroup == b.channelGroup && a.chip == b.chip;
  }

  bool isBlocked(const agent::Interface& intf) const {
    return std::any_of(config_.interfaces.begin(), config_.interfaces.end(),
                       [&](const agent::Interface& other) {
                         return blocked_.count(agent::intfId(other)) != 0 &&
                                (other.name == intf.name || siblings(other, intf));
                       });
  }

  std::string edit() {
    agent::AccessList& list = config_.lists[random_.below(static_cast<uint32_t>(config_.lists.size()))];
    const unsigned kind = random_.below(4);
    if (kind == 0) {
      list = lists_.list(list.name, list.family, 12);
    } else if (kind == 1 && list.rules.size() > 1) {
      std::vector<agent::Rule>& rules = list.rules.edit();
      rules.erase(rules.begin() + random_.below(static_cast<uint32_t>(rules.size())));
    } else {
      const agent::AccessList other = lists_.list("x", list.family, 1);
      std::vector<agent::Rule>& rules = list.rules.edit();
      rules.insert(rules.begin() + random_.below(static_cast<uint32_t>(rules.size() + 1)),
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

  // A port joins and leaves VLANs, and a port-channel, whose members share one VIF.
  std::string port() {
    agent::Interface& intf = config_.interfaces[random_.below(lifePorts)];
    intf.accessVlan.reset();
    intf.trunk = false;
    intf.allowedVlans.clear();
    intf.channelGroup.reset();
    switch (random_.below(20)) {
    case 0: // every VLAN
      break;
    case 1:
    case 2:
    case 3:
    case 4:
      intf.accessVlan = lifeVlans[random_.below(std::size(lifeVlans))];
      break;
    default:
      intf.trunk = true;
      for (const uint16_t vlan : lifeVlans) {
        if (random_.oneIn(2)) {
          intf.allowedVlans.push_back({vlan, vlan});
        }
      }
      break;
    }
    if (random_.oneIn(3)) {
      intf.channelGroup = 1 + random_.below(2);
    }
    return "port " + intf.name + " " + apply();
  }

  // A VLAN interface goes with its lists, or comes.
  std::string vlan() {
    const uint16_t vlan = lifeVlans[random_.below(std::size(lifeVlans))];
    const auto found = std::find_if(config_.interfaces.begin(), config_.interfaces.end(),
                                    [&](const agent::Interface& intf) { return isVlan(intf, vlan); });
    if (found != config_.interfaces.end()) {
      if (config_.interfaces.size() > lifePorts + 1) {
        config_.interfaces.erase(found);
      }
    } else {
      addVlanInterface(vlan);
    }
    return "vlan " + std::to_string(vlan) + " " + apply();
  }

  static bool isVlan(const agent::Interface& intf, uint16_t vlan) {
    return intf.kind == agent::InterfaceKind::vlan && intf.vlan == vlan;
  }

  void addVlanInterface(uint16_t vlan) {
    agent::Interface intf;
    intf.name = "Vlan" + std::to_string(vlan);
    intf.kind = agent::InterfaceKind::vlan;
    intf.vlan = vlan;
    config_.interfaces.push_back(intf);
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
    if (isBlocked(intf)) {
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

  // Whether the lists of a VLAN interface, or its absence, let the packet pass. A blocked one stays blocked
  // when it goes.
  bool vlanLists(const packet::Packet& packet, uint16_t vlan, agent::Direction direction) {
    if (blocked_.count(Ovnet::IntfId(Ovnet::IntfId::vlan, vlan)) != 0) {
      return packet.l3 == packet::L3::none;
    }
    return std::all_of(config_.interfaces.begin(), config_.interfaces.end(),
                       [&](const agent::Interface& intf) {
                         return !isVlan(intf, vlan) || lists(packet, intf, direction, vlan);
                       });
  }

  bool expected(const packet::Packet& packet, const agent::Interface& in, const agent::Interface& out) {
    const uint16_t vlan = packet.vlan != 0 ? packet.vlan : in.accessVlan.value_or(1);
    const uint16_t outVlan = out.accessVlan.value_or(vlan);
    return lists(packet, in, agent::Direction::in, vlan) && vlanLists(packet, vlan, agent::Direction::in) &&
           lists(packet, out, agent::Direction::out, outVlan) &&
           vlanLists(packet, outVlan, agent::Direction::out);
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

} // namespace test
