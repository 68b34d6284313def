#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/ConfigReader.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// What the commands share: how a configuration is given and read, how errors and results are said.

namespace tool {

class Command;

using Json = nlohmann::ordered_json;

// Exit statuses of every command.
constexpr int exitDone = 0;
constexpr int exitNo = 1;       // the answer is no: does not fit, found a difference
constexpr int exitBadInput = 2; // bad input or usage

// VLANs that frames can be in (IEEE 802.1Q).
constexpr uint16_t firstVlan = 1;
constexpr uint16_t lastVlan = 4094;

// How verdicts are said.
constexpr const char* permitWord(bool permit) {
  return permit ? "permit" : "deny";
}

// Ends the command with `status`; the message, when there is one, goes to standard error.
class Exit : public std::runtime_error {
public:
  Exit(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

private:
  int status_;
};

// The options that every command has.
struct CommonOptions {
  std::string format = "auto";
  bool strict = false;
  bool keepGoing = false;
  std::vector<std::string> tcam;
  unsigned traceLevel = 0;
  bool json = false;
};

void addCommonOptions(Command command, CommonOptions& options, bool withJson = true);

// Reads a configuration and says its diagnostics on standard error. Ends the command with status 2 when it
// cannot be used: it has errors (with --keep-going: when it could not be read at all).
agent::Config loadConfig(const std::string& path, const CommonOptions& options);
// The same without ending the command: `usable` tells.
agent::Config readConfig(const std::string& path, const CommonOptions& options, bool& usable);

Json toJson(const agent::Diagnostic& diagnostic);
// Compact text; octets that are no UTF-8 are replaced.
std::string dump(const Json& json);

const char* familyName(agent::Family family);          // "ipv4", "ipv6", "mac"
const char* directionName(agent::Direction direction); // "in", "out"

// Colours only on a terminal, and never when NO_COLOR is set.
bool colourOut();
std::string bold(const std::string& text);
std::string red(const std::string& text);
std::string green(const std::string& text);

// Columns of text; the first row is the header. Cells that begin with a digit stand right-aligned.
std::string columns(const std::vector<std::vector<std::string>>& rows, const std::string& indent = "");

// A counter on standard error for work over a second, when that is a terminal; a bar where it is known how
// much there is to do.
class Progress {
public:
  explicit Progress(std::string what, uint64_t total = 0); // 0: not known
  ~Progress();
  void at(uint64_t done);

private:
  std::string bar(uint64_t done) const;

  std::string what_;
  uint64_t total_;
  bool terminal_;
  bool shown_ = false;
  uint64_t next_ = 0;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_;
};

} // namespace tool
