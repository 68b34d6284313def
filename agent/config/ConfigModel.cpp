#include "agent/config/ConfigModel.h"

#include "agent/config/InterfaceNames.h"
#include "agent/config/Lexer.h"

#include <algorithm>
#include <array>

namespace agent {

namespace {

constexpr std::array<const char*, 5> tableNames = {"ingressV4", "ingressV6", "egressV4", "egressV6",
                                                   "ingressMac"};

} // namespace

std::string SourceLoc::text() const {
  if (line == 0)
    return file;
  return file + ":" + std::to_string(line) + ":" + std::to_string(column);
}

std::string Diagnostic::text() const {
  return loc.text() + (severity == Severity::error ? ": error: " : ": warning: ") + message;
}

const char* tableName(Table table) {
  return tableNames[static_cast<size_t>(table)];
}

std::optional<Table> tableFromName(const std::string& name) {
  for (size_t i = 0; i < tableNames.size(); ++i)
    if (sameWord(name, tableNames[i]))
      return static_cast<Table>(i);
  return std::nullopt;
}

bool Config::hasErrors() const {
  return std::any_of(diagnostics.begin(), diagnostics.end(),
                     [](const Diagnostic& diagnostic) { return diagnostic.severity == Severity::error; });
}

const AccessList* Config::list(Family family, const std::string& name) const {
  for (const AccessList& candidate : lists)
    if (candidate.family == family && candidate.name == name)
      return &candidate;
  return nullptr;
}

const Interface* Config::interface(const std::string& name) const {
  // The names of the file go before the names of the system: a file that names Ethernet1 itself has
  // its number kept, so that the two never mean different ports.
  const auto wanted = InterfaceName::fromText(name);
  for (const Interface& candidate : interfaces) {
    if (sameWord(candidate.name, name))
      return &candidate;
    if (!wanted)
      continue;
    const auto own = InterfaceName::fromText(candidate.name);
    if (own && own->identity() == wanted->identity())
      return &candidate;
  }
  const std::string systemName = wanted ? wanted->text() : name;
  for (const Interface& candidate : interfaces)
    if (!candidate.portName.empty() && sameWord(candidate.portName, systemName))
      return &candidate;
  return nullptr;
}

} // namespace agent
