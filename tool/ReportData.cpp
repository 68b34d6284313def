#include "tool/ReportData.h"

#include "packet/PacketText.h"
#include "sim/Device.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace tool {

namespace {

// A member of a cell that is not there.
constexpr int none = -1;

XpXdk::xpAcmClient_e clientOf(const XpAcl::TcamTableInfo& table) {
  return table.direction == Acl::egress ? XpXdk::acmClientEgressAcl : XpXdk::acmClientIngressAcl;
}

std::string tableText(XpAcl::TcamType table) {
  return stringValue(table).charPtr();
}

std::string rangeText(const ListReport& report, const verify::CostlyRange& range) {
  std::string text = std::string(range.source ? "source" : "destination") + " ports " +
                     portsText(range.ports) + " take " + std::to_string(range.rows) + " rows; ports " +
                     portsText(range.cheaper) + " would take " + std::to_string(range.cheaperRows);
  if (!range.excluded.empty()) {
    text += ", with the same line as " + std::string(report.rule(range.line).permit ? "deny" : "permit") +
            " without log in front of it, for ports " + portsText(range.excluded);
  }
  return text;
}

} // namespace

ReportData::ReportData(const agent::Config& config, const agent::Plan& plan, Session* session,
                       const CaptureFeed* feed, const LintReports* lint)
    : config_(config), plan_(plan), session_(session), feed_(feed), lint_(lint) {
  findLists();
  if (session_ != nullptr) {
    findVersions();
    rooms_ = roomToReplace(session_->agent());
  }
  if (feed_ != nullptr) {
    // Entries come in order, the implicit ones behind them.
    for (const Hits::Line& line : feed_->hits().lines({}, {})) {
      hits_[{line.acl, line.family, line.direction}].push_back(line.hits);
    }
  }
}

// Lists in the order of the file; one that is applied in both directions stands there twice, as its rows do.
void ReportData::findLists() {
  for (const agent::AccessList& list : config_.lists) {
    bool applied = false;
    for (const agent::Direction direction : {agent::Direction::in, agent::Direction::out}) {
      const agent::AclName name{list.name, list.family, direction};
      const bool used = std::any_of(plan_.acls.begin(), plan_.acls.end(), [&](const agent::AclPlan& acl) {
        return agent::AclName{acl.name, acl.family, acl.direction} == name;
      });
      if (!used) {
        continue;
      }
      applied = true;
      const agent::AclGeneration* const generation =
          session_ == nullptr ? nullptr : session_->agent().registry().current(name);
      listIndexes_[name] = static_cast<int>(lists_.size());
      lists_.push_back({&list, direction, generation == nullptr ? nullptr : generation->acl.get()});
    }
    if (!applied) {
      lists_.push_back({&list, std::nullopt, nullptr});
    }
  }
}

void ReportData::findVersions() {
  for (const auto& [key, live] : session_->agent().liveIndexKeys()) {
    const VersionKey version{agent::idKind(live.routed, agent::directionOf(key)), live.id};
    versionIndexes_[version] = static_cast<int>(versions_.size());
    versions_.emplace_back(key, live);
  }
}

int ReportData::listIndex(const agent::AclName& name) const {
  const auto found = listIndexes_.find(name);
  return found == listIndexes_.end() ? none : found->second;
}

Json ReportData::toJson(const std::string& source) {
  Json json;
  json["config"] = source;
  json["fits"] = plan_.fits;
  json["reasons"] = plan_.reasons;
  json["capture"] = captureJson();
  json["chips"] = chipsJson();
  json["lists"] = Json::array();
  for (const ListUse& use : lists_) {
    json["lists"].push_back(listJson(use));
  }
  json["versions"] = versionsJson();
  json["costs"] = costsJson();
  json["findings"] = findingsJson();
  return json;
}

Json ReportData::captureJson() const {
  if (feed_ == nullptr) {
    return nullptr;
  }
  return {{"in", feed_->in().name},
          {"out", feed_->out() ? Json(feed_->out()->name) : Json(nullptr)},
          {"packets", feed_->counts().packets},
          {"permit", feed_->counts().permit},
          {"deny", feed_->counts().deny()}};
}

Json ReportData::chipsJson() const {
  Json chips = Json::array();
  for (const agent::ChipPlan& chip : plan_.chips) {
    Json tables = Json::array();
    for (const agent::TablePlan& table : chip.tables) {
      tables.push_back(tableJson(table, chip.chip));
    }
    chips.push_back({{"chip", chip.chip}, {"tables", tables}});
  }
  return chips;
}

