#include "agent/config/InterfaceNames.h"

#include <algorithm>
#include <array>

namespace agent {

namespace {

struct Kind {
  const char* name;
  std::string_view kindClass; // spellings of one kind share it
  InterfaceKind kind;
  const char* plural; // of unsupported kinds, for messages
};

constexpr InterfaceKind port = InterfaceKind::ethernet;
constexpr InterfaceKind none = InterfaceKind::unsupported;

// The first spelling of a class is the one that its abbreviations expand to.
constexpr std::array kinds = {
    Kind{"Ethernet", "ethernet", port, ""},
    Kind{"FastEthernet", "fast", port, ""},
    Kind{"GigabitEthernet", "1g", port, ""},
    Kind{"GigE", "1g", port, ""},
    Kind{"TwoGigabitEthernet", "2g", port, ""},
    Kind{"FiveGigabitEthernet", "5g", port, ""},
    Kind{"TenGigabitEthernet", "10g", port, ""},
    Kind{"TenGigE", "10g", port, ""},
    Kind{"TwentyFiveGigE", "25g", port, ""},
    Kind{"TwentyFiveGigabitEthernet", "25g", port, ""},
    Kind{"FortyGigabitEthernet", "40g", port, ""},
    Kind{"FortyGigE", "40g", port, ""},
    Kind{"FiftyGigabitEthernet", "50g", port, ""},
    Kind{"FiftyGigE", "50g", port, ""},
    Kind{"HundredGigE", "100g", port, ""},
    Kind{"HundredGigabitEthernet", "100g", port, ""},
    Kind{"TwoHundredGigE", "200g", port, ""},
    Kind{"TwoHundredGigabitEthernet", "200g", port, ""},
    Kind{"FourHundredGigE", "400g", port, ""},
    Kind{"FourHundredGigabitEthernet", "400g", port, ""},
    Kind{"EightHundredGigE", "800g", port, ""},
    Kind{"EightHundredGigabitEthernet", "800g", port, ""},
    Kind{"Vlan", "vlan", InterfaceKind::vlan, ""},
    Kind{"Port-Channel", "po", InterfaceKind::portChannel, ""},
    Kind{"Loopback", "loopback", none, "loopback"},
    Kind{"Tunnel", "tunnel", none, "tunnel"},
    Kind{"Serial", "serial", none, "serial"},
    Kind{"Dialer", "dialer", none, "dialer"},
    Kind{"ATM", "atm", none, "ATM"},
    Kind{"BRI", "bri", none, "ISDN"},
    Kind{"POS", "pos", none, "packet-over-SONET"},
    Kind{"Hssi", "hssi", none, "serial"},
    Kind{"Fddi", "fddi", none, "FDDI"},
    Kind{"TokenRing", "tokenring", none, "token-ring"},
    Kind{"Multilink", "multilink", none, "multilink"},
    Kind{"Null", "null", none, "null"},
    Kind{"Async", "async", none, "asynchronous"},
    Kind{"Group-Async", "groupasync", none, "asynchronous"},
    Kind{"Cellular", "cellular", none, "cellular"},
    Kind{"Virtual-Template", "vtemplate", none, "virtual-template"},
    Kind{"Virtual-Access", "vaccess", none, "virtual-access"},
    Kind{"VirtualPortGroup", "vpg", none, "virtual-port-group"},
    Kind{"Bundle-Ether", "bundle", none, "bundle"},
    Kind{"Management", "management", none, "management"},
    Kind{"mgmt", "management", none, "management"},
    Kind{"MgmtEth", "management", none, "management"},
    Kind{"BVI", "bvi", none, "bridge-group"},
    Kind{"BDI", "bdi", none, "bridge-domain"},
    Kind{"NVI", "nvi", none, "address-translation"},
    Kind{"nve", "nve", none, "overlay"},
    Kind{"LISP", "lisp", none, "overlay"},
    Kind{"Wlan-GigabitEthernet", "wlan", none, "wireless"},
    Kind{"Dot11Radio", "radio", none, "wireless"},
};

struct Short {
  const char* word;
  std::string_view kindClass;
};

// Abbreviations in daily use that are the beginning of more than one kind.
constexpr std::array shorts = {
    Short{"e", "ethernet"},  Short{"f", "fast"},    Short{"g", "1g"},          Short{"te", "10g"},
    Short{"tw", "2g"},       Short{"fi", "5g"},     Short{"fo", "40g"},        Short{"h", "100g"},
    Short{"v", "vlan"},      Short{"p", "po"},      Short{"po", "po"},         Short{"l", "loopback"},
    Short{"lo", "loopback"}, Short{"tu", "tunnel"}, Short{"s", "serial"},      Short{"se", "serial"},
    Short{"d", "dialer"},    Short{"a", "atm"},     Short{"ma", "management"},
};

const Kind* kindOfClass(std::string_view kindClass) {
  for (const Kind& kind : kinds)
    if (kind.kindClass == kindClass)
      return &kind;
  return nullptr;
}

const Kind* findKind(std::string_view word) {
  for (const Kind& kind : kinds)
    if (sameWord(kind.name, word))
      return &kind;
  for (const Short& entry : shorts)
    if (sameWord(entry.word, word))
      return kindOfClass(entry.kindClass);
  if (word.size() < 2)
    return nullptr;
  const Kind* found = nullptr;
  for (const Kind& kind : kinds) {
    if (!startsWithWord(kind.name, word))
      continue;
    if (found != nullptr && found->kindClass != kind.kindClass)
      return nullptr; // the beginning of two kinds names neither
    if (found == nullptr)
      found = &kind;
  }
  return found;
}

// No interface has a longer position or name; more would only cost time and memory.
constexpr size_t maxPositionNumbers = 8;
constexpr size_t maxNameOctets = 64;

// Where the position starts: at the first digit that only digits and separators follow.
size_t positionStart(std::string_view text) {
  size_t start = text.size();
  while (start > 0) {
    const char c = text[start - 1];
    if (!isDigit(c) && c != '/' && c != ':' && c != '.')
      break;
    --start;
  }
  while (start < text.size() && !isDigit(text[start]))
    ++start;
  return start;
}

} // namespace

std::optional<InterfaceName> InterfaceName::fromText(std::string_view text) {
  if (text.empty() || !isLetter(text[0]))
    return std::nullopt;
  text = text.substr(0, maxNameOctets);
  InterfaceName name;
  name.written_ = text;
  const size_t start = positionStart(text);
  name.kindIs(text.substr(0, start));
  name.positionIs(text.substr(start));
  return name;
}

InterfaceName InterfaceName::unreadable(std::string_view text, std::string reason) {
  InterfaceName name;
  name.written_ = text.substr(0, maxNameOctets);
  name.wellFormed_ = false;
  name.reason_ = std::move(reason);
  return name;
}

void InterfaceName::unsupportedIs(std::string reason) {
  kind_ = InterfaceKind::unsupported;
  if (reason_.empty())
    reason_ = std::move(reason);
}

void InterfaceName::kindIs(std::string_view word) {
  kindName_ = word;
  const Kind* kind = findKind(word);
  if (kind == nullptr) {
    NearestWord nearest(word);
    for (const Kind& candidate : kinds)
      if (word.size() > 4) // short words are near to everything
        nearest.offer(candidate.name);
    misspelt_ = !nearest.best().empty();
    wellFormed_ = false;
    unsupportedIs(quotedWord(word) + " is no kind of interface" + nearest.suggestion());
    return;
  }
  kindName_ = kind->name;
  kindClass_ = kind->kindClass;
  kind_ = kind->kind;
  if (kind_ == InterfaceKind::unsupported)
    unsupportedIs(std::string("the system has no ") + kind->plural + " interfaces");
}

void InterfaceName::positionIs(std::string_view text) {
  if (text.find('.') != std::string_view::npos)
    unsupportedIs("the system has no subinterfaces");
  while (!text.empty()) {
    size_t end = 0;
    while (end < text.size() && isDigit(text[end]))
      ++end;
    const auto value = decimal(text.substr(0, end), 999999999);
    const bool endsInSeparator = end + 1 == text.size();
    if (!value || endsInSeparator || numbers_.size() == maxPositionNumbers) {
      wellFormed_ = false;
      unsupportedIs("its position is no number like 3 or 1/0/3");
      return;
    }
    numbers_.push_back(*value);
    if (end == text.size())
      break;
    separators_ += text[end];
    text.remove_prefix(end + 1);
  }
  const bool needsPlain = kind_ == InterfaceKind::vlan || kind_ == InterfaceKind::portChannel;
  if (kind_ != InterfaceKind::unsupported && (numbers_.empty() || (needsPlain && numbers_.size() != 1)))
    unsupportedIs(needsPlain ? "it needs one number, like " + kindName_ + "10"
                             : "its position is missing; write one, like " + kindName_ + "1");
  else if (kind_ == InterfaceKind::vlan && (numbers_[0] < 1 || numbers_[0] > maxVlan))
    unsupportedIs("VLANs are numbered from 1 to 4094");
}

InterfaceName InterfaceName::withLast(uint32_t last) const {
  InterfaceName result = *this;
  if (!result.numbers_.empty())
    result.numbers_.back() = last;
  result.written_ = result.text();
  return result;
}

std::string InterfaceName::text() const {
  if (!wellFormed_)
    return written_;
  std::string result = kindName_;
  for (size_t i = 0; i < numbers_.size(); ++i) {
    result += std::to_string(numbers_[i]);
    if (i < separators_.size())
      result += separators_[i];
  }
  return result;
}

std::string InterfaceName::identity() const {
  if (!wellFormed_)
    return lowerCase(written_);
  return std::string(kindClass_) + " " + text().substr(kindName_.size());
}

std::optional<uint32_t> InterfaceName::plainNumber() const {
  if (!wellFormed_ || numbers_.size() != 1)
    return std::nullopt;
  return numbers_[0];
}

bool InterfaceName::sameBut(const InterfaceName& other) const {
  return kindClass_ == other.kindClass_ && separators_ == other.separators_ && !numbers_.empty() &&
         numbers_.size() == other.numbers_.size() &&
         std::equal(numbers_.begin(), numbers_.end() - 1, other.numbers_.begin());
}

namespace {

// "Gi1/0/1-4" or "Gi1/0/1-Gi1/0/4" into its two ends; the second is empty when there is one name only.
// A hyphen belongs to the kind ("Port-Channel1") unless a digit stands before it.
std::pair<std::string_view, std::string_view> rangeEnds(std::string_view part) {
  for (size_t i = 1; i + 1 < part.size(); ++i)
    if (part[i] == '-' && isDigit(part[i - 1]))
      return {part.substr(0, i), part.substr(i + 1)};
  return {part, {}};
}

std::string appendPart(std::string_view part, InterfaceRange& result) {
  const auto [firstText, lastText] = rangeEnds(part);
  auto first = InterfaceName::fromText(firstText);
  if (!first && !firstText.empty() && !result.names.empty()) // "Gi1/0/1 , 1/0/7": the kind of the one before
    first = InterfaceName::fromText(result.names.back().kindName() + std::string(firstText));
  if (!first)
    return quotedWord(part) + " is no name of an interface";
  uint32_t last = first->last();
  if (!lastText.empty()) {
    const auto plain = decimal(lastText, 999999999);
    auto end = plain ? std::optional(first->withLast(*plain)) : InterfaceName::fromText(lastText);
    if (!end)
      end = InterfaceName::fromText(first->kindName() + std::string(lastText));
    if (!end || !end->sameBut(*first))
      return "the two ends of " + quotedWord(part) + " differ in more than the last number";
    last = end->last();
    if (last < first->last())
      return "the range " + quotedWord(part) + " runs backwards";
  }
  if (size_t{last} - first->last() + result.names.size() >= maxRangeInterfaces)
    return quotedWord(part) + " makes the range longer than " + std::to_string(maxRangeInterfaces) +
           " interfaces";
  for (uint32_t number = first->last();; ++number) {
    result.names.push_back(lastText.empty() ? *first : first->withLast(number));
    if (number == last)
      return {};
  }
}

} // namespace

InterfaceRange interfaceRange(const std::vector<Token>& tokens, size_t first) {
  std::string text;
  for (size_t i = first; i < tokens.size(); ++i)
    text += tokens[i].text;
  InterfaceRange result;
  std::string_view rest = text;
  while (true) {
    const size_t comma = rest.find(',');
    result.error = appendPart(rest.substr(0, comma), result);
    if (!result.error.empty() || comma == std::string_view::npos)
      return result;
    rest.remove_prefix(comma + 1);
  }
}

VlanRange vlanRange(std::string_view text) {
  VlanRange result;
  while (true) {
    const size_t comma = text.find(',');
    const std::string_view part = text.substr(0, comma);
    const size_t hyphen = part.find('-');
    const auto low = decimal(part.substr(0, hyphen), UINT32_MAX);
    const auto high = hyphen == std::string_view::npos ? low : decimal(part.substr(hyphen + 1), UINT32_MAX);
    if (!low || !high)
      result.error = "this is no VLAN and no range of VLANs; write numbers like 10 or 20-25";
    else if (*low < 1 || *high > maxVlan || *low > maxVlan || *high < 1)
      result.error = "VLANs are numbered from 1 to 4094";
    else if (*low > *high)
      result.error = "the range runs backwards; write the lower VLAN first";
    if (!result.error.empty()) {
      result.culprit = part;
      return result;
    }
    result.ranges.push_back({static_cast<uint16_t>(*low), static_cast<uint16_t>(*high)});
    if (comma == std::string_view::npos)
      return result;
    text.remove_prefix(comma + 1);
  }
}

} // namespace agent
