#pragma once

#include <cstdlib>
#include <string_view>

namespace test {

// Whether tests that can go on for hours shall do so: XPACL_LONG is set, and not to 0 or nothing.
inline bool isLong() {
  const char* const asked = std::getenv("XPACL_LONG");
  return asked != nullptr && std::string_view(asked) != "0" && std::string_view(asked) != "";
}

} // namespace test
