#include "packet/Capture.h"
#include "packet/HeaderTrace.h"
#include "packet/Words.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"
#include "tool/Script.h"
#include "tool/Session.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace tool {

namespace {

struct RunOptions : CommonOptions {
  std::string script;
  bool stop = false;
};

// A status that callers of the SDK take for success; any other one stops the process.
bool isAccepted(int status) {
  return status == XpXdk::statusOk || status == XpXdk::statusNotPresent || status == XpXdk::statusNotFound ||
         status == XpXdk::statusAlreadyExists;
}

std::string counted(uint64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// A JSON step makes standard output one for machines: it holds what the steps print, and nothing else.
bool isForMachines(const Script& script) {
  return std::any_of(script.steps.begin(), script.steps.end(), [](const Step& step) {
    return std::visit(
        [](const auto& act) {
          if constexpr (requires { act.options.json; }) {
            return act.options.json;
          } else {
            return false;
          }
        },
        step.act);
  });
}

// The configurations of a script, read before anything runs.
class Configurations {
public:
  // Says on standard error what is wrong; false when the script cannot be run.
  bool read(const Script& script, const CommonOptions& options) {
    bool usable = true;
    for (const Step& step : script.steps) {
      if (const auto* const load = std::get_if<LoadStep>(&step.act)) {
        usable = readOne(load->file, step.loc, load->fileColumn, options) && usable;
      } else if (const auto* const update = std::get_if<UpdateStep>(&step.act)) {
        usable = readOne(update->options.to, step.loc, update->fileColumn, options) && usable;
      }
    }
    return usable;
  }

  const agent::Config& of(const std::string& file) const { return byFile_.at(file); }
  std::vector<const agent::Config*> all() const {
    std::vector<const agent::Config*> configs;
    for (const auto& entry : byFile_) {
      configs.push_back(&entry.second);
    }
    return configs;
  }

private:
  bool readOne(const std::string& file, agent::SourceLoc loc, unsigned column, const CommonOptions& options) {
    if (byFile_.count(file) != 0) {
      return true;
    }
    bool usable = false;
    const agent::Config& config = byFile_[file] = readConfig(file, options, usable);
    std::string tables;
    if (usable && first_.empty()) {
      first_ = file;
    } else if (usable) {
      tables = otherSizes(byFile_.at(first_), config);
    }
    if (usable && tables.empty()) {
      return true;
    }
    loc.column = column;
    const std::string why = tables.empty()
                                ? "cannot be used; see what is said of it above"
                                : "wants other sizes of tables than " + first_ + " (" + tables +
                                      "); they are fixed when a chip starts: give --tcam, or the same "
                                      "hardware lines";
    std::cerr << loc.text() << ": error: " << file << " " << why << "\n";
    return false;
  }

  std::map<std::string, agent::Config> byFile_;
  std::string first_;
};

// Carries out the steps of a script on one switch.
class Runner {
public:
  Runner(const RunOptions& options, const Script& script, const Configurations& configs)
      : options_(options), script_(script), configs_(configs), quiet_(options.json || isForMachines(script)) {
  }

  int run() {
    for (const Step& step : script_.steps) {
      step_ = &step;
      if (!std::holds_alternative<EchoStep>(step.act)) {
        tell(bold("> " + step.text));
      }
      // A fault may end the process in the middle of the step.
      std::cout.flush();
      ++steps_;
      carryOut(step);
      tellMachines();
      if (stopped_ || (options_.stop && failed_ + unmet_ != 0)) {
        break;
      }
    }
    finish();
    return failed_ + unmet_ == 0 ? exitDone : exitNo;
  }

private:
  void carryOut(const Step& step) {
    try {
      std::visit([this](const auto& act) { this->act(act); }, step.act);
    } catch (const Exit& exit) {
      fail(exit.what());
    } catch (const packet::CaptureError& error) {
      fail(error.what());
    } catch (const packet::HeaderTraceError& error) {
      fail(error.what());
    }
    std::cout.flush();
  }

  // With --json every step is a line, behind the documents that it printed itself.
  void tellMachines() {
    if (options_.json) {
      Json json{{"step", steps_}, {"line", step_->loc.line}, {"text", step_->text}};
      json["ok"] = messages_.empty();
      json["messages"] = messages_;
      printJson("run", std::move(json));
      std::cout.flush();
    }
    messages_.clear();
  }

  // For people only.
  void tell(const std::string& line) const {
    if (!quiet_) {
      std::cout << line << "\n";
    }
  }

  void complain(const std::string& message) {
    messages_.push_back(message);
    std::cout.flush();
    std::cerr << step_->loc.text() << ": " << message << std::endl;
  }
  void fail(const std::string& message) {
    ++failed_;
    complain(message);
  }
  void expect(bool met, const std::string& expected, const std::string& found) {
    ++expectations_;
    if (met) {
      tell("  as expected");
    } else {
      ++unmet_;
      complain("expected " + expected + ", found " + found);
    }
  }

  void act(const LoadStep& load) {
    const agent::Config& config = configs_.of(load.file);
    if (session_) {
      tellRows(session_->apply(config));
      return;
    }
    stopped_ = true; // unless it starts
    session_.emplace(config, options_, configs_.all());
    stopped_ = false;
    tell("  started with " + counted(session_->agent().activeChips().size(), "chip") + " and " +
         counted(rowsInUse(), "row"));
  }

  void act(const UpdateStep& update) {
    last_.reset();
    UpdateOptions options = update.options;
    options.from = "the running configuration";
    const UpdateResult result = tool::update(*session_, configs_.of(options.to), options, false);
    last_ = Judged{result.permit, result.packets - result.permit, result.blocked, result.lines};
    if (result.findings != 0) {
      fail(counted(result.findings, "verdict") + " of the change were neither the old one nor the new one");
    }
  }

  void act(const ReplayStep& step) {
    last_.reset();
    ReplayResult result = replay(*session_, step.options, false);
    last_ = Judged{result.permit, result.deny(), result.blocked, std::move(result.lines)};
  }

  void act(const TraceStep& step) { trace(*session_, step.options); }
  void act(const ShowStep& step) { show(*session_, step.options); }
  void act(const BlockStep& step) { session_->blockIs(step.interface, step.block); }
  void act(const ChipStep& step) {
    tellRows(step.add ? session_->chipAdd(step.chip) : session_->chipRemove(step.chip));
  }
  void act(const PairStep& step) {
    if (step.add) {
      session_->pairAdd(step.port, step.vlan);
    } else {
      session_->pairDel(step.port, step.vlan);
    }
  }

  void act(const FaultStep& step) {
    sim::Fault fault;
    fault.call = step.call;
    fault.status = step.status;
    session_->faults().faultIs(fault);
    faultStep_ = step_;
    tell("  SDK call " + std::to_string(step.call) + " from here answers status " +
         std::to_string(step.status) +
         (isAccepted(step.status)
              ? ", which the driver accepts, and is not carried out"
              : "; the process stops there, because what the chip holds is unknown then"));
  }

  void act(const EchoStep& step) {
    // Machines have the text in the line of the step.
    if (!options_.json) {
      tell("");
      std::cout << step.text << "\n";
    }
  }

  // Expectations of a replay that failed have nothing to look at.
  bool hasJudged() {
    if (!last_) {
      fail("the packets before it were not judged, because that step failed");
    }
    return last_.has_value();
  }

  void act(const VerdictsExpected& step) {
    if (!hasJudged()) {
      return;
    }
    std::string expected;
    std::string found;
    bool met = true;
    const auto compare = [&](const std::optional<uint64_t>& wanted, uint64_t have, const char* what) {
      if (wanted) {
        met = met && *wanted == have;
        expected += (expected.empty() ? "" : " and ") + std::to_string(*wanted) + what;
        found += (found.empty() ? "" : " and ") + std::to_string(have) + what;
      }
    };
    compare(step.permit, last_->permit, " permitted");
    compare(step.deny, last_->deny, " denied");
    expect(met, expected, found);
  }

  void act(const BlockedExpected& step) {
    if (hasJudged()) {
      expect(step.packets == last_->blocked,
             counted(step.packets, "packet") + " that met a blocked interface",
             std::to_string(last_->blocked));
    }
  }

  void act(const HitsExpected& step) {
    if (!hasJudged()) {
      return;
    }
    const auto isIt = [&](const Hits::Line& line) {
      return line.acl == step.list && line.line == step.line &&
             (!step.direction || *step.direction == line.direction);
    };
    uint64_t hits = 0;
    std::string rule;
    for (const Hits::Line& line : last_->lines) {
      if (isIt(line)) {
        hits += line.hits;
        rule = line.rule;
      }
    }
    if (rule.empty()) {
      rule = ruleOfConfig(step);
    }
    expect(hits == step.hits,
           counted(step.hits, "hit") + " of " + step.list + " line " + std::to_string(step.line) + " (" +
               rule + ")",
           std::to_string(hits));
  }

  // The rule of a line that the last packets had nothing to do with. Ends the step when there is none.
  std::string ruleOfConfig(const HitsExpected& step) const {
    std::string lines;
    std::string lists;
    for (const agent::AccessList& list : session_->config().lists) {
      lists += (lists.empty() ? "" : ", ") + list.name;
      for (const agent::Rule& rule : list.rules) {
        if (list.name == step.list) {
          if (rule.loc.line == step.line) {
            return rule.text;
          }
          lines += (lines.empty() ? "" : ", ") + std::to_string(rule.loc.line);
        }
      }
    }
    if (lines.empty()) {
      throw Exit(exitNo, "there is no access list " + step.list + " with lines; there are " + lists);
    }
    throw Exit(exitNo, step.list + " has no line " + std::to_string(step.line) +
                           "; by their place in the configuration file, its lines are " + lines);
  }

  void act(const RowsExpected& step) {
    const sim::Device* const device =
        step.chip > sim::maxDevice ? nullptr : session_->system().device(static_cast<uint8_t>(step.chip));
    if (device == nullptr) {
      throw Exit(exitNo, "there is no chip " + std::to_string(step.chip) + "; chips are numbered from 0");
    }
    const auto table = static_cast<XpAcl::TcamType>(step.table);
    const uint32_t rows = usedRows(*device->tcam(XpAcl::tcamTable(table).table));
    expect(rows == step.rows,
           counted(step.rows, "row") + " in use in " + agent::tableName(step.table) + " of chip " +
               std::to_string(step.chip),
           std::to_string(rows));
  }

  uint64_t rowsInUse() {
    uint64_t rows = 0;
    for (const auto& [number, device] : session_->system().devices()) {
      for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
        rows += usedRows(*device->tcam(table.table));
      }
    }
    return rows;
  }

  void tellRows(const agent::ApplyResult& result) {
    tell("  " + counted(result.rowsStaged, "row") + " staged, " + std::to_string(result.rowsRetired) +
         " retired, " + std::to_string(rowsInUse()) + " in use on " +
         counted(session_->agent().activeChips().size(), "chip"));
  }

  void finish() {
    if (faultStep_ != nullptr && !session_->faults().fired()) {
      tell("The fault of line " + std::to_string(faultStep_->loc.line) + " did not come: there were " +
           counted(session_->faults().numCalls(), "call") + " since.");
    }
    if (options_.json) {
      printJson("run", {{"summary",
                         {{"ok", failed_ + unmet_ == 0},
                          {"steps", steps_},
                          {"left", script_.steps.size() - steps_},
                          {"expectations", expectations_},
                          {"unmet", unmet_},
                          {"failed", failed_}}}});
    }
    std::string text = "\n" + counted(steps_, "step") + ", " + counted(expectations_, "expectation") + ": ";
    if (failed_ + unmet_ == 0) {
      text += green("all well");
    } else {
      text += red(std::to_string(unmet_) + " not met, " + counted(failed_, "step") + " failed");
    }
    const std::size_t left = script_.steps.size() - steps_;
    tell(text + (left == 0 ? "" : "; stopped before the other " + std::to_string(left)));
  }

  // What the last replay or update found.
  struct Judged {
    uint64_t permit = 0;
    uint64_t deny = 0;
    uint64_t blocked = 0;
    std::vector<Hits::Line> lines;
  };

  const RunOptions& options_;
  const Script& script_;
  const Configurations& configs_;
  const bool quiet_;
  std::optional<Session> session_;
  const Step* step_ = nullptr;
  const Step* faultStep_ = nullptr;
  std::optional<Judged> last_;
  bool stopped_ = false;
  std::size_t steps_ = 0;
  std::size_t expectations_ = 0;
  std::size_t unmet_ = 0;
  std::size_t failed_ = 0;
  std::vector<std::string> messages_; // of this step
};

int runScript(const RunOptions& options) {
  Script script = readScript(options.script);
  if (options.json) {
    for (Step& step : script.steps) {
      std::visit(
          [](auto& act) {
            if constexpr (requires { act.options.json; }) {
              act.options.json = true;
            }
          },
          step.act);
    }
  }
  for (const agent::Diagnostic& error : script.errors) {
    std::cerr << error.text() << "\n";
  }
  Configurations configs;
  // The configurations are looked at even so, to say everything at once.
  if (!configs.read(script, options) || !script.errors.empty()) {
    throw Exit(exitBadInput, options.script + " cannot be run; nothing was done");
  }
  return Runner(options, script, configs).run();
}

} // namespace

