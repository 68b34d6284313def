#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Lines and words of configuration text. Keywords are compared without regard to case, names with it.

namespace agent {

struct Token {
  std::string_view text;
  unsigned column = 0; // 1-based, octets
};

// Splits a text into lines; accepts LF, CR LF and a last line without an end.
class LineReader {
public:
  explicit LineReader(std::string_view text) : rest_(text) {}
  // The next line without its end; false behind the last one.
  bool next(std::string_view& line);
  unsigned number() const { return number_; } // of the last line, 1-based

private:
  std::string_view rest_;
  unsigned number_ = 0;
};

// Replaces `tokens` by the words of the line. A word that starts with '!' starts a comment.
void splitWords(std::string_view line, std::vector<Token>& tokens);

// Negative, zero or positive, in the order of the lower-case spellings.
int compareWords(std::string_view a, std::string_view b);
// Without regard to case; sameLetters() of words of the same length.
bool sameLetters(std::string_view a, std::string_view b);
inline bool sameWord(std::string_view a, std::string_view b) {
  // Most words differ in the first letter already; the bit is that of the case.
  return a.size() == b.size() && (a.empty() || ((a[0] ^ b[0]) & ~0x20) == 0) && sameLetters(a, b);
}

// A walk over the words of one line.
class Cursor {
public:
  Cursor(const std::vector<Token>& tokens, size_t first) : tokens_(&tokens), next_(first) {}
  bool atEnd() const { return next_ >= tokens_->size(); }
  // The word `ahead` words on; an empty one behind the last word, standing where the line ends.
  Token peek(size_t ahead = 0) const {
    return next_ + ahead < tokens_->size() ? (*tokens_)[next_ + ahead] : behindLast();
  }
  Token take() { return atEnd() ? behindLast() : (*tokens_)[next_++]; }
  void skip(size_t count) { next_ += std::min(count, tokens_->size() - std::min(next_, tokens_->size())); }
  // Takes the next word when it is this keyword.
  bool takeWord(std::string_view keyword) {
    const bool isAt = at(keyword);
    next_ += isAt;
    return isAt;
  }
  bool at(std::string_view keyword, size_t ahead = 0) const { return sameWord(peek(ahead).text, keyword); }
  size_t position() const { return next_; }
  void positionIs(size_t position) { next_ = position; }

private:
  Token behindLast() const;

  const std::vector<Token>* tokens_;
  size_t next_;
};

bool startsWithWord(std::string_view text, std::string_view prefix);
std::string lowerCase(std::string_view text);
inline bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
inline bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool allDigits(std::string_view text); // and not empty

// Decimal digits only; nothing when there is anything else or the value exceeds `max`.
std::optional<uint32_t> decimal(std::string_view text, uint32_t max);
// "0x" and hexadecimal digits, or decimal.
std::optional<uint32_t> number(std::string_view text, uint32_t max);

// A word as it stands in messages: in single quotes, cut when it is long, unprintable octets as "\xNN".
std::string quotedWord(std::string_view word);
// The words from `first` on, one blank between them.
std::string foldedText(const std::vector<Token>& tokens, size_t first, size_t last);

// The number of letters to change, leave out, put in or swap with the next one, without regard to case; limit
// + 1 when it is greater than limit.
unsigned editDistance(std::string_view a, std::string_view b, unsigned limit);
// The candidate that a typing slip away from `word` is likely to mean, empty when there is none.
class NearestWord {
public:
  explicit NearestWord(std::string_view word);
  void offer(std::string_view candidate);
  std::string_view best() const { return best_; }
  // "; did you mean 'x'?" or nothing.
  std::string suggestion() const;

private:
  std::string_view word_;
  std::string_view best_;
  unsigned distance_;
};

} // namespace agent
