#include "tool/Update.h"

#include "packet/Capture.h"
#include "packet/PacketText.h"

#include "sim/Pipeline.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"
#include "tool/Session.h"
#include "tool/UpdateCheck.h"
#include "tool/UpdateProofReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <memory>

namespace tool {

namespace {

constexpr std::size_t findingsShown = 20;

class Update {
public:
  Update(Session& session, const agent::Config& config, const UpdateOptions& options)
      : session_(session), options_(options), path_(pathOf(session, options)),
        config_(session.withSparePorts(config)) {
    checkStays(path_.in);
    if (path_.out) {
      checkStays(*path_.out);
    }
    readPackets();
    judgeBefore(session_, verdicts_.old);
    Session alone(config_, options);
    judgeBefore(alone, verdicts_.fresh);
  }

  UpdateResult run(bool everyPacket) {
    session_.addDevices(config_);
    UpdateCheck check(session_, path_, packets_, verdicts_);
    check.everyIs(options_.every);
    if (everyPacket && options_.json) {
      check.packetHookIs(printPacket);
    }
    const agent::ApplyResult result = check.run(config_);
    if (!result.ok) {
      std::string message = options_.to + " does not fit beside " + options_.from + "; nothing was written";
      for (const std::string& error : result.errors) {
        message += "\n  " + error;
      }
      throw Exit(exitNo, message);
    }
    const UpdateResult summary{packets_.size(), check.permitted(), check.blocked(),
                               lines(session_, check.hits()), check.findings().size()};
    if (options_.json) {
      printSummary(summary, check, result);
    } else {
      printReport(check, result);
    }
    return summary;
  }

private:
  void readPackets() {
    packet::CaptureReader capture(options_.pcap);
    packet::Frame frame;
    while (capture.next(frame)) {
      packets_.push_back(capture.dissect(frame));
    }
  }

  static Path pathOf(Session& session, const UpdateOptions& options) {
    Path path{options.in.empty() ? session.onlyIngressPort() : session.port(options.in, "--in"), std::nullopt,
              std::nullopt};
    if (!options.out.empty()) {
      path.out = session.port(options.out, "--out");
    }
    if (options.vlan != 0) {
      path.vlan = static_cast<uint16_t>(options.vlan);
    }
    return path;
  }

  // A port that goes away, or to another chip, is not there for the packets when the change is done.
  void checkStays(const PortRef& port) const {
    const bool stays =
        std::any_of(config_.interfaces.begin(), config_.interfaces.end(), [&](const agent::Interface& intf) {
          return intf.kind == agent::InterfaceKind::ethernet && intf.chip == port.chip &&
                 agent::intfId(intf) == port.intf;
        });
    if (!stays || port.chip >= config_.numChips) {
      throw Exit(exitBadInput, port.name + " is no port of chip " + std::to_string(port.chip) + " in " +
                                   options_.to +
                                   ", so packets cannot use it all the time; name another port");
    }
  }

  // What a configuration says as long as nothing changes.
  void judgeBefore(Session& session, std::vector<bool>& verdicts) {
    for (const packet::Packet& packet : packets_) {
      verdicts.push_back(session.judge(packet, path_.in, path_.outPtr(), path_.vlan, false).permit());
    }
  }

  static void printPacket(std::size_t index, bool permit, UpdateCheck::Is is) {
    using Is = UpdateCheck::Is;
    printJson("update", {{"packet", index + 1},
                         {"verdict", permitWord(permit)},
                         {"is", is == Is::old       ? "old"
                                : is == Is::fresh   ? "new"
                                : is == Is::blocked ? "blocked"
                                                    : "neither"}});
  }

  static std::vector<Hits::Line> lines(const Session& session, const Hits& hits) {
    std::vector<std::shared_ptr<agent::AggregatedAcl>> lists;
    std::vector<agent::Direction> directions;
    for (const auto& [name, generation] : session.agent().registry().all()) {
      if (const auto acl = session.agent().acl(agent::aclKey(name, generation.generation))) {
        lists.push_back(acl);
        directions.push_back(name.direction);
      }
    }
    return hits.lines(lists, directions);
  }

  static void printSummary(const UpdateResult& summary, const UpdateCheck& check,
                           const agent::ApplyResult& result) {
    Json findings = Json::array();
    for (const UpdateCheck::Finding& finding : check.findings()) {
      findings.push_back({{"write", finding.write},
                          {"call", finding.call},
                          {"packet", finding.packet},
                          {"table", finding.table},
                          {"row", finding.row ? Json(*finding.row) : Json(nullptr)},
                          {"verdict", permitWord(finding.verdict)},
                          {"old", permitWord(finding.old)},
                          {"new", permitWord(finding.fresh)}});
    }
    printJson("update", {{"summary",
                          {{"writes", check.writes()},
                           {"packets", summary.packets},
                           {"permit", summary.permit},
                           {"deny", summary.packets - summary.permit},
                           {"blocked", summary.blocked},
                           {"rowsStaged", result.rowsStaged},
                           {"rowsRetired", result.rowsRetired},
                           {"rowsPeak", check.rowsPeak()},
                           {"lines", linesJson(summary.lines)},
                           {"findings", findings}}}});
  }

