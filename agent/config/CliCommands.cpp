#include "agent/config/CliReader.h"

#include "agent/config/InterfaceNames.h"

#include <algorithm>

namespace agent {

namespace {

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

} // namespace

bool CliReader::accessListCommand(size_t first) {
  const Cursor cursor(tokens_, first);
  if (cursor.at("access-list"))
    return numberedList(first + 1);
  if (!cursor.at("access-list", 1))
    return false;
  if (cursor.at("ip"))
    return namedList(Family::ipv4, first + 2);
  if (cursor.at("ipv6"))
    return namedList(Family::ipv6, first + 2);
  return cursor.at("mac") && namedList(Family::mac, first + 2);
}

// "ip access-list [standard|extended] NAME"; a list may have one of the two words for its name.
bool CliReader::namedList(Family family, size_t first) {
  Cursor cursor(tokens_, first);
  if (cursor.at("resequence") && !cursor.peek(1).text.empty())
    return resequence(family, first + 1);
  const bool kindGiven = (cursor.at("standard") || cursor.at("extended")) && !cursor.peek(1).text.empty();
  const bool option = cursor.at("log-update") || cursor.at("logging") || cursor.at("role-based") ||
                      cursor.at("match-local-traffic") || cursor.at("helper");
  if (cursor.atEnd() || (option && !cursor.peek(1).text.empty()))
    return false;
  std::optional<bool> standard;
  if (kindGiven)
    standard = sameWord(cursor.take().text, "standard");
  const Token name = cursor.take();
  return listHeader(family, standard, name, cursor.position());
}

bool CliReader::listHeader(Family family, std::optional<bool> standard, const Token& name, size_t next) {
  open(Stanza::list);
  if (allDigits(name.text) && family != Family::ipv6) {
    const ListNumber kind = listNumber(name.text);
    const bool fits = family == Family::mac
                          ? kind == ListNumber::macStandard || kind == ListNumber::macExtended
                          : kind == ListNumber::standard || kind == ListNumber::extended;
    const bool numberStandard = kind == ListNumber::standard || kind == ListNumber::macStandard;
    // The words "mac access-list extended" are used for both kinds of MAC lists.
    const bool agrees = family == Family::mac || !standard || *standard == numberStandard;
    if (!fits || !agrees) {
      refuseInList(
          lists_.open(family, standard.value_or(false), name, line_), name,
          "this number does not belong to a list of this kind; IPv4 standard lists have 1-99 and 1300-1999, "
          "extended ones 100-199 and 2000-2699, MAC lists 700-799 (source only) and 1100-1199");
      return true;
    }
    standard = numberStandard;
  }
  list_ = lists_.open(family, standard.value_or(false), name, line_);
  if (next < tokens_.size())
    refuseInList(list_, tokens_[next],
                 "nothing may stand behind the name of the list; write its entries on lines of "
                 "their own");
  return true;
}

bool CliReader::resequence(Family family, size_t first) {
  ListDraft* list = lists_.find(family, tokens_[first].text);
  const Cursor cursor(tokens_, first + 1);
  const auto start = cursor.atEnd() ? std::optional<uint32_t>(10) : decimal(cursor.peek().text, UINT32_MAX);
  const auto step =
      cursor.peek(1).text.empty() ? std::optional<uint32_t>(10) : decimal(cursor.peek(1).text, UINT32_MAX);
  stanza_ = Stanza::none;
  if (!start || !step || *start == 0 || *step == 0)
    refuse(cursor.peek(), "new sequence numbers need a first number and a step, both from 1 on");
  else if (list != nullptr)
    list->resequence(*start, *step);
  return true;
}

// "access-list 101 permit ...", "access-list 101" with a stanza behind it.
bool CliReader::numberedList(size_t first) {
  Cursor cursor(tokens_, first);
  const Token name = cursor.take();
  const Token next = cursor.peek();
  const bool entry = isAction(next.text) || sameWord(next.text, "no") || sameWord(next.text, "dynamic") ||
                     allDigits(next.text);
  const bool oneLine = sameWord(next.text, "extended") || sameWord(next.text, "standard") ||
                       sameWord(next.text, "line") || sameWord(next.text, "ethertype") ||
                       sameWord(next.text, "webtype");
  if (name.text.empty() || (!allDigits(name.text) && !entry && !oneLine))
    return false; // a setting, such as "access-list compiled"
  open(Stanza::list);
  if (!allDigits(name.text) || oneLine) {
    refuseInList(lists_.open(Family::ipv4, sameWord(next.text, "standard"), name, line_), name,
                 "lists with a name are not read in this form; write ip access-list extended " +
                     std::string(name.text.substr(0, 32)) + " and its entries on lines of their own below");
    stanza_ = Stanza::none;
    return true;
  }
  const ListNumber kind = listNumber(name.text);
  const bool mac = kind == ListNumber::macStandard || kind == ListNumber::macExtended;
  const bool standard = kind == ListNumber::standard || kind == ListNumber::macStandard;
  list_ = lists_.open(mac ? Family::mac : Family::ipv4, standard, name, line_);
  if (kind == ListNumber::none)
    refuseInList(
        list_, name,
        "no lists have this number; IPv4 standard lists have 1-99 and 1300-1999, extended ones 100-199 and "
        "2000-2699, MAC lists 700-799 (source only) and 1100-1199");
  else if (!cursor.atEnd() && list_ != nullptr)
    list_->addLine(tokens_, cursor.position(), text_, line_);
  if (!cursor.atEnd())
    stanza_ = Stanza::none; // the stanza form has nothing behind the number
  return true;
}

bool CliReader::removeList(Family family, size_t first) {
  Cursor cursor(tokens_, first);
  if (!cursor.peek(1).text.empty() && (cursor.at("standard") || cursor.at("extended")))
    cursor.skip(1);
  // Taking back one line of a numbered list takes back the whole list, as it does on routers.
  const Token name = cursor.peek();
  const ListNumber number = listNumber(name.text);
  if (number == ListNumber::macStandard || number == ListNumber::macExtended)
    family = Family::mac;
  lists_.remove(family, name.text);
  stanza_ = Stanza::none;
  list_ = nullptr;
  return true;
}

void CliReader::refuseInList(ListDraft* list, const Token& token, const std::string& why) {
  if (list == nullptr)
    return; // it was refused as a whole
  Findings findings(line_);
  findings.refuse(token, why);
  list->addFinding(findings.all().front());
}

bool CliReader::vlanCommand(bool no) {
  const size_t first = no ? 2 : 1;
  const Cursor cursor(tokens_, first);
  if (cursor.at("access-map") || cursor.at("filter")) {
    diagnostics_.warn(
        line_, tokens_[0].column,
        "'vlan " + std::string(sameWord(cursor.peek().text, "filter") ? "filter" : "access-map") +
            "': VLAN maps are not read and judge no packet here; apply lists to VLAN interfaces instead");
    return false;
  }
  if (cursor.peek().text.empty() || !isDigit(cursor.peek().text[0]))
    return false;
  std::string text;
  for (size_t i = first; i < tokens_.size(); ++i)
    text += tokens_[i].text;
  const VlanRange range = vlanRange(text);
  open(Stanza::other);
  if (!range.error.empty()) {
    diagnostics_.error(line_, cursor.peek().column, quotedWord(range.culprit) + ": " + range.error);
    return true;
  }
  for (const PortRange& part : range.ranges)
    for (uint32_t vlan = part.low; vlan <= part.high; ++vlan)
      vlans_.set(vlan, !no);
  return true;
}

bool CliReader::hardwareCommand() {
  const Cursor cursor(tokens_, 1);
  if (cursor.at("chip"))
    return chipCommand();
  return cursor.at("tcam") && tcamCommand();
}

bool CliReader::chipCommand() {
  const Cursor cursor(tokens_, 2);
  stanza_ = Stanza::none;
  const auto chip = decimal(cursor.peek().text, maxChip);
  if (!chip)
    refuse(cursor.peek(), "a chip has a number from 0 to 63; write hardware chip 0 interface Ethernet1-4");
  else if (!cursor.at("interface", 1) || cursor.peek(2).text.empty())
    refuse(cursor.peek(1),
           "interface and the ports of the chip are needed here; write hardware chip 0 interface "
           "Ethernet1-4");
  else
    interfaces_.chipIs(static_cast<uint8_t>(*chip), tokens_, 4, line_);
  if (chip)
    numChips_ = std::max(numChips_, *chip + 1);
  return true;
}

bool CliReader::tcamCommand() {
  const Cursor cursor(tokens_, 2);
  const Token name = cursor.peek();
  const Token rowsToken = cursor.peek(1);
  // Other systems have commands of the same beginning; ours has a table and a number.
  const bool ours =
      tokens_.size() == 4 && (allDigits(rowsToken.text) || tableFromName(std::string(name.text)));
  const bool unfinished = tokens_.size() == 3 && tableFromName(std::string(name.text));
  if (!ours && !unfinished)
    return false;
  stanza_ = Stanza::none;
  const auto table = tableFromName(std::string(name.text));
  const auto rows = decimal(rowsToken.text, maxTableRows);
  if (!table) {
    NearestWord nearest(name.text);
    for (const Table each :
         {Table::ingressV4, Table::ingressV6, Table::egressV4, Table::egressV6, Table::ingressMac})
      nearest.offer(tableName(each));
    refuse(name,
           "there is no such table; the tables are ingressV4, ingressV6, egressV4, egressV6 and ingressMac" +
               nearest.suggestion());
  } else if (!rows) {
    refuse(rowsToken,
           "a table has a number of rows from 0 to 32768, because counter indexes have 16 bits and each row "
           "takes two");
  } else {
    tcamRows_[*table] = *rows;
  }
  return true;
}

// "banner motd ^C", text, "^C": the text may look like anything. Answers whether it skipped a banner.
bool CliReader::bannerCommand() {
  const Token kind = Cursor(tokens_, 0).peek(1);
  if (kind.text.empty() || !isLetter(kind.text[0]))
    return false;
  open(Stanza::other);
  const size_t behind = kind.column - 1 + kind.text.size();
  const size_t start = text_.find_first_not_of(" \t", behind);
  std::string delimiter = "EOF";
  if (start != std::string_view::npos) {
    delimiter = text_.substr(start, text_[start] == '^' ? 2 : 1);
    if (contains(text_.substr(start + delimiter.size()), delimiter))
      return true; // all on one line
  }
  if (openEndedBanners_.contains(delimiter))
    return true;
  LineReader ahead = lines_;
  std::string_view text;
  while (ahead.next(text))
    if (contains(text, delimiter)) {
      lines_ = ahead;
      return true;
    }
  // Without an end it is no banner, or the file is cut; what follows is read rather than lost.
  openEndedBanners_.insert(delimiter);
  return true;
}

} // namespace agent
