#include "sim/Device.h"

#include <cstdio>

#include "Vane/Assert.h"

// Texts of rows, keys and tables for the call log, for tests and for tools.

namespace sim {

using namespace XpXdk;

namespace {

constexpr std::array<const char*, 8> ipFieldNames{"aclId", "flags", "dstL4", "srcL4",
                                                  "proto", "ttl",   "dst",   "src"};
constexpr std::array<const char*, 5> macFieldNames{"vlan", "aclId", "etherType", "dst", "src"};

// IPv4 addresses are the only fields that stand in a key with their most significant octet first.
bool mostSignificantFirst(xpIaclKeyType keyType, uint8_t fieldId) {
  return keyType == IACL_V4_KEY_TYPE && (fieldId == IACL_IP_DST_ADDR || fieldId == IACL_IP_SRC_ADDR);
}

std::string fieldHex(xpIaclKeyType keyType, const IaclFieldLayout& field, const TcamKeyBytes& bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  const bool forward = mostSignificantFirst(keyType, field.fieldId);
  std::string text;
  for (unsigned i = 0; i < field.width; ++i) {
    const uint8_t byte = bytes[field.offset + (forward ? i : field.width - 1u - i)];
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

bool fieldIgnored(const IaclFieldLayout& field, const TcamKeyBytes& mask) {
  for (unsigned i = 0; i < field.width; ++i) {
    if (mask[field.offset + i] != 0xFF) {
      return false;
    }
  }
  return true;
}

// Appends " name=hex", without the blank at the start of a text.
void appendField(std::string& text, xpIaclType_e table, const IaclKeyLayout& layout,
                 const IaclFieldLayout& field, const TcamKeyBytes& value) {
  if (!text.empty()) {
    text += " ";
  }
  text += fieldName(table, field.fieldId);
  text += "=";
  text += fieldHex(layout.keyType, field, value);
}

std::string decimal(unsigned value) {
  return std::to_string(value);
}

} // namespace

std::string tableText(xpIaclType_e table) {
  const IaclTableInfo* info = iaclTable(table);
  return info ? info->name : "table" + decimal(static_cast<unsigned>(table));
}

const char* fieldName(xpIaclType_e table, uint8_t fieldId) {
  const IaclKeyLayout& layout = layoutOf(table);
  VANE_ASSERT(fieldId < layout.numFields);
  return layout.keyType == IACL_MAC_KEY_TYPE ? macFieldNames[fieldId] : ipFieldNames[fieldId];
}

std::string keyText(xpIaclType_e table, const TcamKeyBytes& value, const TcamKeyBytes& mask) {
  const IaclKeyLayout& layout = layoutOf(table);
  std::string text;
  for (unsigned i = 0; i < layout.numFields; ++i) {
    const IaclFieldLayout& field = layout.fields[i];
    if (!fieldIgnored(field, mask)) {
      appendField(text, table, layout, field, value);
      text += "/";
      text += fieldHex(layout.keyType, field, mask);
    }
  }
  return text;
}

std::string keyText(xpIaclType_e table, const TcamKeyBytes& key) {
  const IaclKeyLayout& layout = layoutOf(table);
  std::string text;
  for (unsigned i = 0; i < layout.numFields; ++i) {
    appendField(text, table, layout, layout.fields[i], key);
  }
  return text;
}

std::string dataText(const xpIaclData_t& data) {
  return "log=" + decimal(data.logEn()) + " count=" + decimal(data.countEn()) +
         " result=" + decimal(data.result()) + " cntr=" + decimal(data.cntrIdx());
}

std::string entryText(const xpPortConfigEntry& entry) {
  return "PAclId=" + decimal(entry.portAclId) + " aclEnBits=" + decimal(entry.aclEnBits) +
         " macAclEn=" + decimal(entry.macAclEn);
}

std::string entryText(const xpPortVlanIvifEntry& entry) {
  return "vlan=" + decimal(entry.keyVlan) + " ivif=" + decimal(entry.keyIvif) +
         " routeAclId=" + decimal(entry.routeAclId) + " routeAclEn=" + decimal(entry.routeAclEn);
}

std::string entryText(const xpEgressBdEvifEntry& entry) {
  return "bd=" + decimal(entry.egressBd) + " evif=" + decimal(entry.egressVif) +
         " ePaclId=" + decimal(entry.ePaclId) + " v4En=" + decimal(entry.ePaclIpV4En) +
         " v6En=" + decimal(entry.ePaclIpV6En) + " eRaclId=" + decimal(entry.eRaclId) +
         " v4En=" + decimal(entry.eRaclIpV4En) + " v6En=" + decimal(entry.eRaclIpV6En);
}

std::string rowText(const Device& device, xpIaclType_e table, uint32_t row) {
  const TcamTable* tcam = device.tcam(table);
  VANE_ASSERT(tcam && row < tcam->numRows());
  const TcamRow content = tcam->row(row);
  std::string text = decimal(row) + (content.valid ? " valid" : " invalid");
  const std::string key = keyText(table, content.value, content.mask);
  if (!key.empty()) {
    text += " ";
    text += key;
  }
  for (unsigned copy = 0; copy < tcam->numCopies(); ++copy) {
    text += " data " + dataText(xpIaclData_t::fromWord(tcam->data(row, copy)));
  }
  return text;
}

std::string Device::tablesText() const {
  std::string text;
  for (std::size_t i = 0; i < tcams_.size(); ++i) {
    for (uint32_t row = tcams_[i].nextValid(0); row != TcamTable::noRow; row = tcams_[i].nextValid(row + 1)) {
      text += std::string(iaclTables[i].name) + " " + rowText(*this, iaclTables[i].table, row) + "\n";
    }
  }
  for (std::size_t port = 0; port < portConfig_.size(); ++port) {
    if (portConfig_[port] != xpPortConfigEntry{}) {
      text += "portConfig " + std::to_string(port) + " " + entryText(portConfig_[port]) + "\n";
    }
  }
  for (uint32_t index = 0; index < portVlan_.capacity(); ++index) {
    if (const xpPortVlanIvifEntry* entry = portVlan_.entry(index)) {
      text += "portVlan " + decimal(index) + " " + entryText(*entry) + "\n";
    }
  }
  for (uint32_t index = 0; index < egress_.capacity(); ++index) {
    if (const xpEgressBdEvifEntry* entry = egress_.entry(index)) {
      text += "egress " + decimal(index) + " " + entryText(*entry) + "\n";
    }
  }
  return text;
}

} // namespace sim
