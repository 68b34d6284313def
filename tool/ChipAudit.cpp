#include "tool/ChipAudit.h"

#include <algorithm>
#include <map>
#include <set>

namespace tool {

namespace {

using XpAcl::TcamTableInfo;

// Writes a recorded rule to its row, as its commit did.
void writeRule(XpAcl::XpAclPlexAggregatorHelper& helper, const XpAcl::AclKeyInfo& version,
               const XpAcl::TcamRuleInfo& rule, uint32_t row, uint32_t counter) {
  const Acl::AclType aclType = version.aclKey().aclType();
  switch (aclType) {
  case Acl::ipv4:
    helper.programTcamRuleV4(version, aclType, rule.filter(), rule.action(), rule.log(), rule.aclId(),
                             rule.aclData(), rule.ruleNum(), rule.subruleNum(), rule.srcL4Port(),
                             rule.srcL4PortMask(), rule.dstL4Port(), rule.dstL4PortMask(),
                             rule.finalAclRule(), row, counter);
    return;
  case Acl::ipv6:
    helper.programTcamRuleV6(version, aclType, rule.ip6Filter(), rule.action(), rule.log(), rule.aclId(),
                             rule.aclData(), rule.ruleNum(), rule.subruleNum(), rule.srcL4Port(),
                             rule.srcL4PortMask(), rule.dstL4Port(), rule.dstL4PortMask(),
                             rule.finalAclRule(), row, counter);
    return;
  default:
    helper.programTcamRuleMac(version, aclType, rule.macFilter(), rule.action(), rule.log(), rule.aclId(),
                              rule.aclData(), rule.ruleNum(), rule.subruleNum(), rule.finalAclRule(), row,
                              counter);
  }
}

std::string lineOf(const agent::RowOwner& owner) {
  const agent::Rule* const rule = owner.rule();
  const std::string list = owner.acl->source.name + ": " + owner.acl->textOf(owner.origin);
  return rule == nullptr ? list : rule->loc.text() + ": " + list;
}

class ChipAudit {
public:
  explicit ChipAudit(Session& session) : session_(session) { startImage(); }

  std::vector<AuditFinding> run() {
    for (const auto& [number, device] : session_.system().devices()) {
      if (session_.agent().helper(number)) {
        const sim::Device recorded = recordedTables(number);
        for (const TcamTableInfo& table : XpAcl::tcamTables) {
          auditTable(table, *device, recorded);
        }
        auditPorts(*device);
        auditVlans(*device);
        auditEgress(*device);
      }
    }
    return std::move(findings_);
  }

private:
  // A chip as it is before its first list: what a start writes to a chip of the same sizes.
  void startImage() {
    sim::System fresh;
    const auto& devices = session_.system().devices();
    sim::DeviceConfig config = devices.begin()->second->config();
    config.numPorts = config.portVlanCapacity = config.egressCapacity = 0; // only rows are written to it
    fresh.deviceAdd(0, config);
    const sim::System::Installation installed = fresh.install();
    agent::AgentSetup setup = session_.agent().setup();
    setup.numChips = 1;
    const agent::Agent agent(setup);
    start_.emplace(*fresh.device(0));
  }

  sim::Device recordedTables(uint8_t chip) {
    sim::Device& device = *session_.system().device(chip);
    XpAcl::XpAclPlexAggregatorHelper& helper = *session_.agent().helper(chip);
    sim::Device recorded(*start_);
    device.tablesSwap(recorded);
    for (const auto& version : helper.programmedAclKeyInfoToIdxAll()) {
      const Plex::AclKey& key = version.key().aclKey();
      const XpAcl::TcamType table = XpAcl::getTcamType(key.direction(), key.aclType());
      const auto rules = helper.programmedAclKeyToTcamInfo(key);
      for (const auto& placed : version.ptr()->tcamIdxAll()) {
        const auto rule = rules->tcamRuleInfo(placed.key());
        const agent::RowOwner* const owner = session_.agent().rowOwner(chip, table, placed.value());
        const uint32_t counter = owner != nullptr && owner->ownCounter
                                     ? XpAcl::counterIndexOfRow(key.aclType(), placed.value())
                                     : helper.unusedAcmIndex();
        writeRule(helper, version.key(), *rule, placed.value(), counter);
      }
    }
    device.tablesSwap(recorded);
    return recorded;
  }

