#include "test/Random.h"
#include "test/RandomLife.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <vector>

// A long random life of a switch. XPACL_STEPS says how many steps, XPACL_SECONDS how long at most,
// XPACL_VERBOSE names each of them.

namespace {

using test::Random;

#ifdef __SANITIZE_ADDRESS__
constexpr unsigned defaultSteps = 1500;
#else
constexpr unsigned defaultSteps = 10000;
#endif

TEST(Scenario, EveryStepLeavesBooksChipsAndLinesInAgreement) {
  const uint64_t seed = Random::seed("scenario");
  const char* const given = std::getenv("XPACL_STEPS");
  const unsigned steps =
      given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : defaultSteps;
  const bool verbose = std::getenv("XPACL_VERBOSE") != nullptr; // names every step, for those that die
  test::RandomLife life(seed);
  std::map<std::string, unsigned> seen;
  const char* const bound = std::getenv("XPACL_SECONDS");
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::seconds(bound != nullptr ? std::strtol(bound, nullptr, 10) : 24 * 3600);
  for (unsigned i = 0; i < steps && std::chrono::steady_clock::now() < end; ++i) {
    const std::string step = life.step();
    if (verbose) {
      std::cout << i << ": " << step << std::endl;
    }
    ++seen[step.substr(0, step.find(' '))];
    ASSERT_EQ(life.audit(), std::vector<std::string>()) << "seed " << seed << ", step " << i << ": " << step;
    life.check(20);
    if (i % 25 == 0) {
      life.compareWithScratch();
    }
    ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed << ", step " << i << ": " << step;
  }
  for (const auto& [name, count] : seen) {
    std::cout << name << " " << count << "\n";
  }
}

} // namespace
