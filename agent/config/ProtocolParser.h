#pragma once

#include "agent/config/Findings.h"
#include "agent/config/Names.h"

#include <cstdint>
#include <optional>

// Protocols and ICMP types of entries and of service groups.

namespace agent {

inline uint8_t icmpProtocol(bool v6) {
  return v6 ? 58 : 1;
}

// Takes a protocol by number or keyword. `protocol` stays empty for the word that means every packet of the
// family (ip, ipv4; ipv6). False when it cannot be a criterion of that family, which is then found.
bool takeProtocol(Cursor& cursor, bool v6, Findings& findings, std::optional<uint8_t>& protocol);

// Takes an ICMP type and the code behind it, if there is one.
std::optional<IcmpName> takeIcmpType(Cursor& cursor, bool v6, Findings& findings);

} // namespace agent
