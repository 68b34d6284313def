#include "Vane/Value.h"

#include <algorithm>

namespace Vane {

namespace {

[[noreturn]] void throwExpected(std::string_view what, const StrepIter& at, const StrepIter& end) {
  constexpr std::ptrdiff_t shown = 24;
  std::string message = "expected " + std::string(what) + " at \"";
  message.append(at, at + std::min(shown, end - at));
  throw ParseException(message + "\"");
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

int hexDigit(char c) {
  if (isDigit(c)) {
    return c - '0';
  }
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

} // namespace

void needString(StrepIter& at, const StrepIter& end, std::string_view literal) {
  const auto size = static_cast<std::ptrdiff_t>(literal.size());
  if (end - at < size || !std::equal(literal.begin(), literal.end(), at)) {
    throwExpected("\"" + std::string(literal) + "\"", at, end);
  }
  at += size;
}

void strepToValueEnd(const StrepIter& at, const StrepIter& end) {
  if (at != end) {
    throwExpected("the end", at, end);
  }
}

void throwFieldParseException(const char* field, const Exception& why) {
  throw ParseException("field '" + std::string(field) + "': " + why.what());
}

U64 parseUnsigned(StrepIter& at, const StrepIter& end, U64 max) {
  StrepIter digit = at;
  U64 number = 0;
  for (; digit != end && isDigit(*digit); ++digit) {
    const auto value = static_cast<U64>(*digit - '0');
    if (number > max / 10 || number * 10 > max - value) {
      throw ParseException("number is larger than " + std::to_string(max));
    }
    number = number * 10 + value;
  }
  if (digit == at || (*at == '0' && digit - at > 1)) {
    throwExpected("a decimal number", at, end);
  }
  at = digit;
  return number;
}

std::int64_t parseSigned(StrepIter& at, const StrepIter& end, std::int64_t min, std::int64_t max) {
  if (at == end || *at != '-') {
    return static_cast<std::int64_t>(parseUnsigned(at, end, static_cast<U64>(max)));
  }
  StrepIter digits = at + 1;
  // The magnitude of the smallest number is one more than that of the largest.
  const U64 magnitude = parseUnsigned(digits, end, U64{0} - static_cast<U64>(min));
  if (magnitude == 0) {
    throwExpected("a decimal number", at, end);
  }
  at = digits;
  return static_cast<std::int64_t>(U64{0} - magnitude);
}

bool parseBool(StrepIter& at, const StrepIter& end) {
  const bool isTrue = at != end && *at == 'T';
  needString(at, end, isTrue ? "True" : "False");
  return isTrue;
}

String parseQuoted(StrepIter& at, const StrepIter& end) {
  StrepIter next = at;
  needString(next, end, "'");
  std::string text;
  while (next != end && *next != '\'') {
    if (*next == '\\') {
      ++next;
      if (next == end || (*next != '\\' && *next != '\'')) {
        throwExpected("a quote or a backslash", next, end);
      }
    }
    text += *next;
    ++next;
  }
  needString(next, end, "'");
  at = next;
  return String(std::string_view(text));
}

void parseHexBytes(StrepIter& at, const StrepIter& end, U8* bytes, std::size_t count) {
  StrepIter next = at;
  needString(next, end, "'");
  for (std::size_t i = 0; i < count; ++i) {
    const int high = end - next >= 2 ? hexDigit(next[0]) : -1;
    const int low = end - next >= 2 ? hexDigit(next[1]) : -1;
    if (high < 0 || low < 0) {
      throwExpected("hexadecimal digits", next, end);
    }
    bytes[i] = static_cast<U8>(high << 4 | low);
    next += 2;
  }
  needString(next, end, "'");
  at = next;
}

String quoted(const String& text) {
  std::string result = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') {
      result += '\\';
    }
    result += c;
  }
  result += '\'';
  return String(std::string_view(result));
}

String hexBytes(const U8* bytes, std::size_t count) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string result = "'";
  for (std::size_t i = 0; i < count; ++i) {
    result += digits[bytes[i] >> 4];
    result += digits[bytes[i] & 15];
  }
  result += '\'';
  return String(std::string_view(result));
}

String pointerText(const char* typeName, const void* object) {
  return format("%s(0x%llx)", typeName,
                static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(object)));
}

} // namespace Vane
