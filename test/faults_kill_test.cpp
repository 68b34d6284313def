#include "test/FaultTrials.h"

#include "sim/ChipFile.h"
#include "sim/System.h"
#include "test/LongRuns.h"
#include "test/Random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

// The agent is killed in the middle of a change, by SIGKILL, and starts again on the chips as they are.

namespace {

using test::Disturbance;
using test::FaultOutcome;
using test::FaultScenario;
using test::FaultTrials;
using test::isLong;

#ifdef __SANITIZE_ADDRESS__
constexpr uint64_t shortStride = 29;
#else
constexpr uint64_t shortStride = 1;
#endif

// Starts again on the chips of `image`. `watched`: packets are sent after every write meanwhile.
void startAgain(const FaultScenario& scenario, const FaultTrials& trials, const std::string& image,
                bool watched) {
  const auto system = test::faultChips();
  sim::chipImageIs(*system, image);
  ASSERT_EQ(trials.leaks(*system), "") << "where it was killed";
  const auto installed = system->install();
  std::string leaked;
  if (watched) {
    system->afterWriteIs([&](const sim::Call& call) {
      if (leaked.empty()) {
        leaked = trials.leaks(*system);
        leaked += leaked.empty() ? "" : "after " + call.text();
      }
    });
  }
  agent::AgentSetup setup = test::faultSetup();
  setup.restart = true;
  agent::Agent agent(setup);
  ASSERT_TRUE(agent.apply(test::faultConfig(scenario.after)).ok);
  system->afterWriteIs({});
  ASSERT_EQ(leaked, "") << "while starting again";
  ASSERT_EQ(FaultTrials::picture(*system), trials.wanted());
  ASSERT_EQ(trials.verdicts(*system), trials.newVerdicts());
  ASSERT_EQ(agent.audit(), std::vector<std::string>());
  for (const auto& [number, device] : system->devices()) {
    ASSERT_EQ(device->audit(), std::vector<std::string>());
  }
}

class Kills : public testing::TestWithParam<const char*> {};

// After every single write: the new agent makes of the chips what chips are that never knew the old
// configuration. No row and no entry is left over, which is part of the picture.
TEST_P(Kills, AfterEveryWrite) {
  const FaultScenario& scenario = test::faultScenario(GetParam());
  FaultTrials trials(scenario);
  // A start has many writes that are like each other.
  const uint64_t stride = isLong() ? 1 : scenario.restart ? 7 * shortStride : shortStride;
  unsigned kills = 0;
  for (uint64_t write = 1;; write += stride) {
    const FaultOutcome outcome = trials.run({.killAfterWrite = write});
    if (!outcome.killed()) {
      ASSERT_TRUE(outcome.finished()) << outcome.errors;
      break;
    }
    ++kills;
    ASSERT_NO_FATAL_FAILURE(startAgain(scenario, trials, outcome.image, isLong() || kills % 16 == 0))
        << "killed after write " << write;
    ASSERT_FALSE(HasFatalFailure()) << "killed after write " << write;
  }
  std::cout << kills << " kills\n";
}

// At any moment at all, between writes and in the middle of one.
TEST(Kill, AtAnyMoment) {
  const FaultScenario& scenario = test::faultScenario("everything");
  FaultTrials trials(scenario);
  test::Random random(test::Random::seed("moments"));
  const unsigned rounds = isLong() ? 2000 : 40;
  for (unsigned i = 0; i < rounds; ++i) {
    const unsigned moment = 500 + random.below(20000);
    Disturbance disturbance;
    disturbance.again = [&](agent::Agent& agent) {
      const agent::Config before = test::faultConfig(scenario.before);
      const agent::Config after = test::faultConfig(scenario.after);
      for (;;) {
        agent.apply(after);
        agent.apply(before);
      }
    };
    disturbance.meanwhile = [&](int process) {
      usleep(moment);
      kill(process, SIGKILL);
    };
    const FaultOutcome outcome = trials.run(disturbance);
    ASSERT_TRUE(outcome.killed()) << outcome.errors;
    ASSERT_NO_FATAL_FAILURE(startAgain(scenario, trials, outcome.image, i % 16 == 0))
        << "after " << moment << " us";
  }
}

INSTANTIATE_TEST_SUITE_P(Changes, Kills,
                         testing::Values("start again", "edit", "grow", "unbind", "chip joins", "pairs move",
                                         "everything"),
                         [](const auto& info) {
                           std::string name = info.param;
                           std::replace(name.begin(), name.end(), ' ', '_');
                           return name;
                         });

} // namespace
