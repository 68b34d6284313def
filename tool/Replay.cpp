#include "packet/Capture.h"
#include "packet/HeaderTrace.h"

#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/Hits.h"
#include "tool/Session.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace tool {

namespace {

struct ReplayOptions : CommonOptions {
  std::string config;
  std::string pcap;
  std::string headers;
  std::string in;
  std::string out;
  std::string write;
  unsigned vlan = 0;
};

// Where packets come from: a capture or a header trace.
class PacketSource {
public:
  explicit PacketSource(const ReplayOptions& options) {
    if (!options.pcap.empty()) {
      capture_ = std::make_unique<packet::CaptureReader>(options.pcap);
    } else {
      trace_ = std::make_unique<packet::HeaderTraceReader>(options.headers);
    }
  }

  bool next(packet::Packet& packet) {
    if (trace_) {
      return trace_->next(packet);
    }
    if (!capture_->next(frame_)) {
      return false;
    }
    packet = capture_->dissect(frame_);
    return true;
  }

  const packet::Frame& frame() const { return frame_; }
  const packet::CaptureReader* capture() const { return capture_.get(); }

private:
  std::unique_ptr<packet::CaptureReader> capture_;
  std::unique_ptr<packet::HeaderTraceReader> trace_;
  packet::Frame frame_;
};

struct Totals {
  uint64_t packets = 0;
  uint64_t permit = 0;
  uint64_t notCarried = 0; // dropped because the port does not carry the frame's VLAN
};

bool notCarried(const sim::Verdict& verdict) {
  return verdict.fate == sim::Fate::vlanNotCarried || verdict.fate == sim::Fate::outVlanNotCarried;
}

class Replay {
public:
  explicit Replay(const ReplayOptions& options)
      : options_(options), session_(loadConfig(options.config, options), options),
        in_(options.in.empty() ? session_.onlyIngressPort() : session_.port(options.in, "--in")) {
    if (!options.out.empty()) {
      out_ = session_.port(options.out, "--out");
    }
    if (options.vlan != 0) {
      vlan_ = static_cast<uint16_t>(options.vlan);
    }
  }

  int run() {
    PacketSource source(options_);
    std::unique_ptr<packet::CaptureWriter> writer;
    if (!options_.write.empty()) {
      if (source.capture() == nullptr) {
        throw Exit(exitBadInput,
                   "--write keeps frames, and a header trace has none: give a capture with --pcap");
      }
      writer = std::make_unique<packet::CaptureWriter>(options_.write, source.capture()->dlt(),
                                                       source.capture()->nanoseconds());
    }
    Progress progress("packets judged:");
    packet::Packet packet;
    while (source.next(packet)) {
      const sim::Verdict verdict = session_.judge(packet, in_, out_ ? &*out_ : nullptr, vlan_);
      count(verdict);
      if (writer && verdict.permit()) {
        writer->write(source.frame());
      }
      progress.at(totals_.packets);
    }
    if (writer) {
      writer->close();
    }
    finish();
    return exitDone;
  }

private:
  void count(const sim::Verdict& verdict) {
    ++totals_.packets;
    totals_.permit += verdict.permit() ? 1 : 0;
    totals_.notCarried += notCarried(verdict) ? 1 : 0;
    Json lookups = Json::array();
    for (const sim::LookupResult& lookup : verdict.lookups()) {
      const agent::RowOwner* const owner = ownerOf(session_, lookup, in_, out_ ? &*out_ : nullptr);
      hits_.hit(owner);
      if (options_.json) {
        lookups.push_back(lookupJson(lookup, owner));
      }
    }
    if (options_.json) {
      Json json{{"packet", totals_.packets},
                {"verdict", verdict.permit() ? "permit" : "deny"},
                {"lookups", lookups}};
      if (notCarried(verdict)) {
        json["dropped"] = sim::fateText(verdict.fate);
      }
      std::cout << dump(json) << '\n';
    }
  }

