#include "agent/config/ClassBenchReader.h"

#include "agent/config/Addresses.h"
#include "agent/config/Lexer.h"
#include "agent/config/PortSets.h"

#include <bit>

namespace agent {

namespace {

class FilterParser {
public:
  FilterParser(const std::vector<Token>& tokens, Findings& findings)
      : cursor_(tokens, 0), findings_(findings) {}

  bool parse(ExpansionBudget& budget, Rule& rule) {
    const Token first = cursor_.take();
    if (first.text[0] != '@')
      return findings_.refuse(first, "a filter starts with @ and the source prefix, like @10.0.0.0/8");
    const bool taken = prefix({first.text.substr(1), first.column + 1}, "source", base_.srcV4) &&
                       prefix(cursor_.take(), "destination", base_.dstV4) &&
                       ports("source", base_.srcPorts) && ports("destination", base_.dstPorts) &&
                       protocol() && flags();
    if (!taken)
      return false;
    if (!cursor_.atEnd())
      return findings_.refuse(cursor_.peek(), "the filter ends before this word; write one filter a line");
    return build(budget, rule);
  }

private:
  bool prefix(const Token& token, const char* side, V4Match& match);
  bool ports(const char* side, PortSet& ports);
  bool valueAndMask(const Token& token, const char* what, uint32_t max, uint32_t& value, uint32_t& mask);
  bool protocol();
  bool flags();
  bool build(ExpansionBudget& budget, Rule& rule);

  Cursor cursor_;
  Findings& findings_;
  Criteria base_;
  Token protocolToken_;
  uint32_t protocolValue_ = 0;
  uint32_t protocolMask_ = 0;
};

bool FilterParser::prefix(const Token& token, const char* side, V4Match& match) {
  const size_t slash = token.text.find('/');
  const auto address = v4FromText(token.text.substr(0, slash));
  const auto length =
      slash == std::string_view::npos ? std::nullopt : decimal(token.text.substr(slash + 1), 32);
  if (!address || !length)
    return findings_.refuse(token, std::string("the ") + side +
                                       " prefix of a filter is needed here, like 10.0.0.0/8");
  match = v4Match(*address, v4Wildcard(*length));
  return true;
}

bool FilterParser::ports(const char* side, PortSet& ports) {
  // "lo : hi", and "lo:hi" without blanks.
  Token low = cursor_.take();
  Token high;
  if (const size_t colon = low.text.find(':'); colon != std::string_view::npos) {
    high = {low.text.substr(colon + 1), low.column + static_cast<unsigned>(colon) + 1};
    low.text = low.text.substr(0, colon);
  } else {
    const Token separator = cursor_.take();
    if (separator.text != ":")
      return findings_.refuse(separator, std::string("the colon of the ") + side +
                                             " ports is needed here, like 0 : 65535");
    high = cursor_.take();
  }
  const auto first = decimal(low.text, 65535);
  const auto last = decimal(high.text, 65535);
  if (!first || !last)
    return findings_.refuse(first ? high : low,
                            std::string("a ") + side + " port is a number from 0 to 65535");
  if (*first > *last)
    return findings_.refuse(high, std::string("the range of ") + side +
                                      " ports runs backwards; write the lower port first");
  ports = portRange(*first, *last);
  return true;
}

bool FilterParser::valueAndMask(const Token& token, const char* what, uint32_t max, uint32_t& value,
                                uint32_t& mask) {
  const size_t slash = token.text.find('/');
  const auto first = number(token.text.substr(0, slash), max);
  const auto second =
      slash == std::string_view::npos ? std::nullopt : number(token.text.substr(slash + 1), max);
  if (!first || !second)
    return findings_.refuse(token, std::string("the ") + what +
                                       " of a filter and their mask are needed here, like " +
                                       (max == 255 ? "0x06/0xFF" : "0x0000/0x0200"));
  value = *first;
  mask = *second;
  return true;
}

bool FilterParser::protocol() {
  protocolToken_ = cursor_.take();
  return valueAndMask(protocolToken_, "protocol bits", 255, protocolValue_, protocolMask_);
}

bool FilterParser::flags() {
  uint32_t value = 0;
  uint32_t mask = 0;
  return cursor_.atEnd() || valueAndMask(cursor_.take(), "flag bits", 0xFFFF, value, mask);
}

bool FilterParser::build(ExpansionBudget& budget, Rule& rule) {
  if (protocolMask_ == 0) {
    rule.alternatives.push_back(std::move(base_));
    return true;
  }
  // A row compares a protocol as a whole, so that each value of a masked one is an alternative.
  if ((protocolValue_ & protocolMask_) == 0)
    return findings_.refuse(protocolToken_,
                            "this stands for protocol 0 as well, which cannot be a criterion, because "
                            "a row takes it for any protocol; write 0x00/0x00 for any");
  if (!budget.take((256u >> std::popcount(protocolMask_)) - 1))
    return findings_.refuse(protocolToken_,
                            "the protocol masks of the file stand for more alternatives than there "
                            "are rows; write them out");
  for (uint32_t protocol = 1; protocol <= 255; ++protocol)
    if ((protocol & protocolMask_) == (protocolValue_ & protocolMask_)) {
      base_.protocol = static_cast<uint8_t>(protocol);
      rule.alternatives.push_back(base_);
    }
  return true;
}

} // namespace

bool looksLikeClassBench(std::string_view text) {
  LineReader lines(text);
  std::string_view line;
  while (lines.next(line)) {
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos || line[first] == '#')
      continue;
    return line[first] == '@' && first + 1 < line.size() && isDigit(line[first + 1]);
  }
  return false;
}

void readClassBench(std::string_view text, Diagnostics& diagnostics, Config& config) {
  AccessList list;
  list.name = classBenchListName;
  list.loc = {diagnostics.file(), 1, 1};
  ExpansionBudget budget(maxFileAlternatives);
  std::vector<Token> tokens;
  LineReader lines(text);
  std::string_view line;
  uint32_t sequence = 0;
  while (lines.next(line)) {
    splitWords(line, tokens);
    if (tokens.empty() || tokens[0].text[0] == '#')
      continue;
    Findings findings(lines.number());
    Rule rule;
    rule.loc = {diagnostics.file(), lines.number(), tokens[0].column};
    rule.sequence = sequence += 10;
    rule.permit = true;
    rule.text = foldedText(tokens, 0, tokens.size());
    if (FilterParser(tokens, findings).parse(budget, rule))
      list.rules.edit().push_back(std::move(rule));
    for (Finding& finding : findings.takeAll()) {
      list.hasErrors = list.hasErrors || finding.severity == Severity::error;
      diagnostics.add(std::move(finding), list.name);
    }
  }
  Interface port;
  port.name = port.portName = "Ethernet1";
  port.loc = list.loc;
  const Binding binding{list.name, Family::ipv4, Direction::in, list.loc};
  if (list.hasErrors)
    port.refusedBindings.push_back(binding);
  else if (!list.rules.empty())
    port.bindings.push_back(binding);
  else
    diagnostics.warn(1, 1, "the file has no filters, so that no list is applied and everything is permitted");
  config.lists.push_back(std::move(list));
  config.interfaces.push_back(std::move(port));
}

} // namespace agent
