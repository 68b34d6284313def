#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

#include <cstdio>
#include <span>
#include <sstream>
#include <string>
#include <unistd.h>

// What operators see of the tables: the rows as the chip holds them, and the books.
//
// The three dumps are one walk over a description of their columns. Widths and blanks are the established
// output, also where they do not line up.

namespace XpAcl {

namespace {

enum class Cell { index, aclId, flag, hex2, hex4, ipv4, ipv6, macAddr, result, logEn, cntrIdx };

struct Column {
  const char* name;
  const char* headerFormat; // also of the mask line
  const char* valueFormat;
  Cell cell;
  uint8_t fieldId = 0;
  uint8_t bit = 0; // of a flag
};

constexpr Column v4Columns[] = {
    {"Index", "%-5s | ", "%-5s | ", Cell::index},
    {"AclId", "%-5s | ", "%s  | ", Cell::aclId, XpXdk::IACL_IP_ACL_ID},
    {"Role", "%-4s | ", "%-4s | ", Cell::flag, XpXdk::IACL_IP_FLAGS, 0},
    {"TcpEst", "%-6s | ", "%-6s | ", Cell::flag, XpXdk::IACL_IP_FLAGS, 1},
    {"Frag", "%-4s | ", "%-4s | ", Cell::flag, XpXdk::IACL_IP_FLAGS, 2},
    {"SrcL4", "%-6s | ", "%s | ", Cell::hex4, XpXdk::IACL_IP_SRC_L4},
    {"DstL4", "%-6s | ", "%s | ", Cell::hex4, XpXdk::IACL_IP_DST_L4},
    {"Proto", "%-5s | ", "%s | ", Cell::hex2, XpXdk::IACL_IP_PROTO},
    {"TTL", "%-4s | ", "%s | ", Cell::hex2, XpXdk::IACL_IP_TTL},
    {"SrcIp", "%-15s | ", "%-15s | ", Cell::ipv4, XpXdk::IACL_IP_SRC_ADDR},
    {"DstIp", "%-15s ||| ", "%-15s ||| ", Cell::ipv4, XpXdk::IACL_IP_DST_ADDR},
    {"Res", "%-3s | ", "%-3s | ", Cell::result},
    {"LogEn", "%-5s | ", "%-5s | ", Cell::logEn},
    {"CntrIdx", "%-7s | ", "%-7s | ", Cell::cntrIdx},
};

constexpr Column v6Columns[] = {
    {"Index", "%-5s | ", "%-5s | ", Cell::index},
    {"AclId", "%-5s | ", "%s  | ", Cell::aclId, XpXdk::IACL_IP_ACL_ID},
    {"Role", "%-4s | ", "%-4s | ", Cell::flag, XpXdk::IACL_IP_FLAGS, 0},
    {"TcpEst", "%-6s | ", "%-6s | ", Cell::flag, XpXdk::IACL_IP_FLAGS, 1},
    {"SrcL4", "%-6s | ", "%s | ", Cell::hex4, XpXdk::IACL_IP_SRC_L4},
    {"DstL4", "%-6s | ", "%s | ", Cell::hex4, XpXdk::IACL_IP_DST_L4},
    {"Proto", "%-5s | ", "%s | ", Cell::hex2, XpXdk::IACL_IP_PROTO},
    {"TTL", "%-4s | ", "%s | ", Cell::hex2, XpXdk::IACL_IP_TTL},
    {"SrcIp", "%-40s | ", "%-40s | ", Cell::ipv6, XpXdk::IACL_IP_SRC_ADDR},
    {"DstIp", "%-40s ||| ", "%-40s ||| ", Cell::ipv6, XpXdk::IACL_IP_DST_ADDR},
    {"Res", "%-3s | ", "%-3s | ", Cell::result},
    {"LogEn", "%-5s | ", "%-5s | ", Cell::logEn},
    {"cntrIdx", "%-7s | ", "%-7s | ", Cell::cntrIdx},
};

constexpr Column macColumns[] = {
    {"Index", "%-5s | ", "%-5s | ", Cell::index},
    {"AclId", "%-5s | ", "%s  | ", Cell::aclId, XpXdk::IACL_MAC_ACL_ID},
    {"SrcMac", "%-20s | ", "%-20s | ", Cell::macAddr, XpXdk::IACL_MAC_SRC},
    {"DstMac", "%-20s | ", "%-20s | ", Cell::macAddr, XpXdk::IACL_MAC_DST},
    {"Vlan", "%-7s | ", "%s  | ", Cell::hex4, XpXdk::IACL_MAC_VLAN},
    {"Ethertype", "%-9s | ", "%s    | ", Cell::hex4, XpXdk::IACL_MAC_ETHERTYPE},
    {"Res", "%-3s | ", "%-3s | ", Cell::result},
    {"LogEn", "%-5s | ", "%-5s | ", Cell::logEn},
    {"CntrIdx", "%-7s | ", "%-7s | ", Cell::cntrIdx},
};

struct TableDump {
  std::span<const Column> columns;
  unsigned separatorWidth;
  bool headerEndsWithBlank;
  const char* countName; // the variable of the getNumOfEntry call
};

const TableDump v4Dump{v4Columns, 135, true, "v4Count"};
const TableDump v6Dump{v6Columns, 178, false, "v6Count"};
const TableDump macDump{macColumns, 135, true, "macCount"};

// Formats one cell; the formats are the constants above and take one string.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string padded(const char* format, const std::string& text) {
  char buffer[96];
  const int length = std::snprintf(buffer, sizeof buffer, format, text.c_str());
  return std::string(buffer, static_cast<std::size_t>(length));
}
#pragma GCC diagnostic pop

std::string bytesText(Cell cell, const Column& column, const uint8_t* bytes) {
  switch (cell) {
  case Cell::aclId:
  case Cell::hex2:
    return Vane::format("0x%02x", bytes[0]).charPtr();
  case Cell::flag:
    return (bytes[0] >> column.bit) & 1 ? "1" : "0";
  case Cell::hex4:
    return Vane::format("0x%04x", bytes[0] | (bytes[1] << 8)).charPtr();
  case Cell::ipv4:
    return Vane::format("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]).charPtr();
  case Cell::ipv6: {
    std::array<uint8_t, 16> address;
    std::copy_n(bytes, address.size(), address.begin());
    return ipv6AddrToIp6Addr(address).stringValue().charPtr();
  }
  case Cell::macAddr:
    return Vane::format("%x:%x:%x:%x:%x:%x", bytes[5], bytes[4], bytes[3], bytes[2], bytes[1], bytes[0])
        .charPtr();
  default:
    return "";
  }
}

unsigned cellWidth(Cell cell) {
  switch (cell) {
  case Cell::aclId:
  case Cell::hex4:
    return 2;
  case Cell::flag:
  case Cell::hex2:
    return 1;
  case Cell::ipv4:
    return 4;
  case Cell::ipv6:
    return 16;
  case Cell::macAddr:
    return 6;
  default:
    return 0;
  }
}

std::string headerLine(const TableDump& dump) {
  std::string line = "| ";
  for (const Column& column : dump.columns) {
    line += padded(column.headerFormat, column.name);
  }
  if (!dump.headerEndsWithBlank) {
    line.pop_back();
  }
  return line + "\n";
}

std::string valueText(const Column& column, Vane::U32 row, const OvIaclKey& key,
                      const XpXdk::xpIaclData_t& data) {
  switch (column.cell) {
  case Cell::index:
    return std::to_string(row);
  case Cell::result:
    return std::to_string(data.result());
  case Cell::logEn:
    return data.logEn() ? "1" : "0";
  case Cell::cntrIdx:
    return std::to_string(data.cntrIdx());
  default:
    uint8_t value[XpXdk::maxIaclFieldBytes];
    uint8_t mask[XpXdk::maxIaclFieldBytes];
    readIaclKeyField(key.sdkKey.keyType, column.fieldId, key, cellWidth(column.cell), value, mask);
    return bytesText(column.cell, column, value);
  }
}

std::string maskText(const Column& column, const OvIaclKey& key) {
  if (cellWidth(column.cell) == 0) {
    return " ";
  }
  uint8_t value[XpXdk::maxIaclFieldBytes];
  uint8_t mask[XpXdk::maxIaclFieldBytes];
  readIaclKeyField(key.sdkKey.keyType, column.fieldId, key, cellWidth(column.cell), value, mask);
  return bytesText(column.cell, column, mask) + (column.cell == Cell::aclId ? " " : "");
}

// The value line and, without its last blank, the mask line of one row.
std::string rowLines(const TableDump& dump, Vane::U32 row, const OvIaclKey& key,
                     const XpXdk::xpIaclData_t& data) {
  std::string values = "| ";
  std::string masks = "| ";
  for (const Column& column : dump.columns) {
    values += padded(column.valueFormat, valueText(column, row, key, data));
    masks += padded(column.headerFormat, maskText(column, key));
  }
  masks.pop_back();
  return values + "\n" + masks + "\n";
}

void writeAll(Vane::U32 fd, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t n = ::write(static_cast<int>(fd), text.data() + written, text.size() - written);
    if (n <= 0) {
      return;
    }
    written += static_cast<std::size_t>(n);
  }
}

} // namespace

