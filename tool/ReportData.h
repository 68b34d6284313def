#pragma once

#include "agent/Plan.h"
#include "agent/config/ConfigModel.h"
#include "tool/LintReport.h"
#include "tool/ReportFeed.h"
#include "tool/Session.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// What a report says, as data: tables and their rows, lists and their lines, versions and who shares them,
// what could still be changed, what packets hit and what lint found. docs/schema/report.schema.json describes
// every member.

namespace tool {

// How large a list's next version may be so that it still fits beside the present ones, in every table and
// chip where it stands.
struct Room {
  bool replaceable = false; // by a list with as many rows as now
  uint64_t rows = 0;        // the most rows that one version of its replacement may have; 0: none fits
  std::string limit;        // what limits it: "ingressV4 of chip 0", "hardware ACL ids of kind portIngress"
};

// Of every list in use. A new version of a list takes new versions of the lists that stand with it under one
// hardware ACL id along, as the id changes.
std::map<agent::AclName, Room> roomToReplace(const agent::Agent& agent);

class ReportData {
public:
  // `session`: null when the configuration does not fit, so that there are no chips to look into. `feed`:
  // null without packets. `lint`: null when nobody looked. All must outlive this.
  ReportData(const agent::Config& config, const agent::Plan& plan, Session* session, const CaptureFeed* feed,
             const LintReports* lint);

  // The document without its schema. `source` is the name of the configuration.
  Json toJson(const std::string& source);

private:
  using VersionKey = std::tuple<XpAcl::AclIntfTypeAndDir, uint16_t>; // kind and hardware ACL id
  struct ListUse {
    const agent::AccessList* list = nullptr;
    std::optional<agent::Direction> direction; // nothing: not applied
    const agent::AggregatedAcl* acl = nullptr; // null without a session, or when not applied
  };

  void findLists();
  void findVersions();
  int listIndex(const agent::AclName& name) const; // -1: unknown

  Json tableJson(const agent::TablePlan& table, uint8_t chip) const;
  Json cellsJson(const sim::Device& device, const XpAcl::TcamTableInfo& table) const;
  Json chipsJson() const;
  Json listJson(const ListUse& use) const;
  Json entriesJson(const ListUse& use) const;
  Json implicitJson(const ListUse& use) const;
  Json hitsOf(const ListUse& use, std::size_t entry) const;
  Json versionsJson() const;
  Json captureJson() const;
  Json costsJson() const;
  Json findingsJson() const;

  const agent::Config& config_;
  const agent::Plan& plan_;
  Session* session_;
  const CaptureFeed* feed_;
  const LintReports* lint_;
  std::vector<ListUse> lists_;
  std::map<agent::AclName, int> listIndexes_;
  std::map<VersionKey, int> versionIndexes_;
  std::vector<std::pair<XpAcl::HwAclIndexKey, agent::LiveIndexKey>> versions_;
  std::map<agent::AclName, std::vector<uint64_t>> hits_; // entries, then the implicit ones
  std::map<agent::AclName, Room> rooms_;
};

} // namespace tool
