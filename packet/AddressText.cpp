#include "packet/AddressText.h"

#include "packet/Words.h"

#include <algorithm>
#include <cstdio>
#include <optional>

namespace packet {

namespace {

constexpr unsigned numGroups = 8;

uint16_t group(const IpAddr& address, unsigned index) {
  return static_cast<uint16_t>(address[2 * index] << 8 | address[2 * index + 1]);
}

std::string ipv6Text(const IpAddr& address) {
  unsigned bestStart = numGroups;
  unsigned bestLength = 1; // a single zero group is written out
  for (unsigned start = 0; start < numGroups; ++start) {
    unsigned length = 0;
    while (start + length < numGroups && group(address, start + length) == 0) {
      ++length;
    }
    if (length > bestLength) {
      bestStart = start;
      bestLength = length;
    }
  }
  std::string text;
  for (unsigned i = 0; i < numGroups; ++i) {
    if (i == bestStart) {
      text += "::";
      i += bestLength - 1;
      continue;
    }
    if (!text.empty() && text.back() != ':') {
      text += ":";
    }
    char hex[8];
    std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(group(address, i)));
    text += hex;
  }
  return text;
}

// The groups of one side of "::", at most `max`; the last may be an IPv4 address when `mayEndInIpv4`.
std::optional<unsigned> parseGroups(std::string_view text, bool mayEndInIpv4, unsigned max,
                                    uint16_t* groups) {
  unsigned count = 0;
  while (!text.empty()) {
    const std::size_t colon = text.find(':');
    const std::string_view word = text.substr(0, colon);
    const bool last = colon == std::string_view::npos;
    IpAddr ipv4{};
    uint64_t value = 0;
    if (last && mayEndInIpv4 && count + 2 <= max && parseIpv4(word, ipv4)) {
      groups[count++] = group(ipv4, 0);
      groups[count++] = group(ipv4, 1);
      return count;
    }
    std::string hex = "0x";
    hex += word;
    if (count == max || word.empty() || word.size() > 4 || !parseNumber(hex, 0xFFFF, value)) {
      return std::nullopt;
    }
    groups[count++] = static_cast<uint16_t>(value);
    text = last ? std::string_view() : text.substr(colon + 1);
    if (!last && text.empty()) {
      return std::nullopt;
    }
  }
  return count;
}

} // namespace

std::string macText(const MacAddr& mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                mac[5]);
  return text;
}

std::string ipText(L3 family, const IpAddr& address) {
  switch (family) {
  case L3::ipv4: {
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address[0], address[1], address[2], address[3]);
    return text;
  }
  case L3::ipv6:
    return ipv6Text(address);
  case L3::none:
    break;
  }
  return {};
}

bool parseIpv4(std::string_view text, IpAddr& address) {
  IpAddr result{};
  for (unsigned i = 0; i < 4; ++i) {
    const std::size_t end = i < 3 ? text.find('.') : text.size();
    uint64_t value = 0;
    if (end == std::string_view::npos || end > 3 || !parseDecimal(text.substr(0, end), 255, value)) {
      return false;
    }
    result[i] = static_cast<uint8_t>(value);
    text.remove_prefix(i < 3 ? end + 1 : end);
  }
  address = result;
  return true;
}

bool parseIpv6(std::string_view text, IpAddr& address) {
  std::array<uint16_t, numGroups> groups{};
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) {
    if (parseGroups(text, true, numGroups, groups.data()) != numGroups) {
      return false;
    }
  } else {
    // "::" stands for at least one group of zeros.
    std::array<uint16_t, numGroups> tail{};
    const std::optional<unsigned> before =
        parseGroups(text.substr(0, gap), false, numGroups - 1, groups.data());
    const std::optional<unsigned> behind =
        before ? parseGroups(text.substr(gap + 2), true, numGroups - 1 - *before, tail.data()) : std::nullopt;
    if (!behind) {
      return false;
    }
    std::copy_n(tail.begin(), *behind, groups.end() - *behind);
  }
  for (unsigned i = 0; i < numGroups; ++i) {
    address[2 * i] = static_cast<uint8_t>(groups[i] >> 8);
    address[2 * i + 1] = static_cast<uint8_t>(groups[i]);
  }
  return true;
}

bool parseMac(std::string_view text, MacAddr& mac) {
  // Digits in pairs behind colons or in fours behind dots.
  const char separator = text.find(':') != std::string_view::npos ? ':' : '.';
  const std::size_t digitsPerGroup = separator == ':' ? 2 : 4;
  if (text.size() != 12 + 12 / digitsPerGroup - 1) {
    return false;
  }
  MacAddr result{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i % (digitsPerGroup + 1) == digitsPerGroup) {
      if (text[i] != separator) {
        return false;
      }
      continue;
    }
    const char hex[3] = {'0', 'x', text[i]};
    uint64_t value = 0;
    if (!parseNumber({hex, 3}, 15, value)) {
      return false;
    }
    result[digits / 2] = static_cast<uint8_t>(result[digits / 2] << 4 | value);
    ++digits;
  }
  mac = result;
  return true;
}

} // namespace packet
