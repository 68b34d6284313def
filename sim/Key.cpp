#include "sim/Key.h"

#include <algorithm>

#include "Vane/Assert.h"

namespace sim {

namespace {

using namespace XpXdk;

void put16(TcamKeyBytes& key, unsigned offset, uint16_t value) {
  key[offset] = static_cast<uint8_t>(value);
  key[offset + 1] = static_cast<uint8_t>(value >> 8);
}

// For the key format `type`, whose offsets are constants then.
template <xpIaclKeyType type>
void putIp(TcamKeyBytes& key, const packet::Packet& packet, uint8_t aclId, Role role) {
  static constexpr IaclKeyLayout layout = *iaclKeyLayout(type);
  const auto at = [](IaclIpField field) { return layout.fields[field].offset; };
  put16(key, at(IACL_IP_ACL_ID), aclId);
  key[at(IACL_IP_FLAGS)] =
      static_cast<uint8_t>((role == Role::routed ? 1u : 0u) | (packet.established() ? 2u : 0u) |
                           (packet.nonInitialFragment ? 0u : 4u));
  put16(key, at(IACL_IP_DST_L4), packet.l4Dst());
  put16(key, at(IACL_IP_SRC_L4), packet.l4Src());
  key[at(IACL_IP_PROTO)] = packet.protocol;
  if constexpr (type == IACL_V4_KEY_TYPE) {
    key[at(IACL_IP_TTL)] = static_cast<uint8_t>(packet.ttl - 1);
    std::copy_n(packet.dst.begin(), 4, key.begin() + at(IACL_IP_DST_ADDR));
    std::copy_n(packet.src.begin(), 4, key.begin() + at(IACL_IP_SRC_ADDR));
  } else {
    key[at(IACL_IP_TTL)] = packet.ttl;
    std::reverse_copy(packet.dst.begin(), packet.dst.end(), key.begin() + at(IACL_IP_DST_ADDR));
    std::reverse_copy(packet.src.begin(), packet.src.end(), key.begin() + at(IACL_IP_SRC_ADDR));
  }
}

void putMac(TcamKeyBytes& key, const packet::Packet& packet, uint8_t aclId, uint16_t vlan) {
  static constexpr IaclKeyLayout layout = *iaclKeyLayout(IACL_MAC_KEY_TYPE);
  const auto at = [](IaclMacField field) { return layout.fields[field].offset; };
  put16(key, at(IACL_MAC_VLAN), vlan);
  put16(key, at(IACL_MAC_ACL_ID), aclId);
  put16(key, at(IACL_MAC_ETHERTYPE), packet.etherType);
  std::reverse_copy(packet.dstMac.begin(), packet.dstMac.end(), key.begin() + at(IACL_MAC_DST));
  std::reverse_copy(packet.srcMac.begin(), packet.srcMac.end(), key.begin() + at(IACL_MAC_SRC));
}

} // namespace

const IaclKeyLayout& layoutOf(xpIaclType_e table) {
  const IaclTableInfo* info = iaclTable(table);
  VANE_ASSERT(info);
  return *iaclKeyLayout(info->keyType);
}

TcamKeyBytes buildKey(xpIaclType_e table, const packet::Packet& packet, uint8_t aclId, Role role,
                      uint16_t vlan) {
  TcamKeyBytes key{};
  buildKey(table, packet, aclId, role, vlan, key);
  return key;
}

void buildKey(xpIaclType_e table, const packet::Packet& packet, uint8_t aclId, Role role, uint16_t vlan,
              TcamKeyBytes& key) {
  const IaclTableInfo* info = iaclTable(table);
  VANE_ASSERT(info);
  switch (info->keyType) {
  case IACL_V4_KEY_TYPE:
    return putIp<IACL_V4_KEY_TYPE>(key, packet, aclId, role);
  case IACL_V6_KEY_TYPE:
    return putIp<IACL_V6_KEY_TYPE>(key, packet, aclId, role);
  case IACL_MAC_KEY_TYPE:
    return putMac(key, packet, aclId, vlan);
  }
}

} // namespace sim
