#include "Vane/Enum.h"

#include <cctype>

namespace Vane {

const char* enumName(std::span<const EnumEntry> entries, unsigned value) {
  for (const EnumEntry& entry : entries) {
    if (entry.value == value) {
      return entry.name;
    }
  }
  return nullptr;
}

String enumText(std::span<const EnumEntry> entries, unsigned value) {
  const char* name = enumName(entries, value);
  return name != nullptr ? String(name) : format("%u", value);
}

unsigned enumValueOf(std::span<const EnumEntry> entries, const char* type, unsigned number) {
  if (enumName(entries, number) == nullptr) {
    throw RangeException(std::string(type) + " has no value " + std::to_string(number));
  }
  return number;
}

unsigned enumValueOf(std::span<const EnumEntry> entries, const char* type, const String& name) {
  for (const EnumEntry& entry : entries) {
    if (name == entry.name) {
      return entry.value;
    }
  }
  throw ParseException(std::string(type) + " has no value \"" + name.charPtr() + "\"");
}

unsigned enumParse(std::span<const EnumEntry> entries, const char* type, StrepIter& at,
                   const StrepIter& end) {
  StrepIter next = at;
  while (next != end && (std::isalnum(static_cast<unsigned char>(*next)) != 0 || *next == '_')) {
    ++next;
  }
  const unsigned value = enumValueOf(entries, type, String(std::string_view(&*at, next - at)));
  at = next;
  return value;
}

} // namespace Vane
