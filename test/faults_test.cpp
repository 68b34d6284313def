#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "sim/ChipFile.h"
#include "sim/Faults.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "test/ChipPicture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

// What the system survives: a status at any call, and its own sudden death after any write. Each trial is a
// process of its own; the chips live on in a file, as hardware would.

namespace {

constexpr const char* before = R"(ip access-list extended A
 permit tcp any any eq 80
 deny tcp any any
 permit udp any any
ipv6 access-list S
 permit tcp any any eq 443
mac access-list M
 permit any any
interface Ethernet1
 switchport trunk allowed vlan 10,20
 ip access-group A in
 mac access-group M in
interface Ethernet2
 switchport trunk allowed vlan 10
 ip access-group A out
interface Vlan10
 ip access-group A in
 ipv6 traffic-filter S out
)";
// Grown, shrunk, unbound, bound anew; pairs come and go.
constexpr const char* after = R"(ip access-list extended A
 permit tcp any any eq 80
 permit tcp any any eq 22
 deny tcp any any
 permit udp any any eq 53
ipv6 access-list S
 permit tcp any any eq 443
 permit udp any any
interface Ethernet1
 switchport trunk allowed vlan 10
 ip access-group A in
interface Ethernet2
 switchport trunk allowed vlan 10,30
 ipv6 traffic-filter S in
interface Vlan10
 ip access-group A out
)";

agent::Config read(const char* text) {
  return agent::readConfigText(text, "c");
}

constexpr uint32_t tableRows = 24;

agent::AgentSetup setup() {
  agent::AgentSetup setup;
  for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
    setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = tableRows;
  }
  return setup;
}

std::unique_ptr<sim::System> chips() {
  sim::DeviceConfig device;
  device.tcamRows.fill(tableRows);
  device.numPorts = 4;
  device.portVlanCapacity = device.egressCapacity = 16;
  auto system = std::make_unique<sim::System>();
  system->deviceAdd(0, device);
  system->deviceAdd(1, device);
  return system;
}

// The whole life: start, first configuration, edit, a block, a chip joins and leaves, back.
void live(agent::Agent& agent) {
  agent.apply(read(before));
  agent.apply(read(after));
  agent.blockIntf(Ovnet::IntfId(Ovnet::IntfId::ethernet, 1), true);
  agent.blockIntf(Ovnet::IntfId(Ovnet::IntfId::ethernet, 1), false);
  agent.chipAdd(1);
  agent.chipRemove(1);
  agent.apply(read(before));
}

const std::vector<packet::Packet>& packets() {
  static const std::vector<packet::Packet> all = [] {
    std::vector<packet::Packet> list;
    for (const char* const vlan : {"10", "20", "30"}) {
      for (const char* const text :
           {"tcp 10.0.0.1:1024 > 10.0.0.2:80", "tcp 10.0.0.1:1024 > 10.0.0.2:22",
            "tcp 10.0.0.1:1024 > 10.0.0.2:25", "udp 10.0.0.1:1024 > 10.0.0.2:53",
            "udp 10.0.0.1:1024 > 10.0.0.2:54", "icmp 10.0.0.1 > 10.0.0.2 8/0",
            "tcp [2001:db8::1]:1024 > [2001:db8::2]:443", "tcp [2001:db8::1]:1024 > [2001:db8::2]:80",
            "udp [2001:db8::1]:1024 > [2001:db8::2]:53"}) {
        list.push_back(packet::fromText(std::string(text) + " vlan " + vlan));
      }
    }
    return list;
  }();
  return all;
}

// How the ports of chip 0 are attached: both carry everything, with the VIFs that the agent gives them.
void attach(sim::System& system) {
  for (uint32_t port = 1; port <= 2; ++port) {
    sim::PortAttachment attachment;
    attachment.carriesIs(1, 4094, true);
    attachment.vifIs(1, 4094, static_cast<uint16_t>(port));
    system.device(0)->attachmentIs(port, attachment);
  }
}

