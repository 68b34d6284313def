#include "agent/config/OpenConfigNames.h"

#include <array>
#include <span>

namespace agent::openconfig {

namespace {

struct Identity {
  const char* name;
  uint16_t value;
};

// The first identity of a value is the one that is written.
constexpr std::array protocols = {
    Identity{"IP_TCP", 6},    Identity{"IP_UDP", 17},  Identity{"IP_ICMP", 1},  Identity{"IP_IGMP", 2},
    Identity{"IP_GRE", 47},   Identity{"IP_AUTH", 51}, Identity{"IP_PIM", 103}, Identity{"IP_RSVP", 46},
    Identity{"IP_L2TP", 115}, Identity{"IP_IN_IP", 4},
};

constexpr std::array etherTypes = {
    Identity{"ETHERTYPE_IPV4", 0x0800}, Identity{"ETHERTYPE_IPV6", 0x86DD},
    Identity{"ETHERTYPE_ARP", 0x0806},  Identity{"ETHERTYPE_VLAN", 0x8100},
    Identity{"ETHERTYPE_MPLS", 0x8847}, Identity{"ETHERTYPE_LLDP", 0x88CC},
    Identity{"ETHERTYPE_ROCE", 0x8915},
};

// RFC 792, RFC 8335.
constexpr std::array icmpTypes = {
    Identity{"ECHO_REPLY", 0},      Identity{"DST_UNREACHABLE", 3},
    Identity{"REDIRECT", 5},        Identity{"ECHO", 8},
    Identity{"TIME_EXCEEDED", 11},  Identity{"PARAM_PROBLEM", 12},
    Identity{"TIMESTAMP", 13},      Identity{"TIMESTAMP_REPLY", 14},
    Identity{"PHOTURIS", 40},       Identity{"EXT_ECHO_REQUEST", 42},
    Identity{"EXT_ECHO_REPLY", 43},
};

// RFC 4443.
constexpr std::array icmpV6Types = {
    Identity{"DST_UNREACHABLE", 1}, Identity{"PACKET_TOO_BIG", 2}, Identity{"TIME_EXCEEDED", 3},
    Identity{"PARAM_PROBLEM", 4},   Identity{"ECHO_REQUEST", 128}, Identity{"ECHO_REPLY", 129},
};

using Identities = std::span<const Identity>;

Identities icmpTypesOf(bool v6) {
  return v6 ? Identities(icmpV6Types) : Identities(icmpTypes);
}

std::optional<uint16_t> valueOf(Identities identities, std::string_view name) {
  const std::string_view plain = withoutModule(name);
  for (const Identity& identity : identities)
    if (plain == identity.name)
      return identity.value;
  return std::nullopt;
}

const char* nameOf(Identities identities, uint16_t value) {
  for (const Identity& identity : identities)
    if (identity.value == value)
      return identity.name;
  return nullptr;
}

void offer(Identities identities, NearestWord& nearest) {
  for (const Identity& identity : identities)
    nearest.offer(identity.name);
}

std::optional<uint8_t> octet(std::optional<uint16_t> value) {
  return value ? std::optional(static_cast<uint8_t>(*value)) : std::nullopt;
}

constexpr std::array setTypes = {"ACL_IPV4", "ACL_IPV6", "ACL_L2", "ACL_MIXED"};

} // namespace

std::string_view withoutModule(std::string_view name) {
  const size_t colon = name.find(':');
  if (colon == std::string_view::npos)
    return name;
  const std::string_view module = name.substr(0, colon);
  return module.starts_with("openconfig-") || module.starts_with("oc-") ? name.substr(colon + 1) : name;
}

std::optional<SetType> setTypeFromName(std::string_view name) {
  const std::string_view plain = withoutModule(name);
  for (size_t i = 0; i < setTypes.size(); ++i)
    if (plain == setTypes[i])
      return static_cast<SetType>(i);
  return std::nullopt;
}

const char* setTypeName(SetType type) {
  return setTypes[static_cast<size_t>(type)];
}

std::optional<uint8_t> protocolFromIdentity(std::string_view name) {
  return octet(valueOf(protocols, name));
}
const char* protocolIdentity(uint8_t protocol) {
  return nameOf(protocols, protocol);
}
void offerProtocolIdentities(NearestWord& nearest) {
  offer(protocols, nearest);
}

std::optional<uint16_t> etherTypeFromIdentity(std::string_view name) {
  return valueOf(etherTypes, name);
}
const char* etherTypeIdentity(uint16_t etherType) {
  return nameOf(etherTypes, etherType);
}
void offerEtherTypeIdentities(NearestWord& nearest) {
  offer(etherTypes, nearest);
}

std::optional<uint8_t> icmpTypeFromIdentity(std::string_view name, bool v6) {
  return octet(valueOf(icmpTypesOf(v6), name));
}
const char* icmpTypeIdentity(uint8_t type, bool v6) {
  return nameOf(icmpTypesOf(v6), type);
}
void offerIcmpTypeIdentities(NearestWord& nearest, bool v6) {
  offer(icmpTypesOf(v6), nearest);
}

} // namespace agent::openconfig
