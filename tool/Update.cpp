#include "packet/Capture.h"
#include "packet/PacketText.h"

#include "sim/Pipeline.h"

#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/Hits.h"
#include "tool/Session.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <memory>

namespace tool {

namespace {

constexpr std::size_t findingsShown = 20;

struct UpdateOptions : CommonOptions {
  std::string from;
  std::string to;
  std::string pcap;
  std::string in;
  std::string out;
  unsigned vlan = 0;
  bool every = false;
};

struct Finding {
  uint64_t write = 0;
  std::string call;
  uint64_t packet = 0;
  std::string table;
  std::optional<uint32_t> row;
  bool verdict = false;
  bool old = false;
  bool fresh = false;
};

enum class Is { old, fresh, blocked, neither };

// A blocked interface makes its lookups under ACL id 0, which no list has.
bool metBlock(const sim::Verdict& verdict) {
  return std::any_of(verdict.lookups().begin(), verdict.lookups().end(),
                     [](const sim::LookupResult& lookup) { return lookup.aclId == 0; });
}

class Update {
public:
  explicit Update(const UpdateOptions& options)
      : options_(options), old_(loadConfig(options.from, options)), new_(loadConfig(options.to, options)) {
    if (old_.tcamRows != new_.tcamRows) {
      throw Exit(exitBadInput,
                 "the table sizes differ between " + options.from + " and " + options.to +
                     "; they are fixed when a chip starts: give --tcam, or the same hardware lines");
    }
    readPackets();
    metBlock_.resize(packets_.size(), false);
    judgeBefore(old_, oldVerdicts_);
    judgeBefore(new_, newVerdicts_);
  }

  int run() {
    const unsigned spare = new_.numChips > old_.numChips ? new_.numChips - old_.numChips : 0;
    Session session(old_, options_, true, spare);
    session_ = &session;
    in_ = ports(session);
    const uint64_t writesBefore = session.system().numWrites();
    rowsPeak_ = rowsInUse();
    session.system().afterWriteIs([this, writesBefore](const sim::Call& call) {
      write_ = session_->system().numWrites() - writesBefore;
      call_ = &call;
      rowsPeak_ = std::max(rowsPeak_, rowsInUse());
      betweenWrites();
    });
    const agent::ApplyResult result = session.agent().apply(new_);
    session.system().afterWriteIs({});
    call_ = nullptr;
    if (!result.ok) {
      std::string message = options_.to + " does not fit beside " + options_.from + "; nothing was written";
      for (const std::string& error : result.errors) {
        message += "\n  " + error;
      }
      throw Exit(exitNo, message);
    }
    session.attachPorts();
    while (next_ < packets_.size()) {
      judgeNext();
    }
    report(result);
    return findings_.empty() ? exitDone : exitNo;
  }

private:
  struct Ports {
    PortRef in;
    std::optional<PortRef> out;
    const PortRef* outPtr() const { return out ? &*out : nullptr; }
  };

  void readPackets() {
    packet::CaptureReader capture(options_.pcap);
    packet::Frame frame;
    while (capture.next(frame)) {
      packets_.push_back(capture.dissect(frame));
    }
  }

  Ports ports(Session& session) {
    Ports ports{options_.in.empty() ? session.onlyIngressPort() : session.port(options_.in, "--in"),
                std::nullopt};
    if (!options_.out.empty()) {
      ports.out = session.port(options_.out, "--out");
    }
    return ports;
  }

  std::optional<uint16_t> vlan() const {
    return options_.vlan == 0 ? std::nullopt : std::optional<uint16_t>(static_cast<uint16_t>(options_.vlan));
  }

  // What each configuration says by itself, on a switch of its own.
  void judgeBefore(const agent::Config& config, std::vector<bool>& verdicts) {
    Session session(config, options_);
    const Ports ports = this->ports(session);
    for (const packet::Packet& packet : packets_) {
      verdicts.push_back(session.judge(packet, ports.in, ports.outPtr(), vlan()).permit());
    }
  }

  uint32_t rowsInUse() const {
    uint32_t rows = 0;
    for (const auto& [number, device] : session_->system().devices()) {
      for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
        const sim::TcamTable& tcam = *device->tcam(table.table);
        rows += tcam.numValid() - (tcam.numRows() == 0 ? 0 : 1); // the default row is no list's
      }
    }
    return rows;
  }

  void betweenWrites() {
    if (options_.every) {
      for (std::size_t i = 0; i < packets_.size(); ++i) {
        classify(i, session_->judge(packets_[i], in_.in, in_.outPtr(), vlan(), false));
      }
    }
    if (next_ < packets_.size()) {
      judgeNext();
    }
  }

  void judgeNext() {
    const std::size_t i = next_++;
    const sim::Verdict verdict = session_->judge(packets_[i], in_.in, in_.outPtr(), vlan());
    for (const sim::LookupResult& lookup : verdict.lookups()) {
      hits_.hit(ownerOf(*session_, lookup, in_.in, in_.outPtr()));
    }
    const Is is = classify(i, verdict);
    permit_ += verdict.permit() ? 1 : 0;
    if (options_.json) {
      std::cout << dump(Json{{"packet", i + 1},
                             {"verdict", verdict.permit() ? "permit" : "deny"},
                             {"is", is == Is::old       ? "old"
                                    : is == Is::fresh   ? "new"
                                    : is == Is::blocked ? "blocked"
                                                        : "neither"}})
                << '\n';
    }
  }

  Is classify(std::size_t i, const sim::Verdict& verdict) {
    const bool permit = verdict.permit();
    if (metBlock(verdict)) {
      metBlock_[i] = true;
      if (!permit) {
        return Is::blocked;
      }
    }
    if (permit == oldVerdicts_[i]) {
      return Is::old;
    }
    if (permit == newVerdicts_[i]) {
      return Is::fresh;
    }
    find(i, verdict);
    return Is::neither;
  }