std::string verdicts(sim::System& system) {
  attach(system);
  std::string text;
  for (const packet::Packet& packet : packets()) {
    for (const auto& [in, out] : {std::pair(1u, 2u), std::pair(2u, 1u)}) {
      text += sim::judge(system, packet, {{0, in}, sim::PortRef{0, out}, 1, false}).permit() ? '1' : '0';
    }
  }
  return text;
}

std::string verdictsOf(const char* config) {
  const auto system = chips();
  const auto installed = system->install();
  agent::Agent agent(setup());
  EXPECT_TRUE(agent.apply(read(config)).ok);
  return verdicts(*system);
}

std::string picture(const sim::System& system, uint8_t chip) {
  return test::chipPicture(*system.device(chip), [](uint16_t vif) { return "VIF " + std::to_string(vif); });
}

struct Outcome {
  int status = 0; // as wait() says it
  std::string errors;
  std::string image; // of the chips at the end; empty when none was written
};

sim::System* dying = nullptr;
const char* imageFile = nullptr;

// The chips as they stand when the process is stopped by an assertion.
void keepChips(int) {
  std::ofstream(imageFile, std::ios::binary) << sim::chipImage(*dying);
  _exit(86);
}

std::string contents(const std::filesystem::path& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// Runs `trial` in a process of its own.
Outcome inProcess(const std::function<void(sim::System&)>& trial) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("faults" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const std::string image = folder / "chips";
  const std::string errors = folder / "errors";
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    if (std::freopen(errors.c_str(), "w", stderr) == nullptr) {
      _exit(87);
    }
    const auto system = chips();
    dying = system.get();
    imageFile = image.c_str();
    std::signal(SIGABRT, keepChips);
    trial(*system);
    std::ofstream(image, std::ios::binary) << sim::chipImage(*system);
    _exit(0);
  }
  Outcome outcome;
  waitpid(child, &outcome.status, 0);
  outcome.errors = contents(errors);
  outcome.image = contents(image);
  std::filesystem::remove_all(folder);
  return outcome;
}

// A packet that both policies deny is never let through.
std::string leaks(const std::string& found, const std::string& a, const std::string& b) {
  std::string text;
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (found[i] == '1' && a[i] == '0' && b[i] == '0') {
      text += (i % 2 == 0 ? "1 to 2: " : "2 to 1: ") + packet::toText(packets()[i / 2]) + "\n";
    }
  }
  return text;
}

#ifdef __SANITIZE_ADDRESS__
constexpr uint64_t stride = 41; // of the calls that are tried
#else
constexpr uint64_t stride = 1;
#endif

// Accepted statuses, of calls that did what they were to do: the chips end up as without them. The VIF tables
// are the exception: there 41 and 42 end the step before the index is recorded.
TEST(Faults, AcceptedStatusesOfTheTcamChangeNothing) {
  const Outcome plain = inProcess([](sim::System& system) {
    const auto installed = system.install();
    agent::Agent agent(setup());
    live(agent);
  });
  ASSERT_EQ(plain.status, 0) << plain.errors;
  unsigned trials = 0;
  for (const XpXdk::XP_STATUS status : {9u, 41u, 42u}) {
    for (const sim::Op op : {sim::Op::writeKeyMask, sim::Op::writeData, sim::Op::setEntryValid}) {
      bool fired = true;
      for (uint64_t call = 1; fired; call += 7 * stride) {
        const Outcome outcome = inProcess([&](sim::System& system) {
          sim::FaultySdk faulty(system);
          const auto installed = faulty.install();
          faulty.faultIs({call, status, false, true, op});
          agent::Agent agent(setup());
          live(agent);
          if (!faulty.fired()) {
            _exit(1);
          }
        });
        fired = !WIFEXITED(outcome.status) || WEXITSTATUS(outcome.status) != 1;
        if (fired) {
          ++trials;
          ASSERT_EQ(outcome.status, 0)
              << opName(op) << " " << call << " status " << status << ": " << outcome.errors;
          ASSERT_EQ(outcome.errors, "");
          ASSERT_TRUE(outcome.image == plain.image) << opName(op) << " " << call << " status " << status;
        }
      }
    }
  }
  std::cout << trials << " trials\n";
}

