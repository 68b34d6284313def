#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

// The folder of real configurations, rule sets and captures, which is not part of the repository:
// XPACL_SHARED, or `shared` beside the repository. Tests that use it say so and pass without it.

namespace test {

constexpr const char* noSharedData =
    "the real configurations are not there, which are no part of the repository: put them into shared/data "
    "beside it, or name their folder shared in XPACL_SHARED";

inline std::optional<std::filesystem::path> sharedData() {
  const char* named = std::getenv("XPACL_SHARED");
  const std::filesystem::path folder =
      named ? std::filesystem::path(named) : std::filesystem::path(XPACL_SOURCE_DIR) / ".." / "shared";
  const std::filesystem::path data = folder / "data";
  return std::filesystem::is_directory(data) ? std::optional(data) : std::nullopt;
}

} // namespace test
