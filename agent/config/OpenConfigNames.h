#pragma once

#include "agent/config/Lexer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The names of the public OpenConfig models: members with and without the name of their module (RFC 7951
// section 4), identities with and without it (section 6.8), and the numbers that identities stand for.

namespace agent::openconfig {

// The name without the module before it; a module that is none of OpenConfig's stays, so that the name is
// unknown: "openconfig-acl:acl" is "acl", "other:acl" stays. Short prefixes such as "oc-acl" are modules too.
std::string_view withoutModule(std::string_view name);

enum class SetType : uint8_t { ipv4, ipv6, l2, mixed };
std::optional<SetType> setTypeFromName(std::string_view name);
const char* setTypeName(SetType type); // "ACL_IPV4"

// IP protocols, openconfig-packet-match-types; the name of the identity, or nullptr.
std::optional<uint8_t> protocolFromIdentity(std::string_view name);
const char* protocolIdentity(uint8_t protocol);
void offerProtocolIdentities(NearestWord& nearest);

// EtherTypes, openconfig-packet-match-types.
std::optional<uint16_t> etherTypeFromIdentity(std::string_view name);
const char* etherTypeIdentity(uint16_t etherType);
void offerEtherTypeIdentities(NearestWord& nearest);

// Message types, openconfig-icmpv4-types and openconfig-icmpv6-types.
std::optional<uint8_t> icmpTypeFromIdentity(std::string_view name, bool v6);
const char* icmpTypeIdentity(uint8_t type, bool v6);
void offerIcmpTypeIdentities(NearestWord& nearest, bool v6);

} // namespace agent::openconfig
