#include "agent/config/EntryParser.h"

#include "agent/config/IpEntry.h"
#include "agent/config/MacEntry.h"

namespace agent {

namespace {

std::string textWithout(const std::vector<Token>& tokens, size_t first,
                        const std::vector<std::pair<size_t, size_t>>& skipped) {
  if (skipped.empty())
    return foldedText(tokens, first, tokens.size());
  std::vector<Token> left;
  size_t next = first;
  for (const auto& [begin, end] : skipped) {
    left.insert(left.end(), tokens.begin() + next, tokens.begin() + begin);
    next = end;
  }
  left.insert(left.end(), tokens.begin() + next, tokens.end());
  return foldedText(left, 0, left.size());
}

} // namespace

bool isAction(std::string_view word) {
  return sameWord(word, "permit") || sameWord(word, "deny");
}

size_t trailingSequence(const std::vector<Token>& tokens, size_t first) {
  for (size_t i = tokens.size(); i-- > first + 1;)
    if (allDigits(tokens[i].text) && sameWord(tokens[i - 1].text, "sequence"))
      return i;
  return 0;
}

void parseEntry(const std::vector<Token>& tokens, size_t first, const EntryContext& context,
                Findings& findings, Rule& rule) {
  Cursor cursor(tokens, first);
  const Token action = cursor.take();
  rule.loc.column = action.column;
  if (!isAction(action.text)) {
    NearestWord nearest(action.text);
    nearest.offer("permit");
    nearest.offer("deny");
    nearest.offer("remark");
    findings.refuse(action, "an entry starts with permit or deny" + nearest.suggestion());
    return;
  }
  rule.permit = sameWord(action.text, "permit");
  std::vector<std::pair<size_t, size_t>> skipped;
  if (context.family == Family::mac)
    parseMacEntry(cursor, context, findings, rule, skipped);
  else
    parseIpEntry(cursor, context, findings, rule, skipped);
  rule.text = textWithout(tokens, first, skipped);
}

} // namespace agent
