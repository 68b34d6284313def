#include "agent/config/CliReader.h"

#include "agent/config/GroupMembers.h"

namespace agent {

namespace {

bool isMember(std::string_view word, std::initializer_list<std::string_view> words) {
  for (const std::string_view each : words)
    if (sameWord(each, word))
      return true;
  return false;
}

// What a line of a list starts with, sequence numbers and deletions included.
bool startsListLine(const Cursor& cursor) {
  const std::string_view word = cursor.peek().text;
  if (allDigits(word) || isAction(word) || isMember(word, {"remark", "evaluate", "dynamic", "seq"}))
    return true;
  if (sameWord(word, "sequence"))
    return allDigits(cursor.peek(1).text);
  const std::string_view second = cursor.peek(1).text;
  return sameWord(word, "no") &&
         (allDigits(second) || isAction(second) || isMember(second, {"remark", "seq", "sequence"}));
}

// Options of a list that say how it is counted, not what it matches.
bool isListOption(std::string_view word) {
  return isMember(word, {"statistics", "counters", "description"});
}

// A word that was meant to start an entry.
bool isMisspeltAction(std::string_view word) {
  NearestWord nearest(word);
  for (const char* action : {"permit", "deny", "remark"})
    nearest.offer(action);
  return word.size() >= 3 && !nearest.best().empty();
}

} // namespace

void CliReader::read(Config& config) {
  std::string_view text;
  while (lines_.next(text))
    readLine(text);
  const std::set<ListKey> applied = interfaces_.appliedLists();
  lists_.build(applied, groups_, budget_, diagnostics_, config.lists);
  diagnostics_.addAll(groups_.takeFindings());
  interfaces_.build(lists_, options_.keepGoing, config);
  config.vlans = numbersOf(vlans_);
  config.tcamRows = tcamRows_;
  config.numChips = numChips_;
  if (config.lists.empty() && config.interfaces.empty() && config.vlans.empty() && lines_.number() > 0)
    diagnostics_.warn(1, 1, "no access list and no interface stands in this text; is it a configuration?");
}

void CliReader::readLine(std::string_view text) {
  text_ = text;
  line_ = lines_.number();
  splitWords(text, tokens_);
  if (tokens_.empty()) {
    separated_ = separated_ || (!text.empty() && text[0] == '!');
    return;
  }
  if (tokens_[0].text[0] == '#')
    return;
  if (!takeStanzaLine(text))
    topLevel();
}

bool CliReader::takeStanzaLine(std::string_view text) {
  if (stanza_ == Stanza::none)
    return false;
  const bool body = isBody();
  bodyIndented_ = bodyIndented_ || body;
  if (tokens_.size() == 1 && isMember(tokens_[0].text, {"exit", "end"})) {
    // A stanza of no interest may have stanzas of its own inside, which end like this as well.
    if (stanza_ != Stanza::other || !body)
      stanza_ = Stanza::none;
    return true;
  }
  switch (stanza_) {
  case Stanza::list:
    return takeListLine(text);
  case Stanza::group:
    return takeGroupLine(text);
  case Stanza::interface:
    return takeInterfaceLine();
  default:
    return body;
  }
}

bool CliReader::takeListLine(std::string_view text) {
  const Cursor cursor(tokens_, 0);
  if (startsListLine(cursor)) {
    if (list_ != nullptr)
      list_->addLine(tokens_, 0, text, line_);
    return true;
  }
  if (isListOption(tokens_[0].text))
    return true;
  // Behind a comment at the left nothing is certain; before it an indented line is a line of the list.
  const bool inside = (isBody() && !separated_) || (!bodyIndented_ && isMisspeltAction(tokens_[0].text));
  if (!inside)
    return false;
  if (list_ != nullptr)
    list_->addLine(tokens_, 0, text, line_); // which refuses it
  return true;
}

bool CliReader::takeGroupLine(std::string_view text) {
  if (!(isBody() && !separated_) && !looksLikeGroupMember(groupKind_, tokens_))
    return false;
  groups_.addLine(text, line_);
  return true;
}

bool CliReader::takeInterfaceLine() {
  if (isBody() && !separated_) {
    interfaces_.takeLine(tokens_, line_);
    return true;
  }
  // Without indentation only a command that opens something else ends the stanza.
  return interfaces_.takeLine(tokens_, line_);
}

void CliReader::open(Stanza stanza) {
  stanza_ = stanza;
  headerIndent_ = indent();
  bodyIndented_ = false;
  separated_ = false;
  list_ = nullptr;
}

void CliReader::topLevel() {
  if (command() || strayLine())
    return;
  // In a file without indentation the lines of an interface that are of no interest look like commands.
  if (stanza_ == Stanza::interface && !bodyIndented_ && !separated_)
    return;
  open(Stanza::other);
}

bool CliReader::command() {
  const Cursor cursor(tokens_, 0);
  const std::string_view word = cursor.peek().text;
  if (isMember(word, {"exit", "end"})) {
    stanza_ = Stanza::none;
    return true;
  }
  if (sameWord(word, "no"))
    return negation();
  if (accessListCommand(0))
    return true;
  if (word.size() >= 3 && startsWithWord("interface", word)) {
    open(Stanza::interface);
    interfaces_.open(tokens_, 1, line_);
    return true;
  }
  if (sameWord(word, "default") && cursor.at("interface", 1)) {
    interfaces_.reset(tokens_, 2);
    stanza_ = Stanza::none;
    return true;
  }
  if (sameWord(word, "object-group") && tokens_.size() > 2) {
    open(groups_.open(tokens_, 1, line_) ? Stanza::group : Stanza::other);
    groupKind_ = groups_.openKind();
    return true;
  }
  if (sameWord(word, "vlan"))
    return vlanCommand(false);
  if (sameWord(word, "hardware"))
    return hardwareCommand();
  return sameWord(word, "banner") && bannerCommand();
}

bool CliReader::negation() {
  const Cursor cursor(tokens_, 1);
  if (cursor.at("ip") && cursor.at("access-list", 1))
    return removeList(Family::ipv4, 3);
  if (cursor.at("access-list"))
    return removeList(Family::ipv4, 2);
  if (cursor.at("ipv6") && cursor.at("access-list", 1))
    return removeList(Family::ipv6, 3);
  if (cursor.at("mac") && cursor.at("access-list", 1))
    return removeList(Family::mac, 3);
  if (cursor.at("interface")) {
    interfaces_.reset(tokens_, 2);
    stanza_ = Stanza::none;
    return true;
  }
  if (cursor.at("object-group")) {
    // The name stands last, but for the protocol of a group of ports.
    const bool protocol = tokens_.size() > 4 && isMember(tokens_.back().text, {"tcp", "udp", "tcp-udp"});
    groups_.remove(tokens_[tokens_.size() - (protocol ? 2 : 1)].text);
    stanza_ = Stanza::none;
    return true;
  }
  if (cursor.at("vlan"))
    return vlanCommand(true);
  if (cursor.at("hardware") && (cursor.at("chip", 1) || cursor.at("tcam", 1)))
    diagnostics_.warn(line_, tokens_[0].column,
                      "'no hardware': hardware lines are not taken back; leave this line "
                      "and the other one out");
  return false;
}

// Lines that belong to a stanza, at a place where none is open: skipping them would drop a rule silently.
bool CliReader::strayLine() {
  const Cursor cursor(tokens_, 0);
  const std::string_view word = cursor.peek().text;
  const bool binding = (isMember(word, {"ip", "ipv6", "mac"}) && cursor.at("access-group", 1)) ||
                       (sameWord(word, "ipv6") && cursor.at("traffic-filter", 1));
  if (binding) {
    refuse(tokens_[0],
           "a list is applied here, but no interface is open; write interface NAME before the line");
    return true;
  }
  const size_t action = allDigits(word) ? 1 : 0;
  if (!isAction(cursor.peek(action).text))
    return false;
  if (stanza_ == Stanza::other) {
    diagnostics_.warn(line_, tokens_[action].column,
                      quotedWord(tokens_[action].text) +
                          ": this entry stands in no list that is read and is skipped; if "
                          "it is one of an access list, write the list's header before it");
    return true;
  }
  refuse(tokens_[action],
         "this entry stands in no list; write the list's header, like ip access-list extended NAME, "
         "before it");
  return true;
}

void CliReader::refuse(const Token& token, const std::string& why) {
  Findings findings(line_);
  findings.refuse(token, why);
  diagnostics_.addAll(findings.takeAll());
}

} // namespace agent
