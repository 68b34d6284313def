#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Plain records of the chip's ACL TCAMs: table numbers, key types, the field layout of each key
// type, and the data (action) word. One layout table serves the key builder, the dumps, the
// simulated chip and the tests.

namespace XpXdk {

// TCAM tables. The numbers overlap those of the key types on purpose of the SDK; the distinct
// enumeration types keep them apart.
enum xpIaclType_e : uint32_t {
  TACL_V4_IACL = 2,
  TACL_V6_IACL = 3,
  TACL_V4_EACL = 4,
  TACL_V6_EACL = 5,
  TACL_MAC_ACL = 7,
};

enum xpIaclKeyType : uint32_t { // the formats of keys
  IACL_V4_KEY_TYPE = 5,
  IACL_V6_KEY_TYPE = 6,
  IACL_MAC_KEY_TYPE = 7,
};

// Field ids of the IPv4 and IPv6 keys.
enum IaclIpField : uint8_t {
  IACL_IP_ACL_ID = 0,   // 2 bytes, least significant first
  IACL_IP_FLAGS = 1,    // 1 byte: bit 0 role, bit 1 TCP established, bit 2 has an L4 header
  IACL_IP_DST_L4 = 2,   // 2 bytes, least significant first: destination port, or ICMP type
  IACL_IP_SRC_L4 = 3,   // 2 bytes, least significant first: source port, or ICMP code
  IACL_IP_PROTO = 4,    // 1 byte: IP protocol, or upper-layer next header
  IACL_IP_TTL = 5,      // 1 byte: IPv4 (ttl - 1) mod 256, IPv6 hop limit
  IACL_IP_DST_ADDR = 6, // 4 bytes, most significant first; 16 bytes, least significant first
  IACL_IP_SRC_ADDR = 7,
};

// Field ids of the MAC key.
enum IaclMacField : uint8_t {
  IACL_MAC_VLAN = 0,      // 2 bytes, least significant first
  IACL_MAC_ACL_ID = 1,    // 2 bytes, least significant first
  IACL_MAC_ETHERTYPE = 2, // 2 bytes, least significant first
  IACL_MAC_DST = 3,       // 6 bytes, least significant first
  IACL_MAC_SRC = 4,       // 6 bytes, least significant first
};

struct IaclFieldLayout { // one field of a key
  uint8_t fieldId;
  uint8_t width;  // bytes
  uint8_t offset; // bytes from the start of the packed key
};

struct IaclKeyLayout { // a key format, its fields in their order
  xpIaclKeyType keyType;
  uint8_t numFields;
  uint8_t length; // bytes of the packed key
  std::array<IaclFieldLayout, 8> fields;
};

constexpr std::size_t maxIaclKeyBytes = 41;   // of any key format
constexpr std::size_t maxIaclKeyFields = 8;   // of any key format
constexpr std::size_t maxIaclFieldBytes = 16; // of any key format: an IPv6 address
// In the order of xpIaclKeyType.
inline constexpr std::array<IaclKeyLayout, 3> iaclKeyLayouts{{
    {IACL_V4_KEY_TYPE,
     8,
     17,
     {{{0, 2, 0}, {1, 1, 2}, {2, 2, 3}, {3, 2, 5}, {4, 1, 7}, {5, 1, 8}, {6, 4, 9}, {7, 4, 13}}}},
    {IACL_V6_KEY_TYPE,
     8,
     41,
     {{{0, 2, 0}, {1, 1, 2}, {2, 2, 3}, {3, 2, 5}, {4, 1, 7}, {5, 1, 8}, {6, 16, 9}, {7, 16, 25}}}},
    {IACL_MAC_KEY_TYPE, 5, 18, {{{0, 2, 0}, {1, 2, 2}, {2, 2, 4}, {3, 6, 6}, {4, 6, 12}}}},
}};

// The layout of `keyType`, or null for a number that is no key type.
constexpr const IaclKeyLayout* iaclKeyLayout(xpIaclKeyType keyType) {
  for (const IaclKeyLayout& layout : iaclKeyLayouts) {
    if (layout.keyType == keyType) {
      return &layout;
    }
  }
  return nullptr;
}

// The field `fieldId` of a layout, or null.
constexpr const IaclFieldLayout* iaclField(const IaclKeyLayout& layout, uint8_t fieldId) {
  return fieldId < layout.numFields ? &layout.fields[fieldId] : nullptr;
}

struct IaclTableInfo { // a TCAM table and its key format
  xpIaclType_e table;
  xpIaclKeyType keyType;
  const char* name; // as in the source: "TACL_V4_IACL"
};
// In the order of the ACL tables: ingress, egress, MAC.
inline constexpr std::array<IaclTableInfo, 5> iaclTables{{
    {TACL_V4_IACL, IACL_V4_KEY_TYPE, "TACL_V4_IACL"},
    {TACL_V6_IACL, IACL_V6_KEY_TYPE, "TACL_V6_IACL"},
    {TACL_V4_EACL, IACL_V4_KEY_TYPE, "TACL_V4_EACL"},
    {TACL_V6_EACL, IACL_V6_KEY_TYPE, "TACL_V6_EACL"},
    {TACL_MAC_ACL, IACL_MAC_KEY_TYPE, "TACL_MAC_ACL"},
}};

constexpr const IaclTableInfo* iaclTable(xpIaclType_e table) { // null: no such table
  for (const IaclTableInfo& info : iaclTables) {
    if (info.table == table) {
      return &info;
    }
  }
  return nullptr;
}

// A key as the SDK takes and returns it: the fields that are present, each with its id and width,
// and the packed value and ignore-mask bytes (a mask bit of 1 is not compared). A field that is
// not listed is not compared. Fields stand in the order in which they were added; `offset` is
// where their bytes stand in `value` and `mask`.
struct xpIaclkeyFieldList {
  xpIaclKeyType keyType = IACL_V4_KEY_TYPE;
  uint8_t numFields = 0;
  uint8_t length = 0; // bytes used in value and mask
  std::array<IaclFieldLayout, maxIaclKeyFields> fields{};
  std::array<uint8_t, maxIaclKeyFields * maxIaclFieldBytes> value{};
  std::array<uint8_t, maxIaclKeyFields * maxIaclFieldBytes> mask{};
};

// The data (action) word of one row.
class xpIaclData_t {
public:
  bool logEn() const { return logEn_; }
  void logEnIs(bool on) { logEn_ = on; }
  bool countEn() const { return countEn_; }
  void countEnIs(bool on) { countEn_ = on; }
  // 2 bits: 1 forwards, anything else drops.
  unsigned result() const { return result_; }
  void resultIs(unsigned result) { result_ = result & 3u; }
  uint16_t cntrIdx() const { return cntrIdx_; }
  void cntrIdxIs(uint16_t index) { cntrIdx_ = index; }

  // {logEn:1, countEn:1, result:2, cntrIdx:16} from bit 0 upward.
  uint32_t word() const {
    return (logEn_ ? 1u : 0u) | (countEn_ ? 2u : 0u) | (result_ << 2) | (uint32_t{cntrIdx_} << 4);
  }
  static xpIaclData_t fromWord(uint32_t word) {
    xpIaclData_t data;
    data.logEn_ = word & 1u;
    data.countEn_ = (word >> 1) & 1u;
    data.result_ = (word >> 2) & 3u;
    data.cntrIdx_ = static_cast<uint16_t>(word >> 4);
    return data;
  }
  bool operator==(const xpIaclData_t&) const = default;

private:
  bool logEn_ = false;
  bool countEn_ = false;
  uint8_t result_ = 0;
  uint16_t cntrIdx_ = 0;
};

} // namespace XpXdk