// A table that the chip has no space for prints its frame only.
void XpAclPlexAggregatorHelper::showTable(Vane::U32 fd, TcamType type) {
  const TcamTableInfo& table = tcamTable(type);
  const TableDump& dump = table.aclType == Acl::ipv4 ? v4Dump : table.aclType == Acl::ipv6 ? v6Dump : macDump;
  const std::string separator = std::string(dump.separatorWidth, '=') + "\n";
  Vane::U32 count = 0;
  const bool egressExists = systemStatus()->deviceType() == XpSystem::deviceTypeWithPartition;
  if (XpLib::isDbAllocatedForFeature(table.partitionFeature, tcamPartitionStatus()) &&
      (table.direction == Acl::ingress || egressExists)) {
    XPACL_UNIT_CHECK(iaclMgr()->getNumOfEntry(xpDevId().value(), table.table, count),
                     std::string("((iaclMgr()->getNumOfEntry( xpDevId().value(), tcamVer, ") +
                         dump.countName + " )))");
  }
  writeAll(fd, separator + headerLine(dump) + separator);
  OvIaclKey key(table.keyType);
  for (Vane::U32 i = 0; i < count; ++i) {
    key.reinitialize(table.keyType);
    XpXdk::xpIaclData_t data;
    Vane::U32 isValid = 0;
    XPACL_UNIT_CHECK(
        iaclMgr()->readEntry(xpDevId().value(), table.table, i, isValid, &key.sdkKey, &data, 0),
        "((iaclMgr()->readEntry( xpDevId().value(), tcamVer, i, isValid, &key.sdkKey, &data, 0 )))");
    if (isValid != 0) {
      writeAll(fd, rowLines(dump, i, key, data) + separator);
    }
  }
  writeAll(fd, separator);
}

