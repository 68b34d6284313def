#include "test/FaultTrials.h"

#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "sim/ChipFile.h"
#include "sim/ChipMapping.h"
#include "sim/Pipeline.h"
#include "test/ChipPicture.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "verify/LineEvaluator.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

namespace {

constexpr uint32_t tableRows = 24;
constexpr uint32_t numPorts = 3;
constexpr uint16_t trialVlans[] = {10, 20, 30};

const std::string smallA = "ip access-list extended A\n permit tcp any any eq 80\n deny tcp any any\n"
                           " permit udp any any\n";
const std::string editedA =
    "ip access-list extended A\n permit tcp any any eq 80\n permit tcp any any eq 22\n"
    " deny tcp any any\n permit udp any any eq 53\n";
const std::string grownA = "ip access-list extended A\n permit tcp any any eq 80\n permit tcp any any eq 22\n"
                           " permit tcp any host 10.0.0.9 range 1000 1003\n deny tcp any any\n"
                           " permit icmp any any echo\n permit udp any any\n";
const std::string others = "ipv6 access-list S\n permit tcp any any eq 443\n"
                           "mac access-list M\n permit any any\n";
const std::string trunks = "hardware chip 1 interface Ethernet3\n"
                           "interface Ethernet1\n switchport trunk allowed vlan 10,20\n"
                           "interface Ethernet2\n switchport trunk allowed vlan 10\n"
                           "interface Ethernet3\n switchport trunk allowed vlan 10,20\n";
const std::string bindings = "interface Ethernet1\n ip access-group A in\n mac access-group M in\n"
                             "interface Ethernet2\n ip access-group A out\n"
                             "interface Ethernet3\n ip access-group A in\n ipv6 traffic-filter S out\n"
                             "interface Vlan10\n ip access-group A in\n ipv6 traffic-filter S out\n";
const std::string moved = "hardware chip 1 interface Ethernet3\n"
                          "interface Ethernet1\n switchport trunk allowed vlan 20,30\n"
                          "interface Ethernet2\n switchport trunk allowed vlan 10,30\n"
                          "interface Ethernet3\n switchport trunk allowed vlan 10\n";
// Grown, shrunk, unbound, bound anew; pairs come and go.
const std::string everything = "ipv6 access-list S\n permit tcp any any eq 443\n permit udp any any\n"
                               "interface Ethernet1\n switchport trunk allowed vlan 10\n"
                               " ip access-group A in\n"
                               "interface Ethernet2\n switchport trunk allowed vlan 10,30\n"
                               " ipv6 traffic-filter S in\n"
                               "interface Vlan10\n ip access-group A out\n";

std::vector<FaultScenario> makeScenarios() {
  const std::string small = smallA + others + trunks + bindings;
  const std::string grown = grownA + others + trunks + bindings;
  const std::string unbound = smallA + others + trunks;
  std::vector<FaultScenario> all{{"start-up", "", small, {}},
                                 {"start again", small, editedA + others + trunks + bindings, {}, true},
                                 {"bind", unbound, small, {}},
                                 {"edit", small, editedA + others + trunks + bindings, {}},
                                 {"grow", small, grown, {}},
                                 {"shrink", grown, small, {}},
                                 {"unbind", small, unbound, {}},
                                 {"chip joins", small, small,
                                  [](agent::Agent& agent) { return agent.chipAdd(1).ok; }, false,
                                  [](agent::Agent& agent) { return agent.chipRemove(1).ok; }},
                                 {"pairs move", small, smallA + others + moved + bindings, {}},
                                 {"everything", small, editedA + everything, {}}};
  for (FaultScenario& scenario : all) {
    if (!scenario.act) {
      scenario.act = [config = faultConfig(scenario.after)](agent::Agent& agent) {
        return agent.apply(config).ok;
      };
    }
  }
  return all;
}

sim::PortRef portRef(uint32_t port) {
  return {static_cast<uint8_t>(port == 3 ? 1 : 0), port};
}

// All ports carry everything, with the VIFs that the agent gives them: which of the pairs have lists is the
// question.
void attach(sim::System& system) {
  for (uint32_t port = 1; port <= numPorts; ++port) {
    sim::PortAttachment attachment;
    attachment.carriesIs(1, 4094, true);
    attachment.vifIs(1, 4094, static_cast<uint16_t>(port));
    system.device(portRef(port).device)->attachmentIs(port, attachment);
  }
}

std::string contents(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// For the handler of SIGABRT, which has no arguments of its own.
sim::System* dying = nullptr;
std::string logFile;

void keepLog(int) {
  std::ofstream(logFile, std::ios::binary) << dying->logText();
  _exit(86);
}

} // namespace

const std::vector<FaultScenario>& faultScenarios() {
  static const std::vector<FaultScenario> all = makeScenarios();
  return all;
}

const FaultScenario& faultScenario(const std::string& name) {
  for (const FaultScenario& scenario : faultScenarios()) {
    if (scenario.name == name) {
      return scenario;
    }
  }
  std::abort();
}

std::unique_ptr<sim::System> faultChips() {
  sim::DeviceConfig device;
  device.tcamRows.fill(tableRows);
  device.numPorts = numPorts + 1;
  device.portVlanCapacity = device.egressCapacity = 16;
  auto system = std::make_unique<sim::System>();
  system->deviceAdd(0, device);
  system->deviceAdd(1, device);
  return system;
}

agent::AgentSetup faultSetup() {
  agent::AgentSetup setup;
  setup.numChips = 2;
  for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
    setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = tableRows;
  }
  return setup;
}