  // The lists of the two ports and of their VLANs stand in the summary whether they were hit or not.
  std::vector<Hits::Line> summaryLines() {
    std::vector<std::shared_ptr<agent::AggregatedAcl>> lists;
    std::vector<agent::Direction> directions;
    const auto add = [&](Ovnet::IntfId intf, agent::Direction direction) {
      const auto attached = session_.agent().attachments().find({intf, agent::aclDirection(direction)});
      if (attached == session_.agent().attachments().end()) {
        return;
      }
      for (const Plex::AclKey& key : agent::members(attached->second)) {
        lists.push_back(session_.agent().acl(key));
        directions.push_back(direction);
      }
    };
    const auto addVlan = [&](const PortRef& port, agent::Direction direction) {
      for (const Bridging::VlanId vlan : session_.agent().portVlanVifStatus()->vlansOfIntf(port.intf)) {
        add(Ovnet::VlanIntfId::intfId(vlan), direction);
      }
    };
    add(in_.intf, agent::Direction::in);
    addVlan(in_, agent::Direction::in);
    if (out_) {
      add(out_->intf, agent::Direction::out);
      addVlan(*out_, agent::Direction::out);
    }
    return hits_.lines(lists, directions);
  }

  void finish() {
    const std::vector<Hits::Line> lines = summaryLines();
    const uint64_t deny = totals_.packets - totals_.permit;
    if (options_.json) {
      Json summary{{"packets", totals_.packets}, {"permit", totals_.permit}, {"deny", deny}};
      if (totals_.notCarried != 0) {
        summary["vlanNotCarried"] = totals_.notCarried;
      }
      summary["lines"] = linesJson(lines);
      std::cout << dump(Json{{"summary", summary}}) << '\n';
      return;
    }
    std::cout << bold(std::to_string(totals_.packets)) << (totals_.packets == 1 ? " packet" : " packets")
              << ", in " << in_.name << (out_ ? ", out " + out_->name : "") << ": "
              << green(std::to_string(totals_.permit) + " permitted") << ", "
              << red(std::to_string(deny) + " denied") << "\n";
    if (totals_.notCarried != 0) {
      std::cout << totals_.notCarried << " of them were in a VLAN that the port does not carry\n";
    }
    std::cout << "\n";
    if (lines.empty()) {
      std::cout << "No list applies there, so everything passes.\n";
    } else {
      std::cout << linesText(lines);
    }
  }

  const ReplayOptions& options_;
  Session session_;
  PortRef in_;
  std::optional<PortRef> out_;
  std::optional<uint16_t> vlan_;
  Totals totals_;
  Hits hits_;
};

int runReplay(const ReplayOptions& options) {
  if (options.pcap.empty() == options.headers.empty()) {
    throw Exit(exitBadInput,
               "give the packets: either --pcap FILE (a capture) or --headers FILE (a header trace)");
  }
  return Replay(options).run();
}

} // namespace

void addReplay(CLI::App& program, Run& run) {
  auto options = std::make_shared<ReplayOptions>();
  CLI::App* command = program.add_subcommand("replay", "Judge every packet of a capture by the chip's rows");
  command->add_option("CONFIG", options->config, "The configuration")->required();
  command->add_option("--pcap", options->pcap,
                      "A capture (pcap or pcapng; Ethernet, raw IP or Linux cooked)");
  command->add_option("--headers", options->headers, "A ClassBench header trace instead of a capture");
  command->add_option("--in", options->in,
                      "The port that packets enter; may be left out when one interface has an ingress list");
  command->add_option("--out", options->out, "The port that packets leave by: adds the egress lookups");
  command
      ->add_option("--vlan", options->vlan,
                   "The VLAN of frames without a tag on a port without an access VLAN")
      ->check(CLI::Range(1, 4094));
  command->add_option("--write", options->write, "Keep the permitted packets in this pcap file");
  addCommonOptions(*command, *options);
  command->footer(
      "Examples:\n"
      "  xpacl replay campus.conf --pcap lan.pcap --in GigabitEthernet1/0/1\n"
      "  xpacl replay campus.conf --pcap lan.pcap --in Gi1/0/1 --out Gi1/0/3 --write permitted.pcap\n"
      "  xpacl replay filters --headers trace --json      a ClassBench set and its trace");
  command->callback([options, &run] { run = [options] { return runReplay(*options); }; });
}

} // namespace tool