  void printReport(const UpdateCheck& check, const agent::ApplyResult& result) {
    std::cout << bold(options_.from + " -> " + options_.to) << "\n"
              << "  " << check.writes() << " writes to the chip; " << result.rowsStaged << " rows staged, "
              << result.rowsRetired << " retired, at most " << check.rowsPeak() << " in use\n"
              << "  " << packets_.size() << " packets, one between any two writes: " << check.permitted()
              << " permitted, " << packets_.size() - check.permitted() << " denied, " << check.blocked()
              << " met a blocked interface\n";
    const std::vector<UpdateCheck::Finding>& findings = check.findings();
    if (findings.empty()) {
      std::cout << "  "
                << green("every verdict was the old one, the new one, or the drop of a blocked interface")
                << "\n";
      return;
    }
    std::cout << "  " << red(std::to_string(findings.size()) + " verdicts were neither") << "\n";
    for (std::size_t i = 0; i < findings.size() && i < findingsShown; ++i) {
      std::cout << "    " << findingText(findings[i]) << "; the packet is "
                << packet::toText(packets_[findings[i].packet - 1]) << "\n";
    }
  }

  Session& session_;
  const UpdateOptions& options_;
  const Path path_;
  const agent::Config config_; // with the spare port that packets may enter
  std::vector<packet::Packet> packets_;
  Verdicts verdicts_;
};

struct UpdateCommandOptions : UpdateOptions {
  bool prove = false;
  std::string certificate;
  std::size_t memory = SetOptions().memory;
};

int runUpdate(const UpdateCommandOptions& options) {
  if (!options.prove && options.pcap.empty()) {
    throw Exit(exitBadInput, "give --pcap FILE with packets to send during the change, or --prove for all");
  }
  const agent::Config from = loadConfig(options.from, options);
  const agent::Config to = loadConfig(options.to, options);
  const std::string tables = otherSizes(from, to);
  if (!tables.empty()) {
    throw Exit(exitBadInput, "the sizes of tables differ between " + options.from + " and " + options.to +
                                 " (" + tables +
                                 "); they are fixed when a chip starts: give --tcam, or the same hardware "
                                 "lines");
  }
  if (options.prove) {
    ProofOptions proof;
    static_cast<CommonOptions&>(proof) = options;
    proof.memory = options.memory;
    proof.from = options.from;
    proof.to = options.to;
    proof.certificate = options.certificate;
    return proveUpdate(from, to, proof);
  }
  Session session(from, options, {&to});
  return update(session, to, options, true).findings == 0 ? exitDone : exitNo;
}

void addProofOptions(Command command, UpdateCommandOptions& options) {
  const Option prove = command.flag("--prove", options.prove,
                                    "Without packets: look at all of them after every write, as exact sets");
  for (const char* const name : {"--pcap", "--in", "--out", "--vlan", "--every"}) {
    prove.excludes(command.option(name));
  }
  command.option("--pcap").required(false);
  command
      .option("--certificate", options.certificate,
              "Write what was proven to this file, for check-certificate")
      .needs(prove);
  command.option("--memory", options.memory, "MiB that the sets of --prove may take")
      .range(16, 1048576)
      .showDefault()
      .needs(prove);
}

} // namespace

std::string otherSizes(const agent::Config& running, const agent::Config& next) {
  const agent::AgentSetup now = agent::setupFor(running);
  const agent::AgentSetup then = agent::setupFor(next);
  std::string tables;
  for (const XpAcl::TcamTableInfo& info : XpAcl::tcamTables) {
    const auto table = static_cast<agent::Table>(info.tcamType);
    if (now.rows(table) != then.rows(table)) {
      tables += std::string(tables.empty() ? "" : ", ") + agent::tableName(table);
    }
  }
  return tables;
}

void addUpdateOptions(Command command, UpdateOptions& options) {
  command.option("--pcap", options.pcap, "The packets: one is judged between any two writes").required();
  command.option("--in", options.in, "The port that packets enter");
  command.option("--out", options.out, "The port that packets leave by: adds the egress lookups");
  command.option("--vlan", options.vlan, "The VLAN of frames without a tag").range(1, 4094);
  command.flag("--every", options.every, "Also judge every packet of the capture after every write");
}

UpdateResult update(Session& session, const agent::Config& config, const UpdateOptions& options,
                    bool everyPacket) {
  return Update(session, config, options).run(everyPacket);
}

void addUpdate(Command program, Run& run) {
  auto options = std::make_shared<UpdateCommandOptions>();
  const Command command = program.subcommand(
      "update", "Change a configuration while packets flow, and watch them, or prove it for all packets");
  command.option("OLD", options->from, "The configuration in force").required();
  command.option("NEW", options->to, "The configuration to change to").required();
  addUpdateOptions(command, *options);
  addProofOptions(command, *options);
  addCommonOptions(command, *options);
  command.footer(
      "Examples:\n"
      "  xpacl update old.conf new.conf --in Gi1/0/1 --pcap lan.pcap\n"
      "  xpacl update old.conf new.conf --prove --certificate change.json\n\n"
      "Exit status 1: some verdict was neither the old one, nor the new one, nor the drop of a blocked "
      "interface; or the change does not fit.");
  command.runs(run, [options] { return runUpdate(*options); });
}

} // namespace tool
