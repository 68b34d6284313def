#pragma once

#include "agent/config/Findings.h"
#include "agent/config/ObjectGroups.h"

#include <string>
#include <string_view>
#include <vector>

// One entry of an access list, from its action on: "permit tcp any host 10.0.0.1 eq 80 log".

namespace agent {

// What the entry stands in.
struct EntryContext {
  Family family = Family::ipv4;
  bool standard = false; // source address only
  bool applied = false;  // the list is applied somewhere
  GroupTable* groups = nullptr;
  ExpansionBudget* budget = nullptr;
};

// Parses the words from `first` on into the rule: everything but its place and its sequence number. What is
// wrong goes into `findings`; with an error among it the rule has no meaning.
void parseEntry(const std::vector<Token>& tokens, size_t first, const EntryContext& context,
                Findings& findings, Rule& rule);

// What an entry can start with once the sequence number is taken off.
bool isAction(std::string_view word);
// Position of the N of a trailing "sequence N", or 0 when the line has none.
size_t trailingSequence(const std::vector<Token>& tokens, size_t first);

} // namespace agent
