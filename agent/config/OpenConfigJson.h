#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// JSON texts (RFC 8259) in which every value knows where it stands. An object with two members of one name is
// refused (RFC 7493 section 2.3), because whichever of the two a reader took, the other would be lost.

namespace agent::openconfig {

enum class JsonKind : uint8_t { null, boolean, number, string, array, object };

struct JsonValue {
  JsonKind kind = JsonKind::null;
  uint32_t offset = 0;     // of the first octet of the value
  uint32_t nameOffset = 0; // of the name, in an object
  std::string name;        // in an object
  std::string text;        // of a string, decoded to UTF-8; of a number and a boolean, as written
  std::vector<JsonValue> children;

  bool is(JsonKind wanted) const { return kind == wanted; }
};

// "an object", "the number 5", "the string 'x'": for messages.
std::string describe(const JsonValue& value);

struct JsonError {
  size_t offset = 0;
  std::string message; // what stands there, why it cannot and what could
};

// More than any configuration has; bounds what a hostile text can ask of memory and stack.
constexpr size_t maxJsonValues = 4000000;
constexpr unsigned maxJsonDepth = 64;

// Parses a whole text of fewer than 2^32 octets. Answers nothing, with `error` set, for a text that is no
// JSON.
std::optional<JsonValue> parseJson(std::string_view text, JsonError& error);

// The string as JSON, quotes included; nothing when it is no UTF-8.
std::optional<std::string> jsonString(std::string_view text);

// Lines and columns of the offsets of one text.
class TextLines {
public:
  explicit TextLines(std::string_view text);
  unsigned line(size_t offset) const;   // 1-based
  unsigned column(size_t offset) const; // 1-based, octets

private:
  std::vector<size_t> starts_; // where each line starts
};

} // namespace agent::openconfig
