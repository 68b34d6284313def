#pragma once

#include "packet/Packet.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

// Addresses as text. IPv4 addresses stand in the first four octets of the array, as in the packet record.

namespace packet {

using IpAddr = std::array<uint8_t, 16>; // as on the wire; IPv4 in the first four octets

// "aa:bb:cc:dd:ee:ff"
std::string macText(const MacAddr& mac);
// IPv4 dotted; IPv6 as RFC 5952 recommends: lower case, no leading zeros, the longest run of at least two
// zero groups (the first of equals) as "::". Empty for L3::none.
std::string ipText(L3 family, const IpAddr& address);

// Four decimal numbers of at most three digits, without signs or blanks. Leaves the address as it was
// when the text is none.
bool parseIpv4(std::string_view text, IpAddr& address);
// RFC 4291 section 2.2, the form that ends in an IPv4 address included.
bool parseIpv6(std::string_view text, IpAddr& address);
// "aa:bb:cc:dd:ee:ff" or "aabb.ccdd.eeff".
bool parseMac(std::string_view text, MacAddr& mac);

} // namespace packet
