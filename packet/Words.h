#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Words of a line of text, with the column where each begins, and what readers do with one.

namespace packet {

struct Word { // points into the text that was split
  std::string_view text;
  std::size_t column = 0; // 1-based, octets
};

// Takes a line apart at blanks, tabs and a carriage return at its end.
class WordReader {
public:
  explicit WordReader(std::string_view line) : line_(line) {}
  // The next word; false at the end of the line, when `word` is empty and stands behind the last octet.
  bool next(Word& word);

private:
  std::string_view line_;
  std::size_t at_ = 0;
};

// Decimal digits only, at most `max`.
bool parseDecimal(std::string_view text, uint64_t max, uint64_t& value);
// Decimal, or hexadecimal behind "0x".
bool parseNumber(std::string_view text, uint64_t max, uint64_t& value);

// Fit for an error message: at most 40 octets, those that do not print as '?'.
std::string clipped(std::string_view text);
// The text of errno.
std::string systemError();

} // namespace packet
