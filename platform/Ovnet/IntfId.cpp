#include "Ovnet/IntfId.h"

#include <array>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

namespace Ovnet {

namespace {

struct KindName {
  IntfId::Kind kind;
  const char* word;
};

constexpr std::array<KindName, 6> kindNames{{{IntfId::ethernet, "Ethernet"},
                                             {IntfId::vlan, "Vlan"},
                                             {IntfId::portChannel, "Port-Channel"},
                                             {IntfId::loopback, "Loopback"},
                                             {IntfId::tunnel, "Tunnel"},
                                             {IntfId::management, "Management"}}};

constexpr uint32_t maxNumber = 0xFFFFFF;

[[noreturn]] void badName(std::string_view name) {
  throw Vane::RangeException("IntfId '" + std::string(name) + "' is not the name of an interface");
}

} // namespace

IntfId::IntfId(Kind kind, uint32_t number) : code_((uint32_t{kind} << 24) | number) {
  if (number > maxNumber) {
    throw Vane::RangeException("IntfId::number > 16777215 not allowed");
  }
}

IntfId::IntfId(const Vane::String& name) {
  const std::string_view text(name.charPtr(), name.size());
  if (text.empty()) {
    return;
  }
  for (const KindName& entry : kindNames) {
    const std::string_view word(entry.word);
    if (text.substr(0, word.size()) != word) {
      continue;
    }
    const std::string_view digits = text.substr(word.size());
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool leadingZero = digits.size() > 1 && digits[0] == '0';
    if (error != std::errc{} || end != digits.data() + digits.size() || leadingZero || number > maxNumber) {
      badName(text);
    }
    code_ = (uint32_t{entry.kind} << 24) | number;
    return;
  }
  badName(text);
}

IntfId IntfId::fromCode(uint32_t code) {
  IntfId intf;
  intf.code_ = code;
  return intf;
}

Vane::String IntfId::stringValue() const {
  for (const KindName& entry : kindNames) {
    if (entry.kind == kind()) {
      return Vane::format("%s%u", entry.word, number());
    }
  }
  return Vane::String("");
}

uint32_t IntfId::hash() const {
  Vane::Hash hash;
  hash.mix(code_);
  return hash.result();
}

Vane::String valueToStrep(const IntfId& intf) {
  return Vane::String("'") + intf.stringValue() + Vane::String("'");
}

std::ostream& operator<<(std::ostream& out, const IntfId& intf) {
  return out << intf.stringValue().charPtr();
}

Bridging::VlanId VlanIntfId::vlanId(IntfId intf) {
  // A number beyond 16 bits must not wrap into the valid range.
  const uint32_t number = intf.number();
  return Bridging::VlanId(static_cast<Vane::U16>(number > 0xFFFF ? 0xFFFF : number));
}

} // namespace Ovnet
