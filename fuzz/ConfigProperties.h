#pragma once

#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "fuzz/ConfigGrammar.h"
#include "sim/System.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

// What holds for every configuration. Each function answers what is wrong, or nothing.

namespace fuzzing {

inline std::string rulesText(const agent::AccessList& list) {
  std::string text = (list.standard ? "standard list " : "list ") + list.name + "\n";
  for (const agent::Rule& rule : list.rules) {
    text += std::to_string(rule.sequence) + (rule.permit ? " permit" : " deny") + (rule.log ? " log" : "");
    for (const agent::Criteria& alternative : rule.alternatives) {
      text += " | " + describe(alternative, list.family);
    }
    text += "\n";
  }
  return text;
}

inline std::string bindingsText(const agent::Config& config) {
  std::string text;
  for (const agent::Interface& intf : config.interfaces) {
    std::vector<std::string> lines;
    for (const agent::Binding& binding : intf.bindings) {
      lines.push_back(" " + binding.list + " family " + std::to_string(unsigned(binding.family)) +
                      (binding.direction == agent::Direction::in ? " in" : " out"));
    }
    std::sort(lines.begin(), lines.end());
    text += intf.name;
    for (const std::string& line : lines) {
      text += line;
    }
    text += "\n";
  }
  return text;
}

// Printed and read again: the same rules and bindings; printed once more: the same text.
inline std::string printedAndRead(const agent::Config& config) {
  std::vector<std::string> losses;
  const std::string text = agent::toText(config, &losses);
  if (!losses.empty()) {
    return "";
  }
  const agent::Config again = agent::readConfigText(text, "again");
  for (const agent::AccessList& list : config.lists) {
    const agent::AccessList* const twin = again.list(list.family, list.name);
    if (twin == nullptr) {
      return "list " + list.name + " is lost in\n" + text;
    }
    bool same = list.rules.size() == twin->rules.size() && rulesText(list) == rulesText(*twin);
    for (std::size_t i = 0; same && i < list.rules.size(); ++i) {
      same = list.rules[i].alternatives == twin->rules[i].alternatives;
    }
    if (!same) {
      return rulesText(list) + "was read again as\n" + rulesText(*twin) + "from\n" + text;
    }
  }
  if (bindingsText(config) != bindingsText(again)) {
    return bindingsText(config) + "was read again as\n" + bindingsText(again) + "from\n" + text;
  }
  if (agent::toText(again) != text) {
    return "printed twice:\n" + text + "---\n" + agent::toText(again);
  }
  return "";
}

// The tables of a fresh chip with this configuration; nothing when it does not fit.
inline std::optional<std::string> rowsOf(const agent::Config& config) {
  constexpr uint32_t rows = 128;
  sim::DeviceConfig device;
  device.tcamRows.fill(rows);
  device.numPorts = 8;
  sim::System system(device);
  const sim::System::Installation installed = system.install();
  agent::AgentSetup setup;
  for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
    setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = rows;
  }
  agent::Agent agent(setup);
  if (!agent.apply(config).ok) {
    return std::nullopt;
  }
  return system.device(0)->tablesText();
}

// The order of lists that have nothing to do with each other is not in the rows.
inline std::string permutedLists(const ConfigGrammar::Text& text, unsigned shift) {
  const agent::Config config = agent::readConfigText(text.joined(), "config");
  ConfigGrammar::Text other = text;
  std::reverse(other.lists.begin(), other.lists.end());
  if (!other.lists.empty()) {
    std::rotate(other.lists.begin(), other.lists.begin() + shift % other.lists.size(), other.lists.end());
  }
  other.lists.push_back("ip access-list extended NOBODYS\n permit ip any any\n");
  const agent::Config permuted = agent::readConfigText(other.joined(), "permuted");
  const std::optional<std::string> rows = rowsOf(config);
  const std::optional<std::string> permutedRows = rowsOf(permuted);
  return rows == permutedRows ? ""
                              : text.joined() + "gives\n" + rows.value_or("a refusal") + "and\n" +
                                    other.joined() + "gives\n" + permutedRows.value_or("a refusal");
}

} // namespace fuzzing
