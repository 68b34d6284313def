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

void putIp(TcamKeyBytes& key, const IaclKeyLayout& layout, const packet::Packet& packet, uint8_t aclId,
           Role role) {
  const auto at = [&](IaclIpField field) { return layout.fields[field].offset; };
  const bool v4 = layout.keyType == IACL_V4_KEY_TYPE;
  put16(key, at(IACL_IP_ACL_ID), aclId);
  key[at(IACL_IP_FLAGS)] =
      static_cast<uint8_t>((role == Role::routed ? 1u : 0u) | (packet.established() ? 2u : 0u) |
                           (packet.nonInitialFragment ? 0u : 4u));
  put16(key, at(IACL_IP_DST_L4), packet.l4Dst());
  put16(key, at(IACL_IP_SRC_L4), packet.l4Src());
  key[at(IACL_IP_PROTO)] = packet.protocol;
  key[at(IACL_IP_TTL)] = static_cast<uint8_t>(v4 ? packet.ttl - 1 : packet.ttl);
  if (v4) {
    std::copy_n(packet.dst.begin(), 4, key.begin() + at(IACL_IP_DST_ADDR));
    std::copy_n(packet.src.begin(), 4, key.begin() + at(IACL_IP_SRC_ADDR));
  } else {
    std::reverse_copy(packet.dst.begin(), packet.dst.end(), key.begin() + at(IACL_IP_DST_ADDR));
    std::reverse_copy(packet.src.begin(), packet.src.end(), key.begin() + at(IACL_IP_SRC_ADDR));
  }
}

void putMac(TcamKeyBytes& key, const IaclKeyLayout& layout, const packet::Packet& packet, uint8_t aclId,
            uint16_t vlan) {
  const auto at = [&](IaclMacField field) { return layout.fields[field].offset; };
  put16(key, at(IACL_MAC_VLAN), vlan);
  put16(key, at(IACL_MAC_ACL_ID), aclId);
  put16(key, at(IACL_MAC_ETHERTYPE), packet.etherType);
  std::reverse_copy(packet.dstMac.begin(), packet.dstMac.end(), key.begin() + at(IACL_MAC_DST));
  std::reverse_copy(packet.srcMac.begin(), packet.srcMac.end(), key.begin() + at(IACL_MAC_SRC));
}

} // namespace

TcamKeyBytes buildKey(xpIaclType_e table, const packet::Packet& packet, uint8_t aclId, Role role,
                      uint16_t vlan) {
  const IaclTableInfo* info = iaclTable(table);
  VANE_ASSERT(info);
  const IaclKeyLayout& layout = *iaclKeyLayout(info->keyType);
  TcamKeyBytes key{};
  if (layout.keyType == IACL_MAC_KEY_TYPE) {
    putMac(key, layout, packet, aclId, vlan);
  } else {
    putIp(key, layout, packet, aclId, role);
  }
  return key;
}

} // namespace sim
