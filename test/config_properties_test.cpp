#include "fuzz/ConfigGrammar.h"
#include "fuzz/ConfigProperties.h"
#include "test/LongRuns.h"
#include "test/Random.h"
#include "test/RandomLists.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

// Properties of whole configurations, over random ones: those of a grammar, and lists made in memory.

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr unsigned shortRounds = 60;
#else
constexpr unsigned shortRounds = 600;
#endif

unsigned rounds() {
  return test::isLong() ? shortRounds * 100 : shortRounds;
}

std::vector<uint8_t> randomBytes(test::Random& random) {
  std::vector<uint8_t> bytes(200 + random.below(400));
  for (uint8_t& byte : bytes) {
    byte = random.byte();
  }
  return bytes;
}

TEST(ConfigProperties, PrintedAndReadAgainTheRulesAreTheSame) {
  const uint64_t seed = test::Random::seed("printed");
  test::Random random(seed);
  unsigned clean = 0;
  unsigned lines = 0;
  for (unsigned i = 0; i < rounds(); ++i) {
    const std::vector<uint8_t> bytes = randomBytes(random);
    const auto text = fuzzing::ConfigGrammar(bytes.data(), bytes.size()).text();
    const agent::Config config = agent::readConfigText(text.joined(), "c");
    clean += config.hasErrors() ? 0 : 1;
    for (const agent::AccessList& list : config.lists) {
      lines += static_cast<unsigned>(list.rules.size());
    }
    ASSERT_EQ(fuzzing::printedAndRead(config), "") << "seed " << seed << ", round " << i;
  }
  std::cout << rounds() << " configurations, " << clean << " without errors, " << lines << " lines\n";
  EXPECT_GT(clean, rounds() / 4);
}

TEST(ConfigProperties, ListsMadeInMemoryAreReadBackTheSame) {
  const uint64_t seed = test::Random::seed("memory");
  test::Random random(seed);
  test::RandomLists lists(random);
  for (unsigned i = 0; i < rounds(); ++i) {
    agent::Config config;
    for (const auto family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
      config.lists.push_back(lists.list("L", family, 8));
    }
    // Read once, so that bits which a wildcard hides are 0 on both sides.
    const agent::Config plain = agent::readConfigText(agent::toText(config), "c");
    ASSERT_FALSE(plain.hasErrors()) << "seed " << seed << ", round " << i;
    ASSERT_EQ(fuzzing::printedAndRead(plain), "") << "seed " << seed << ", round " << i;
  }
}

TEST(ConfigProperties, RowsDoNotDependOnTheOrderOfLists) {
  const uint64_t seed = test::Random::seed("order");
  test::Random random(seed);
  unsigned fitted = 0;
  for (unsigned i = 0; i < rounds() / 2; ++i) {
    const std::vector<uint8_t> bytes = randomBytes(random);
    const auto text = fuzzing::ConfigGrammar(bytes.data(), bytes.size()).text();
    fitted += fuzzing::rowsOf(agent::readConfigText(text.joined(), "c")) ? 1 : 0;
    ASSERT_EQ(fuzzing::permutedLists(text, random.below(8)), "") << "seed " << seed << ", round " << i;
  }
  std::cout << rounds() / 2 << " configurations, " << fitted << " fitted\n";
  EXPECT_GT(fitted, rounds() / 8);
}

} // namespace
