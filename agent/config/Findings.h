#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/Lexer.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// What is wrong in one line, before it is known whether the line matters: a later line may delete it, and
// its list may be applied nowhere.

namespace agent {

struct Finding {
  Severity severity = Severity::error;
  unsigned line = 0;
  unsigned column = 0;
  std::string message;
};

// Collects the findings of one line. `why` says why the word cannot stand there and what to write instead.
class Findings {
public:
  explicit Findings(unsigned line) : line_(line) {}
  // Answers false, so that a parser can refuse and give up in one statement.
  bool refuse(const Token& token, const std::string& why) {
    add(Severity::error, token, why);
    return false;
  }
  void warn(const Token& token, const std::string& why) { add(Severity::warning, token, why); }
  bool hasErrors() const { return errors_; }
  unsigned line() const { return line_; }
  const std::vector<Finding>& all() const { return all_; }
  std::vector<Finding>&& takeAll() { return std::move(all_); }

private:
  void add(Severity severity, const Token& token, const std::string& why) {
    errors_ = errors_ || severity == Severity::error;
    // Behind the last word there is nothing to quote.
    const std::string what = token.text.empty() ? "the line ends too early" : quotedWord(token.text);
    all_.push_back({severity, line_, token.column, what + ": " + why});
  }

  unsigned line_;
  bool errors_ = false;
  std::vector<Finding> all_;
};

// What is left of maxFileAlternatives.
class ExpansionBudget {
public:
  explicit ExpansionBudget(uint64_t total) : left_(total) {}
  bool take(uint64_t count) {
    if (count > left_)
      return false;
    left_ -= count;
    return true;
  }

private:
  uint64_t left_;
};

} // namespace agent
