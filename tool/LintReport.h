#pragma once

#include "agent/config/ConfigModel.h"
#include "tool/Common.h"
#include "verify/ListLint.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// What lint finds in the lists of a configuration, for people and for machines.

namespace tool {

// One list and what was found in it.
struct ListReport {
  const agent::AccessList* list = nullptr;
  verify::ListFindings findings;

  const agent::Rule& rule(std::size_t line) const { return list->rules[line]; }
  unsigned lineNumber(std::size_t line) const { return rule(line).loc.line; }
  std::string place(std::size_t line) const; // "file:line"
  std::size_t total() const;
  // Unreachable lines can go too, but have been told already.
  std::size_t reachedRemovable() const;
};

struct LintReports {
  std::vector<ListReport> lists; // those without errors, in the order of the configuration
  std::size_t found = 0;
  std::size_t memory = 0; // bytes that sets of packets took at most

  // Members "unreachable", "removable", "contradictions" and "ranges", each with the findings of all lists.
  Json toJson() const;
};

// The number of times that lintLists() calls its tick.
uint64_t lintSteps(const agent::Config& config);
// Looks at every list that has no errors; what could not be read says nothing about packets. The reports
// point into `config`. `memoryBytes`: what the sets of one list may take.
LintReports lintLists(const agent::Config& config, std::size_t memoryBytes,
                      const std::function<void()>& tick);

// "any", "80,443,5000-5099"
std::string portsText(const agent::PortSet& ports);

} // namespace tool
