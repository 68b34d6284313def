#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
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
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() / ("xpacl_test." + std::to_string(::getpid()));
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string file(const std::string& name, const std::string& text) {
    const std::filesystem::path path = folder_ / name;
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
  }

  static std::string slurp(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
  }

  Outcome run(const std::string& arguments) {
    const std::filesystem::path out = folder_ / "out.txt";
    const std::filesystem::path err = folder_ / "err.txt";
    const std::string command = std::string(XPACL_TOOL) + " " + arguments + " >" + out.string() + " 2>" +
                                err.string() + " </dev/null";
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
  }

  static std::string example(const char* name) { return std::string(XPACL_SOURCE_DIR) + "/examples/" + name; }

  static std::vector<nlohmann::json> lines(const std::string& text) {
    std::vector<nlohmann::json> found;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
      found.push_back(nlohmann::json::parse(line));
    }
    return found;
  }

  std::filesystem::path folder_;
};

} // namespace test
