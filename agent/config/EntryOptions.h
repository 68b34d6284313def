#pragma once

#include "agent/config/Findings.h"

#include <string_view>
#include <utility>
#include <vector>

// What all families of entries have behind their addresses: logging, sequence numbers, the suffixes of show
// commands, and the options that a row cannot express.

namespace agent {

// Whether the word starts an option, expressible or not.
bool isOption(std::string_view word);

// The options that never change what an entry matches: "log", "log-input", "sequence N", "(12 matches)".
// `take` takes the one at the cursor and answers whether there was one.
struct NeutralOptions {
  bool log = false;
  // What does not belong to the entry as its operator wrote it: sequence numbers and counts of matches.
  std::vector<std::pair<size_t, size_t>> skipped; // positions of words, half open, ascending

  bool take(Cursor& cursor, Findings& findings);

private:
  void takeLog(Cursor& cursor);
  bool takeSuffix(Cursor& cursor, Findings& findings);
};

// Takes an option that a row cannot express, with its operands, and refuses it. Answers whether there was
// one.
bool refuseInexpressible(Cursor& cursor, bool v6, Findings& findings);
// Refuses a word that is no option at all; `nearest` was offered what else could have been meant.
void refuseUnknownOption(const Token& token, NearestWord nearest, Findings& findings);
void offerOptions(NearestWord& nearest);

} // namespace agent
