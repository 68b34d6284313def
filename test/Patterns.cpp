#include "test/Patterns.h"

#include <map>
#include <regex>

namespace test {

namespace {

// Tests ask for few patterns and for many texts.
const std::regex& compiled(const std::string& pattern) {
  static std::map<std::string, std::regex> known;
  const auto found = known.find(pattern);
  return found != known.end() ? found->second : known.emplace(pattern, std::regex(pattern)).first->second;
}

} // namespace

std::string replaced(const std::string& text, const std::string& pattern, const std::string& with) {
  return std::regex_replace(text, compiled(pattern), with);
}

std::vector<std::string> matched(const std::string& text, const std::string& pattern) {
  std::smatch match;
  if (!std::regex_match(text, match, compiled(pattern))) {
    return {};
  }
  return std::vector<std::string>(match.begin(), match.end());
}

} // namespace test
