#include "tool/Replay.h"

#include "packet/Capture.h"
#include "packet/HeaderTrace.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"
#include "tool/Session.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace tool {

namespace {

// One stream of packets into one port: a capture or a header trace. It holds its next packet.
class PacketSource {
public:
  PacketSource(PortRef in, std::unique_ptr<packet::CaptureReader> capture)
      : in_(std::move(in)), capture_(std::move(capture)) {}
  PacketSource(PortRef in, std::unique_ptr<packet::HeaderTraceReader> trace)
      : in_(std::move(in)), trace_(std::move(trace)) {}

  // Takes the next packet, unless it is at the end.
  void advance() {
    if (trace_) {
      atEnd_ = !trace_->next(packet_);
      return;
    }
    atEnd_ = !capture_->next(frame_);
    if (!atEnd_) {
      packet_ = capture_->dissect(frame_);
    }
  }

  bool atEnd() const { return atEnd_; }
  const PortRef& in() const { return in_; }
  const packet::Packet& packet() const { return packet_; }
  const packet::Frame& frame() const { return frame_; }
  const packet::CaptureReader* capture() const { return capture_.get(); }

private:
  PortRef in_;
  std::unique_ptr<packet::CaptureReader> capture_;
  std::unique_ptr<packet::HeaderTraceReader> trace_;
  packet::Packet packet_;
  packet::Frame frame_;
  bool atEnd_ = false;
};

// Several streams as one, by time stamp.
class PacketMerge {
public:
  void add(PacketSource source) { sources_.push_back(std::move(source)); }
  const std::vector<PacketSource>& sources() const { return sources_; }

  // The stream whose packet is next, valid until the next call; null at the end.
  const PacketSource* next() {
    if (last_ == nullptr) {
      for (PacketSource& source : sources_) {
        source.advance();
      }
    } else {
      last_->advance();
    }
    last_ = nullptr;
    for (PacketSource& source : sources_) {
      if (!source.atEnd() && (last_ == nullptr || source.frame().timeNs < last_->frame().timeNs)) {
        last_ = &source;
      }
    }
    return last_;
  }

private:
  std::vector<PacketSource> sources_;
  PacketSource* last_ = nullptr; // null before the first packet, and at the end
};

bool notCarried(const sim::Verdict& verdict) {
  return verdict.fate == sim::Fate::vlanNotCarried || verdict.fate == sim::Fate::outVlanNotCarried;
}

class Replay {
public:
  Replay(Session& session, const ReplayOptions& options, bool everyPacket)
      : session_(session), options_(options), everyPacket_(everyPacket && options.json),
        burst_(session.system()), waiting_(burstSize()) {
    checkReplayOptions(options);
    openSources();
    if (!options.out.empty()) {
      out_ = session_.port(options.out, "--out");
    }
    if (options.vlan != 0) {
      vlan_ = static_cast<uint16_t>(options.vlan);
    }
  }

  ReplayResult run() {
    std::optional<packet::CaptureWriter> writer = openWriter();
    judgeAll(writer ? &*writer : nullptr);
    if (writer) {
      writer->close();
    }
    Hits hits;
    rowHits_.addTo(session_, hits);
    result_.lines = summaryLines(hits);
    if (options_.json) {
      printSummary();
    } else {
      printReport();
    }
    return std::move(result_);
  }

private:
  // Packets judged together. One, when each is printed: somebody may be watching a pipe.
  std::size_t burstSize() const { return everyPacket_ ? 1 : 256; }

  struct Judged { // a packet that waits for its verdict
    const PortRef* in = nullptr;
    sim::Verdict verdict;
    packet::Frame frame; // for the writer, with the octets at
    std::size_t bytesAt = 0;
  };

  // Packets before one that cannot be read are judged like all others. Other errors, of memory say, end the
  // replay at once, as the burst may not be whole.
  void judgeAll(packet::CaptureWriter* writer) {
    Progress progress("packets judged:");
    std::exception_ptr unreadable;
    for (bool more = true; more;) {
      try {
        more = readBurst(writer != nullptr);
      } catch (const std::runtime_error&) { // of a reader
        unreadable = std::current_exception();
        more = false;
      }
      burst_.finish();
      for (std::size_t i = 0; i < numWaiting_; ++i) {
        Judged& judged = waiting_[i];
        count(judged.verdict, *judged.in);
        if (writer != nullptr && judged.verdict.permit()) {
          judged.frame.bytes = bytes_.data() + judged.bytesAt;
          writer->write(judged.frame);
        }
      }
      progress.at(result_.packets);
    }
    if (unreadable) {
      std::rethrow_exception(unreadable);
    }
  }

