#pragma once

#include "agent/Agent.h"
#include "agent/config/ConfigModel.h"
#include "packet/Packet.h"
#include "sim/ChipMapping.h"
#include "sim/Faults.h"
#include "sim/System.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// What the tests of faults share: the changes that they disturb, chips that outlive the process that programs
// them, and packets that tell whether such chips let through what they must not.

namespace test {

// A change of a running switch, or its start.
struct FaultScenario {
  const char* name;
  std::string before; // empty: the switch starts
  std::string after;
  std::function<bool(agent::Agent&)> act; // makes the change
  bool restart = false;                   // an agent that starts again on chips as `before` left them
  std::function<bool(agent::Agent&)> prepare = {}; // behind `before`, when set
};

// Start-up, start again, bind, edit, grow, shrink, unbind, a chip joins, pairs move, and all at once.
const std::vector<FaultScenario>& faultScenarios();
const FaultScenario& faultScenario(const std::string& name);

// Two small empty chips.
std::unique_ptr<sim::System> faultChips();
agent::AgentSetup faultSetup();
agent::Config faultConfig(const std::string& text);

// What a process of its own did to the chips before it ended.
struct FaultOutcome {
  int status = 0;     // as wait() says it
  std::string errors; // its standard error
  std::string image;  // of the chips, from the file mapping
  std::string log;    // SDK calls of the change; empty when the process was killed
  bool finished() const;
  bool aborted() const;
  bool killed() const;
};

// How the change is disturbed.
struct Disturbance {
  sim::Fault fault = {};                           // call 0: none
  uint64_t killAfterWrite = 0;                     // SIGKILL right after this write; 0: never
  std::function<void(agent::Agent&)> again = {};   // instead of the change, for ever
  std::function<void(int process)> meanwhile = {}; // in the parent, while the process runs
};

// A scenario, ready to be disturbed again and again: each trial is a forked process that starts where the
// last configuration stands.
class FaultTrials {
public:
  explicit FaultTrials(const FaultScenario& scenario);
  ~FaultTrials();

  FaultOutcome run(const Disturbance& disturbance);
  // Packets that the chips of `image` let through although both the old and the new policy deny them, one a
  // line; empty when there are none.
  std::string leaks(const std::string& image) const;
  // The same for chips at work.
  std::string leaks(sim::System& system) const;
  // Every packet's verdict as the new policy says it.
  const std::string& newVerdicts() const { return newVerdicts_; }
  std::string verdicts(sim::System& system) const;
  // What the chips of the undisturbed change do, and how much stands in them.
  const std::string& wanted() const { return wanted_; }
  static std::string picture(const sim::System& system);
  std::size_t numPackets() const { return packets_.size(); }

private:
  [[noreturn]] void child(const Disturbance& disturbance, sim::ChipMapping& mapping);
  void makePackets();

  const FaultScenario& scenario_;
  std::string folder_;
  std::unique_ptr<sim::System> system_;
  std::unique_ptr<sim::FaultySdk> faulty_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
  std::vector<packet::Packet> packets_;
  std::string oldVerdicts_;
  std::string newVerdicts_;
  std::string wanted_;
};

} // namespace test
