#include "packet/PacketText.h"

#include "verify/ListLint.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"
#include "tool/LintReport.h"
#include "tool/SetCommands.h"

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
      std::cout << ", and in front of it the same line as " << permitWord(!report_.rule(range.line).permit)
                << " without log, for ports " << portsText(range.excluded);
    }
    std::cout << "\n";
  }

  const ListReport& report_;
};

void printText(const LintReports& reports) {
  for (const ListReport& report : reports.lists) {
    if (report.total() != 0) {
      ReportPrinter(report).print();
    }
  }
  const std::size_t count = reports.lists.size();
  const std::string lists = std::to_string(count) + (count == 1 ? " list" : " lists");
  if (reports.found == 0) {
    std::cout << green("nothing odd in " + lists);
  } else {
    std::cout << red(std::to_string(reports.found) + (reports.found == 1 ? " finding in " : " findings in ") +
                     lists);
  }
  std::cout << "; " << memoryText(reports.memory) << " of memory\n";
}

int runLint(const LintOptions& options) {
  const agent::Config config = loadConfig(options.config, options);
  LintReports reports;
  {
    Progress progress("lines taken in and looked at:", lintSteps(config));
    uint64_t done = 0;
    reports = lintLists(config, options.memoryBytes(), [&] { progress.at(++done); });
  }
  if (options.json) {
    printJson("lint", reports.toJson());
  } else {
    printText(reports);
  }
  return reports.found == 0 ? exitDone : exitNo;
}

} // namespace

void addLint(Command program, Run& run) {
  auto options = std::make_shared<LintOptions>();
  const Command command = program.subcommand(
      "lint", "Lines that no packet reaches, that could go, that contradict, that cost too many rows");
  command.option("CONFIG", options->config, "The configuration").required();
  addSetOptions(command, *options);
  command.footer(
      "Looks at every list of the file, applied or not. Every answer holds for all packets that there can "
      "be.\nLines do the same to a packet when both its verdict and whether it is logged are equal.\n\n"
      "Examples:\n"
      "  xpacl lint campus.conf\n"
      "  xpacl lint campus.conf --json\n\n"
      "Exit status 0: nothing found; 1: something was found; 2: bad input.");
  command.runs(run, [options] { return runLint(*options); });
}

} // namespace tool
