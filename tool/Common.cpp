#include "tool/Common.h"

#include "tool/Command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace tool {

void addCommonOptions(Command command, CommonOptions& options, bool withJson) {
  command.option("--format", options.format, "What the configuration is: auto, cli, classbench or openconfig")
      .oneOf({"auto", "cli", "classbench", "openconfig"})
      .showDefault();
  command.flag("--strict", options.strict, "Warnings are errors");
  command.flag("--keep-going", options.keepGoing,
               "Load the lists that are wholly expressible and refuse only the others");
  command.option("--tcam", options.tcam, "Rows of a TCAM table, e.g. ingressV4=1024; may be repeated")
      .valueName("TABLE=ROWS");
  command
      .option("--trace", options.traceLevel, "Trace up to this level (5 operations, 7 state machines, 8 all)")
      .range(0, 9);
  if (withJson) {
    command.flag("--json", options.json, "Print JSON for machines");
  }
}

agent::Config readConfig(const std::string& path, const CommonOptions& options, bool& usable) {
  agent::ReadOptions read;
  read.format = *agent::inputFormatFromName(options.format);
  read.strict = options.strict;
  read.keepGoing = options.keepGoing;
  read.tcam = options.tcam;
  agent::Config config = agent::readConfig(path, read);
  for (const agent::Diagnostic& diagnostic : config.diagnostics) {
    std::cerr << diagnostic.text() << '\n';
  }
  usable = config.readable && (options.keepGoing || !config.hasErrors());
  return config;
}

agent::Config loadConfig(const std::string& path, const CommonOptions& options) {
  bool usable = false;
  agent::Config config = readConfig(path, options, usable);
  if (!usable) {
    std::size_t errors = 0;
    for (const agent::Diagnostic& diagnostic : config.diagnostics) {
      errors += diagnostic.severity == agent::Severity::error ? 1 : 0;
    }
    throw Exit(exitBadInput, path + ": " + std::to_string(errors) + (errors == 1 ? " error" : " errors") +
                                 "; nothing was programmed");
  }
  return config;
}

Json toJson(const agent::Diagnostic& diagnostic) {
  return {{"file", diagnostic.loc.file},
          {"line", diagnostic.loc.line},
          {"column", diagnostic.loc.column},
          {"message", diagnostic.message}};
}

std::string dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

const char* familyName(agent::Family family) {
  return family == agent::Family::ipv4 ? "ipv4" : family == agent::Family::ipv6 ? "ipv6" : "mac";
}

const char* directionName(agent::Direction direction) {
  return direction == agent::Direction::in ? "in" : "out";
}

bool colourOut() {
  static const bool on = ::isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
  return on;
}

namespace {
std::string coloured(const char* code, const std::string& text) {
  return colourOut() ? "\033[" + std::string(code) + "m" + text + "\033[0m" : text;
}

// Columns that show on a terminal: continuation octets of UTF-8 take none.
std::size_t width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](unsigned char c) { return (c & 0xC0) != 0x80; }));
}
} // namespace

std::string bold(const std::string& text) {
  return coloured("1", text);
}
std::string red(const std::string& text) {
  return coloured("31", text);
}
std::string green(const std::string& text) {
  return coloured("32", text);
}

std::string columns(const std::vector<std::vector<std::string>>& rows, const std::string& indent) {
  std::vector<std::size_t> widths;
  std::vector<bool> numeric;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    for (std::size_t c = 0; c < rows[r].size(); ++c) {
      if (c == widths.size()) {
        widths.push_back(0);
        numeric.push_back(true);
      }
      widths[c] = std::max(widths[c], width(rows[r][c]));
      const std::string& cell = rows[r][c];
      if (r > 0 &&
          !std::all_of(cell.begin(), cell.end(), [](unsigned char ch) { return std::isdigit(ch) != 0; })) {
        numeric[c] = false;
      }
    }
  }
  std::string text;
  for (const std::vector<std::string>& row : rows) {
    std::string line = indent;
    for (std::size_t c = 0; c < row.size(); ++c) {
      const std::string pad(widths[c] - width(row[c]), ' ');
      line += (c == 0 ? "" : "  ") + (numeric[c] ? pad + row[c] : row[c] + pad);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

Progress::Progress(std::string what, uint64_t total)
    : what_(std::move(what)), total_(total), terminal_(::isatty(STDERR_FILENO) != 0),
      start_(std::chrono::steady_clock::now()), last_(start_) {}

Progress::~Progress() {
  if (shown_) {
    std::fprintf(stderr, "\r\033[K");
  }
}

std::string Progress::bar(uint64_t done) const {
  constexpr std::size_t width = 30;
  if (total_ == 0) {
    return std::to_string(done);
  }
  const std::size_t full = std::min<uint64_t>(done, total_) * width / total_;
  return "[" + std::string(full, '#') + std::string(width - full, '.') + "] " + std::to_string(done) +
         " of " + std::to_string(std::max(done, total_));
}

void Progress::at(uint64_t done) {
  if (!terminal_ || done < next_) {
    return;
  }
  // Where there is a bar, one step may take long.
  next_ = done + (total_ == 0 ? 4096 : 1);
  const auto now = std::chrono::steady_clock::now();
  if (now - start_ < std::chrono::seconds(1) || now - last_ < std::chrono::milliseconds(200)) {
    return;
  }
  last_ = now;
  shown_ = true;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  std::fprintf(stderr, "\r%s %s (%.1f s)\033[K", what_.c_str(), bar(done).c_str(), seconds);
}

} // namespace tool
