#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

// Random numbers for tests. The seed is printed, and XPACL_SEED replays a run.

namespace test {

class Random {
public:
  explicit Random(uint64_t seed) : engine_(seed) {}

  // The seed of this run: XPACL_SEED, or a new one each time.
  static uint64_t seed(const char* what) {
    const char* given = std::getenv("XPACL_SEED");
    const uint64_t seed = given ? std::strtoull(given, nullptr, 0) : std::random_device{}();
    std::cout << what << ": XPACL_SEED=" << seed << std::endl;
    return seed;
  }

  uint64_t next() { return engine_(); }
  uint8_t byte() { return static_cast<uint8_t>(engine_()); }
  // 0 .. bound-1; `bound` is not 0.
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(engine_() % bound); }
  bool oneIn(uint32_t n) { return below(n) == 0; }

private:
  std::mt19937_64 engine_;
};

} // namespace test