  // False at the end.
  bool readBurst(bool keepFrames) {
    bytes_.clear();
    for (numWaiting_ = 0; numWaiting_ < waiting_.size(); ++numWaiting_) {
      const PacketSource* const source = merge_.next();
      if (source == nullptr) {
        return false;
      }
      Judged& judged = waiting_[numWaiting_];
      judged.in = &source->in();
      if (keepFrames) {
        judged.frame = source->frame();
        judged.bytesAt = bytes_.size();
        bytes_.insert(bytes_.end(), judged.frame.bytes, judged.frame.bytes + judged.frame.capLen);
      }
      burst_.add(source->packet(), session_.ingress(source->in(), out_ ? &*out_ : nullptr, vlan_),
                 judged.verdict);
    }
    return true;
  }

  void openSources() {
    for (const std::string& text : options_.in) {
      const ReplayInput input = replayInput(text);
      if (!input.file.empty()) {
        merge_.add({session_.port(input.port, "--in"), std::make_unique<packet::CaptureReader>(input.file)});
      }
    }
    if (merge_.sources().empty()) {
      PortRef in =
          options_.in.empty() ? session_.onlyIngressPort() : session_.port(options_.in.front(), "--in");
      if (options_.headers.empty()) {
        merge_.add({std::move(in), std::make_unique<packet::CaptureReader>(options_.pcap)});
      } else {
        merge_.add({std::move(in), std::make_unique<packet::HeaderTraceReader>(options_.headers)});
      }
    }
  }

  std::optional<packet::CaptureWriter> openWriter() const {
    if (options_.write.empty()) {
      return std::nullopt;
    }
    const packet::CaptureReader* const first = merge_.sources().front().capture();
    if (first == nullptr) {
      throw Exit(exitBadInput,
                 "--write keeps frames, and a header trace has none: give a capture with --pcap");
    }
    bool nanoseconds = false;
    for (const PacketSource& source : merge_.sources()) {
      if (source.capture()->dlt() != first->dlt()) {
        throw Exit(exitBadInput, "--write makes one capture, but " + first->name() + " and " +
                                     source.capture()->name() +
                                     " are of different link types; replay them one by one");
      }
      nanoseconds = nanoseconds || source.capture()->nanoseconds();
    }
    return packet::CaptureWriter(options_.write, first->dlt(), nanoseconds);
  }

  bool severalPorts() const { return merge_.sources().size() > 1; }

  void count(const sim::Verdict& verdict, const PortRef& in) {
    ++result_.packets;
    result_.permit += verdict.permit() ? 1 : 0;
    result_.notCarried += notCarried(verdict) ? 1 : 0;
    result_.blocked += metBlock(verdict) ? 1 : 0;
    for (const sim::LookupResult& lookup : verdict.lookups()) {
      rowHits_.hit(lookup, in, out_ ? &*out_ : nullptr);
    }
    if (everyPacket_) {
      printPacket(verdict, in);
    }
  }

  void printPacket(const sim::Verdict& verdict, const PortRef& in) const {
    Json lookups = Json::array();
    for (const sim::LookupResult& lookup : verdict.lookups()) {
      lookups.push_back(lookupJson(lookup, ownerOf(session_, lookup, in, out_ ? &*out_ : nullptr)));
    }
    Json json{{"packet", result_.packets}, {"verdict", permitWord(verdict.permit())}, {"lookups", lookups}};
    if (severalPorts()) {
      json["in"] = in.name;
    }
    if (notCarried(verdict)) {
      json["dropped"] = sim::fateText(verdict.fate);
    }
    printJson("replay", std::move(json));
  }

  // The lists of the ports and of their VLANs stand in the summary whether they were hit or not.
  std::vector<Hits::Line> summaryLines(const Hits& hits) const {
    std::vector<std::shared_ptr<agent::AggregatedAcl>> lists;
    std::vector<agent::Direction> directions;
    const auto add = [&](Ovnet::IntfId intf, agent::Direction direction) {
      const auto attached = session_.agent().attachments().find({intf, agent::aclDirection(direction)});
      if (attached == session_.agent().attachments().end()) {
        return;
      }
      for (const Plex::AclKey& key : agent::members(attached->second)) {
        const auto list = session_.agent().acl(key);
        const auto known = std::find(lists.begin(), lists.end(), list);
        if (known == lists.end() ||
            directions[static_cast<std::size_t>(known - lists.begin())] != direction) {
          lists.push_back(list);
          directions.push_back(direction);
        }
      }
    };
    const auto addPort = [&](const PortRef& port, agent::Direction direction) {
      add(port.intf, direction);
      for (const Bridging::VlanId vlan : session_.agent().portVlanVifStatus()->vlansOfIntf(port.intf)) {
        add(Ovnet::VlanIntfId::intfId(vlan), direction);
      }
    };
    for (const PacketSource& source : merge_.sources()) {
      addPort(source.in(), agent::Direction::in);
    }
    if (out_) {
      addPort(*out_, agent::Direction::out);
    }
    return hits.lines(lists, directions);
  }

  void printSummary() const {
    Json summary{{"packets", result_.packets}, {"permit", result_.permit}, {"deny", result_.deny()}};
    if (result_.notCarried != 0) {
      summary["vlanNotCarried"] = result_.notCarried;
    }
    if (result_.blocked != 0) {
      summary["blocked"] = result_.blocked;
    }
    summary["lines"] = linesJson(result_.lines);
    printJson("replay", {{"summary", summary}});
  }

