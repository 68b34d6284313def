#include "agent/config/Lexer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>

namespace agent {

namespace {

bool isBlank(char c) {
  // The blank, and the controls from the tab to the carriage return but for the line feed.
  return c == ' ' || (static_cast<unsigned char>(c - '\t') <= '\r' - '\t' && c != '\n');
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The first octet from `at` on that is a blank or a control, or the end. Eight are looked at at once, as
// words are most of a configuration: such an octet borrows when what follows the blank is taken from it, and
// what then borrows wrongly stands behind it.
const char* visibleEnd(const char* at, const char* end) {
  constexpr uint64_t each = 0x0101010101010101;
  if constexpr (std::endian::native == std::endian::little) {
    for (uint64_t octets; static_cast<size_t>(end - at) >= sizeof octets; at += sizeof octets) {
      std::memcpy(&octets, at, sizeof octets);
      const uint64_t low = (octets - each * (' ' + 1)) & ~octets & each * 0x80;
      if (low != 0)
        return at + std::countr_zero(low) / 8;
    }
  }
  while (at != end && static_cast<unsigned char>(*at) > ' ')
    ++at;
  return at;
}

// Words longer than this are no misspelt keywords, and comparing them would cost time.
constexpr size_t maxComparedLength = 40;

} // namespace

bool LineReader::next(std::string_view& line) {
  if (rest_.empty())
    return false;
  const size_t end = rest_.find('\n');
  line = rest_.substr(0, end);
  rest_ = end == std::string_view::npos ? std::string_view{} : rest_.substr(end + 1);
  if (!line.empty() && line.back() == '\r')
    line.remove_suffix(1);
  ++number_;
  return true;
}

void splitWords(std::string_view line, std::vector<Token>& tokens) {
  tokens.clear();
  const char* const begin = line.data();
  const char* const end = begin + line.size();
  for (const char* at = begin;;) {
    while (at != end && isBlank(*at))
      ++at;
    if (at == end || *at == '!')
      return;
    const char* const first = at;
    for (at = visibleEnd(at, end); at != end && !isBlank(*at); at = visibleEnd(at, end))
      ++at; // a control that separates nothing
    tokens.push_back({{first, static_cast<size_t>(at - first)}, static_cast<unsigned>(first - begin + 1)});
  }
}

Token Cursor::behindLast() const {
  if (tokens_->empty())
    return {{}, 1};
  const Token& last = tokens_->back();
  return {{}, last.column + static_cast<unsigned>(last.text.size())};
}

bool sameLetters(std::string_view a, std::string_view b) {
  // Almost always both are written alike.
  for (size_t i = 0; i < a.size(); ++i)
    if (a[i] != b[i] && lower(a[i]) != lower(b[i]))
      return false;
  return true;
}

bool startsWithWord(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && sameWord(text.substr(0, prefix.size()), prefix);
}

int compareWords(std::string_view a, std::string_view b) {
  const size_t common = std::min(a.size(), b.size());
  for (size_t i = 0; i < common; ++i) {
    const auto x = static_cast<unsigned char>(lower(a[i]));
    const auto y = static_cast<unsigned char>(lower(b[i]));
    if (x != y)
      return x < y ? -1 : 1;
  }
  if (a.size() == b.size())
    return 0;
  return a.size() < b.size() ? -1 : 1;
}

std::string lowerCase(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), lower);
  return result;
}

bool allDigits(std::string_view text) {
  for (const char c : text)
    if (!isDigit(c))
      return false;
  return !text.empty();
}

std::optional<uint32_t> decimal(std::string_view text, uint32_t max) {
  if (text.empty())
    return std::nullopt;
  uint64_t value = 0;
  for (const char c : text) {
    if (!isDigit(c))
      return std::nullopt;
    value = value * 10 + static_cast<unsigned>(c - '0');
    if (value > max)
      return std::nullopt;
  }
  return static_cast<uint32_t>(value);
}

std::optional<uint32_t> number(std::string_view text, uint32_t max) {
  if (!startsWithWord(text, "0x"))
    return decimal(text, max);
  text.remove_prefix(2);
  if (text.empty())
    return std::nullopt;
  uint64_t value = 0;
  for (const char raw : text) {
    const char c = lower(raw);
    if (!isDigit(c) && !(c >= 'a' && c <= 'f'))
      return std::nullopt;
    value = value * 16 + static_cast<unsigned>(isDigit(c) ? c - '0' : c - 'a' + 10);
    if (value > max)
      return std::nullopt;
  }
  return static_cast<uint32_t>(value);
}

std::string quotedWord(std::string_view word) {
  constexpr size_t longest = 48;
  std::string result = "'";
  for (const char c : word.substr(0, longest)) {
    if (c >= ' ' && c <= '~') {
      result += c;
      continue;
    }
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned char>(c));
    result += text.data();
  }
  if (word.size() > longest)
    result += "...";
  return result + "'";
}

std::string foldedText(const std::vector<Token>& tokens, size_t first, size_t last) {
  if (first >= last)
    return {};
  // Mostly one blank stands between the words already, and all is copied at once.
  const char* const begin = tokens[first].text.data();
  const char* end = begin + tokens[first].text.size();
  size_t next = first + 1;
  while (next < last && tokens[next].text.data() == end + 1 && *end == ' ')
    end += 1 + tokens[next++].text.size();
  std::string result;
  result.reserve(tokens[last - 1].column + tokens[last - 1].text.size() - tokens[first].column);
  result.assign(begin, end);
  for (; next < last; ++next) {
    result += ' ';
    result += tokens[next].text;
  }
  return result;
}

unsigned editDistance(std::string_view a, std::string_view b, unsigned limit) {
  const size_t longer = std::max(a.size(), b.size());
  if (longer > maxComparedLength || longer - std::min(a.size(), b.size()) > limit)
    return limit + 1;
  using Row = std::array<unsigned, maxComparedLength + 1>;
  Row before{}; // the row before the last one, which two swapped letters look back to
  Row last{};
  Row row{};
  for (size_t j = 0; j <= b.size(); ++j)
    row[j] = static_cast<unsigned>(j);
  for (size_t i = 1; i <= a.size(); ++i) {
    before = last;
    last = row;
    row[0] = static_cast<unsigned>(i);
    for (size_t j = 1; j <= b.size(); ++j) {
      const bool same = lower(a[i - 1]) == lower(b[j - 1]);
      row[j] = std::min({last[j - 1] + (same ? 0 : 1), last[j] + 1, row[j - 1] + 1});
      if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1]))
        row[j] = std::min(row[j], before[j - 2] + 1);
    }
  }
  return std::min(row[b.size()], limit + 1);
}

NearestWord::NearestWord(std::string_view word)
    // One slip in a short word, two in a longer one, three in a long one; with more everything is alike.
    : word_(word), distance_(word.size() <= 4    ? 2
                             : word.size() <= 10 ? 3
                                                 : 4) {}

void NearestWord::offer(std::string_view candidate) {
  const unsigned distance = editDistance(word_, candidate, distance_ - 1);
  if (distance < distance_) {
    distance_ = distance;
    best_ = candidate;
  }
}

std::string NearestWord::suggestion() const {
  return best_.empty() ? std::string{} : "; did you mean " + quotedWord(best_) + "?";
}

} // namespace agent