void addRun(Command program, Run& run) {
  auto options = std::make_shared<RunOptions>();
  const Command command =
      program.subcommand("run", "Carry out a scenario step by step, and check what it expects");
  command.option("SCRIPT", options->script, "The scenario, one step a line").required();
  command.flag("--stop", options->stop, "Stop at the first step that fails or expectation that is not met");
  addCommonOptions(command, *options);
  command.footer(
      "Steps (file names are relative to the script's folder; # begins a comment):\n"
      "  load FILE                        start the switch, or change it to this configuration\n"
      "  update FILE --pcap FILE ...      the same, with packets between the writes to the chip\n"
      "  replay ...                       as xpacl replay CONFIG ...; --json prints the summary line\n"
      "  trace ... / show ...             as xpacl trace CONFIG ... and xpacl show CONFIG ...\n"
      "  block IF / unblock IF            an interface drops everything, or not any more\n"
      "  chip add N / chip remove N       a chip joins or leaves; chips are numbered from 0\n"
      "  pair add IF VLAN / pair delete IF VLAN\n"
      "  fault call N status S            the N-th SDK call from now answers S; what the driver does not\n"
      "                                   accept stops the process, as it would on a switch\n"
      "  expect permit N deny N           of the last replay or update\n"
      "  expect blocked N                 packets of it that met a blocked interface\n"
      "  expect hits ACL LINE N [in|out]  of it; LINE is the line of the configuration file\n"
      "  expect rows TABLE N [chip N]     rows in use, without the default entry\n"
      "  echo TEXT\n\n"
      "--json prints a line for each step, behind what the step prints itself with --json, and a summary.\n\n"
      "Example:\n"
      "  xpacl run examples/campus.scenario\n\n"
      "Exit status 1: an expectation was not met, or a step failed. 2: the script cannot be used; nothing "
      "was done.");
  command.runs(run, [options] { return runScript(*options); });
}

} // namespace tool
