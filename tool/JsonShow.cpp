#include "tool/JsonShow.h"

#include "tool/Common.h"
#include "tool/JsonDocument.h"

#include <nlohmann/json.hpp>

namespace tool {

namespace {

Json rowJson(Session& session, const sim::Device& device, const XpAcl::TcamTableInfo& info, uint32_t number) {
  const sim::TcamTable& tcam = *device.tcam(info.table);
  const sim::TcamRow row = tcam.row(number);
  const auto data = XpXdk::xpIaclData_t::fromWord(tcam.data(number, 0));
  const agent::RowOwner* const owner = session.agent().rowOwner(device.number(), info.tcamType, number);
  const bool ofList = owner != nullptr && owner->acl;
  return {{"row", number},
          {"key", sim::keyText(info.table, row.value, row.mask)},
          {"result", permitWord(data.result() != 0)},
          {"log", data.logEn() != 0},
          {"counter", data.countEn() != 0 ? Json(data.cntrIdx()) : Json(nullptr)},
          {"acl", ofList ? Json(owner->acl->source.name) : Json(nullptr)},
          {"aclId", ofList ? Json(owner->version.aclId()) : Json(nullptr)},
          {"line", ofList && owner->rule() != nullptr ? Json(owner->rule()->loc.line) : Json(nullptr)},
          {"rule", ofList ? owner->acl->textOf(owner->origin) : "(default row) deny"}};
}

Json portEntries(const sim::Device& device) {
  Json entries = Json::array();
  for (std::size_t port = 0; port < device.portConfig().size(); ++port) {
    const XpXdk::xpPortConfigEntry& entry = device.portConfig()[port];
    if (entry != XpXdk::xpPortConfigEntry{}) {
      entries.push_back({{"port", port},
                         {"portAclId", entry.portAclId},
                         {"aclEnBits", entry.aclEnBits},
                         {"macAclEn", entry.macAclEn}});
    }
  }
  return entries;
}

Json vlanEntries(const sim::Device& device) {
  Json entries = Json::array();
  for (uint32_t index = 0; index < device.portVlan().capacity(); ++index) {
    if (const XpXdk::xpPortVlanIvifEntry* const entry = device.portVlan().entry(index)) {
      entries.push_back({{"index", index},
                         {"vlan", entry->keyVlan},
                         {"vif", entry->keyIvif},
                         {"routeAclId", entry->routeAclId},
                         {"routeAclEn", entry->routeAclEn}});
    }
  }
  return entries;
}

Json egressEntries(const sim::Device& device) {
  Json entries = Json::array();
  for (uint32_t index = 0; index < device.egress().capacity(); ++index) {
    if (const XpXdk::xpEgressBdEvifEntry* const entry = device.egress().entry(index)) {
      entries.push_back({{"index", index},
                         {"vlan", entry->egressBd},
                         {"vif", entry->egressVif},
                         {"portAclId", entry->ePaclId},
                         {"portAclIpV4En", entry->ePaclIpV4En},
                         {"portAclIpV6En", entry->ePaclIpV6En},
                         {"routeAclId", entry->eRaclId},
                         {"routeAclIpV4En", entry->eRaclIpV4En},
                         {"routeAclIpV6En", entry->eRaclIpV6En}});
    }
  }
  return entries;
}

} // namespace

void showTcamJson(Session& session, uint8_t chip, const std::vector<XpAcl::TcamType>& tables) {
  const sim::Device& device = *session.system().device(chip);
  Json shown = Json::array();
  for (const XpAcl::TcamType type : tables) {
    const XpAcl::TcamTableInfo& info = XpAcl::tcamTable(type);
    const sim::TcamTable& tcam = *device.tcam(info.table);
    Json rows = Json::array();
    for (uint32_t row = tcam.nextValid(0); row != sim::TcamTable::noRow; row = tcam.nextValid(row + 1)) {
      rows.push_back(rowJson(session, device, info, row));
    }
    shown.push_back(
        {{"table", stringValue(type).charPtr()}, {"size", tcam.numRows()}, {"rows", std::move(rows)}});
  }
  printJson("show", {{"what", "tcam"}, {"chip", chip}, {"tables", std::move(shown)}});
}

void showPortTableJson(Session& session, uint8_t chip, const std::string& what) {
  const sim::Device& device = *session.system().device(chip);
  printJson("show", {{"what", what},
                     {"chip", chip},
                     {"entries", what == "ports"   ? portEntries(device)
                                 : what == "vlans" ? vlanEntries(device)
                                                   : egressEntries(device)}});
}

void showLinesJson(const std::string& what, const std::vector<std::string>& lines) {
  printJson("show", {{"what", what}, {"lines", lines}});
}

} // namespace tool