void XpAclPlexAggregatorHelper::showV4AclTable(Vane::U32 fd, Acl::AclDirection direction) {
  showTable(fd, getTcamType(direction, Acl::ipv4));
}

void XpAclPlexAggregatorHelper::showV6AclTable(Vane::U32 fd, Acl::AclDirection direction) {
  showTable(fd, getTcamType(direction, Acl::ipv6));
}

// MAC ACLs stand in one table, whatever the direction asked for.
void XpAclPlexAggregatorHelper::showMacAclTable(Vane::U32 fd, Acl::AclDirection) {
  showTable(fd, ingressMac);
}

namespace {

std::string keyText(const Plex::AclKey& key) {
  return valueToStrep(key).charPtr();
}

std::string versionText(const AclKeyInfo& info) {
  return "aclKeyInfo: aclKey " + keyText(info.aclKey()) + " aclId " + std::to_string(info.aclId()) +
         " tcamType " +
         stringValue(getTcamType(info.aclKey().direction(), info.aclKey().aclType())).charPtr();
}

std::string ruleText(const TcamAclRuleId& id) {
  return "tcamRuleId : ruleNum " + std::to_string(id.ruleNum()) + " subRuleNum " +
         std::to_string(id.subRuleNum());
}

using LineSink = std::function<void(const std::string&)>;

void rulesText(const LineSink& line, const std::string& indent, const TcamInfo& info) {
  line(indent + "aclKey " + keyText(info.aclKey()));
  for (const auto& rule : info.tcamRuleInfoAll()) {
    line(indent + "    " + ruleText(rule.key()));
  }
}

void placementText(const LineSink& line, const std::string& indent, const TcamIdxMapping& mapping) {
  line(indent + versionText(mapping.aclKeyInfo()));
  for (const auto& placed : mapping.tcamIdxAll()) {
    line(indent + "    " + ruleText(placed.key()));
    line(indent + "    tcamIdx " + std::to_string(placed.value()));
  }
}

} // namespace

void XpAclPlexAggregatorHelper::debugState(const LineSink& line) const {
  line("    programmedAclKeyToTcamInfo ");
  for (const auto& acl : programmedAclKeyToTcamInfoAll()) {
    rulesText(line, "        ", *acl.ptr());
  }
  line("    programmedAclKeyInfoToIdx ");
  for (const auto& version : programmedAclKeyInfoToIdxAll()) {
    placementText(line, "        ", *version.ptr());
  }
  for (const auto& pending : pendingTcamMappingAll()) {
    line("    aclKey " + keyText(pending.key()));
    line("        pendingAclKeyInfoToIdx ");
    for (const auto& version : pending.ptr()->pendingAclKeyInfoToIdxAll()) {
      placementText(line, "            ", *version.ptr());
    }
    line("        pendingAclKeyToTcamInfo ");
    for (const auto& acl : pending.ptr()->pendingAclKeyToTcamInfoAll()) {
      rulesText(line, "            ", *acl.ptr());
    }
  }
}

// The whole state at every commit would cost more than the commit, so it is written only when somebody
// has turned the level on.
void XpAclPlexAggregatorHelper::printDebugStatePlatform() {
  if (aggregatorHelperTrace().enabled(debugStateTraceLevel)) {
    debugState(
        [](const std::string& text) { HELPER_TRACE(debugStateTraceLevel, Vane::String(text.c_str())); });
  }
}

} // namespace XpAcl
