#include "agent/Plan.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace tool {

namespace {

struct PlanOptions : CommonOptions {
  std::string config;
  std::string from;
};

std::string tableName(const agent::TablePlan& table) {
  return stringValue(table.table).charPtr();
}

Json tablesJson(const std::vector<agent::TablePlan>& tables) {
  Json json = Json::object();
  for (const agent::TablePlan& table : tables) {
    json[tableName(table)] = {{"rows", table.rows},
                              {"used", table.used},
                              {"free", table.free()},
                              {"peak", table.peak},
                              {"lack", table.lack()}};
  }
  return json;
}

Json planJson(const agent::Plan& plan, const agent::Config& config) {
  Json json;
  json["fits"] = plan.fits;
  json["tables"] = tablesJson(plan.fullest);
  if (plan.chips.size() > 1) {
    json["chips"] = Json::array();
    for (const agent::ChipPlan& chip : plan.chips) {
      json["chips"].push_back({{"chip", chip.chip}, {"tables", tablesJson(chip.tables)}});
    }
  }
  json["acls"] = Json::array();
  for (const agent::AclPlan& acl : plan.acls) {
    json["acls"].push_back({{"name", acl.name},
                            {"family", familyName(acl.family)},
                            {"direction", directionName(acl.direction)},
                            {"role", acl.routed ? "routed" : "port"},
                            {"rules", acl.rules},
                            {"rows", acl.rows},
                            {"versions", acl.versions}});
  }
  json["costliest"] = Json::array();
  for (const agent::LinePlan& line : plan.costliest) {
    json["costliest"].push_back({{"acl", line.list},
                                 {"file", line.loc.file},
                                 {"line", line.loc.line},
                                 {"rule", line.text},
                                 {"rows", line.rows},
                                 {"expansion", line.expansion}});
  }
  json["reasons"] = plan.reasons;
  json["errors"] = Json::array();
  for (const agent::Diagnostic& diagnostic : config.diagnostics) {
    if (diagnostic.severity == agent::Severity::error) {
      json["errors"].push_back(toJson(diagnostic));
    }
  }
  return json;
}

void printTables(const std::vector<agent::TablePlan>& tables, const std::string& indent) {
  std::vector<std::vector<std::string>> rows{{"TABLE", "ROWS", "USED", "FREE", "PEAK", "LACK"}};
  for (const agent::TablePlan& table : tables) {
    rows.push_back({tableName(table), std::to_string(table.rows), std::to_string(table.used),
                    std::to_string(table.free()), std::to_string(table.peak), std::to_string(table.lack())});
  }
  std::cout << columns(rows, indent);
}

constexpr std::size_t costliestShown = 10;

void printText(const agent::Plan& plan, const PlanOptions& options) {
  std::cout << (plan.fits ? green(bold("Fits.")) : red(bold("Does not fit."))) << ' ' << options.config;
  if (!options.from.empty()) {
    std::cout << ", coming from " << options.from;
  }
  std::cout << "\n";
  for (const std::string& reason : plan.reasons) {
    std::cout << "  " << reason << "\n";
  }
  std::cout << "\n" << bold("TCAM rows") << " (one row of each table holds the default entry)\n";
  if (plan.chips.size() == 1) {
    printTables(plan.fullest, "  ");
  } else {
    for (const agent::ChipPlan& chip : plan.chips) {
      std::cout << "  chip " << unsigned{chip.chip} << "\n";
      printTables(chip.tables, "    ");
    }
  }
  std::cout << "\n" << bold("Lists") << " (rows of one version, the implicit rows included)\n";
  if (plan.acls.empty()) {
    std::cout << "  none is applied to an interface, so none takes rows\n";
  } else {
    std::vector<std::vector<std::string>> rows{
        {"LIST", "FAMILY", "DIRECTION", "ROLE", "LINES", "ROWS", "VERSIONS"}};
    for (const agent::AclPlan& acl : plan.acls) {
      rows.push_back({acl.name, familyName(acl.family), directionName(acl.direction),
                      acl.routed ? "routed" : "port", std::to_string(acl.rules), std::to_string(acl.rows),
                      std::to_string(acl.versions)});
    }
    std::cout << columns(rows, "  ");
  }
  if (!plan.costliest.empty()) {
    std::cout << "\n" << bold("Costliest lines") << "\n";
    for (std::size_t i = 0; i < plan.costliest.size() && i < costliestShown; ++i) {
      const agent::LinePlan& line = plan.costliest[i];
      std::cout << "  " << line.rows << " rows  " << line.loc.file << ":" << line.loc.line << "  "
                << line.text << "\n      " << line.expansion << "\n";
    }
    if (plan.costliest.size() > costliestShown) {
      std::cout << "  and " << plan.costliest.size() - costliestShown << " more lines of more than one row\n";
    }
  }
}

int runPlan(const PlanOptions& options) {
  std::unique_ptr<agent::Config> from;
  if (!options.from.empty()) {
    from = std::make_unique<agent::Config>(loadConfig(options.from, options));
    const agent::Plan before = agent::plan(*from, nullptr);
    if (!before.fits) {
      throw Exit(exitNo, options.from + " does not fit by itself: " + before.reasons.front());
    }
  }
  bool usable = false;
  const agent::Config config = readConfig(options.config, options, usable);
  if (!usable) {
    if (options.json) {
      agent::Plan none;
      none.fits = false;
      printJson("plan", planJson(none, config));
    }
    throw Exit(exitBadInput, options.config + " has errors; nothing was planned");
  }
  const agent::Plan plan = agent::plan(config, from.get());
  if (options.json) {
    printJson("plan", planJson(plan, config));
  } else {
    printText(plan, options);
  }
  return plan.fits ? exitDone : exitNo;
}

} // namespace

void addPlan(Command program, Run& run) {
  auto options = std::make_shared<PlanOptions>();
  const Command command =
      program.subcommand("plan", "Does a configuration fit, and what does each list cost?");
  command.option("CONFIG", options->config, "The configuration").required();
  command.option("--from", options->from, "The configuration that is in force now");
  addCommonOptions(command, *options);
  command.footer("Examples:\n"
                 "  xpacl plan campus.conf                   rows of each table and list\n"
                 "  xpacl plan new.conf --from old.conf      rows while old and new stand side by side\n"
                 "  xpacl plan campus.conf --tcam ingressV4=256 --json\n\n"
                 "Writes nothing. Exit status 1: does not fit.");
  command.runs(run, [options] { return runPlan(*options); });
}

} // namespace tool