agent::Config faultConfig(const std::string& text) {
  return agent::readConfigText(text, "c");
}

bool FaultOutcome::finished() const {
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
bool FaultOutcome::aborted() const {
  return WIFEXITED(status) && WEXITSTATUS(status) == 86;
}
bool FaultOutcome::killed() const {
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

namespace {

// An agent where the scenario begins; null for a switch that starts.
std::unique_ptr<agent::Agent> begun(const FaultScenario& scenario) {
  std::unique_ptr<agent::Agent> agent;
  if (!scenario.before.empty()) {
    agent = std::make_unique<agent::Agent>(faultSetup());
    EXPECT_TRUE(agent->apply(faultConfig(scenario.before)).ok);
    EXPECT_TRUE(!scenario.prepare || scenario.prepare(*agent));
  }
  if (scenario.restart) {
    agent.reset();
  }
  return agent;
}

// The change itself; makes the agent that is not there yet.
bool acted(const FaultScenario& scenario, std::unique_ptr<agent::Agent>& agent) {
  if (!agent) {
    agent::AgentSetup setup = faultSetup();
    setup.restart = scenario.restart;
    agent = std::make_unique<agent::Agent>(setup);
  }
  return scenario.act(*agent);
}

} // namespace

FaultTrials::FaultTrials(const FaultScenario& scenario)
    : scenario_(scenario),
      folder_(std::filesystem::temp_directory_path() / ("faults" + std::to_string(getpid()))) {
  std::filesystem::create_directories(folder_);
  makePackets();
  for (const bool after : {false, true}) {
    const auto system = faultChips();
    const auto installed = system->install();
    std::unique_ptr<agent::Agent> agent = begun(scenario);
    if (after) {
      EXPECT_TRUE(acted(scenario, agent));
      wanted_ = picture(*system);
    }
    (after ? newVerdicts_ : oldVerdicts_) = verdicts(*system);
  }
  system_ = faultChips();
  faulty_ = std::make_unique<sim::FaultySdk>(*system_);
  installed_.emplace(faulty_->install());
  agent_ = begun(scenario);
  system_->logEnabledIs(true);
}

FaultTrials::~FaultTrials() {
  std::filesystem::remove_all(folder_);
}

// Of every line of every list a packet that it decides, one that the end of the list decides, and some on the
// edges of its lines.
void FaultTrials::makePackets() {
  Random random(Random::seed(scenario_.name));
  RandomLists lists(random);
  for (const std::string& text : {scenario_.before, scenario_.after}) {
    const agent::Config config = faultConfig(text);
    for (const agent::AccessList& list : config.lists) {
      std::set<std::size_t> wanted;
      for (std::size_t i = 0; i <= list.rules.size(); ++i) {
        wanted.insert(i);
      }
      for (unsigned tries = 0; tries < 400; ++tries) {
        packet::Packet packet = lists.packet(list);
        packet.vlan = trialVlans[random.below(std::size(trialVlans))];
        const verify::Judgement judgement = verify::evaluate(list, packet, packet.vlan);
        const bool line = judgement.decider == verify::Decider::line;
        if (wanted.erase(line ? judgement.index : list.rules.size()) != 0) {
          for (const uint16_t vlan : trialVlans) {
            packet.vlan = vlan;
            packets_.push_back(packet);
          }
        } else if (tries < 8) {
          packets_.push_back(packet);
        }
      }
    }
  }
}

std::string FaultTrials::verdicts(sim::System& system) const {
  attach(system);
  std::string text;
  for (const packet::Packet& packet : packets_) {
    for (const auto& [in, out] :
         {std::pair(1u, 2u), std::pair(2u, 1u), std::pair(1u, 3u), std::pair(3u, 2u)}) {
      text += sim::judge(system, packet, {portRef(in), portRef(out), 1, false}).permit() ? '1' : '0';
    }
  }
  return text;
}

std::string FaultTrials::leaks(sim::System& system) const {
  static constexpr const char* ways[] = {"1 to 2: ", "2 to 1: ", "1 to 3: ", "3 to 2: "};
  const std::string found = verdicts(system);
  std::string text;
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (found[i] == '1' && oldVerdicts_[i] == '0' && newVerdicts_[i] == '0') {
      text += ways[i % 4] + packet::toText(packets_[i / 4]) + "\n";
    }
  }
  return text;
}

std::string FaultTrials::leaks(const std::string& image) const {
  const auto system = faultChips();
  sim::chipImageIs(*system, image);
  return leaks(*system);
}

std::string FaultTrials::picture(const sim::System& system) {
  std::string text;
  for (const auto& [number, device] : system.devices()) {
    text += "chip " + std::to_string(number) + "\n" +
            chipPicture(*device, [](uint16_t vif) { return "VIF " + std::to_string(vif); });
  }
  return text;
}

void FaultTrials::child(const Disturbance& disturbance, sim::ChipMapping& mapping) {
  if (std::freopen((folder_ + "/errors").c_str(), "w", stderr) == nullptr) {
    _exit(87);
  }
  dying = system_.get();
  logFile = folder_ + "/log";
  std::signal(SIGABRT, keepLog);
  uint64_t writes = 0;
  system_->afterWriteIs([&](const sim::Call&) {
    mapping.mirror(*system_);
    if (++writes == disturbance.killAfterWrite) {
      kill(getpid(), SIGKILL);
    }
  });
  faulty_->faultIs(disturbance.fault);
  bool done = false;
  if (disturbance.again) {
    disturbance.again(*agent_);
  } else {
    done = acted(scenario_, agent_);
  }
  std::ofstream(logFile, std::ios::binary) << system_->logText();
  _exit(!done ? 3 : disturbance.fault.call != 0 && !faulty_->fired() ? 2 : 0);
}

FaultOutcome FaultTrials::run(const Disturbance& disturbance) {
  for (const char* const name : {"/errors", "/chips", "/log"}) {
    std::filesystem::remove(folder_ + name);
  }
  sim::ChipMapping mapping(folder_ + "/chips", *system_);
  std::fflush(nullptr);
  const pid_t process = fork();
  if (process == 0) {
    child(disturbance, mapping);
  }
  if (disturbance.meanwhile) {
    disturbance.meanwhile(process);
  }
  FaultOutcome outcome;
  waitpid(process, &outcome.status, 0);
  outcome.errors = contents(folder_ + "/errors");
  outcome.image = sim::ChipMapping::image(folder_ + "/chips");
  outcome.log = contents(folder_ + "/log");
  return outcome;
}

} // namespace test