Json ReportData::tableJson(const agent::TablePlan& table, uint8_t chip) const {
  Json json{{"table", tableText(table.table)},
            {"rows", table.rows},
            {"used", table.used},
            {"free", table.free()},
            {"lack", table.lack()},
            {"cells", Json::array()}};
  if (session_ == nullptr) {
    return json;
  }
  if (const sim::Device* const device = session_->system().device(chip)) {
    json["cells"] = cellsJson(*device, XpAcl::tcamTable(table.table));
  }
  return json;
}

// Each valid row: row, version, list, entry (-1 and below: an implicit rule), permit, log, key, counter, what
// the counter says, hits. Numbers stand for indexes into the other members, -1 for none.
Json ReportData::cellsJson(const sim::Device& device, const XpAcl::TcamTableInfo& table) const {
  Json cells = Json::array();
  const sim::TcamTable& tcam = *device.tcam(table.table);
  for (uint32_t number = tcam.nextValid(0); number != sim::TcamTable::noRow;
       number = tcam.nextValid(number + 1)) {
    const sim::TcamRow row = tcam.row(number);
    const auto data = XpXdk::xpIaclData_t::fromWord(tcam.data(number, 0));
    const agent::RowOwner* const owner = session_->agent().rowOwner(device.number(), table.tcamType, number);
    int version = none;
    int list = none;
    if (owner != nullptr && owner->acl) {
      const bool routed = owner->version.type() == XpAcl::aclKeyTypeRouted;
      const auto found = versionIndexes_.find(
          {agent::idKind(routed, owner->version.aclKey().direction()), owner->version.aclId()});
      version = found == versionIndexes_.end() ? none : found->second;
      list = listIndex(agent::aclName(owner->version.aclKey()));
    }
    const bool counts = data.countEn() != 0;
    cells.push_back({number, version, list, list == none ? none : owner->origin, data.result() != 0 ? 1 : 0,
                     data.logEn() != 0 ? 1 : 0, sim::keyText(table.table, row.value, row.mask),
                     counts ? static_cast<int>(data.cntrIdx()) : none,
                     counts ? device.counter(clientOf(table), data.cntrIdx()) : 0,
                     feed_ == nullptr ? 0 : feed_->rowHits(device.number(), table.tcamType, number)});
  }
  return cells;
}

Json ReportData::listJson(const ListUse& use) const {
  const agent::AccessList& list = *use.list;
  uint64_t rows = 0;
  uint64_t versions = 0;
  std::set<std::string> roles;
  if (use.direction) {
    for (const agent::AclPlan& acl : plan_.acls) {
      if (acl.name == list.name && acl.family == list.family && acl.direction == *use.direction) {
        rows = acl.rows;
        versions += acl.versions;
        roles.insert(acl.routed ? "routed" : "port");
      }
    }
  }
  Json json{{"acl", list.name},
            {"family", familyName(list.family)},
            {"direction", use.direction ? Json(directionName(*use.direction)) : Json(nullptr)},
            {"file", list.loc.file},
            {"line", list.loc.line},
            {"hasErrors", list.hasErrors},
            {"roles", roles},
            {"lines", list.rules.size()},
            {"rows", rows},
            {"versions", versions},
            {"room", nullptr}};
  if (use.direction) {
    const auto room = rooms_.find({list.name, list.family, *use.direction});
    if (room != rooms_.end()) {
      json["room"] = {{"replaceable", room->second.replaceable},
                      {"rows", room->second.rows},
                      {"limit", room->second.limit}};
    }
  }
  json["entries"] = entriesJson(use);
  json["implicit"] = implicitJson(use);
  return json;
}

// Null without packets.
Json ReportData::hitsOf(const ListUse& use, std::size_t entry) const {
  if (feed_ == nullptr || !use.direction) {
    return nullptr;
  }
  const auto found = hits_.find({use.list->name, use.list->family, *use.direction});
  return found == hits_.end() ? 0 : found->second.at(entry);
}

