#pragma once

#include "agent/config/Lexer.h"

#include <cstdint>
#include <optional>
#include <string_view>

// The names that configurations use for numbers. All lookups disregard case.

namespace agent {

// IP protocols by keyword (IANA "Assigned Internet Protocol Numbers", and the short forms in use on
// routers). The words that mean "any IP packet" and the pseudo-protocols are not among them.
std::optional<uint8_t> protocolFromName(std::string_view name);
// A word that some configurations use in place of a protocol although it is none: why it cannot be
// expressed and what to write instead; nullptr for other words.
const char* pseudoProtocolReason(std::string_view name);
void offerProtocols(NearestWord& nearest);

// Whose service names to look at; a bit set, because one line may stand for several protocols.
using PortProtocols = uint8_t;
constexpr PortProtocols tcpPorts = 1;
constexpr PortProtocols udpPorts = 2;
constexpr PortProtocols sctpPorts = 4;
// The bit of a protocol number; 0 when the protocol has no ports.
PortProtocols portProtocolOf(uint8_t protocol);

// A service (IANA "Service Name and Transport Protocol Port Number Registry") that every protocol of the
// set has under this name.
std::optional<uint16_t> serviceFromName(std::string_view name, PortProtocols wanted);
bool isServiceName(std::string_view name); // of any protocol
void offerServices(NearestWord& nearest, PortProtocols wanted);

struct IcmpName {
  uint8_t type = 0;
  std::optional<uint8_t> code; // some names mean one code of a type
};
// ICMP (RFC 792, RFC 1122, RFC 1812) and ICMPv6 (RFC 4443, RFC 4861, RFC 2710, RFC 3810) message names.
std::optional<IcmpName> icmpFromName(std::string_view name, bool v6);
void offerIcmpNames(NearestWord& nearest, bool v6);

constexpr uint32_t lowestEtherType = 1536; // IEEE 802.3: smaller numbers are lengths
// EtherTypes (IEEE registration authority, RFC 9542).
std::optional<uint16_t> etherTypeFromName(std::string_view name);
void offerEtherTypes(NearestWord& nearest);

} // namespace agent
