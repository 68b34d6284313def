#include "test/ToolUnderTest.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

void ToolUnderTest::SetUp() {
  folder_ = std::filesystem::temp_directory_path() / ("xpacl_test." + std::to_string(::getpid()));
  std::filesystem::create_directories(folder_);
}

void ToolUnderTest::TearDown() {
  std::filesystem::remove_all(folder_);
}

std::string ToolUnderTest::file(const std::string& name, const std::string& text) {
  const std::filesystem::path path = folder_ / name;
  std::ofstream(path, std::ios::binary) << text;
  return path.string();
}

std::string ToolUnderTest::slurp(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::string ToolUnderTest::example(const char* name) {
  return std::string(XPACL_SOURCE_DIR) + "/examples/" + name;
}

Outcome ToolUnderTest::run(const std::string& arguments) {
  const std::filesystem::path out = folder_ / "out.txt";
  const std::filesystem::path err = folder_ / "err.txt";
  const std::string command =
      std::string(XPACL_TOOL) + " " + arguments + " >" + out.string() + " 2>" + err.string() + " </dev/null";
  const int raw = std::system(command.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
}

std::vector<nlohmann::json> ToolUnderTest::lines(const std::string& text) {
  std::vector<nlohmann::json> found;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    found.push_back(nlohmann::json::parse(line));
  }
  return found;
}

} // namespace test
