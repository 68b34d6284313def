#include "agent/config/EntryOptions.h"

#include "agent/config/Names.h"

#include <algorithm>
#include <array>

namespace agent {

namespace {

struct Inexpressible {
  std::string_view name;
  unsigned operands; // words behind it that belong to it
  const char* why;
};

constexpr const char* flagReason =
    "a row can compare TCP flags only as established (ACK or RST is set); write "
    "established, or match by addresses and ports";
constexpr const char* headerReason =
    "a row does not see IPv6 extension headers; leave the option out, or match the "
    "upper-layer protocol";
constexpr const char* lengthReason = "a row does not see the length of a packet; leave the option out";
constexpr const char* stateReason =
    "rows keep no state from one packet to the next; permit the way back in a line of "
    "its own, with established for TCP";
constexpr const char* forwardReason =
    "a row permits or denies and can do nothing else with a packet; leave the option "
    "out";
constexpr const char* dscpReason =
    "a row does not compare the DSCP, precedence and type-of-service bits; leave the "
    "option out, or match by addresses, protocol and ports";

constexpr std::array inexpressibles = {
    Inexpressible{"ack", 0, flagReason},
    Inexpressible{"auth", 0, headerReason},
    Inexpressible{"capture", 0, forwardReason},
    Inexpressible{"cos", 1, "a row does not compare the priority bits of a tag; leave the option out"},
    Inexpressible{"dest-option", 0, headerReason},
    Inexpressible{"dest-option-type", 1, headerReason},
    Inexpressible{"dscp", 1, dscpReason},
    Inexpressible{"ecn", 1, dscpReason},
    Inexpressible{"evaluate", 1, stateReason},
    Inexpressible{"fin", 0, flagReason},
    Inexpressible{"flags", 1, flagReason},
    Inexpressible{"flow-label", 1, "a row does not compare the IPv6 flow label; leave the option out"},
    Inexpressible{"hbh", 0, headerReason},
    Inexpressible{"inactive", 0, "an entry that is switched off takes no row; leave the line out"},
    Inexpressible{"lsap", 2, "a row does not see LLC headers; match the EtherType instead"},
    Inexpressible{"match-all", 0, flagReason},
    Inexpressible{"match-any", 0, flagReason},
    Inexpressible{"mobility", 0, headerReason},
    Inexpressible{"mobility-type", 1, headerReason},
    Inexpressible{"nexthop1", 0, forwardReason},
    Inexpressible{"option", 1, "a row does not see IPv4 options; leave the option out"},
    Inexpressible{"packet-length", 2, lengthReason},
    Inexpressible{"precedence", 1, dscpReason},
    Inexpressible{"psh", 0, flagReason},
    Inexpressible{"reflect", 1, stateReason},
    Inexpressible{"routing", 0, headerReason},
    Inexpressible{"routing-type", 1, headerReason},
    Inexpressible{"rst", 0, flagReason},
    Inexpressible{"syn", 0, flagReason},
    Inexpressible{"time-range", 1,
                  "a row holds at all times of the day; leave the option out, or take the line in and "
                  "out of the configuration"},
    Inexpressible{"tos", 1, dscpReason},
    Inexpressible{"traffic-class", 1, dscpReason},
    Inexpressible{"undetermined-transport", 0, headerReason},
    Inexpressible{"urg", 0, flagReason},
};

constexpr std::array expressibles = {std::string_view("established"), std::string_view("fragments"),
                                     std::string_view("log"),         std::string_view("log-input"),
                                     std::string_view("sequence"),    std::string_view("ttl"),
                                     std::string_view("hop-limit"),   std::string_view("vlan")};

const Inexpressible* findInexpressible(std::string_view word) {
  for (const Inexpressible& option : inexpressibles)
    if (sameWord(option.name, word))
      return &option;
  return nullptr;
}

// "+ack -fin" and the plain flag words behind match-any and match-all.
bool isFlagWord(std::string_view word) {
  if (word.size() > 1 && (word[0] == '+' || word[0] == '-'))
    word.remove_prefix(1);
  for (const char* flag : {"ack", "fin", "psh", "rst", "syn", "urg"})
    if (sameWord(word, flag))
      return true;
  return false;
}

bool isNameOfNumber(std::string_view word) {
  return isServiceName(word) || icmpFromName(word, false) || icmpFromName(word, true) || allDigits(word);
}

// "(12 matches)", "(tag = A)": takes the words up to the closing parenthesis.
bool takeParenthesis(Cursor& cursor) {
  while (!cursor.atEnd())
    if (cursor.take().text.back() == ')')
      return true;
  return false;
}

} // namespace

bool isOption(std::string_view word) {
  return findInexpressible(word) != nullptr || isFlagWord(word) ||
         std::any_of(expressibles.begin(), expressibles.end(),
                     [word](std::string_view option) { return sameWord(option, word); });
}

bool NeutralOptions::take(Cursor& cursor, Findings& findings) {
  const Token token = cursor.peek();
  const size_t position = cursor.position();
  if (sameWord(token.text, "log") || sameWord(token.text, "log-input")) {
    takeLog(cursor);
    return true;
  }
  if (sameWord(token.text, "sequence") && allDigits(cursor.peek(1).text)) {
    cursor.skip(2);
    skipped.emplace_back(position, position + 2);
    return true;
  }
  if (token.text.starts_with('('))
    return takeSuffix(cursor, findings);
  return false;
}

void NeutralOptions::takeLog(Cursor& cursor) {
  cursor.skip(1);
  log = true;
  bool tagged = false;
  while (!cursor.atEnd()) {
    const std::string_view word = cursor.peek().text;
    if (word.starts_with('(')) {
      if (word.size() > 1 && isDigit(word[1]))
        return; // "(12 matches)" is no tag
      takeParenthesis(cursor);
    } else if (sameWord(word, "interval") || sameWord(word, "level") || sameWord(word, "tag")) {
      cursor.skip(2);
    } else if (sameWord(word, "disable")) {
      log = false;
      cursor.skip(1);
    } else if (sameWord(word, "default") || decimal(word, 7)) {
      cursor.skip(1);
    } else {
      // One word may be a tag. An option, or what looks like one with a slip in it, is none: taking it for a
      // tag would make the entry match more than was written.
      NearestWord nearest(word);
      offerOptions(nearest);
      if (tagged || isOption(word) || isNameOfNumber(word) || !nearest.best().empty())
        return;
      tagged = true;
      cursor.skip(1);
    }
  }
}

bool NeutralOptions::takeSuffix(Cursor& cursor, Findings& findings) {
  const Token first = cursor.peek();
  const size_t position = cursor.position();
  const bool counts = first.text.size() > 1 && isDigit(first.text[1]);
  if (!takeParenthesis(cursor) || !counts) {
    findings.refuse(first,
                    "only a count of matches, like (12 matches), may stand in parentheses; leave it out");
    cursor.skip(SIZE_MAX);
    return true;
  }
  skipped.emplace_back(position, cursor.position());
  return true;
}

bool refuseInexpressible(Cursor& cursor, bool v6, Findings& findings) {
  const Token token = cursor.peek();
  const Inexpressible* option = findInexpressible(token.text);
  if (option == nullptr && !isFlagWord(token.text))
    return false;
  cursor.skip(1);
  if (option == nullptr || option->why == flagReason) {
    // One finding for a whole series of flags.
    while (isFlagWord(cursor.peek().text))
      cursor.skip(1);
    findings.refuse(token, flagReason);
    return true;
  }
  const bool v6Only = option->why == headerReason;
  cursor.skip(option->operands);
  if (sameWord(token.text, "reflect") && cursor.takeWord("timeout"))
    cursor.skip(1);
  findings.refuse(token, v6Only && !v6 ? "this is an option of IPv6 lists; leave it out" : option->why);
  return true;
}

void refuseUnknownOption(const Token& token, NearestWord nearest, Findings& findings) {
  if (allDigits(token.text)) {
    findings.refuse(token,
                    "a number alone means nothing here; a port needs eq, neq, gt, lt or range before it");
    return;
  }
  offerOptions(nearest);
  findings.refuse(token, "this is no option of an entry; leave it out or correct it" + nearest.suggestion());
}

void offerOptions(NearestWord& nearest) {
  for (const std::string_view option : expressibles)
    nearest.offer(option);
  for (const Inexpressible& option : inexpressibles)
    if (option.name.size() > 4) // short words are near to everything
      nearest.offer(option.name);
}

} // namespace agent
