#pragma once

#include <string>
#include <utility>

// What tests see happen, in order: words with a blank behind each.

namespace test {

inline std::string happened;

// All of it since the last time.
inline std::string taken() {
  return std::exchange(happened, "");
}

inline void note(const std::string& what) {
  happened += what;
  happened += ' ';
}

} // namespace test