  // The ACL ids that versions in `table` of the chip have.
  std::set<uint16_t> usedIds(uint8_t chip, XpAcl::TcamType table) const {
    std::set<uint16_t> ids;
    for (const auto& version : session_.agent().helper(chip)->programmedAclKeyInfoToIdxAll()) {
      const Plex::AclKey& key = version.key().aclKey();
      if (XpAcl::getTcamType(key.direction(), key.aclType()) == table) {
        ids.insert(version.key().aclId());
      }
    }
    return ids;
  }

  void auditTable(const TcamTableInfo& info, const sim::Device& device, const sim::Device& recorded) {
    const sim::TcamTable& chip = *device.tcam(info.table);
    const sim::TcamTable& books = *recorded.tcam(info.table);
    const std::set<uint16_t> ids = usedIds(device.number(), info.tcamType);
    for (uint32_t row = 0; row < chip.numRows(); ++row) {
      const sim::TcamRow found = chip.row(row);
      const sim::TcamRow expected = books.row(row);
      AuditFinding finding;
      finding.chip = device.number();
      finding.place = std::string(stringValue(info.tcamType).charPtr()) + " row " + std::to_string(row);
      const agent::RowOwner* const owner = session_.agent().rowOwner(device.number(), info.tcamType, row);
      finding.line = owner != nullptr            ? lineOf(*owner)
                     : row + 1 == chip.numRows() ? "the default entry, which drops for blocked interfaces"
                                                 : "no line: the row is free";
      if (!expected.valid && found.valid) {
        const bool inUse = ids.count(idOf(info, found)) != 0;
        finding.damage = inUse ? Damage::orphan : Damage::stale;
        finding.detail = "found " + sim::rowText(device, info.table, row);
      } else if (expected.valid && !found.valid) {
        finding.damage = Damage::missing;
        finding.detail = "recorded " + sim::rowText(recorded, info.table, row);
      } else if (expected.valid && !sameKey(chip, found, expected)) {
        finding.damage = Damage::wrongKey;
        finding.detail = differences(device, recorded, info, row);
      } else if (expected.valid && !sameData(chip, books, row)) {
        finding.damage = Damage::wrongAction;
        finding.detail = differences(device, recorded, info, row);
      } else {
        continue;
      }
      findings_.push_back(finding);
    }
  }

  static uint16_t idOf(const TcamTableInfo& info, const sim::TcamRow& row) {
    const XpXdk::IaclKeyLayout& layout = *XpXdk::iaclKeyLayout(info.keyType);
    return row.value[layout.fields[info.aclIdField].offset];
  }

  static bool sameKey(const sim::TcamTable& table, const sim::TcamRow& a, const sim::TcamRow& b) {
    const auto equal = [&](const sim::TcamKeyBytes& x, const sim::TcamKeyBytes& y) {
      return std::equal(x.begin(), x.begin() + table.keyLength(), y.begin());
    };
    return equal(a.value, b.value) && equal(a.mask, b.mask);
  }

  static bool sameData(const sim::TcamTable& a, const sim::TcamTable& b, uint32_t row) {
    for (unsigned copy = 0; copy < a.numCopies(); ++copy) {
      if (a.data(row, copy) != b.data(row, copy)) {
        return false;
      }
    }
    return true;
  }

  // The texts of both; where they read the same, the bytes that differ.
  static std::string differences(const sim::Device& device, const sim::Device& recorded,
                                 const TcamTableInfo& info, uint32_t row) {
    const std::string found = sim::rowText(device, info.table, row);
    const std::string expected = sim::rowText(recorded, info.table, row);
    if (found != expected) {
      return "recorded " + expected + ", found " + found;
    }
    const sim::TcamRow a = device.tcam(info.table)->row(row);
    const sim::TcamRow b = recorded.tcam(info.table)->row(row);
    for (unsigned byte = 0; byte < device.tcam(info.table)->keyLength(); ++byte) {
      if (a.value[byte] != b.value[byte] || a.mask[byte] != b.mask[byte]) {
        return "recorded and found " + found + ", but byte " + std::to_string(byte) +
               " of the packed key or mask differs";
      }
    }
    return "recorded and found " + found + ", but an unused bit of a data word differs";
  }

