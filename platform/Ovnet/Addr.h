#pragma once

#include "Vane/Vane.h"

#include <array>
#include <cstdint>
#include <ostream>

namespace Ovnet {

// An IPv6 address, octets as on the wire (byte 0 is the most significant).
class Ip6Addr {
public:
  Ip6Addr() = default;
  explicit Ip6Addr(const std::array<uint8_t, 16>& bytes) : bytes_(bytes) {}
  const std::array<uint8_t, 16>& bytes() const { return bytes_; }
  uint8_t byte(unsigned i) const { return bytes_[i]; } // in wire order, from 0
  // The text form of RFC 5952.
  Vane::String stringValue() const;
  uint32_t hash() const;
  bool operator==(const Ip6Addr&) const = default;
  bool operator<(const Ip6Addr& other) const { return bytes_ < other.bytes_; }

private:
  std::array<uint8_t, 16> bytes_{};
};
std::ostream& operator<<(std::ostream& out, const Ip6Addr& addr);

// A MAC address, octets as on the wire.
class MacAddr {
public:
  MacAddr() = default;
  explicit MacAddr(const std::array<uint8_t, 6>& bytes) : bytes_(bytes) {}
  const std::array<uint8_t, 6>& bytes() const { return bytes_; }
  uint8_t byte(unsigned i) const { return bytes_[i]; } // in wire order, from 0
  bool isZero() const { return bytes_ == std::array<uint8_t, 6>{}; }
  uint32_t hash() const;
  bool operator==(const MacAddr&) const = default;
  bool operator<(const MacAddr& other) const { return bytes_ < other.bytes_; }

private:
  std::array<uint8_t, 6> bytes_{};
};

} // namespace Ovnet
