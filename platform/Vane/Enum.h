#pragma once

#include "Vane/Exception.h"
#include "Vane/Macros.h"
#include "Vane/String.h"
#include "Vane/Value.h"

#include <array>
#include <ostream>
#include <span>

// Enumerations whose values have texts:
//
//   VANE_ENUM(XpAcl, TcamType, (ingressV4, 0), (ingressV6, 1), ...)
//
// at namespace scope declares `enum TcamType : unsigned int` and beside it
//   TcamTypeInstance(number)   the value, or RangeException;
//   TcamTypeInstance(text)     the value of that name, or ParseException;
//   TcamTypeValues()           all values in the order of declaration;
//   stringValue(v)             the name, or the number of a value that has none;
//   valueToStrep(v), sequenceToValue(at, end, &v), operator<<   the same text.

namespace Vane {

struct EnumEntry { // a name and its number
  const char* name;
  unsigned value;
};

VANE_API const char* enumName(std::span<const EnumEntry> entries, unsigned value); // null: none
VANE_API String enumText(std::span<const EnumEntry> entries, unsigned value);      // name or number
// Raise RangeException, ParseException; `type` stands in the message.
VANE_API unsigned enumValueOf(std::span<const EnumEntry> entries, const char* type, unsigned number);
VANE_API unsigned enumValueOf(std::span<const EnumEntry> entries, const char* type, const String& name);
// Takes the longest run of letters, digits and underscores as the name.
VANE_API unsigned enumParse(std::span<const EnumEntry> entries, const char* type, StrepIter& at,
                            const StrepIter& end);

} // namespace Vane

// clang-format off

#define VANE_ENUM_ITEM(entry) VANE_ENUM_ITEM_I entry
#define VANE_ENUM_ITEM_I(name, number) name = number
#define VANE_ENUM_ENTRY(entry) VANE_ENUM_ENTRY_I entry
#define VANE_ENUM_ENTRY_I(name, number) ::Vane::EnumEntry{#name, number}
#define VANE_ENUM_NAME(entry) VANE_ENUM_NAME_I entry
#define VANE_ENUM_NAME_I(name, number) name

#define VANE_ENUM(NS, T, ...)                                                                      \
  enum T : unsigned int { VANE_FOR_EACH_COMMA(VANE_ENUM_ITEM, __VA_ARGS__) };                      \
  inline constexpr std::array<::Vane::EnumEntry, VANE_COUNT(__VA_ARGS__)> T##Entries{              \
      {VANE_FOR_EACH_COMMA(VANE_ENUM_ENTRY, __VA_ARGS__)}};                                        \
  constexpr std::array<T, VANE_COUNT(__VA_ARGS__)> T##Values() {                                   \
    return {VANE_FOR_EACH_COMMA(VANE_ENUM_NAME, __VA_ARGS__)};                                     \
  }                                                                                                \
  inline T T##Instance(unsigned number) {                                                          \
    return static_cast<T>(::Vane::enumValueOf(T##Entries, #NS "::" #T, number));                   \
  }                                                                                                \
  inline T T##Instance(const ::Vane::String& name) {                                               \
    return static_cast<T>(::Vane::enumValueOf(T##Entries, #NS "::" #T, name));                     \
  }                                                                                                \
  inline ::Vane::String stringValue(T value) { return ::Vane::enumText(T##Entries, value); }       \
  inline ::Vane::String valueToStrep(T value) { return ::Vane::enumText(T##Entries, value); }      \
  inline void sequenceToValue(::Vane::StrepIter& at, const ::Vane::StrepIter& end, T* value) {     \
    *value = static_cast<T>(::Vane::enumParse(T##Entries, #NS "::" #T, at, end));                  \
  }                                                                                                \
  inline std::ostream& operator<<(std::ostream& out, T value) { return out << stringValue(value); }

// clang-format on