  template <typename Entry>
  void entryFinding(const sim::Device& device, const std::string& place, const std::string& line,
                    const Entry* recorded, const Entry* found) {
    if (recorded != nullptr && found != nullptr && *recorded == *found) {
      return;
    }
    AuditFinding finding;
    finding.chip = device.number();
    finding.place = place;
    finding.line = line;
    finding.damage = recorded == nullptr ? Damage::stale
                     : found == nullptr  ? Damage::missing
                                         : Damage::wrongEntry;
    finding.detail = (recorded == nullptr ? "" : "recorded " + sim::entryText(*recorded)) +
                     (recorded != nullptr && found != nullptr ? ", " : "") +
                     (found == nullptr ? "" : "found " + sim::entryText(*found));
    findings_.push_back(finding);
  }

  Vane::Ptr<XpAcl::ChipHwAclIdMap> enables(const sim::Device& device) const {
    const auto machine = session_.agent().chipMachine(device.number());
    return machine ? machine->chipHwAclIdMap() : Vane::Ptr<XpAcl::ChipHwAclIdMap>();
  }

  static uint8_t idOf(const XpAcl::AclIdEn& en) {
    return static_cast<uint8_t>(en.blocked() ? 0 : en.aclId());
  }

  std::string listsOf(const std::string& what, Ovnet::IntfId intf, Acl::AclDirection direction) const {
    const auto attached = session_.agent().attachments().find({intf, direction});
    std::string text = what;
    if (attached != session_.agent().attachments().end()) {
      for (const Plex::AclKey& key : agent::members(attached->second)) {
        text += std::string(" ") + key.name().charPtr();
      }
    }
    return text;
  }

  void auditPorts(const sim::Device& device) {
    std::map<uint32_t, Ovnet::IntfId> ports;
    for (const auto& port : session_.agent().systemStatus()->intfToChipPortAll()) {
      if (port.value().chip().value() == device.number()) {
        ports[port.value().port().value()] = port.key();
      }
    }
    const auto map = enables(device);
    for (uint32_t number = 0; number < device.portConfig().size(); ++number) {
      XpXdk::xpPortConfigEntry recorded;
      const auto port = ports.find(number);
      if (port != ports.end() && map) {
        const XpAcl::AclIdEn en = map->ingressPortAclIdEn(port->second);
        recorded.portAclId = idOf(en);
        recorded.aclEnBits = static_cast<uint8_t>((en.v4En() ? 1 : 0) | (en.v6En() ? 2 : 0));
        recorded.macAclEn = en.macEn() ? 1 : 0;
      }
      const std::string name =
          port == ports.end() ? "port " + std::to_string(number) : session_.portName(port->second);
      entryFinding(device, "port entry " + std::to_string(number),
                   port == ports.end() ? name : listsOf(name, port->second, Acl::ingress), &recorded,
                   &device.portConfig()[number]);
    }
  }

  // Calls visit(vlan, vif, port) for each entry that pairs of the chip's ports may have.
  template <typename Visit>
  void forEachPair(const sim::Device& device, const Visit& visit) const {
    std::set<std::pair<uint16_t, uint32_t>> seen;
    const auto& status = *session_.agent().systemStatus();
    for (const auto& pair : session_.agent().portVlanVifStatus()->portVlanToVifMapAll()) {
      const Plex::Central::ChipPort port = status.intfToChipPort(pair.key().intf());
      if (!!port && port.chip().value() == device.number() &&
          seen.insert({pair.key().vlanId().value(), pair.value().value()}).second) {
        visit(pair.key().vlanId(), pair.value(), pair.key().intf());
      }
    }
  }

