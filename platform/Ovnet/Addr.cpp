#include "Ovnet/Addr.h"

#include <string>

namespace Ovnet {

namespace {

// RFC 5952: lower-case hexadecimal without leading zeros, the longest run of two or more zero groups
// (the first of equals) shortened to "::".
std::string groupsText(const std::array<uint8_t, 16>& bytes) {
  std::array<unsigned, 8> groups{};
  for (unsigned i = 0; i < 8; ++i) {
    groups[i] = (unsigned{bytes[2 * i]} << 8) | bytes[2 * i + 1];
  }
  unsigned bestStart = 8;
  unsigned bestLength = 1;
  for (unsigned i = 0; i < 8;) {
    unsigned end = i;
    while (end < 8 && groups[end] == 0) {
      ++end;
    }
    if (end - i > bestLength) {
      bestStart = i;
      bestLength = end - i;
    }
    i = end + 1;
  }
  std::string text;
  for (unsigned i = 0; i < 8; ++i) {
    if (i == bestStart) {
      text += "::";
      i += bestLength - 1;
      continue;
    }
    if (!text.empty() && text.back() != ':') {
      text += ':';
    }
    char digits[8];
    const int length = std::snprintf(digits, sizeof digits, "%x", groups[i]);
    text.append(digits, static_cast<size_t>(length));
  }
  return text;
}

template <std::size_t N>
uint32_t hashBytes(const std::array<uint8_t, N>& bytes) {
  Vane::Hash hash;
  for (const uint8_t byte : bytes) {
    hash.mix(byte);
  }
  return hash.result();
}

} // namespace

Vane::String Ip6Addr::stringValue() const {
  return Vane::String(groupsText(bytes_).c_str());
}
uint32_t Ip6Addr::hash() const {
  return hashBytes(bytes_);
}
std::ostream& operator<<(std::ostream& out, const Ip6Addr& addr) {
  return out << addr.stringValue().charPtr();
}
uint32_t MacAddr::hash() const {
  return hashBytes(bytes_);
}

} // namespace Ovnet
