#include "packet/PacketText.h"

#include "verify/ListLint.h"

#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/SetCommands.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>

namespace tool {

namespace {

struct LintOptions : SetOptions {
  std::string config;
};

std::string portsText(const agent::PortSet& ports) {
  if (agent::isAnyPort(ports)) {
    return "any";
  }
  std::string text;
  for (const agent::PortRange& range : ports) {
    text += (text.empty() ? "" : ",") + std::to_string(range.low) +
            (range.low == range.high ? "" : "-" + std::to_string(range.high));
  }
  return text;
}

const char* verdictName(bool permit) {
  return permit ? "permit" : "deny";
}

// One list and what was found in it.
struct ListReport {
  const agent::AccessList* list = nullptr;
  verify::ListFindings findings;

  const agent::Rule& rule(std::size_t line) const { return list->rules[line]; }
  unsigned lineNumber(std::size_t line) const { return rule(line).loc.line; }
  std::string place(std::size_t line) const {
    return rule(line).loc.file + ":" + std::to_string(lineNumber(line));
  }
  std::size_t total() const {
    return findings.unreachable.size() + reachedRemovable() + findings.contradictions.size() +
           findings.ranges.size();
  }
  // Unreachable lines can go too, but have been told already.
  std::size_t reachedRemovable() const {
    return static_cast<std::size_t>(
        std::count_if(findings.removable.begin(), findings.removable.end(),
                      [](const verify::Removable& line) { return line.reached; }));
  }
};

// --------------------------------------------------------------------------------------------- JSON

void addJson(const ListReport& report, Json& json) {
  const std::string& acl = report.list->name;
  for (const verify::Unreachable& line : report.findings.unreachable) {
    Json hiddenBy = Json::array();
    for (const std::size_t other : line.hiddenBy) {
      hiddenBy.push_back(report.lineNumber(other));
    }
    json["unreachable"].push_back({{"acl", acl},
                                   {"line", report.lineNumber(line.line)},
                                   {"hiddenBy", hiddenBy},
                                   {"sameAction", line.sameAction}});
  }
  for (const verify::Removable& line : report.findings.removable) {
    json["removable"].push_back(
        {{"acl", acl}, {"line", report.lineNumber(line.line)}, {"reached", line.reached}});
  }
  for (const verify::Contradiction& pair : report.findings.contradictions) {
    json["contradictions"].push_back({{"acl", acl},
                                      {"line", report.lineNumber(pair.first)},
                                      {"with", report.lineNumber(pair.second)},
                                      {"witness", packet::toText(pair.witness)}});
  }
  for (const verify::CostlyRange& range : report.findings.ranges) {
    json["ranges"].push_back(
        {{"acl", acl},
         {"line", report.lineNumber(range.line)},
         {"side", range.source ? "source" : "destination"},
         {"ports", portsText(range.ports)},
         {"rows", range.rows},
         {"cheaper", portsText(range.cheaper)},
         {"inFront", range.excluded.empty() ? Json(nullptr) : Json(portsText(range.excluded))},
         {"cheaperRows", range.cheaperRows}});
  }
}

// --------------------------------------------------------------------------------------------- text

// Findings of one list, kind by kind; a kind with many is cut short.
class ReportPrinter {
public:
  explicit ReportPrinter(const ListReport& report) : report_(report) {}

  void print() {
    std::cout << bold(report_.list->name + " (" + familyName(report_.list->family) + ", " +
                      std::to_string(report_.list->rules.size()) +
                      (report_.list->rules.size() == 1 ? " line)" : " lines)"))
              << "\n";
    each("unreachable lines", report_.findings.unreachable,
         [this](const verify::Unreachable& line) { unreachable(line); });
    std::vector<verify::Removable> removable;
    std::copy_if(report_.findings.removable.begin(), report_.findings.removable.end(),
                 std::back_inserter(removable), [](const verify::Removable& line) { return line.reached; });
    each("lines that could go, one at a time", removable,
         [this](const verify::Removable& line) { this->removable(line); });
    each("lines that contradict later ones: order alone decides", winners(),
         [this](const Winner& winner) { contradiction(winner); });
    each("costly port ranges", report_.findings.ranges,
         [this](const verify::CostlyRange& range) { costlyRange(range); });
    std::cout << "\n";
  }

private:
  using Winner = std::vector<const verify::Contradiction*>; // of one line, at least one

  static constexpr std::size_t shown = 20;
  static constexpr std::size_t othersShown = 5;

  template <typename Finding, typename Print>
  static void each(const char* title, const std::vector<Finding>& findings, const Print& print) {
    if (findings.empty()) {
      return;
    }
    std::cout << "  " << title << "\n";
    for (std::size_t i = 0; i < findings.size() && i < shown; ++i) {
      print(findings[i]);
    }
    if (findings.size() > shown) {
      std::cout << "    and " << findings.size() - shown << " more; --json has them all\n";
    }
  }

  void head(std::size_t line) const {
    std::cout << "    " << report_.place(line) << "  " << report_.rule(line).text << "\n";
  }
  void other(const char* before, std::size_t line) const {
    std::cout << "        " << before << report_.place(line) << "  " << report_.rule(line).text << "\n";
  }

  static void more(std::size_t others) {
    if (others > othersShown) {
      std::cout << "        and " << others - othersShown << " more lines\n";
    }
  }