  // Compares the entries that are recorded, by the index that the library has for each, and finds those that
  // stand at other indexes.
  template <typename Entry, typename Table>
  void auditKeyed(const sim::Device& device, const Table& table, const char* name,
                  const XpAcl::VlanVifIndexMap& indexes,
                  const std::map<std::pair<uint16_t, uint32_t>, std::pair<Entry, std::string>>& recorded) {
    std::set<uint32_t> known;
    for (const auto& [key, entry] : recorded) {
      const Vane::U32* const index =
          indexes.index(XpAcl::XpAclVlanVifKey(Bridging::VlanId(key.first), XpVif::VifId(key.second)));
      const std::string place =
          std::string(name) + (index == nullptr ? "" : " index " + std::to_string(*index));
      if (index != nullptr) {
        known.insert(*index);
      }
      entryFinding(device, place, entry.second, &entry.first,
                   index == nullptr ? nullptr : table.entry(*index));
    }
    for (uint32_t index = 0; index < table.capacity(); ++index) {
      if (known.count(index) == 0 && table.entry(index) != nullptr) {
        entryFinding<Entry>(device, std::string(name) + " index " + std::to_string(index),
                            "no line: nothing uses the entry", nullptr, table.entry(index));
      }
    }
  }

  void auditVlans(const sim::Device& device) {
    std::map<std::pair<uint16_t, uint32_t>, std::pair<XpXdk::xpPortVlanIvifEntry, std::string>> recorded;
    if (const auto map = enables(device)) {
      forEachPair(device, [&](Bridging::VlanId vlan, XpVif::VifId vif, Ovnet::IntfId) {
        const XpAcl::AclIdEn en = map->ingressRouteAclIdEn(vlan);
        if (!(en == XpAcl::AclIdEn())) {
          XpXdk::xpPortVlanIvifEntry entry;
          entry.keyVlan = vlan.value();
          entry.keyIvif = static_cast<uint16_t>(vif.value());
          entry.routeAclId = idOf(en);
          entry.routeAclEn = static_cast<uint8_t>((en.v4En() ? 1 : 0) | (en.v6En() ? 2 : 0));
          recorded[{vlan.value(), vif.value()}] = {
              entry,
              listsOf("Vlan" + std::to_string(vlan.value()), Ovnet::VlanIntfId::intfId(vlan), Acl::ingress)};
        }
      });
    }
    auditKeyed(device, device.portVlan(), "port-VLAN",
               *session_.agent().xpcsd()->portVlanIvifKeyAndIndexMap(), recorded);
  }

  void auditEgress(const sim::Device& device) {
    std::map<std::pair<uint16_t, uint32_t>, std::pair<XpXdk::xpEgressBdEvifEntry, std::string>> recorded;
    if (const auto map = enables(device)) {
      forEachPair(device, [&](Bridging::VlanId vlan, XpVif::VifId vif, Ovnet::IntfId intf) {
        const XpAcl::AclIdEn port = map->egressPortAclIdEn(intf);
        const XpAcl::AclIdEn route = map->egressRouteAclIdEn(vlan);
        if (port.v4En() || port.v6En() || route.v4En() || route.v6En()) {
          XpXdk::xpEgressBdEvifEntry entry;
          entry.egressBd = vlan.value();
          entry.egressVif = static_cast<uint16_t>(vif.value());
          entry.ePaclId = idOf(port);
          entry.ePaclIpV4En = port.v4En();
          entry.ePaclIpV6En = port.v6En();
          entry.eRaclId = idOf(route);
          entry.eRaclIpV4En = route.v4En();
          entry.eRaclIpV6En = route.v6En();
          recorded[{vlan.value(), vif.value()}] = {
              entry, listsOf(session_.portName(intf), intf, Acl::egress) + ", " +
                         listsOf("Vlan" + std::to_string(vlan.value()), Ovnet::VlanIntfId::intfId(vlan),
                                 Acl::egress)};
        }
      });
    }
    auditKeyed(device, device.egress(), "egress", *session_.agent().xpcsd()->egressVlanVifKeyAndIndexMap(),
               recorded);
  }

  Session& session_;
  std::optional<sim::Device> start_;
  std::vector<AuditFinding> findings_;
};

} // namespace

const char* damageText(Damage damage) {
  switch (damage) {
  case Damage::missing:
    return "missing";
  case Damage::wrongKey:
    return "wrong key";
  case Damage::wrongAction:
    return "wrong action";
  case Damage::wrongEntry:
    return "wrong port entry";
  case Damage::stale:
    return "stale";
  case Damage::orphan:
    return "orphan";
  }
  return "";
}

std::vector<AuditFinding> auditChips(Session& session) {
  return ChipAudit(session).run();
}

} // namespace tool
