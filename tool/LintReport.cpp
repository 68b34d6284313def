#include "tool/LintReport.h"

#include "packet/PacketText.h"

#include "verify/PacketSet.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tool {

namespace {

void addJson(const ListReport& report, Json& json) {
  const std::string& acl = report.list->name;
  for (const verify::Unreachable& line : report.findings.unreachable) {
    Json hiddenBy = Json::array();
    for (const std::size_t other : line.hiddenBy) {
      hiddenBy.push_back(report.lineNumber(other));
    }
    json["unreachable"].push_back({{"acl", acl},
                                   {"line", report.lineNumber(line.line)},
                                   {"hiddenBy", hiddenBy},
                                   {"sameAction", line.sameAction}});
  }
  for (const verify::Removable& line : report.findings.removable) {
    json["removable"].push_back(
        {{"acl", acl}, {"line", report.lineNumber(line.line)}, {"reached", line.reached}});
  }
  for (const verify::Contradiction& pair : report.findings.contradictions) {
    json["contradictions"].push_back({{"acl", acl},
                                      {"line", report.lineNumber(pair.first)},
                                      {"with", report.lineNumber(pair.second)},
                                      {"witness", packet::toText(pair.witness)}});
  }
  for (const verify::CostlyRange& range : report.findings.ranges) {
    json["ranges"].push_back(
        {{"acl", acl},
         {"line", report.lineNumber(range.line)},
         {"side", range.source ? "source" : "destination"},
         {"ports", portsText(range.ports)},
         {"rows", range.rows},
         {"cheaper", portsText(range.cheaper)},
         {"inFront", range.excluded.empty() ? Json(nullptr) : Json(portsText(range.excluded))},
         {"cheaperRows", range.cheaperRows}});
  }
}

} // namespace

std::string ListReport::place(std::size_t line) const {
  return rule(line).loc.file + ":" + std::to_string(lineNumber(line));
}

std::size_t ListReport::total() const {
  return findings.unreachable.size() + reachedRemovable() + findings.contradictions.size() +
         findings.ranges.size();
}

std::size_t ListReport::reachedRemovable() const {
  return static_cast<std::size_t>(std::count_if(findings.removable.begin(), findings.removable.end(),
                                                [](const verify::Removable& line) { return line.reached; }));
}

Json LintReports::toJson() const {
  Json json{{"unreachable", Json::array()},
            {"removable", Json::array()},
            {"contradictions", Json::array()},
            {"ranges", Json::array()}};
  for (const ListReport& report : lists) {
    addJson(report, json);
  }
  return json;
}

// Lines are taken in, and then looked at.
uint64_t lintSteps(const agent::Config& config) {
  uint64_t lines = 0;
  for (const agent::AccessList& list : config.lists) {
    lines += list.hasErrors ? 0 : list.rules.size();
  }
  return 2 * lines;
}

LintReports lintLists(const agent::Config& config, std::size_t memoryBytes,
                      const std::function<void()>& tick) {
  LintReports reports;
  for (const agent::AccessList& list : config.lists) {
    if (list.hasErrors) {
      continue;
    }
    // Each list has a space of its own, so that nothing is left of the one before.
    verify::PacketSpace space(list.family, verify::trafficOf(&list), memoryBytes);
    reports.lists.push_back({&list, verify::lint(space, list, tick)});
    reports.found += reports.lists.back().total();
    reports.memory = std::max(reports.memory, space.diagrams().peakMemory());
  }
  return reports;
}

std::string portsText(const agent::PortSet& ports) {
  if (agent::isAnyPort(ports)) {
    return "any";
  }
  std::string text;
  for (const agent::PortRange& range : ports) {
    text += (text.empty() ? "" : ",") + std::to_string(range.low) +
            (range.low == range.high ? "" : "-" + std::to_string(range.high));
  }
  return text;
}

} // namespace tool