  void unreachable(const verify::Unreachable& line) const {
    head(line.line);
    if (line.hiddenBy.empty()) {
      std::cout << "        no packet can match it\n";
      return;
    }
    for (std::size_t i = 0; i < line.hiddenBy.size() && i < othersShown; ++i) {
      other("hidden by ", line.hiddenBy[i]);
    }
    more(line.hiddenBy.size());
    std::cout << "        "
              << (line.sameAction ? "with the same action: it can go"
                                  : "with another action: it has never done what it says")
              << "\n";
  }

  void removable(const verify::Removable& line) const {
    head(line.line);
    std::cout << "        what follows does the same to every packet that reaches it\n";
  }

  // The pairs by the line that stands first.
  std::vector<Winner> winners() const {
    std::vector<Winner> winners;
    for (const verify::Contradiction& pair : report_.findings.contradictions) {
      if (winners.empty() || winners.back().front()->first != pair.first) {
        winners.emplace_back();
      }
      winners.back().push_back(&pair);
    }
    return winners;
  }

  void contradiction(const Winner& winner) const {
    head(winner.front()->first);
    for (std::size_t i = 0; i < winner.size() && i < othersShown; ++i) {
      other("wins over ", winner[i]->second);
      if (i == 0) {
        std::cout << "            for example for " << packet::toText(winner[i]->witness) << "\n";
      }
    }
    more(winner.size());
  }

  void costlyRange(const verify::CostlyRange& range) const {
    head(range.line);
    std::cout << "        " << (range.source ? "source" : "destination") << " ports "
              << portsText(range.ports) << ": " << range.rows << " rows\n"
              << "        the same with " << range.cheaperRows
              << (range.cheaperRows == 1 ? " row: ports " : " rows: ports ") << portsText(range.cheaper);
    if (!range.excluded.empty()) {
      std::cout << ", and in front of it the same line as " << verdictName(!report_.rule(range.line).permit)
                << " without log, for ports " << portsText(range.excluded);
    }
    std::cout << "\n";
  }

  const ListReport& report_;
};

class Linter {
public:
  Linter(const agent::Config& config, const LintOptions& options)
      : config_(config), options_(options), progress_("lines taken in and looked at:", steps(config)) {}

  int run() {
    for (const agent::AccessList& list : config_.lists) {
      // What could not be read says nothing about packets; its errors have been told.
      if (!list.hasErrors) {
        look(list);
      }
    }
    if (options_.json) {
      printJson();
    } else {
      printText();
    }
    return found_ == 0 ? exitDone : exitNo;
  }

private:
  // Lines are taken in, and then looked at.
  static uint64_t steps(const agent::Config& config) {
    uint64_t lines = 0;
    for (const agent::AccessList& list : config.lists) {
      lines += list.hasErrors ? 0 : list.rules.size();
    }
    return 2 * lines;
  }

  // Each list has a space of its own, so that nothing is left of the one before.
  void look(const agent::AccessList& list) {
    verify::PacketSpace space(list.family, verify::trafficOf(&list), options_.memoryBytes());
    reports_.push_back({&list, verify::lint(space, list, [this] { progress_.at(++done_); })});
    found_ += reports_.back().total();
    memory_ = std::max(memory_, space.diagrams().peakMemory());
  }

  void printJson() const {
    Json json{{"unreachable", Json::array()},
              {"removable", Json::array()},
              {"contradictions", Json::array()},
              {"ranges", Json::array()}};
    for (const ListReport& report : reports_) {
      addJson(report, json);
    }
    std::cout << dump(json) << "\n";
  }

  void printText() const {
    for (const ListReport& report : reports_) {
      if (report.total() != 0) {
        ReportPrinter(report).print();
      }
    }
    const std::string lists = std::to_string(reports_.size()) + (reports_.size() == 1 ? " list" : " lists");
    if (found_ == 0) {
      std::cout << green("nothing odd in " + lists);
    } else {
      std::cout << red(std::to_string(found_) + (found_ == 1 ? " finding in " : " findings in ") + lists);
    }
    std::cout << "; " << memoryText(memory_) << " of memory\n";
  }

  const agent::Config& config_;
  const LintOptions& options_;
  Progress progress_;
  uint64_t done_ = 0;
  std::vector<ListReport> reports_;
  std::size_t found_ = 0;
  std::size_t memory_ = 0;
};

int runLint(const LintOptions& options) {
  const agent::Config config = loadConfig(options.config, options);
  return Linter(config, options).run();
}

} // namespace

void addLint(CLI::App& program, Run& run) {
  auto options = std::make_shared<LintOptions>();
  CLI::App* command = program.add_subcommand(
      "lint", "Lines that no packet reaches, that could go, that contradict, that cost too many rows");
  command->add_option("CONFIG", options->config, "The configuration")->required();
  addSetOptions(*command, *options);
  command->footer(
      "Looks at every list of the file, applied or not. Every answer holds for all packets that there can "
      "be.\nLines do the same to a packet when both its verdict and whether it is logged are equal.\n\n"
      "Examples:\n"
      "  xpacl lint campus.conf\n"
      "  xpacl lint campus.conf --json\n\n"
      "Exit status 0: nothing found; 1: something was found; 2: bad input.");
  command->callback([options, &run] { run = [options] { return runLint(*options); }; });
}

} // namespace tool
