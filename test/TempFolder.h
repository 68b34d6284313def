#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace test {

// Makes a folder of this test's own among the temporary ones; its name begins with `name`. Whoever asked for
// it removes it.
inline std::filesystem::path newTempFolder(const std::string& name) {
  const std::string sixToReplace(6, 'X'); // by mkdtemp
  std::string path = (std::filesystem::temp_directory_path() / (name + "." + sixToReplace)).string();
  if (::mkdtemp(path.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(),
                            path + " cannot be made; TMPDIR names another place");
  }
  return path;
}

} // namespace test
