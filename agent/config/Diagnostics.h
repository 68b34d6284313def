#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/Findings.h"

#include <string>
#include <utility>
#include <vector>

namespace agent {

// The diagnostics of one input as they come up.
class Diagnostics {
public:
  Diagnostics(std::string file, bool strict) : file_(std::move(file)), strict_(strict) {}
  const std::string& file() const { return file_; }
  bool strict() const { return strict_; }
  void error(unsigned line, unsigned column, std::string message, std::string list = {}) {
    add({Severity::error, line, column, std::move(message)}, std::move(list));
  }
  void warn(unsigned line, unsigned column, std::string message, std::string list = {}) {
    add({Severity::warning, line, column, std::move(message)}, std::move(list));
  }
  // In strict mode warnings become errors here.
  void add(Finding finding, std::string list = {});
  void addAll(std::vector<Finding> findings);
  // Something outside of the text, such as an option of the command line.
  void errorAt(const std::string& place, std::string message);
  // Sorted by place, each once.
  std::vector<Diagnostic> takeAll();

private:
  std::string file_;
  bool strict_;
  std::vector<Diagnostic> all_;
};

} // namespace agent
