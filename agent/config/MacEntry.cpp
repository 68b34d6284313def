#include "agent/config/MacEntry.h"

#include "agent/config/ConfigReader.h"
#include "agent/config/EntryOptions.h"
#include "agent/config/InterfaceNames.h"

#include <bit>

namespace agent {

namespace {

// Value and wildcard; a wildcard bit of 1 is ignored, as in addresses.
struct EtherTypeMatch {
  uint16_t value = 0;
  uint16_t wildcard = 0;
};

class MacEntry {
public:
  MacEntry(Cursor& cursor, const EntryContext& context, Findings& findings)
      : cursor_(cursor), context_(context), findings_(findings) {}

  bool parse(Rule& rule) {
    if (!takeAddress("source", base_.srcMac))
      return false;
    if (!context_.standard && !takeAddress("destination", base_.dstMac))
      return false;
    while (!cursor_.atEnd())
      if (!takeOption())
        return false;
    rule.log = neutral_.log;
    return !findings_.hasErrors() && build(rule);
  }
  std::vector<std::pair<size_t, size_t>>& skipped() { return neutral_.skipped; }

private:
  bool takeAddress(const char* side, MacMatch& match);
  bool takeOption();
  bool takeEtherType();
  bool takeVlan();
  bool build(Rule& rule);

  Cursor& cursor_;
  const EntryContext& context_;
  Findings& findings_;
  Criteria base_;
  std::optional<EtherTypeMatch> etherType_;
  NeutralOptions neutral_;
};

bool MacEntry::takeAddress(const char* side, MacMatch& match) {
  if (cursor_.takeWord("any"))
    return true;
  const bool host = cursor_.takeWord("host");
  const Token token = cursor_.take();
  const auto address = macFromText(token.text);
  if (!address && token.text.empty())
    return findings_.refuse(token,
                            std::string("the ") + side +
                                " address is missing; write any, host aabb.ccdd.eeff or an address and a "
                                "wildcard");
  if (!address)
    return findings_.refuse(token,
                            std::string("this is no MAC address, and a ") + side +
                                " address is needed here; write any, host aabb.ccdd.eeff or an address and a "
                                "wildcard");
  MacAddress wildcard{};
  const Token maskToken = cursor_.peek();
  const auto mask = host ? std::nullopt : macFromText(maskToken.text);
  if (mask) {
    wildcard = *mask;
    cursor_.skip(1);
  }
  match = macMatch(*address, wildcard);
  if (match.wildcard == MacMatch{}.wildcard && *address != MacAddress{})
    findings_.warn(maskToken,
                   "this mask ignores every bit of the address, because a bit of 1 is ignored; write host " +
                       macText(*address) + " for the address alone, or any");
  return true;
}

bool MacEntry::takeEtherType() {
  for (const char* keyword : {"etype", "ethertype", "ether-type"})
    if (cursor_.takeWord(keyword))
      break;
  const Token token = cursor_.take();
  if (sameWord(token.text, "any"))
    return true;
  std::optional<uint32_t> value = number(token.text, 0xFFFF);
  if (!value && !token.text.empty() && isLetter(token.text[0]))
    value = etherTypeFromName(token.text);
  if (!value && !token.text.empty() && isDigit(token.text[0]))
    return findings_.refuse(token, "an EtherType is a number from 0 to 0xFFFF");
  if (!value) {
    NearestWord nearest(token.text);
    offerEtherTypes(nearest);
    offerOptions(nearest);
    return findings_.refuse(token,
                            "this is neither an option nor an EtherType that is known here; write the number "
                            "of the EtherType, like 0x0800" +
                                nearest.suggestion());
  }
  EtherTypeMatch match{static_cast<uint16_t>(*value), 0};
  const Token maskToken = cursor_.peek();
  if (!maskToken.text.empty() && isDigit(maskToken.text[0])) {
    const auto mask = number(maskToken.text, 0xFFFF);
    if (!mask)
      return findings_.refuse(maskToken, "the wildcard of an EtherType is a number from 0 to 0xFFFF");
    match.wildcard = static_cast<uint16_t>(*mask);
    cursor_.skip(1);
  }
  match.value = static_cast<uint16_t>(match.value & ~match.wildcard);
  if (etherType_)
    return findings_.refuse(token, "the entry has an EtherType already; write one line for each");
  etherType_ = match;
  return true;
}

bool MacEntry::takeVlan() {
  cursor_.skip(1);
  const Token token = cursor_.take();
  const auto vlan = decimal(token.text, maxVlan);
  if (!vlan || *vlan == 0)
    return findings_.refuse(token, "a VLAN is a number from 1 to 4094");
  const Token next = cursor_.peek();
  if (!next.text.empty() && isDigit(next.text[0]))
    return findings_.refuse(next, "a VLAN has no mask; write one line for each VLAN");
  base_.vlan = static_cast<uint16_t>(*vlan);
  return true;
}

bool MacEntry::takeOption() {
  if (neutral_.take(cursor_, findings_))
    return true;
  const Token token = cursor_.peek();
  if (context_.standard)
    return findings_.refuse(
        token, "a MAC list of this kind compares the source address only; use a list number from "
               "1100 to 1199 or mac access-list extended");
  if (sameWord(token.text, "vlan"))
    return takeVlan();
  if (refuseInexpressible(cursor_, false, findings_))
    return true;
  return takeEtherType();
}

bool MacEntry::build(Rule& rule) {
  const EtherTypeMatch match = etherType_.value_or(EtherTypeMatch{0, 0xFFFF});
  if (match.wildcard == 0xFFFF) {
    rule.alternatives.push_back(std::move(base_));
    return true;
  }
  // A row compares an EtherType as a whole, so that each value of a masked one is an alternative.
  const uint64_t count = uint64_t{1} << std::popcount(match.wildcard);
  if (count > maxLineAlternatives || !context_.budget->take(count))
    return findings_.refuse(cursor_.peek(),
                            "the EtherType wildcard of this line stands for " + std::to_string(count) +
                                " values, which is more than there are rows; write a narrower one");
  uint32_t bits = 0;
  do {
    base_.etherType = static_cast<uint16_t>(match.value | bits);
    rule.alternatives.push_back(base_);
    bits = (bits - match.wildcard) & match.wildcard; // the next subset of the wildcard's bits
  } while (bits != 0);
  return true;
}

} // namespace

void parseMacEntry(Cursor& cursor, const EntryContext& context, Findings& findings, Rule& rule,
                   std::vector<std::pair<size_t, size_t>>& skipped) {
  MacEntry entry(cursor, context, findings);
  entry.parse(rule);
  skipped = std::move(entry.skipped());
}

} // namespace agent
