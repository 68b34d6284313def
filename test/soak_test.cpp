#include "test/LongRuns.h"
#include "test/Random.h"
#include "test/RandomLife.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <malloc.h>
#include <string>
#include <unistd.h>
#include <vector>

// A switch that lives for a long time: random steps, bounded by their number and by time, with memory that
// does not grow. Short by default; XPACL_LONG=1 makes it a million steps or twenty minutes.

namespace {

using Clock = std::chrono::steady_clock;

struct Bounds {
  uint64_t steps;
  std::chrono::milliseconds time;
  uint64_t audits; // every so many steps the books are audited
};

Bounds bounds() {
  if (test::isLong()) {
    return {1000000, std::chrono::minutes(20), 1};
  }
#ifdef __SANITIZE_ADDRESS__
  return {1000, std::chrono::seconds(10), 4};
#else
  return {5000, std::chrono::seconds(5), 1};
#endif
}

// What the process holds in its heap. Bytes that were given back do not count, so what is kept for reuse and
// how the heap is cut into pieces make no noise. 0 where the allocator does not say (sanitizers).
std::size_t heapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::string kib(std::size_t bytes) {
  return std::to_string(bytes / 1024) + " KiB";
}

// The heap after a warm-up, as long as it takes for every table, VIF and counter to have been in use once,
// against the heap at later rests. A rest is a moment at which the configuration is the same as at all
// others, so that the same things are alive.
class Memory {
public:
  // `steps` is what is behind; answers whether the heap is within its bound.
  bool rest(uint64_t steps, bool warm) {
    const std::size_t heap = heapBytes();
    std::cout << "after " << steps << " steps: heap " << kib(heap) << ", resident " << kib(residentBytes())
              << std::endl;
    if (warm) {
      most_ = std::max(most_, heap);
      return true;
    }
    return heap <= bound();
  }
  std::size_t bound() const { return most_ + most_ / 4 + slack; }

private:
  // Pools of equal blocks keep the most that they ever held, and hash tables their size; neither grows for
  // ever.
  static constexpr std::size_t slack = std::size_t{2} << 20;
  std::size_t most_ = 0;
};

TEST(Soak, ALongLifeInBoundedMemory) {
  const uint64_t seed = test::Random::seed("soak");
  const Bounds bounds = ::bounds();
  const auto begin = Clock::now();
  const uint64_t interval = bounds.steps / 10;
  test::RandomLife life(seed);
  Memory memory;
  uint64_t step = 0;
  auto spoken = begin;
  for (; step < bounds.steps && Clock::now() - begin < bounds.time; ++step) {
    const std::string name = life.step();
    if (step % bounds.audits == 0) {
      ASSERT_EQ(life.audit(), std::vector<std::string>())
          << "seed " << seed << ", step " << step << ": " << name;
    }
    life.check(4);
    ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed << ", step " << step << ": " << name;
    const auto now = Clock::now();
    if (step % interval == interval - 1 || now - spoken > bounds.time / 10) {
      spoken = now;
      life.rest();
      const bool warm = step < bounds.steps / 4 && now - begin < bounds.time / 2;
      ASSERT_TRUE(memory.rest(step + 1, warm)) << "seed " << seed << ": the heap has grown beyond "
                                               << kib(memory.bound()) << " after " << step + 1 << " steps";
    }
  }
  life.compareWithScratch();
  std::cout << step << " steps in "
            << std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - begin).count() << " s\n";
}

} // namespace
