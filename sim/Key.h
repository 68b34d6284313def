#pragma once

#include <cstdint>

#include "XpXdk/IaclTypes.h"

#include "packet/Packet.h"
#include "sim/TcamTable.h"

// The key that the chip forms from a packet for one lookup. Field offsets come from the layout table of
// XpXdk/IaclTypes.h.
//
//  - ACL id field: {id, 0}. Flag byte: role | established << 1 | hasL4 << 2. The hasL4 bit is 0 for
//    non-initial fragments and 1 for everything else; without an L4 header that could be read
//    (non-initial or cut) the established bit and the L4 fields are 0.
//  - L4 fields little endian: destination port or ICMP type, source port or ICMP code.
//  - Protocol (IPv6: behind the extension headers); TTL field (ttl - 1) mod 256 for IPv4, the hop limit
//    as it is for IPv6.
//  - IPv4 addresses most significant octet first, IPv6 and MAC addresses byte-reversed, VLAN and EtherType
//    little endian.

namespace sim {

enum class Role : uint8_t { port = 0, routed = 1 }; // what selects the ACL id

// The key format of one of the five tables.
const XpXdk::IaclKeyLayout& layoutOf(XpXdk::xpIaclType_e table);

// `table` is one of the five; IP tables take packets of their family, the MAC table takes every packet
// and `vlan`, the VLAN that the frame is in (tagged or not). The MAC key has no role.
TcamKeyBytes buildKey(XpXdk::xpIaclType_e table, const packet::Packet& packet, uint8_t aclId, Role role,
                      uint16_t vlan);
// The same into `key`, which is all zero.
void buildKey(XpXdk::xpIaclType_e table, const packet::Packet& packet, uint8_t aclId, Role role,
              uint16_t vlan, TcamKeyBytes& key);

} // namespace sim