Json ReportData::entriesJson(const ListUse& use) const {
  Json entries = Json::array();
  const agent::AccessList& list = *use.list;
  const std::vector<uint32_t> rows = use.acl == nullptr ? std::vector<uint32_t>() : rowsPerEntry(*use.acl);
  for (std::size_t i = 0; i < list.rules.size(); ++i) {
    const agent::Rule& rule = list.rules[i];
    entries.push_back({{"file", rule.loc.file},
                       {"line", rule.loc.line},
                       {"rule", rule.text},
                       {"permit", rule.permit},
                       {"rows", i < rows.size() ? Json(rows[i]) : Json(nullptr)},
                       {"hits", hitsOf(use, i)}});
  }
  return entries;
}

// The rows that the system adds behind the entries.
Json ReportData::implicitJson(const ListUse& use) const {
  Json entries = Json::array();
  if (use.acl == nullptr) {
    return entries;
  }
  std::size_t at = use.list->rules.size();
  for (const int32_t origin : {agent::originSolicitation, agent::originAdvertisement, agent::originFinal}) {
    if (origin != agent::originFinal && use.list->family != agent::Family::ipv6) {
      continue;
    }
    entries.push_back({{"origin", origin}, {"rule", use.acl->textOf(origin)}, {"hits", hitsOf(use, at)}});
    ++at;
  }
  return entries;
}

Json ReportData::versionsJson() const {
  Json json = Json::array();
  for (const auto& [key, live] : versions_) {
    Json interfaces = Json::array();
    std::size_t users = 0;
    for (const auto& [attachment, used] : session_->agent().attachments()) {
      if (used == key) {
        interfaces.push_back(session_->portName(attachment.intf));
        ++users;
      }
    }
    Json lists = Json::array();
    uint64_t rows = 0;
    for (const Plex::AclKey& member : agent::members(key)) {
      lists.push_back(listIndex(agent::aclName(member)));
      rows += session_->agent().acl(member)->rows.size();
    }
    const uint64_t held = rows * live.chips.size();
    // What the same interfaces would take if each had a copy of its own.
    const uint64_t unshared = (live.routed ? held : rows) * users;
    json.push_back({{"id", live.id},
                    {"kind", stringValue(agent::idKind(live.routed, agent::directionOf(key))).charPtr()},
                    {"chips", live.chips},
                    {"lists", lists},
                    {"interfaces", interfaces},
                    {"rows", held},
                    {"saved", unshared > held ? unshared - held : 0}});
  }
  return json;
}

// Lines of more than one row, the costliest first.
Json ReportData::costsJson() const {
  Json json = Json::array();
  for (const agent::LinePlan& line : plan_.costliest) {
    json.push_back({{"acl", line.list},
                    {"file", line.loc.file},
                    {"line", line.loc.line},
                    {"rule", line.text},
                    {"rows", line.rows},
                    {"expansion", line.expansion}});
  }
  return json;
}

// Null when nobody looked, else every finding with the list and the entries that it is about, as indexes.
Json ReportData::findingsJson() const {
  if (lint_ == nullptr) {
    return nullptr;
  }
  Json findings = Json::array();
  for (const ListReport& report : lint_->lists) {
    const auto use = std::find_if(lists_.begin(), lists_.end(),
                                  [&](const ListUse& other) { return other.list == report.list; });
    const auto add = [&](const char* kind, std::size_t entry, const std::vector<std::size_t>& others,
                         const std::string& detail) {
      findings.push_back({{"list", use - lists_.begin()},
                          {"kind", kind},
                          {"entry", entry},
                          {"others", others},
                          {"detail", detail}});
    };
    for (const verify::Unreachable& line : report.findings.unreachable) {
      add("unreachable", line.line, line.hiddenBy,
          line.hiddenBy.empty() ? "no packet can match it"
          : line.sameAction ? "lines before it decide all that it matches, with the same action: it can go"
                            : "lines before it decide all that it matches, with another action: it has never "
                              "done what it says");
    }
    for (const verify::Removable& line : report.findings.removable) {
      if (line.reached) {
        add("removable", line.line, {}, "what follows does the same to every packet that reaches it");
      }
    }
    for (const verify::Contradiction& pair : report.findings.contradictions) {
      add("contradiction", pair.first, {pair.second},
          "wins over a later line only because it stands first, for example for " +
              packet::toText(pair.witness));
    }
    for (const verify::CostlyRange& range : report.findings.ranges) {
      add("costlyRange", range.line, {}, rangeText(report, range));
    }
  }
  return findings;
}

} // namespace tool
