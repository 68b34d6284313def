#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

// xpacl run as people run it, in a folder of the test's own.

namespace test {

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

class ToolUnderTest : public testing::Test {
protected:
  void SetUp() override;
  void TearDown() override;

  // Writes a file into the folder; answers its path.
  std::string file(const std::string& name, const std::string& text);
  static std::string slurp(const std::filesystem::path& path);
  static std::string example(const char* name); // the path of one of the project's examples

  // `arguments` are words for the shell.
  Outcome run(const std::string& arguments);

  // Text with one JSON value a line.
  static std::vector<nlohmann::json> lines(const std::string& text);

  std::filesystem::path folder_;
};

} // namespace test
