#pragma once

#include "Vane/Exception.h"
#include "Vane/Hash.h"
#include "Vane/Macros.h"
#include "Vane/Pack.h"
#include "Vane/String.h"
#include "Vane/Types.h"

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

// Value types: records declared with named fields and copied by value. One line declares a field:
//
//   class TcamAclRuleId {
//   public:
//     VANE_VALUE(XpAcl, TcamAclRuleId,
//                (Vane::U32, ruleNum, 0),          // type, name, default
//                (Vane::U32, subRuleNum, 0))
//   };
//
// and gives the class ruleNum() and ruleNumIs(v), a constructor from all fields, ==, < (lexicographic
// in the order of declaration), hash(), and one text: valueToStrep(v) is
//
//   Value('XpAcl::TcamAclRuleId', ** {'ruleNum': 1, 'subRuleNum': 2})
//
// which the stream operator writes and strepToValue accepts, and nothing else. Fields are written as
// integers in decimal, booleans True and False, strings in single quotes (quote and backslash after
// a backslash), byte arrays as hexadecimal digits in single quotes, enumerations by name, values as
// themselves. A field that fails to parse raises a ParseException that names it.

namespace Vane {

using StrepIter = String::Iter; // a place in a text that is read

// ------------------------------------------------------------------------------------ parsing parts

// Consumes `literal`, or raises ParseException.
VANE_API void needString(StrepIter& at, const StrepIter& end, std::string_view literal);
// Raises ParseException unless everything was consumed.
VANE_API void strepToValueEnd(const StrepIter& at, const StrepIter& end);
[[noreturn]] VANE_API void throwFieldParseException(const char* field, const Exception& why);

// Decimal digits without leading zeros; raise ParseException for anything else and for a number
// above `max` (below `min`).
VANE_API U64 parseUnsigned(StrepIter& at, const StrepIter& end, U64 max);
VANE_API std::int64_t parseSigned(StrepIter& at, const StrepIter& end, std::int64_t min, std::int64_t max);
VANE_API bool parseBool(StrepIter& at, const StrepIter& end);
VANE_API String parseQuoted(StrepIter& at, const StrepIter& end);
VANE_API void parseHexBytes(StrepIter& at, const StrepIter& end, U8* bytes, std::size_t count);

// ------------------------------------------------------------------------- text of one field or key

VANE_API String quoted(const String& text);                            // in single quotes
VANE_API String hexBytes(const U8* bytes, std::size_t count);          // two digits a byte, in their order
VANE_API String pointerText(const char* typeName, const void* object); // "Type(0x7f00)"

template <typename T>
concept HasStrep = requires(const T& value) {
  { valueToStrep(value) } -> std::convertible_to<String>;
};
template <typename T>
concept HasStringValue = requires(const T& value) {
  { value.stringValue() } -> std::convertible_to<String>;
};
template <typename T>
concept HasSequenceToValue = requires(T* value, StrepIter& at, const StrepIter& end) {
  sequenceToValue(at, end, value);
};

// Type and address: how a pointer to a shared object is represented.
template <typename T>
String valueToStrepOfRawPtr(const T* object) {
  if constexpr (requires { T::vaneType().name(); }) {
    return pointerText(object != nullptr ? object->fwkType().name() : T::vaneType().name(), object);
  } else {
    return pointerText(typeid(T).name(), object);
  }
}

// The representation of any field or key.
template <typename T>
String strepOf(const T& value) {
  if constexpr (std::is_same_v<T, bool>) {
    return value ? "True" : "False";
  } else if constexpr (std::is_same_v<T, String>) {
    return quoted(value);
  } else if constexpr (IsPtr<T>::value) {
    return valueToStrepOfRawPtr(value.ptr());
  } else if constexpr (HasStrep<T>) {
    return valueToStrep(value);
  } else if constexpr (std::is_enum_v<T>) {
    return strepOf(static_cast<std::underlying_type_t<T>>(value));
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    return format("%lld", static_cast<long long>(value));
  } else if constexpr (std::is_integral_v<T>) {
    return format("%llu", static_cast<unsigned long long>(value));
  } else if constexpr (HasStringValue<T>) {
    return quoted(value.stringValue());
  } else if constexpr (requires { value.bytes().size(); }) {
    return hexBytes(value.bytes().data(), value.bytes().size());
  } else {
    static_assert(std::is_same_v<typename T::value_type, U8>, "a field has a representation");
    return hexBytes(value.data(), value.size());
  }
}

// Reads what strepOf writes.
template <typename T>
void parseValue(StrepIter& at, const StrepIter& end, T* value) {
  if constexpr (std::is_same_v<T, bool>) {
    *value = parseBool(at, end);
  } else if constexpr (std::is_same_v<T, String>) {
    *value = parseQuoted(at, end);
  } else if constexpr (HasSequenceToValue<T>) {
    sequenceToValue(at, end, value);
  } else if constexpr (std::is_constructible_v<T, StrepIter&, const StrepIter&>) {
    *value = T(at, end);
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    *value =
        static_cast<T>(parseSigned(at, end, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
  } else if constexpr (std::is_integral_v<T>) {
    *value = static_cast<T>(parseUnsigned(at, end, std::numeric_limits<T>::max()));
  } else if constexpr (HasStringValue<T> && std::is_constructible_v<T, const String&>) {
    *value = T(parseQuoted(at, end));
  } else if constexpr (requires { value->bytes().size(); }) {
    std::remove_cvref_t<decltype(value->bytes())> bytes{};
    parseHexBytes(at, end, bytes.data(), bytes.size());
    *value = T(bytes);
  } else {
    static_assert(std::is_same_v<typename T::value_type, U8>, "a field can be parsed");
    parseHexBytes(at, end, value->data(), value->size());
  }
}

template <typename T>
void parseField(StrepIter& at, const StrepIter& end, const char* field, T* value) {
  try {
    parseValue(at, end, value);
  } catch (const Exception& why) {
    throwFieldParseException(field, why);
  }
}

// Reads the representation of one value, which must be the whole text. `*value` is unchanged when
// the text is malformed.
template <typename T>
void strepToValue(const String& text, T* value) {
  StrepIter at = text.begin();
  T parsed{};
  parseValue(at, text.end(), &parsed);
  strepToValueEnd(at, text.end());
  *value = std::move(parsed);
}

// Shapes that the value macros share.
template <typename T>
concept NumberLike = std::is_integral_v<T> || std::is_enum_v<T>;

// The value as a T, or RangeException with `message` when it is outside min..max (whatever integer
// type it came in, so that nothing wraps into the range).
template <typename T, typename Given>
constexpr T inRangeOrThrow(Given given, T min, T max, const char* message) {
  if constexpr (std::is_enum_v<Given>) {
    return inRangeOrThrow<T>(static_cast<std::underlying_type_t<Given>>(given), min, max, message);
  } else {
    if (std::cmp_less(given, min) || std::cmp_greater(given, max)) {
      throw RangeException(message);
    }
    return static_cast<T>(given);
  }
}

} // namespace Vane

// clang-format off

#define VANE_VALUE_MEMBER(field) VANE_VALUE_MEMBER_I field
#define VANE_VALUE_MEMBER_I(T, name, ...) T name##_{static_cast<T>(__VA_ARGS__)};
#define VANE_VALUE_ACCESS(field) VANE_VALUE_ACCESS_I field
#define VANE_VALUE_ACCESS_I(T, name, ...)                                                          \
  ::Vane::Param<T> name() const { return name##_; }                                                \
  void name##Is(::Vane::Param<T> value) { name##_ = value; }
#define VANE_VALUE_PARAM(field) VANE_VALUE_PARAM_I field
#define VANE_VALUE_PARAM_I(T, name, ...) ::Vane::Param<T> name##Arg
#define VANE_VALUE_INIT(field) VANE_VALUE_INIT_I field
#define VANE_VALUE_INIT_I(T, name, ...) name##_(name##Arg)
#define VANE_VALUE_MIX(field) VANE_VALUE_MIX_I field
#define VANE_VALUE_MIX_I(T, name, ...) hash.mix(name##_);
#define VANE_VALUE_LESS(field) VANE_VALUE_LESS_I field
#define VANE_VALUE_LESS_I(T, name, ...)                                                            \
  if (name##_ < other.name##_) { return true; }                                                    \
  if (other.name##_ < name##_) { return false; }
#define VANE_VALUE_TEXT(field) VANE_VALUE_TEXT_I field
#define VANE_VALUE_TEXT_I(T, name, ...)                                                            \
  text += separator; text += "'" #name "': "; text += ::Vane::strepOf(value.name##_).view();       \
  separator = ", ";
#define VANE_VALUE_EACH(field) VANE_VALUE_EACH_I field
#define VANE_VALUE_EACH_I(T, name, ...) visit(self.name##_);
#define VANE_VALUE_PACKS(field) VANE_VALUE_PACKS_I field
#define VANE_VALUE_PACKS_I(T, name, ...) && ::Vane::packs<T>
#define VANE_VALUE_FIXED(field) VANE_VALUE_FIXED_I field
#define VANE_VALUE_FIXED_I(T, name, ...) + ::Vane::fixedBytes<T>
#define VANE_VALUE_LABEL(field) VANE_VALUE_LABEL_I field
#define VANE_VALUE_LABEL_I(T, name, ...) + sizeof("'" #name "': ") - 1
#define VANE_VALUE_PARSE(field) VANE_VALUE_PARSE_I field
#define VANE_VALUE_PARSE_I(T, name, ...)                                                           \
  ::Vane::needString(at, end, separator);                                                          \
  ::Vane::needString(at, end, "'" #name "': ");                                                    \
  ::Vane::parseField(at, end, #name, &name##_);                                                    \
  separator = ", ";

// A value type without order.
#define VANE_VALUE_UNORDERED(NS, CLS, ...)                                                         \
  CLS() = default;                                                                                 \
  explicit(VANE_COUNT(__VA_ARGS__) == 1) CLS(VANE_FOR_EACH_COMMA(VANE_VALUE_PARAM, __VA_ARGS__))   \
      : VANE_FOR_EACH_COMMA(VANE_VALUE_INIT, __VA_ARGS__) {}                                       \
  /* Consumes one representation; raises ParseException. */                                        \
  CLS(::Vane::StrepIter& at, const ::Vane::StrepIter& end) {                                       \
    const char* separator = "";                                                                    \
    ::Vane::needString(at, end, "Value('" #NS "::" #CLS "', ** {");                                \
    VANE_FOR_EACH(VANE_VALUE_PARSE, __VA_ARGS__)                                                   \
    ::Vane::needString(at, end, "})");                                                             \
  }                                                                                                \
  VANE_FOR_EACH(VANE_VALUE_ACCESS, __VA_ARGS__)                                                    \
  void vaneMix(::Vane::Hash& hash) const { VANE_FOR_EACH(VANE_VALUE_MIX, __VA_ARGS__) }            \
  ::Vane::U32 hash() const {                                                                       \
    ::Vane::Hash mixed;                                                                            \
    vaneMix(mixed);                                                                                \
    return mixed.result();                                                                         \
  }                                                                                                \
  bool operator==(const CLS&) const = default;                                                     \
  /* For Vane/Pack.h: visit(field) for every field, in the order of declaration. */                \
  template <typename Self, typename Visit>                                                         \
  static void vaneEach(Self& self, const Visit& visit) {                                           \
    VANE_FOR_EACH(VANE_VALUE_EACH, __VA_ARGS__)                                                    \
  }                                                                                                \
  static constexpr bool vanePacks = true VANE_FOR_EACH(VANE_VALUE_PACKS, __VA_ARGS__);             \
  static constexpr std::size_t vaneFixedBytes = 0 VANE_FOR_EACH(VANE_VALUE_FIXED, __VA_ARGS__);     \
  /* Of its text, whatever the values of the fields. */                                            \
  static constexpr std::size_t vaneTextAtLeast =                                                   \
      sizeof("Value('" #NS "::" #CLS "', ** {})") - 1 VANE_FOR_EACH(VANE_VALUE_LABEL, __VA_ARGS__); \
  friend ::Vane::String valueToStrep(const CLS& value) {                                           \
    std::string text = "Value('" #NS "::" #CLS "', ** {";                                          \
    const char* separator = "";                                                                    \
    VANE_FOR_EACH(VANE_VALUE_TEXT, __VA_ARGS__)                                                    \
    text += "})";                                                                                  \
    return ::Vane::String(std::string_view(text));                                                 \
  }                                                                                                \
  friend std::ostream& operator<<(std::ostream& out, const CLS& value) {                           \
    return out << valueToStrep(value);                                                             \
  }                                                                                                \
private:                                                                                           \
  VANE_FOR_EACH(VANE_VALUE_MEMBER, __VA_ARGS__)                                                    \
public:

// A value type; its fields are ordered types.
#define VANE_VALUE(NS, CLS, ...)                                                                   \
  bool operator<(const CLS& other) const {                                                         \
    VANE_FOR_EACH(VANE_VALUE_LESS, __VA_ARGS__)                                                    \
    return false;                                                                                  \
  }                                                                                                \
  VANE_VALUE_UNORDERED(NS, CLS, __VA_ARGS__)

#define VANE_NUMBER_BODY(CLS, T, DEFAULT)                                                          \
  T value() const { return value_; }                                                               \
  void vaneMix(::Vane::Hash& hash) const { hash.mix(value_); }                                     \
  ::Vane::U32 hash() const { return ::Vane::hashOf(value_); }                                      \
  bool operator==(const CLS&) const = default;                                                     \
  bool operator<(const CLS& other) const { return value_ < other.value_; }                         \
  friend ::Vane::String valueToStrep(const CLS& value) { return ::Vane::strepOf(value.value_); }   \
  friend std::ostream& operator<<(std::ostream& out, const CLS& value) {                           \
    return out << valueToStrep(value);                                                             \
  }                                                                                                \
private:                                                                                           \
  T value_ = DEFAULT;

// A number within bounds: class CLS at namespace scope, written in decimal. Its constructor takes
// any integer and raises RangeException with `message` outside MIN..MAX.
#define VANE_RANGE_VALUE(NS, CLS, T, MIN, MAX, DEFAULT, message)                                   \
  class CLS {                                                                                      \
  public:                                                                                          \
    static constexpr T min = MIN;                                                                  \
    static constexpr T max = MAX;                                                                  \
    constexpr CLS() = default;                                                                     \
    template <::Vane::NumberLike Given>                                                            \
    constexpr explicit CLS(Given given)                                                            \
        : value_(::Vane::inRangeOrThrow<T>(given, min, max, message)) {}                           \
    CLS(::Vane::StrepIter& at, const ::Vane::StrepIter& end)                                       \
        : CLS(::Vane::parseUnsigned(at, end, ~::Vane::U64{0})) {}                                  \
    VANE_NUMBER_BODY(CLS, T, DEFAULT)                                                              \
  };

// A number that is a type of its own: class CLS at namespace scope, written in decimal.
#define VANE_WRAPPER_VALUE(NS, CLS, T, DEFAULT)                                                    \
  class CLS {                                                                                      \
  public:                                                                                          \
    constexpr CLS() = default;                                                                     \
    constexpr explicit CLS(T value) : value_(value) {}                                             \
    CLS(::Vane::StrepIter& at, const ::Vane::StrepIter& end)                                       \
        : value_(static_cast<T>(::Vane::parseUnsigned(at, end, std::numeric_limits<T>::max()))) {} \
    VANE_NUMBER_BODY(CLS, T, DEFAULT)                                                              \
  };

// clang-format on
