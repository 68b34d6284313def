#pragma once

#include "agent/config/ConfigReader.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// What must hold for every input of the configuration readers.

namespace fuzzing {

inline void require(bool holds, const char* what, const std::string& text) {
  if (holds)
    return;
  std::fprintf(stderr, "%s\n%s\n", what, text.c_str());
  std::abort();
}

inline bool sameAlternatives(const agent::AccessList& a, const agent::AccessList& b) {
  if (a.rules.size() != b.rules.size() || a.standard != b.standard)
    return false;
  for (size_t i = 0; i < a.rules.size(); ++i)
    if (a.rules[i].sequence != b.rules[i].sequence || a.rules[i].permit != b.rules[i].permit ||
        a.rules[i].log != b.rules[i].log || a.rules[i].alternatives != b.rules[i].alternatives)
      return false;
  return true;
}

// Every diagnostic says where and what; what is applied exists; the configuration survives being written as
// text, unless that says otherwise.
inline void checkConfig(std::string_view input, agent::InputFormat format) {
  agent::ReadOptions options;
  options.format = format;
  const agent::Config config = agent::readConfigText(input, "fuzz", options);
  for (const agent::Diagnostic& diagnostic : config.diagnostics)
    require(diagnostic.loc.line >= 1 && diagnostic.loc.column >= 1 && !diagnostic.message.empty(),
            "a diagnostic without a place", diagnostic.text());
  for (const agent::Interface& interface : config.interfaces)
    for (const agent::Binding& binding : interface.bindings) {
      const agent::AccessList* list = config.list(binding.family, binding.list);
      require(list != nullptr && !list->hasErrors && !list->rules.empty(), "a binding to nothing",
              binding.list);
    }
  std::vector<std::string> losses;
  const std::string text = agent::toText(config, &losses);
  if (!losses.empty())
    return;
  options.format = agent::InputFormat::cli;
  const agent::Config again = agent::readConfigText(text, "again", options);
  for (const agent::AccessList& list : config.lists) {
    const agent::AccessList* twin = again.list(list.family, list.name);
    require(twin != nullptr && sameAlternatives(list, *twin), "a list that does not survive being written",
            text);
  }
}

} // namespace fuzzing
