#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

#include <cstring>
#include <string>
#include <type_traits>

// One TCAM rule becomes one row: key, ignore-mask, data word, and the SDK calls that write them.
//
// The row formats have quirks that the chip's own key construction cancels out. They are kept exactly as
// they are: the ACL id's second mask byte, the TTL that is one less, the IPv6 hop limit that is never
// compared, and the byte orders of addresses and masks.

namespace XpAcl {

namespace {

// The text of one SDK call as the check prints it: "((iaclMgr()->OPERATION( xpDevId().value(), TABLE... )))".
std::string callText(const char* operation, const TcamTableInfo& table, const std::string& arguments) {
  return std::string("((iaclMgr()->") + operation + "( xpDevId().value(), " + table.tableName + ", " +
         arguments + " )))";
}

struct Bytes2 {
  Vane::U8 byte[2];
};

constexpr Bytes2 littleEndian(Vane::U16 value) {
  return {{static_cast<Vane::U8>(value), static_cast<Vane::U8>(value >> 8)}};
}

constexpr Vane::U8 exact[XpXdk::maxIaclFieldBytes] = {};

void addExact1(const TcamTableInfo& table, uint8_t fieldId, Vane::U8 value, OvIaclKey& key) {
  addIaclKeyField(table.keyType, fieldId, &value, exact, 1, key);
}

// A 16-bit field, least significant byte first, with a match mask.
void addMasked2(const TcamTableInfo& table, uint8_t fieldId, Vane::U16 value, Vane::U16 matchMask,
                OvIaclKey& key) {
  const Bytes2 valueBytes = littleEndian(value);
  const Bytes2 ignore = littleEndian(static_cast<Vane::U16>(~matchMask));
  addIaclKeyField(table.keyType, fieldId, valueBytes.byte, ignore.byte, 2, key);
}

// The established mask of the IPv4 and IPv6 keys overlaps the value by one byte: its second byte is the
// id's low byte. The chip's key has 0 in that place and ids have 8 bits, so nothing is lost by it.
void addAclId(const TcamTableInfo& table, Vane::U16 aclId, OvIaclKey& key) {
  const Bytes2 value = littleEndian(aclId);
  const Vane::U8 mask[2] = {0, table.aclType == Acl::mac ? Vane::U8{0} : value.byte[0]};
  addIaclKeyField(table.keyType, table.aclIdField, value.byte, mask, 2, key);
}

constexpr Vane::U8 flagRole = 1;
constexpr Vane::U8 flagEstablished = 2;
constexpr Vane::U8 flagHasL4 = 4;

void addFlags(const TcamTableInfo& table, const AclKeyInfo& aclKeyInfo, bool established, bool compareHasL4,
              OvIaclKey& key) {
  Vane::U8 value = aclKeyInfo.type() == aclKeyTypeRouted ? flagRole : 0;
  Vane::U8 compared = flagRole;
  if (established) {
    value |= flagEstablished;
    compared |= flagEstablished;
  }
  if (compareHasL4) {
    compared |= flagHasL4; // and must be 0: a non-initial fragment
  }
  const Vane::U8 ignore = static_cast<Vane::U8>(~compared);
  addIaclKeyField(table.keyType, XpXdk::IACL_IP_FLAGS, &value, &ignore, 1, key);
}

// IPv4: the value starts with the most significant octet; the mask word starts with its least significant
// byte, which belongs to that same octet.
void addAddress(const TcamTableInfo& table, uint8_t fieldId, const Acl::IpAddrMask& addr, OvIaclKey& key) {
  if (addr.maskWord == 0) {
    return;
  }
  Vane::U8 value[4];
  Vane::U8 ignore[4];
  for (unsigned i = 0; i < 4; ++i) {
    value[i] = static_cast<Vane::U8>(addr.address >> (24 - 8 * i));
    ignore[i] = static_cast<Vane::U8>(~(addr.maskWord >> (8 * i)));
  }
  addIaclKeyField(table.keyType, fieldId, value, ignore, 4, key);
}

// IPv6: value and mask both least significant byte first.
void addAddress(const TcamTableInfo& table, uint8_t fieldId, const Acl::Ip6AddrPrefix& addr, OvIaclKey& key) {
  const unsigned length = addr.prefixLength;
  if (length == 0) {
    return;
  }
  Vane::U8 match[16] = {};
  std::memset(match, 0xFF, length / 8);
  if (length % 8 != 0) {
    match[length / 8] = static_cast<Vane::U8>(0xFF << (8 - length % 8));
  }
  Vane::U8 value[16];
  Vane::U8 ignore[16];
  for (unsigned i = 0; i < 16; ++i) {
    value[i] = addr.address.byte(15 - i);
    ignore[i] = static_cast<Vane::U8>(~match[15 - i]);
  }
  addIaclKeyField(table.keyType, fieldId, value, ignore, 16, key);
}

void addMacAddress(const TcamTableInfo& table, uint8_t fieldId, const Ovnet::MacAddr& addr,
                   const Ovnet::MacAddr& matchMask, OvIaclKey& key) {
  if (matchMask.isZero()) {
    return;
  }
  Vane::U8 value[6];
  Vane::U8 ignore[6];
  for (unsigned i = 0; i < 6; ++i) {
    value[i] = addr.byte(5 - i);
    ignore[i] = static_cast<Vane::U8>(~matchMask.byte(5 - i));
  }
  addIaclKeyField(table.keyType, fieldId, value, ignore, 6, key);
}

void addTtl(const TcamTableInfo& table, const Acl::IpFilter& filter, OvIaclKey& key) {
  addExact1(table, XpXdk::IACL_IP_TTL, static_cast<Vane::U8>(filter.ttl() - 1), key);
}

// The hop limit is written but not compared.
void addTtl(const TcamTableInfo& table, const Acl::Ip6Filter& filter, OvIaclKey& key) {
  const Vane::U8 value = filter.ttl();
  const Vane::U8 ignore = 0xFF;
  addIaclKeyField(table.keyType, XpXdk::IACL_IP_TTL, &value, &ignore, 1, key);
}

} // namespace

void XpAclPlexAggregatorHelper::writeKeyMask(const TcamTableInfo& table, const OvIaclKey& key, Vane::U32 row,
                                             const char* rowText) {
  XPACL_UNIT_CHECK(iaclMgr()->writeKeyMask(xpDevId().value(), table.table, row, true, &key.sdkKey),
                   callText("writeKeyMask", table, std::string(rowText) + ", true, &key.sdkKey"));
}

// The first data table that fails stops the loop; the others are not tried.
void XpAclPlexAggregatorHelper::writeData(const TcamTableInfo& table, const XpXdk::xpIaclData_t& data,
                                          Vane::U32 row, const char* rowText) {
  const Vane::U8 copies = numTableCopies();
  for (Vane::U8 tblNum = 0; tblNum < copies; ++tblNum) {
    XPACL_UNIT_CHECK(iaclMgr()->writeData(xpDevId().value(), table.table, tblNum, row, &data),
                     callText("writeData", table, std::string("tblNum, ") + rowText + ", &data"));
  }
}

void XpAclPlexAggregatorHelper::setEntryValid(const TcamTableInfo& table, Vane::U32 row, bool valid,
                                              const char* rowText) {
  XPACL_UNIT_CHECK(iaclMgr()->setEntryValid(xpDevId().value(), table.table, row, valid),
                   callText("setEntryValid", table, std::string(rowText) + (valid ? ", true" : ", false")));
}

// A normal rule gets its data before its key, so that the row can only hit once its action is in place.
// The final rule is written key first.
void XpAclPlexAggregatorHelper::writeRow(const TcamTableInfo& table, OvIaclKey& key, const RowAction& action,
                                         Vane::U32 tcamIdx) {
  key.finalize();
  XpXdk::xpIaclData_t data;
  clearIaclData(data);
  data.countEnIs(true);
  if (action.finalRule) {
    data.cntrIdxIs(static_cast<Vane::U16>(unusedAcmIndex()));
    writeKeyMask(table, key, tcamIdx, "tcamIdx");
    writeData(table, data, tcamIdx, "tcamIdx");
  } else {
    data.logEnIs(action.log);
    data.resultIs(action.forward ? 1 : 0);
    data.cntrIdxIs(static_cast<Vane::U16>(action.counterIdx));
    writeData(table, data, tcamIdx, "tcamIdx");
    writeKeyMask(table, key, tcamIdx, "tcamIdx");
  }
  setEntryValid(table, tcamIdx, true, "tcamIdx");
}

template <typename Filter>
void XpAclPlexAggregatorHelper::programIpRow(const TcamTableInfo& table, const AclKeyInfo& aclKeyInfo,
                                             const Filter& filter, const RowAction& action, Vane::U16 srcPort,
                                             Vane::U16 srcPortMask, Vane::U16 dstPort, Vane::U16 dstPortMask,
                                             Vane::U32 tcamIdx) {
  // IPv6 rows never look at the fragment bit, so the flag does not suppress the L4 fields there.
  constexpr bool isV4 = std::is_same_v<Filter, Acl::IpFilter>;
  const bool fragments = isV4 && filter.fragments();
  OvIaclKey key(table.keyType);
  addAclId(table, aclKeyInfo.aclId(), key);
  if (action.finalRule) {
    addFlags(table, aclKeyInfo, false, false, key);
    writeRow(table, key, action, tcamIdx);
    return;
  }
  addFlags(table, aclKeyInfo, filter.established(), fragments, key);
  if (!fragments) {
    if (srcPortMask != 0) {
      addMasked2(table, XpXdk::IACL_IP_SRC_L4, srcPort, srcPortMask, key);
    }
    if (dstPortMask != 0) {
      addMasked2(table, XpXdk::IACL_IP_DST_L4, dstPort, dstPortMask, key);
    }
    if (filter.icmpType() != Acl::icmpAny) {
      addMasked2(table, XpXdk::IACL_IP_DST_L4, filter.icmpType(), 0xFFFF, key);
      if (filter.icmpCode() != Acl::icmpAny) {
        addMasked2(table, XpXdk::IACL_IP_SRC_L4, filter.icmpCode(), 0xFFFF, key);
      }
    }
  }
  if (filter.proto() != 0) {
    addExact1(table, XpXdk::IACL_IP_PROTO, filter.proto(), key);
  }
  if (filter.ttlOp() == Acl::TtlOp::eq) {
    addTtl(table, filter, key);
  }
  addAddress(table, XpXdk::IACL_IP_SRC_ADDR, filter.source(), key);
  addAddress(table, XpXdk::IACL_IP_DST_ADDR, filter.destination(), key);
  writeRow(table, key, action, tcamIdx);
}

void XpAclPlexAggregatorHelper::programTcamRuleV4(const AclKeyInfo& aclKeyInfo, Acl::AclType,
                                                  const Acl::IpFilter& filter, Acl::Action action, bool log,
                                                  const Acl::UniqueId&, const Vane::Ptr<Plex::AclData>&,
                                                  Vane::U32, Vane::U32, Vane::U16 srcPort,
                                                  Vane::U16 srcPortMask, Vane::U16 dstPort,
                                                  Vane::U16 dstPortMask, bool finalRule, Vane::U32 tcamIdx,
                                                  Vane::U32 counterIdx) {
  const TcamTableInfo& table = tcamTable(getTcamType(aclKeyInfo.aclKey().direction(), Acl::ipv4));
  programIpRow(table, aclKeyInfo, filter, {log, action == Acl::permit, finalRule, counterIdx}, srcPort,
               srcPortMask, dstPort, dstPortMask, tcamIdx);
}

void XpAclPlexAggregatorHelper::programTcamRuleV6(const AclKeyInfo& aclKeyInfo, Acl::AclType,
                                                  const Acl::Ip6Filter& filter, Acl::Action action, bool log,
                                                  const Acl::UniqueId&, const Vane::Ptr<Plex::AclData>&,
                                                  Vane::U32, Vane::U32, Vane::U16 srcPort,
                                                  Vane::U16 srcPortMask, Vane::U16 dstPort,
                                                  Vane::U16 dstPortMask, bool finalRule, Vane::U32 tcamIdx,
                                                  Vane::U32 counterIdx) {
  const TcamTableInfo& table = tcamTable(getTcamType(aclKeyInfo.aclKey().direction(), Acl::ipv6));
  programIpRow(table, aclKeyInfo, filter, {log, action == Acl::permit, finalRule, counterIdx}, srcPort,
               srcPortMask, dstPort, dstPortMask, tcamIdx);
}

void XpAclPlexAggregatorHelper::programTcamRuleMac(const AclKeyInfo& aclKeyInfo, Acl::AclType,
                                                   const Acl::MacFilter& filter, Acl::Action action, bool log,
                                                   const Acl::UniqueId&, const Vane::Ptr<Plex::AclData>&,
                                                   Vane::U32, Vane::U32, bool finalRule, Vane::U32 tcamIdx,
                                                   Vane::U32 counterIdx) {
  const TcamTableInfo& table = tcamTable(getTcamType(aclKeyInfo.aclKey().direction(), Acl::mac));
  OvIaclKey key(table.keyType);
  addAclId(table, aclKeyInfo.aclId(), key);
  if (!finalRule) {
    if (filter.vlanMask() != 0) {
      addMasked2(table, XpXdk::IACL_MAC_VLAN, filter.vlan(), filter.vlanMask(), key);
    }
    if (filter.etherType() != Acl::etherTypeAny) {
      addMasked2(table, XpXdk::IACL_MAC_ETHERTYPE, static_cast<Vane::U16>(filter.etherType()), 0xFFFF, key);
    }
    addMacAddress(table, XpXdk::IACL_MAC_SRC, filter.source(), filter.sourceMask(), key);
    addMacAddress(table, XpXdk::IACL_MAC_DST, filter.destination(), filter.destinationMask(), key);
  }
  writeRow(table, key, {log, action == Acl::permit, finalRule, counterIdx}, tcamIdx);
}

// A rule of a version, whose table the caller knows.
void XpAclPlexAggregatorHelper::programRule(const TcamTableInfo& table, const AclKeyInfo& aclKeyInfo,
                                            const TcamRuleInfo& rule, Vane::U32 tcamIdx,
                                            Vane::U32 counterIdx) {
  switch (table.aclType) {
  case Acl::ipv4:
    programTcamRuleV4(aclKeyInfo, table.aclType, rule.filter(), rule.action(), rule.log(), rule.aclId(),
                      rule.aclDataHeld(), rule.ruleNum(), rule.subruleNum(), rule.srcL4Port(),
                      rule.srcL4PortMask(), rule.dstL4Port(), rule.dstL4PortMask(), rule.finalAclRule(),
                      tcamIdx, counterIdx);
    return;
  case Acl::ipv6:
    programTcamRuleV6(aclKeyInfo, table.aclType, rule.ip6Filter(), rule.action(), rule.log(), rule.aclId(),
                      rule.aclDataHeld(), rule.ruleNum(), rule.subruleNum(), rule.srcL4Port(),
                      rule.srcL4PortMask(), rule.dstL4Port(), rule.dstL4PortMask(), rule.finalAclRule(),
                      tcamIdx, counterIdx);
    return;
  case Acl::mac:
    programTcamRuleMac(aclKeyInfo, table.aclType, rule.macFilter(), rule.action(), rule.log(), rule.aclId(),
                       rule.aclDataHeld(), rule.ruleNum(), rule.subruleNum(), rule.finalAclRule(), tcamIdx,
                       counterIdx);
    return;
  }
}

Ovnet::Ip6Addr ipv6AddrToIp6Addr(const std::array<uint8_t, 16>& bytes) {
  std::array<uint8_t, 16> reversed;
  for (unsigned i = 0; i < 16; ++i) {
    reversed[i] = bytes[15 - i];
  }
  return Ovnet::Ip6Addr(reversed);
}

} // namespace XpAcl
