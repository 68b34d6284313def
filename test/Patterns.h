#pragma once

#include <string>
#include <vector>

// Regular expressions (ECMAScript grammar) for tests. Compiled here once: the standard library's templates
// for them take the compiler longer than a whole test.
namespace test {

// The text with every match of the pattern replaced; "$1" is what its first group matched.
std::string replaced(const std::string& text, const std::string& pattern, const std::string& with);

// What the whole text and the groups of the pattern match, groups that took no part empty; nothing when the
// pattern does not match the whole text.
std::vector<std::string> matched(const std::string& text, const std::string& pattern);

} // namespace test