// Any other status: one line that names the call, and the process ends. What the chip forwards from then on,
// one of the two policies forwards.
TEST(Faults, AnyOtherStatusStopsTheProcess) {
  const std::string old = verdictsOf(before);
  const std::string fresh = verdictsOf(after);
  unsigned trials = 0;
  bool fired = true;
  for (uint64_t call = 1; fired; call += stride) {
    const Outcome outcome = inProcess([&](sim::System& system) {
      sim::FaultySdk faulty(system);
      const auto installed = faulty.install();
      agent::Agent agent(setup());
      agent.apply(read(before));
      faulty.faultIs({call, XpXdk::statusInvalidArgument, true, false, std::nullopt});
      agent.apply(read(after));
      _exit(1);
    });
    ASSERT_TRUE(WIFEXITED(outcome.status)) << outcome.errors;
    fired = WEXITSTATUS(outcome.status) != 1;
    if (fired) {
      ++trials;
      ASSERT_EQ(WEXITSTATUS(outcome.status), 86) << outcome.errors;
      ASSERT_NE(outcome.errors.find(" API ERROR 1\n"), std::string::npos) << outcome.errors;
      const auto system = chips();
      sim::chipImageIs(*system, outcome.image);
      ASSERT_EQ(leaks(verdicts(*system), old, fresh), "") << "write " << call << ": " << outcome.errors;
    }
  }
  std::cout << trials << " writes of the change\n";
}

// Killed right after any write of a change, the agent starts again on the chips as they are, and makes them
// what a chip is that never knew the old configuration.
TEST(Faults, AKilledAgentStartsAgainAndLeavesNothingOld) {
  const std::string old = verdictsOf(before);
  const std::string fresh = verdictsOf(after);
  std::string wanted;
  {
    const auto system = chips();
    const auto installed = system->install();
    agent::Agent agent(setup());
    ASSERT_TRUE(agent.apply(read(after)).ok);
    wanted = picture(*system, 0);
  }
  unsigned trials = 0;
  bool killed = true;
  for (uint64_t write = 1; killed; write += stride) {
    const Outcome outcome = inProcess([&](sim::System& system) {
      const auto installed = system.install();
      agent::Agent agent(setup());
      agent.apply(read(before));
      uint64_t count = 0;
      system.afterWriteIs([&](const sim::Call&) {
        if (++count == write) {
          std::ofstream(imageFile, std::ios::binary) << sim::chipImage(system);
          kill(getpid(), SIGKILL);
        }
      });
      agent.apply(read(after));
    });
    killed = WIFSIGNALED(outcome.status) && WTERMSIG(outcome.status) == SIGKILL;
    if (!killed) {
      ASSERT_EQ(outcome.status, 0) << outcome.errors;
      break;
    }
    ++trials;
    const auto system = chips();
    sim::chipImageIs(*system, outcome.image);
    ASSERT_EQ(leaks(verdicts(*system), old, fresh), "") << "killed after write " << write;
    std::string leaked;
    const auto installed = system->install();
    system->afterWriteIs([&](const sim::Call& call) {
      if (leaked.empty()) {
        leaked = leaks(verdicts(*system), old, fresh);
        leaked += leaked.empty() ? "" : "after " + call.text();
      }
    });
    agent::AgentSetup again = setup();
    again.restart = true;
    agent::Agent agent(again);
    ASSERT_TRUE(agent.apply(read(after)).ok);
    system->afterWriteIs({});
    ASSERT_EQ(leaked, "") << "killed after write " << write << ", while starting again";
    ASSERT_EQ(picture(*system, 0), wanted) << "killed after write " << write;
    ASSERT_EQ(verdicts(*system), fresh);
    ASSERT_EQ(agent.audit(), std::vector<std::string>());
    ASSERT_EQ(system->device(0)->audit(), std::vector<std::string>());
  }
  std::cout << trials << " kills\n";
}

} // namespace
