#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// One row of a TCAM table as it is written and read back.

namespace sim {

// The longest key (41 bytes) rounded up, so that keys are copied and compared in whole words.
constexpr std::size_t tcamKeyCapacity = 48;
using TcamKeyBytes = std::array<uint8_t, tcamKeyCapacity>;

constexpr uint32_t noTcamRow = 0xFFFFFFFF;

struct TcamRow {
  TcamKeyBytes value{};
  TcamKeyBytes mask = allIgnored(); // a bit of 1 is not compared
  bool valid = false;
  bool operator==(const TcamRow&) const = default;

  static constexpr TcamKeyBytes allIgnored() {
    TcamKeyBytes bytes{};
    bytes.fill(0xFF);
    return bytes;
  }
};

} // namespace sim
