#include "sim/ChipFile.h"
#include "tool/ChipAudit.h"
#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"
#include "tool/Session.h"

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace tool {

namespace {

struct AuditOptions : CommonOptions {
  std::string config;
  std::string chipDump;
  std::string save;
};

void printFindings(const std::vector<AuditFinding>& findings) {
  Json list = Json::array();
  for (const AuditFinding& finding : findings) {
    list.push_back({{"damage", damageText(finding.damage)},
                    {"chip", finding.chip},
                    {"place", finding.place},
                    {"detail", finding.detail},
                    {"line", finding.line}});
  }
  printJson("audit", {{"findings", list}});
}

void printText(const std::vector<AuditFinding>& findings) {
  for (const AuditFinding& finding : findings) {
    std::cout << red(damageText(finding.damage)) << ": chip " << unsigned{finding.chip} << " "
              << finding.place << "\n  " << finding.detail << "\n  belongs to " << finding.line << "\n";
  }
  if (findings.empty()) {
    std::cout << green("the chips hold exactly what the library recorded") << "\n";
  } else {
    std::cout << findings.size() << (findings.size() == 1 ? " difference\n" : " differences\n");
  }
}

int runAudit(const AuditOptions& options) {
  Session session(loadConfig(options.config, options), options);
  try {
    if (!options.save.empty()) {
      sim::saveChips(session.system(), options.save);
    }
    if (!options.chipDump.empty()) {
      sim::loadChips(session.system(), options.chipDump);
    }
  } catch (const sim::ChipFileError& error) {
    throw Exit(exitBadInput, error.what());
  }
  const std::vector<AuditFinding> findings = auditChips(session);
  if (options.json) {
    printFindings(findings);
  } else {
    printText(findings);
  }
  return findings.empty() ? exitDone : exitNo;
}

} // namespace

void addAudit(Command program, Run& run) {
  auto options = std::make_shared<AuditOptions>();
  const Command command =
      program.subcommand("audit", "Compare what the chips hold with what the library recorded");
  command.option("CONFIG", options->config, "The configuration in force").required();
  command.option("--chip-dump", options->chipDump,
                 "Look at the chips in this file, as --save wrote it, instead of freshly programmed ones");
  command.option("--save", options->save, "Write the programmed chips to this file");
  addCommonOptions(command, *options);
  command.footer("Examples:\n"
                 "  xpacl audit campus.conf --save chips.bin\n"
                 "  xpacl audit campus.conf --chip-dump chips.bin\n\n"
                 "Exit status 1: the chips hold something else.");
  command.runs(run, [options] { return runAudit(*options); });
}

} // namespace tool
