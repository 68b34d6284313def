#include "agent/config/ConfigReader.h"
#include "agent/config/OpenConfigText.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// Whatever a document is: diagnostics say where and what, what is applied exists, and what is written reads
// as what was read, so that writing it again gives the same document.

namespace {

void require(bool holds, const char* what, const std::string& text) {
  if (holds)
    return;
  std::fprintf(stderr, "%s\n%s\n", what, text.c_str());
  std::abort();
}

agent::Config read(std::string_view text) {
  agent::ReadOptions options;
  options.format = agent::InputFormat::openconfig;
  return agent::readConfigText(text, "fuzz", options);
}

void check(const agent::Config& config) {
  for (const agent::Diagnostic& diagnostic : config.diagnostics)
    require(diagnostic.loc.line >= 1 && diagnostic.loc.column >= 1 && !diagnostic.message.empty(),
            "a diagnostic without a place", diagnostic.text());
  for (const agent::Interface& interface : config.interfaces)
    for (const agent::Binding& binding : interface.bindings) {
      const agent::AccessList* const list = config.list(binding.family, binding.list);
      require(list != nullptr && !list->hasErrors && !list->rules.empty(), "a binding to nothing",
              binding.list);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const agent::Config config = read({reinterpret_cast<const char*>(data), size});
  check(config);
  std::vector<std::string> losses;
  std::vector<std::string> notes;
  const std::string written = agent::toOpenConfig(config, losses, notes);
  if (config.hasErrors() || !losses.empty())
    return 0;
  const agent::Config again = read(written);
  check(again);
  require(!again.hasErrors() && std::none_of(again.lists.begin(), again.lists.end(),
                                             [](const agent::AccessList& list) { return list.hasErrors; }),
          "what is written is refused", written);
  require(agent::toOpenConfig(again, losses, notes) == written && losses.empty(), "written twice", written);
  return 0;
}
