#pragma once

#include "agent/config/ConfigModel.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Addresses as text. Readers answer nothing for a word that is not exactly one address.

namespace agent {

using V6Address = std::array<uint8_t, 16>; // as on the wire
using MacAddress = std::array<uint8_t, 6>; // as on the wire

std::optional<uint32_t> v4FromText(std::string_view text); // dotted decimal, host order
// All forms of RFC 4291 section 2.2, the one with a dotted IPv4 tail included; no zone.
std::optional<V6Address> v6FromText(std::string_view text);
// "aabb.cc00.0920", "aa:bb:cc:00:09:20", "aa-bb-cc-00-09-20".
std::optional<MacAddress> macFromText(std::string_view text);

std::string v4Text(uint32_t address);
std::string v6Text(const V6Address& address);   // RFC 5952
std::string macText(const MacAddress& address); // "aabb.cc00.0920"

// The records with the ignored bits of the address cleared, so that equal matches compare equal.
V4Match v4Match(uint32_t address, uint32_t wildcard);
V6Match v6Match(V6Address address, uint8_t prefixLength);
MacMatch macMatch(MacAddress address, const MacAddress& wildcard);

// The wildcard of a prefix length 0..32.
uint32_t v4Wildcard(unsigned prefixLength);
// The wildcard of a netmask whose ones stand together on the left; nothing for any other mask.
std::optional<uint32_t> wildcardOfNetmask(uint32_t netmask);
// Prefix length when the wildcard is one of a prefix.
std::optional<unsigned> prefixLengthOf(uint32_t wildcard);
// The fewest prefixes that hold exactly low..high, in ascending order.
std::vector<V4Match> v4Prefixes(uint32_t low, uint32_t high);

} // namespace agent
