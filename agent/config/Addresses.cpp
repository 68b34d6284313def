#include "agent/config/Addresses.h"

#include "agent/config/Lexer.h"

#include <cstdio>

namespace agent {

namespace {

int hexValue(char c) {
  if (isDigit(c))
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

// Up to four hexadecimal digits.
std::optional<uint16_t> hexGroup(std::string_view text) {
  if (text.empty() || text.size() > 4)
    return std::nullopt;
  unsigned value = 0;
  for (const char c : text) {
    const int digit = hexValue(c);
    if (digit < 0)
      return std::nullopt;
    value = value * 16 + static_cast<unsigned>(digit);
  }
  return static_cast<uint16_t>(value);
}

// Appends the groups of one side of an IPv6 address; false when it is malformed.
bool appendGroups(std::string_view text, bool mayEndInV4, std::vector<uint16_t>& groups) {
  while (!text.empty()) {
    const size_t colon = text.find(':');
    const std::string_view part = text.substr(0, colon);
    if (colon == std::string_view::npos && mayEndInV4 && part.find('.') != std::string_view::npos) {
      const auto v4 = v4FromText(part);
      if (!v4)
        return false;
      groups.push_back(static_cast<uint16_t>(*v4 >> 16));
      groups.push_back(static_cast<uint16_t>(*v4));
      return groups.size() <= 8;
    }
    const auto group = hexGroup(part);
    if (!group || groups.size() == 8)
      return false;
    groups.push_back(*group);
    if (colon == std::string_view::npos)
      return true;
    text.remove_prefix(colon + 1);
    if (text.empty())
      return false; // a lone colon at the end
  }
  return true;
}

void storeGroups(const std::vector<uint16_t>& groups, size_t firstGroup, V6Address& address) {
  for (size_t i = 0; i < groups.size(); ++i) {
    address[2 * (firstGroup + i)] = static_cast<uint8_t>(groups[i] >> 8);
    address[2 * (firstGroup + i) + 1] = static_cast<uint8_t>(groups[i]);
  }
}

} // namespace

std::optional<uint32_t> v4FromText(std::string_view text) {
  uint32_t address = 0;
  size_t at = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet != 0 && (at == text.size() || text[at++] != '.'))
      return std::nullopt;
    const size_t first = at;
    uint32_t value = 0;
    for (; at < text.size() && isDigit(text[at]) && at - first < 3; ++at)
      value = value * 10 + static_cast<uint32_t>(text[at] - '0');
    if (at == first || value > 255)
      return std::nullopt;
    address = address << 8 | value;
  }
  return at == text.size() ? std::optional(address) : std::nullopt;
}

std::optional<V6Address> v6FromText(std::string_view text) {
  // The longest spelling has 45 characters; anything longer is no address and not worth a walk.
  if (text.size() > 45 || text.find(':') == std::string_view::npos)
    return std::nullopt;
  V6Address address{};
  std::vector<uint16_t> head;
  std::vector<uint16_t> tail;
  const size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    if (!appendGroups(text, true, head) || head.size() != 8)
      return std::nullopt;
    storeGroups(head, 0, address);
    return address;
  }
  if (!appendGroups(text.substr(0, gap), false, head) || !appendGroups(text.substr(gap + 2), true, tail))
    return std::nullopt;
  if (head.size() + tail.size() > 7)
    return std::nullopt;
  storeGroups(head, 0, address);
  storeGroups(tail, 8 - tail.size(), address);
  return address;
}

std::optional<MacAddress> macFromText(std::string_view text) {
  const bool dotted = text.size() == 14;
  if (!dotted && text.size() != 17)
    return std::nullopt;
  const char separator = dotted ? '.' : text[2];
  if (!dotted && separator != ':' && separator != '-')
    return std::nullopt;
  const size_t groupLength = dotted ? 4 : 2;
  MacAddress address{};
  size_t digits = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (i % (groupLength + 1) == groupLength) {
      if (text[i] != separator)
        return std::nullopt;
      continue;
    }
    const int value = hexValue(text[i]);
    if (value < 0)
      return std::nullopt;
    uint8_t& octet = address[digits / 2];
    octet = static_cast<uint8_t>(octet << 4 | value);
    ++digits;
  }
  return address;
}

std::string v4Text(uint32_t address) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%u.%u.%u.%u", address >> 24, address >> 16 & 0xFF,
                address >> 8 & 0xFF, address & 0xFF);
  return text.data();
}

std::string v6Text(const V6Address& address) {
  std::array<unsigned, 8> groups{};
  for (size_t i = 0; i < 8; ++i)
    groups[i] = static_cast<unsigned>(address[2 * i] << 8 | address[2 * i + 1]);
  size_t gapStart = 8;
  size_t gapLength = 1; // one zero group alone is not shortened
  for (size_t i = 0; i < 8; ++i) {
    size_t end = i;
    while (end < 8 && groups[end] == 0)
      ++end;
    if (end - i > gapLength) {
      gapStart = i;
      gapLength = end - i;
    }
  }
  std::string text;
  for (size_t i = 0; i < 8; ++i) {
    if (i == gapStart) {
      text += "::";
      i += gapLength - 1;
      continue;
    }
    if (!text.empty() && text.back() != ':')
      text += ':';
    std::array<char, 8> group{};
    std::snprintf(group.data(), group.size(), "%x", groups[i]);
    text += group.data();
  }
  return text;
}

std::string macText(const MacAddress& address) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "%02x%02x.%02x%02x.%02x%02x", address[0], address[1], address[2],
                address[3], address[4], address[5]);
  return text.data();
}

V4Match v4Match(uint32_t address, uint32_t wildcard) {
  return {address & ~wildcard, wildcard};
}

V6Match v6Match(V6Address address, uint8_t prefixLength) {
  for (size_t bit = prefixLength; bit < 128; ++bit)
    address[bit / 8] &= static_cast<uint8_t>(~(0x80u >> (bit % 8)));
  return {address, prefixLength};
}

MacMatch macMatch(MacAddress address, const MacAddress& wildcard) {
  for (size_t i = 0; i < address.size(); ++i)
    address[i] &= static_cast<uint8_t>(~wildcard[i]);
  return {address, wildcard};
}

uint32_t v4Wildcard(unsigned prefixLength) {
  return prefixLength == 0 ? 0xFFFFFFFFu : prefixLength >= 32 ? 0u : 0xFFFFFFFFu >> prefixLength;
}

std::optional<uint32_t> wildcardOfNetmask(uint32_t netmask) {
  const uint32_t wildcard = ~netmask;
  return prefixLengthOf(wildcard) ? std::optional(wildcard) : std::nullopt;
}

std::optional<unsigned> prefixLengthOf(uint32_t wildcard) {
  if ((wildcard & (wildcard + 1)) != 0)
    return std::nullopt;
  unsigned length = 32;
  for (; wildcard != 0; wildcard >>= 1)
    --length;
  return length;
}

std::vector<V4Match> v4Prefixes(uint32_t low, uint32_t high) {
  std::vector<V4Match> result;
  uint64_t next = low;
  while (next <= high) {
    uint64_t size = 1;
    while (next % (size * 2) == 0 && next + size * 2 - 1 <= high)
      size *= 2;
    result.push_back({static_cast<uint32_t>(next), static_cast<uint32_t>(size - 1)});
    next += size;
  }
  return result;
}

} // namespace agent