  // Names the lookup that decided: the first that drops, or the last one when all let it pass.
  void find(std::size_t i, const sim::Verdict& verdict) {
    Finding finding;
    finding.write = write_;
    finding.call = call_ == nullptr ? "after the last write" : call_->text();
    finding.packet = i + 1;
    finding.verdict = verdict.permit();
    finding.old = oldVerdicts_[i];
    finding.fresh = newVerdicts_[i];
    for (const sim::LookupResult& lookup : verdict.lookups()) {
      finding.table = stringValue(tcamType(lookup.table)).charPtr();
      finding.row = isHit(lookup) ? std::optional<uint32_t>(lookup.row) : std::nullopt;
      if (!lookup.forward) {
        break;
      }
    }
    findings_.push_back(finding);
  }

  static const char* word(bool permit) { return permit ? "permit" : "deny"; }

  std::vector<Hits::Line> lines() const {
    std::vector<std::shared_ptr<agent::AggregatedAcl>> lists;
    std::vector<agent::Direction> directions;
    for (const auto& [name, generation] : session_->agent().registry().all()) {
      if (const auto acl = session_->agent().acl(agent::aclKey(name, generation.generation))) {
        lists.push_back(acl);
        directions.push_back(name.direction);
      }
    }
    return hits_.lines(lists, directions);
  }

  void report(const agent::ApplyResult& result) {
    const uint64_t packets = packets_.size();
    const auto blocked = std::count(metBlock_.begin(), metBlock_.end(), true);
    if (options_.json) {
      Json findings = Json::array();
      for (const Finding& finding : findings_) {
        findings.push_back({{"write", finding.write},
                            {"call", finding.call},
                            {"packet", finding.packet},
                            {"table", finding.table},
                            {"row", finding.row ? Json(*finding.row) : Json(nullptr)},
                            {"verdict", word(finding.verdict)},
                            {"old", word(finding.old)},
                            {"new", word(finding.fresh)}});
      }
      std::cout << dump(Json{{"summary",
                              {{"writes", write_},
                               {"packets", packets},
                               {"permit", permit_},
                               {"deny", packets - permit_},
                               {"blocked", blocked},
                               {"rowsStaged", result.rowsStaged},
                               {"rowsRetired", result.rowsRetired},
                               {"rowsPeak", rowsPeak_},
                               {"lines", linesJson(lines())},
                               {"findings", findings}}}})
                << '\n';
      return;
    }
    std::cout << bold(options_.from + " -> " + options_.to) << "\n"
              << "  " << write_ << " writes to the chip; " << result.rowsStaged << " rows staged, "
              << result.rowsRetired << " retired, at most " << rowsPeak_ << " in use\n"
              << "  " << packets << " packets, one between any two writes: " << permit_ << " permitted, "
              << packets - permit_ << " denied, " << blocked << " met a blocked interface\n";
    if (findings_.empty()) {
      std::cout << "  "
                << green("every verdict was the old one, the new one, or the drop of a blocked interface")
                << "\n";
      return;
    }
    std::cout << "  " << red(std::to_string(findings_.size()) + " verdicts were neither") << "\n";
    for (std::size_t i = 0; i < findings_.size() && i < findingsShown; ++i) {
      const Finding& finding = findings_[i];
      std::cout << "    write " << finding.write << " (" << finding.call << "): packet " << finding.packet
                << " " << packet::toText(packets_[finding.packet - 1]) << ": " << word(finding.verdict)
                << ", old " << word(finding.old) << ", new " << word(finding.fresh) << ", " << finding.table
                << " row " << (finding.row ? std::to_string(*finding.row) : "none") << "\n";
    }
  }

  const UpdateOptions& options_;
  agent::Config old_;
  agent::Config new_;
  std::vector<packet::Packet> packets_;
  std::vector<bool> oldVerdicts_;
  std::vector<bool> newVerdicts_;
  Session* session_ = nullptr;
  Ports in_;
  const sim::Call* call_ = nullptr;
  uint64_t write_ = 0;
  std::size_t next_ = 0;
  uint64_t permit_ = 0;
  std::vector<bool> metBlock_; // by packet
  uint32_t rowsPeak_ = 0;
  Hits hits_;
  std::vector<Finding> findings_;
};

} // namespace

void addUpdate(CLI::App& program, Run& run) {
  auto options = std::make_shared<UpdateOptions>();
  CLI::App* command =
      program.add_subcommand("update", "Change a configuration while packets flow, and watch them");
  command->add_option("OLD", options->from, "The configuration in force")->required();
  command->add_option("NEW", options->to, "The configuration to change to")->required();
  command->add_option("--pcap", options->pcap, "The packets: one is judged between any two writes")
      ->required();
  command->add_option("--in", options->in, "The port that packets enter");
  command->add_option("--out", options->out, "The port that packets leave by: adds the egress lookups");
  command->add_option("--vlan", options->vlan, "The VLAN of frames without a tag")
      ->check(CLI::Range(1, 4094));
  command->add_flag("--every", options->every, "Also judge every packet of the capture after every write");
  addCommonOptions(*command, *options);
  command->footer(
      "Example:\n"
      "  xpacl update old.conf new.conf --in Gi1/0/1 --pcap lan.pcap\n\n"
      "Exit status 1: some verdict was neither the old one, nor the new one, nor the drop of a blocked "
      "interface; or the change does not fit.");
  command->callback([options, &run] { run = [options] { return Update(*options).run(); }; });
}

} // namespace tool
