#include "test/ChipPicture.h"

#include <map>
#include <set>
#include <tuple>
#include <vector>

namespace test {

namespace {

using XpXdk::xpIaclType_e;

// Which rows belong together: the table, the hardware ACL id and the role.
using PolicyKey = std::tuple<xpIaclType_e, unsigned, unsigned>;
using Policies = std::map<PolicyKey, std::string>;

// Every row's text has "aclId=0001/0000 " among its fields, those with a role "flags=01/fe ".
unsigned hexBehind(const std::string& text, const std::string& word) {
  const std::size_t at = text.find(word);
  return at == std::string::npos
             ? 0
             : static_cast<unsigned>(std::stoul(text.substr(at + word.size()), nullptr, 16));
}

// Which id a list has is a matter of history.
std::string withoutId(std::string key) {
  const std::size_t at = key.find("aclId=");
  if (at != std::string::npos) {
    key.erase(at, std::string("aclId=0001/0000 ").size());
  }
  return key;
}

Policies policiesOf(const sim::Device& device) {
  Policies policies;
  for (const XpXdk::IaclTableInfo& info : XpXdk::iaclTables) {
    const sim::TcamTable& tcam = *device.tcam(info.table);
    for (uint32_t row = tcam.nextValid(0); row != sim::TcamTable::noRow; row = tcam.nextValid(row + 1)) {
      const sim::TcamRow content = tcam.row(row);
      const std::string key = sim::keyText(info.table, content.value, content.mask);
      const unsigned role = hexBehind(key, "flags=") & 1;
      const XpXdk::xpIaclData_t data = XpXdk::xpIaclData_t::fromWord(tcam.data(row, 0));
      policies[{info.table, hexBehind(key, "aclId="), role}] += "\n    " + withoutId(key) +
                                                                " log=" + std::to_string(data.logEn()) +
                                                                " result=" + std::to_string(data.result());
    }
  }
  return policies;
}

// The policy that a lookup with this id meets; an id without rows drops everything.
std::string policy(const Policies& policies, bool enabled, xpIaclType_e table, unsigned id, sim::Role role) {
  if (!enabled) {
    return "";
  }
  const auto found = policies.find({table, id, static_cast<unsigned>(role)});
  return "\n  " + sim::tableText(table) + (found == policies.end() ? ": drops all" : found->second);
}

std::string portText(const Policies& policies, const XpXdk::xpPortConfigEntry& entry) {
  using enum sim::Role;
  return policy(policies, (entry.aclEnBits & 1) != 0, XpXdk::TACL_V4_IACL, entry.portAclId, port) +
         policy(policies, (entry.aclEnBits & 2) != 0, XpXdk::TACL_V6_IACL, entry.portAclId, port) +
         policy(policies, entry.macAclEn != 0, XpXdk::TACL_MAC_ACL, entry.portAclId, port);
}

} // namespace

std::string chipPicture(const sim::Device& device, const std::function<std::string(uint16_t)>& vifName) {
  using enum sim::Role;
  const Policies policies = policiesOf(device);
  std::map<std::string, std::string> entries;
  for (std::size_t number = 0; number < device.portConfig().size(); ++number) {
    const std::string text = portText(policies, device.portConfig()[number]);
    if (!text.empty()) {
      entries["port " + std::to_string(number)] = text;
    }
  }
  for (uint32_t index = 0; index < device.portVlan().capacity(); ++index) {
    if (const XpXdk::xpPortVlanIvifEntry* entry = device.portVlan().entry(index)) {
      const unsigned enabled = entry->routeAclEn;
      entries["ingress vlan " + std::to_string(entry->keyVlan) + " " + vifName(entry->keyIvif)] =
          policy(policies, (enabled & 1) != 0, XpXdk::TACL_V4_IACL, entry->routeAclId, routed) +
          policy(policies, (enabled & 2) != 0, XpXdk::TACL_V6_IACL, entry->routeAclId, routed);
    }
  }
  for (uint32_t index = 0; index < device.egress().capacity(); ++index) {
    if (const XpXdk::xpEgressBdEvifEntry* entry = device.egress().entry(index)) {
      entries["egress vlan " + std::to_string(entry->egressBd) + " " + vifName(entry->egressVif)] =
          policy(policies, entry->ePaclIpV4En != 0, XpXdk::TACL_V4_EACL, entry->ePaclId, port) +
          policy(policies, entry->ePaclIpV6En != 0, XpXdk::TACL_V6_EACL, entry->ePaclId, port) +
          policy(policies, entry->eRaclIpV4En != 0, XpXdk::TACL_V4_EACL, entry->eRaclId, routed) +
          policy(policies, entry->eRaclIpV6En != 0, XpXdk::TACL_V6_EACL, entry->eRaclId, routed);
    }
  }
  std::string text;
  for (const auto& [what, policyText] : entries) {
    text += what + policyText + "\n";
  }
  // Rows that nothing leads to count too: none may be left behind.
  std::multiset<std::string> held;
  for (const auto& [key, rows] : policies) {
    held.insert(sim::tableText(std::get<0>(key)) + " role " + std::to_string(std::get<2>(key)) + rows);
  }
  for (const std::string& rows : held) {
    text += "held: " + rows + "\n";
  }
  return text;
}

} // namespace test