  void printReport() const {
    std::string ports;
    for (const PacketSource& source : merge_.sources()) {
      ports += (ports.empty() ? "" : " and ") + source.in().name;
    }
    std::cout << bold(std::to_string(result_.packets)) << (result_.packets == 1 ? " packet" : " packets")
              << ", in " << ports << (out_ ? ", out " + out_->name : "") << ": "
              << green(std::to_string(result_.permit) + " permitted") << ", "
              << red(std::to_string(result_.deny()) + " denied") << "\n";
    if (result_.notCarried != 0) {
      std::cout << result_.notCarried << " of them were in a VLAN that the port does not carry\n";
    }
    if (result_.blocked != 0) {
      std::cout << result_.blocked << " of them met a blocked interface\n";
    }
    if (options_.brief) {
      return;
    }
    std::cout << "\n";
    if (result_.lines.empty()) {
      std::cout << "No list applies there, so everything passes.\n";
    } else {
      std::cout << linesText(result_.lines);
    }
  }

  Session& session_;
  const ReplayOptions& options_;
  const bool everyPacket_;
  PacketMerge merge_;
  std::optional<PortRef> out_;
  std::optional<uint16_t> vlan_;
  ReplayResult result_;
  RowHits rowHits_;
  sim::Burst burst_;
  std::vector<Judged> waiting_;
  std::size_t numWaiting_ = 0;
  std::vector<uint8_t> bytes_; // of the frames that wait
};

} // namespace

ReplayInput replayInput(const std::string& text) {
  const std::size_t equals = text.find('=');
  return equals == std::string::npos ? ReplayInput{text, ""}
                                     : ReplayInput{text.substr(0, equals), text.substr(equals + 1)};
}

void checkReplayOptions(const ReplayOptions& options) {
  const auto pairs = static_cast<std::size_t>(
      std::count_if(options.in.begin(), options.in.end(),
                    [](const std::string& text) { return text.find('=') != std::string::npos; }));
  for (const std::string& text : options.in) {
    const ReplayInput input = replayInput(text);
    if (pairs != 0 && (input.port.empty() || input.file.empty())) {
      throw Exit(exitBadInput, "--in " + text + ": give each --in as PORT=FILE, the port and its capture");
    }
  }
  if (pairs == 0 && options.in.size() > 1) {
    throw Exit(exitBadInput, "several --in: give each as PORT=FILE, the port and its capture");
  }
  const int streams =
      (pairs != 0 ? 1 : 0) + (options.pcap.empty() ? 0 : 1) + (options.headers.empty() ? 0 : 1);
  if (streams != 1) {
    throw Exit(exitBadInput, "give the packets: either --pcap FILE (a capture) or --headers FILE (a header "
                             "trace) or --in PORT=FILE for each capture");
  }
}

void addReplayOptions(Command command, ReplayOptions& options) {
  command.option("--pcap", options.pcap, "A capture (pcap or pcapng; Ethernet, raw IP or Linux cooked)");
  command.option("--headers", options.headers, "A ClassBench header trace instead of a capture");
  command
      .option("--in", options.in,
              "The port that packets enter; may be left out when one interface has an ingress list. "
              "PORT=FILE, also repeated: captures that enter at several ports, merged by time stamp")
      .repeated()
      .valueName("PORT[=FILE]");
  command.option("--out", options.out, "The port that packets leave by: adds the egress lookups");
  command.option("--vlan", options.vlan, "The VLAN of frames without a tag on a port without an access VLAN")
      .range(1, 4094);
  command.option("--write", options.write, "Keep the permitted packets in this pcap file");
  command.flag("--brief", options.brief, "Print the totals and not the hits of every line");
}

ReplayResult replay(Session& session, const ReplayOptions& options, bool everyPacket) {
  return Replay(session, options, everyPacket).run();
}

void addReplay(Command program, Run& run) {
  auto options = std::make_shared<ReplayOptions>();
  const Command command = program.subcommand("replay", "Judge every packet of a capture by the chip's rows");
  command.option("CONFIG", options->config, "The configuration").required();
  addReplayOptions(command, *options);
  addCommonOptions(command, *options);
  command.footer(
      "Examples:\n"
      "  xpacl replay campus.conf --pcap lan.pcap --in GigabitEthernet1/0/1\n"
      "  xpacl replay campus.conf --pcap lan.pcap --in Gi1/0/1 --out Gi1/0/3 --write permitted.pcap\n"
      "  xpacl replay campus.conf --in Gi1/0/1=wing.pcap --in Gi1/0/4=core.pcap\n"
      "  xpacl replay filters --headers trace --json      a ClassBench set and its trace");
  command.runs(run, [options] {
    checkReplayOptions(*options);
    Session& session = lastingSession(loadConfig(options->config, *options), *options);
    replay(session, *options, true);
    return exitDone;
  });
}

} // namespace tool
