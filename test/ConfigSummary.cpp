#include "test/ConfigSummary.h"

namespace configtest {

using namespace agent;

namespace {

const char* familyText(Family family) {
  return family == Family::ipv4 ? "v4" : family == Family::ipv6 ? "v6" : "mac";
}

std::string bindingsText(const std::vector<Binding>& bindings) {
  std::string text;
  for (const Binding& binding : bindings) {
    if (!text.empty())
      text += ", ";
    text += familyText(binding.family);
    text += binding.direction == Direction::in ? " in " : " out ";
    text += binding.list;
  }
  return text;
}

std::string rangesText(const std::vector<PortRange>& ranges) {
  std::string text;
  for (const PortRange& range : ranges) {
    if (!text.empty())
      text += ',';
    text += std::to_string(range.low);
    if (range.high != range.low)
      text.append("-").append(std::to_string(range.high));
  }
  return text.empty() ? "none" : text;
}

// The entry of the one list of `config` and what was found in its line, which is line 2.
std::string entryText(const std::string& header, const std::string& line, const std::string& binding) {
  const Config config =
      readConfigText(header + "\n" + line + "\ninterface Ethernet1\n " + binding + "\n", "t");
  std::string text;
  for (const AccessList& list : config.lists)
    for (const Rule& rule : list.rules)
      for (const Criteria& criteria : rule.alternatives) {
        text += text.empty() ? (rule.permit ? "permit " : "deny ") : " | ";
        text += describe(criteria, list.family);
        text += rule.log ? " log" : "";
      }
  for (const Diagnostic& diagnostic : config.diagnostics) {
    if (!text.empty())
      text += ' ';
    text.append("[").append(std::to_string(diagnostic.loc.column)).append(" ");
    text += diagnostic.severity == Severity::error ? "error " : "warning ";
    text += diagnostic.message + "]";
  }
  return text;
}

} // namespace

std::string diagnosticsText(const Config& config) {
  std::string text;
  for (const Diagnostic& diagnostic : config.diagnostics) {
    if (diagnostic.loc.line == 0)
      text += diagnostic.loc.file;
    else
      text += std::to_string(diagnostic.loc.line) + ":" + std::to_string(diagnostic.loc.column);
    text += diagnostic.severity == Severity::error ? ": error: " : ": warning: ";
    text += diagnostic.message + "\n";
  }
  return text;
}

std::string listsText(const Config& config) {
  std::string text;
  for (const AccessList& list : config.lists) {
    text += familyText(list.family);
    text += list.standard ? " standard " : " extended ";
    text += list.name;
    text += list.hasErrors ? " (errors)\n" : "\n";
    for (const Rule& rule : list.rules) {
      text += "  " + std::to_string(rule.sequence) + (rule.permit ? " permit " : " deny ");
      for (size_t i = 0; i < rule.alternatives.size(); ++i)
        text += (i == 0 ? "" : "\n     or ") + describe(rule.alternatives[i], list.family);
      text += rule.log ? " log\n" : "\n";
    }
  }
  return text;
}

std::string interfacesText(const Config& config) {
  std::string text;
  for (const Interface& interface : config.interfaces) {
    text += (interface.portName.empty() ? "-" : interface.portName) + " = " + interface.name;
    if (!interface.bindings.empty())
      text += " [" + bindingsText(interface.bindings) + "]";
    if (!interface.refusedBindings.empty())
      text += " refused [" + bindingsText(interface.refusedBindings) + "]";
    if (interface.accessVlan)
      text += " access " + std::to_string(*interface.accessVlan);
    if (interface.trunk)
      text += " trunk " + rangesText(interface.allowedVlans);
    if (interface.channelGroup)
      text += " group " + std::to_string(*interface.channelGroup);
    if (interface.chip != 0)
      text += " chip " + std::to_string(interface.chip);
    text += interface.kind == InterfaceKind::unsupported ? " (unsupported)\n" : "\n";
  }
  return text;
}

std::string summary(const Config& config) {
  std::string text = listsText(config) + interfacesText(config);
  for (const uint16_t vlan : config.vlans)
    text += "vlan " + std::to_string(vlan) + "\n";
  for (const auto& [table, rows] : config.tcamRows)
    text += std::string(tableName(table)) + " " + std::to_string(rows) + "\n";
  if (config.numChips != 1)
    text += "chips " + std::to_string(config.numChips) + "\n";
  return text + (config.readable ? "" : "unreadable\n") + diagnosticsText(config);
}

std::string summaryOf(const std::string& text, const ReadOptions& options) {
  return summary(readConfigText(text, "t", options));
}

std::string regenerated(const std::string& table, std::string (*output)(const std::string& input)) {
  std::string result;
  size_t start = 0;
  while (start < table.size()) {
    const size_t end = table.find('\n', start);
    const std::string line = table.substr(start, end - start);
    start = end == std::string::npos ? table.size() : end + 1;
    const std::string input = line.substr(0, line.find(" =>"));
    result += line.empty() ? "\n" : input + " => " + output(input) + "\n";
  }
  return result;
}

std::string v4Entry(const std::string& line) {
  return entryText("ip access-list extended T", line, "ip access-group T in");
}
std::string v6Entry(const std::string& line) {
  return entryText("ipv6 access-list T", line, "ipv6 traffic-filter T in");
}
std::string macEntry(const std::string& line) {
  return entryText("mac access-list extended T", line, "mac access-group T in");
}
std::string standardEntry(const std::string& line) {
  return entryText("ip access-list standard T", line, "ip access-group T in");
}

} // namespace configtest
