#include "packet/Words.h"

#include <cerrno>
#include <charconv>
#include <system_error>

namespace packet {

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

bool parse(std::string_view digits, int base, uint64_t max, uint64_t& value) {
  uint64_t result = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, result, base);
  if (error != std::errc() || stop != end || result > max) {
    return false;
  }
  value = result;
  return true;
}

} // namespace

bool WordReader::next(Word& word) {
  while (at_ < line_.size() && isBlank(line_[at_])) {
    ++at_;
  }
  const std::size_t begin = at_;
  while (at_ < line_.size() && !isBlank(line_[at_])) {
    ++at_;
  }
  word = {line_.substr(begin, at_ - begin), begin + 1};
  return at_ > begin;
}

bool parseDecimal(std::string_view text, uint64_t max, uint64_t& value) {
  return parse(text, 10, max, value);
}

bool parseNumber(std::string_view text, uint64_t max, uint64_t& value) {
  const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  return hexadecimal ? parse(text.substr(2), 16, max, value) : parse(text, 10, max, value);
}

std::string clipped(std::string_view text) {
  constexpr std::size_t longest = 40;
  std::string result(text.substr(0, longest));
  for (char& c : result) {
    if (c < 0x20 || c > 0x7E) {
      c = '?';
    }
  }
  return text.size() > longest ? result + "..." : result;
}

std::string systemError() {
  return std::generic_category().message(errno);
}

} // namespace packet
