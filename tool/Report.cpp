#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/JsonDocument.h"
#include "tool/LintReport.h"
#include "tool/ReportData.h"
#include "tool/ReportFeed.h"
#include "tool/ReportPage.h"
#include "tool/SetCommands.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>

namespace tool {

namespace {

struct ReportOptions : SetOptions {
  std::string config;
  std::string out = "report.html";
  FeedOptions feed;
  bool noLint = false;
};

std::optional<LintReports> lintOf(const agent::Config& config, const ReportOptions& options) {
  if (options.noLint) {
    return std::nullopt;
  }
  Progress progress("lines taken in and looked at:", lintSteps(config));
  uint64_t done = 0;
  return lintLists(config, options.memoryBytes(), [&] { progress.at(++done); });
}

Json dataOf(const ReportOptions& options, agent::Plan& plan) {
  checkFeedOptions(options.feed);
  const agent::Config config = loadConfig(options.config, options);
  plan = agent::plan(config, nullptr);
  std::optional<Session> session;
  std::optional<CaptureFeed> feed;
  // Without a configuration that fits there are no chips to send packets through; the report says why.
  if (plan.fits) {
    session.emplace(config, options);
    if (!options.feed.pcap.empty()) {
      feed.emplace(*session, options.feed);
      Progress progress("packets judged:");
      while (feed->advance()) {
        progress.at(feed->counts().packets);
      }
    }
  }
  const std::optional<LintReports> lint = lintOf(config, options);
  Json data = ReportData(config, plan, session ? &*session : nullptr, feed ? &*feed : nullptr,
                         lint ? &*lint : nullptr)
                  .toJson(options.config);
  data["pcap"] = options.feed.pcap.empty() ? Json(nullptr) : Json(options.feed.pcap);
  return jsonDocument("report", std::move(data));
}

void writePage(const std::string& path, const std::string& page) {
  errno = 0;
  std::ofstream file(path, std::ios::binary);
  file << page;
  file.close();
  if (!file) {
    throw Exit(exitBadInput, path + ": cannot be written: " + std::strerror(errno));
  }
}

int runReport(const ReportOptions& options) {
  std::error_code ignored;
  if (std::filesystem::equivalent(options.out, options.config, ignored)) {
    throw Exit(exitBadInput, options.out + " is the configuration itself; name another file with -o");
  }
  agent::Plan plan;
  const Json data = dataOf(options, plan);
  if (options.json) {
    std::cout << dump(data) << '\n';
    return plan.fits ? exitDone : exitNo;
  }
  const std::string page = reportPage(dump(data));
  if (options.out == "-") {
    std::cout << page;
  } else {
    writePage(options.out, page);
    std::cout << options.out << ": " << (page.size() + 1023) / 1024 << " KiB; open it in a browser\n";
  }
  if (!plan.fits) {
    throw Exit(exitNo,
               options.config + " does not fit, so the report shows no rows: " + plan.reasons.front());
  }
  return exitDone;
}

} // namespace

void addReport(Command program, Run& run) {
  auto options = std::make_shared<ReportOptions>();
  const Command command = program.subcommand(
      "report", "One page to look at: what fills the tables, what costs, what is hit, what is odd");
  command.option("CONFIG", options->config, "The configuration").required();
  command.option("-o,--output", options->out, "Where the page goes; - is standard output").showDefault();
  addFeedOptions(command, options->feed);
  command.flag("--no-lint", options->noLint, "Leave out what lint finds, which takes time on long lists");
  addSetOptions(command, *options);
  command.footer("The page is one file that needs nothing else, and no network.\n"
                 "--json prints what the page shows instead of writing it.\n\n"
                 "Examples:\n"
                 "  xpacl report campus.conf -o report.html\n"
                 "  xpacl report campus.conf --pcap lan.pcap --in Gi1/0/1 -o report.html\n\n"
                 "Exit status 1: does not fit; the page says what lacks.");
  command.runs(run, [options] { return runReport(*options); });
}

} // namespace tool
