#include "fuzz/ConfigProperties.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// Configurations that are mostly valid: what is read survives being printed, and rows do not depend on the
// order of lists.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::ConfigGrammar grammar(data, size);
  const fuzzing::ConfigGrammar::Text text = grammar.text();
  std::string wrong = fuzzing::printedAndRead(agent::readConfigText(text.joined(), "fuzz"));
  if (wrong.empty()) {
    wrong = fuzzing::permutedLists(text, grammar.byte());
  }
  if (!wrong.empty()) {
    std::fprintf(stderr, "%s\n", wrong.c_str());
    std::abort();
  }
  return 0;
}
