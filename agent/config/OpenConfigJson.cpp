#include "agent/config/OpenConfigJson.h"

#include "agent/config/Lexer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <unordered_set>

namespace agent::openconfig {

namespace {

// Octets of the UTF-8 sequence (RFC 3629) that starts at `at`; 0 when none does.
size_t utf8Octets(std::string_view text, size_t at) {
  const auto octet = [text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned first = octet(at);
  if (first < 0x80)
    return 1;
  const size_t count = first >= 0xC2 && first <= 0xDF   ? 2
                       : first >= 0xE0 && first <= 0xEF ? 3
                       : first >= 0xF0 && first <= 0xF4 ? 4
                                                        : 0;
  for (size_t i = 1; i < count; ++i)
    if ((octet(at + i) & 0xC0) != 0x80)
      return 0;
  const unsigned second = octet(at + 1);
  // No longer forms than needed, no surrogates, nothing behind U+10FFFF.
  const bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                     (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return wrong ? 0 : count;
}

void appendUtf8(std::string& text, uint32_t code) {
  const auto tail = [&text](uint32_t bits) { text += static_cast<char>(0x80 | (bits & 0x3F)); };
  if (code < 0x80) {
    text += static_cast<char>(code);
  } else if (code < 0x800) {
    text += static_cast<char>(0xC0 | (code >> 6));
    tail(code);
  } else if (code < 0x10000) {
    text += static_cast<char>(0xE0 | (code >> 12));
    tail(code >> 6);
    tail(code);
  } else {
    text += static_cast<char>(0xF0 | (code >> 18));
    tail(code >> 12);
    tail(code >> 6);
    tail(code);
  }
}

class JsonParser {
public:
  JsonParser(std::string_view text, JsonError& error) : text_(text), error_(error) {}

  std::optional<JsonValue> parse() {
    JsonValue value;
    if (!takeValue(value, 0))
      return std::nullopt;
    skipBlanks();
    if (at_ < text_.size()) {
      fail(at_, "the value of the text has ended before this; one object, or one array, is the whole text");
      return std::nullopt;
    }
    return value;
  }

private:
  bool fail(size_t offset, const std::string& why);
  void skipBlanks();
  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
  bool takeValue(JsonValue& value, unsigned depth);
  bool takeObject(JsonValue& value, unsigned depth);
  bool takeArray(JsonValue& value, unsigned depth);
  bool takeString(std::string& result);
  bool takeEscape(std::string& result);
  std::optional<uint32_t> takeHex();
  bool takeNumber(JsonValue& value);
  bool takeWord(JsonValue& value);
  bool checkNames(const JsonValue& object);

  std::string_view text_;
  JsonError& error_;
  size_t at_ = 0;
  size_t values_ = 0;
};

bool JsonParser::fail(size_t offset, const std::string& why) {
  error_.offset = offset;
  const std::string what =
      offset < text_.size() ? quotedWord(text_.substr(offset, std::max<size_t>(1, utf8Octets(text_, offset))))
                            : "the text ends too early";
  error_.message = what + ": " + why;
  return false;
}

void JsonParser::skipBlanks() {
  while (at_ < text_.size() &&
         (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n' || text_[at_] == '\r'))
    ++at_;
}

bool JsonParser::takeValue(JsonValue& value, unsigned depth) {
  skipBlanks();
  if (depth > maxJsonDepth)
    return fail(at_, "values stand in one another more than " + std::to_string(maxJsonDepth) +
                         " deep, which is no configuration");
  if (++values_ > maxJsonValues)
    return fail(at_, "the text has more than " + std::to_string(maxJsonValues) +
                         " values, which is no configuration");
  value.offset = static_cast<uint32_t>(at_);
  switch (peek()) {
  case '{':
    return takeObject(value, depth);
  case '[':
    return takeArray(value, depth);
  case '"':
    value.kind = JsonKind::string;
    return takeString(value.text);
  default:
    return peek() == '-' || isDigit(peek()) ? takeNumber(value) : takeWord(value);
  }
}

bool JsonParser::takeObject(JsonValue& value, unsigned depth) {
  value.kind = JsonKind::object;
  ++at_;
  skipBlanks();
  if (peek() == '}') {
    ++at_;
    return true;
  }
  while (true) {
    skipBlanks();
    if (peek() != '"')
      return fail(at_, "a name in double quotes is needed here, then a colon and a value");
    JsonValue& child = value.children.emplace_back();
    child.nameOffset = static_cast<uint32_t>(at_);
    if (!takeString(child.name))
      return false;
    skipBlanks();
    if (peek() != ':')
      return fail(at_, "a colon is needed here, between a name and its value");
    ++at_;
    if (!takeValue(child, depth + 1))
      return false;
    skipBlanks();
    if (peek() == '}') {
      ++at_;
      return checkNames(value);
    }
    if (peek() != ',')
      return fail(at_, "a comma or the closing brace of the object is needed here");
    ++at_;
  }
}

bool JsonParser::takeArray(JsonValue& value, unsigned depth) {
  value.kind = JsonKind::array;
  ++at_;
  skipBlanks();
  if (peek() == ']') {
    ++at_;
    return true;
  }
  while (true) {
    if (!takeValue(value.children.emplace_back(), depth + 1))
      return false;
    skipBlanks();
    if (peek() == ']') {
      ++at_;
      return true;
    }
    if (peek() != ',')
      return fail(at_, "a comma or the closing bracket of the array is needed here");
    ++at_;
  }
}

bool JsonParser::checkNames(const JsonValue& object) {
  std::unordered_set<std::string_view> names;
  for (const JsonValue& child : object.children)
    if (!names.insert(child.name).second) {
      error_.offset = child.nameOffset;
      error_.message = quotedWord(child.name) +
                       ": the object has a member of this name already, and only one can be meant; leave one "
                       "of them out";
      return false;
    }
  return true;
}

bool JsonParser::takeString(std::string& result) {
  const size_t start = at_++;
  while (true) {
    if (at_ >= text_.size())
      return fail(start, "this quote has no closing one");
    const char c = text_[at_];
    if (c == '"') {
      ++at_;
      return true;
    }
    if (static_cast<unsigned char>(c) < ' ')
      return fail(at_,
                  "a control character cannot stand in a string; close the string, or write \\n or \\u000a");
    if (c == '\\') {
      if (!takeEscape(result))
        return false;
      continue;
    }
    const size_t octets = utf8Octets(text_, at_);
    if (octets == 0)
      return fail(at_, "this octet is no UTF-8; save the file in UTF-8");
    result += text_.substr(at_, octets);
    at_ += octets;
  }
}

bool JsonParser::takeEscape(std::string& result) {
  constexpr std::string_view letters = "\"\\/bfnrt";
  constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
  const size_t start = at_;
  const char letter = start + 1 < text_.size() ? text_[start + 1] : '\0';
  at_ += 2;
  if (const size_t known = letters.find(letter); known != std::string_view::npos) {
    result += meanings[known];
    return true;
  }
  const auto code = letter == 'u' ? takeHex() : std::nullopt;
  if (!code)
    return fail(start,
                "behind a backslash stands one of \" \\ / b f n r t, or u and four hexadecimal digits");
  if (*code < 0xD800 || *code > 0xDFFF) {
    appendUtf8(result, *code);
    return true;
  }
  const bool pair = *code < 0xDC00 && text_.substr(std::min(at_, text_.size()), 2) == "\\u";
  at_ += pair ? 2 : 0;
  const auto low = pair ? takeHex() : std::nullopt;
  if (!low || *low < 0xDC00 || *low > 0xDFFF)
    return fail(start, "this is one half of a character; write both halves, or the character itself");
  appendUtf8(result, 0x10000 + ((*code - 0xD800) << 10) + (*low - 0xDC00));
  return true;
}

std::optional<uint32_t> JsonParser::takeHex() {
  if (at_ + 4 > text_.size())
    return std::nullopt;
  uint32_t value = 0;
  for (const char c : text_.substr(at_, 4)) {
    const bool letter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    if (!isDigit(c) && !letter)
      return std::nullopt;
    value = value * 16 + static_cast<uint32_t>(isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
  }
  at_ += 4;
  return value;
}

bool JsonParser::takeNumber(JsonValue& value) {
  value.kind = JsonKind::number;
  const size_t start = at_;
  const auto takeDigits = [this] {
    const size_t first = at_;
    while (isDigit(peek()))
      ++at_;
    return at_ > first;
  };
  at_ += peek() == '-' ? 1 : 0;
  const bool zero = peek() == '0';
  const size_t digits = at_;
  if (!takeDigits())
    return fail(at_, "a digit is needed here");
  if (zero && at_ - digits > 1)
    return fail(start, "a number does not start with a zero; leave it out");
  if (peek() == '.') {
    ++at_;
    if (!takeDigits())
      return fail(at_, "a digit is needed behind the point");
  }
  if (peek() == 'e' || peek() == 'E') {
    ++at_;
    at_ += peek() == '+' || peek() == '-' ? 1 : 0;
    if (!takeDigits())
      return fail(at_, "a digit is needed in the exponent");
  }
  value.text = text_.substr(start, at_ - start);
  return true;
}

bool JsonParser::takeWord(JsonValue& value) {
  for (const char* const word : {"true", "false", "null"})
    if (text_.substr(at_).starts_with(word)) {
      value.kind = *word == 'n' ? JsonKind::null : JsonKind::boolean;
      value.text = word;
      at_ += value.text.size();
      return true;
    }
  return fail(at_, "a value is needed here: an object, an array, a string in double quotes, a number, true, "
                   "false or null");
}

} // namespace

std::string describe(const JsonValue& value) {
  switch (value.kind) {
  case JsonKind::null:
    return "null";
  case JsonKind::boolean:
    return value.text;
  case JsonKind::number:
    return "the number " + value.text.substr(0, 24);
  case JsonKind::string:
    return quotedWord(value.text);
  case JsonKind::array:
    return "an array";
  default:
    return "an object";
  }
}

std::optional<JsonValue> parseJson(std::string_view text, JsonError& error) {
  return JsonParser(text, error).parse();
}

std::optional<std::string> jsonString(std::string_view text) {
  std::string result = "\"";
  for (size_t at = 0; at < text.size();) {
    const char c = text[at];
    const size_t octets = utf8Octets(text, at);
    if (octets == 0)
      return std::nullopt;
    if (c == '"' || c == '\\') {
      result += '\\';
      result += c;
    } else if (static_cast<unsigned char>(c) < ' ') {
      std::array<char, 8> escape{};
      std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
      result += escape.data();
    } else {
      result += text.substr(at, octets);
    }
    at += octets;
  }
  return result + "\"";
}

TextLines::TextLines(std::string_view text) : starts_{0} {
  for (size_t i = 0; i < text.size(); ++i)
    if (text[i] == '\n')
      starts_.push_back(i + 1);
}

unsigned TextLines::line(size_t offset) const {
  return static_cast<unsigned>(std::upper_bound(starts_.begin(), starts_.end(), offset) - starts_.begin());
}

unsigned TextLines::column(size_t offset) const {
  return static_cast<unsigned>(offset - starts_[line(offset) - 1] + 1);
}

} // namespace agent::openconfig
