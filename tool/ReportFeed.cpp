#include "tool/ReportFeed.h"

#include "tool/Command.h"

namespace tool {

void addFeedOptions(Command command, FeedOptions& options) {
  command.option("--pcap", options.pcap, "Judge the packets of this capture");
  command.option("--in", options.in,
                 "The port that they enter; may be left out when one interface has an ingress list");
  command.option("--out", options.out, "The port that they leave by: adds the egress lookups");
  command.option("--vlan", options.vlan, "The VLAN of frames without a tag").range(1, 4094);
}

void checkFeedOptions(const FeedOptions& options) {
  if (options.pcap.empty() && (!options.in.empty() || !options.out.empty() || options.vlan != 0)) {
    throw Exit(exitBadInput, "--in, --out and --vlan say where packets go; give them with --pcap");
  }
}

CaptureFeed::CaptureFeed(Session& session, const FeedOptions& options)
    : session_(session), options_(options),
      in_(options.in.empty() ? session.onlyIngressPort() : session.port(options.in, "--in")),
      capture_(std::make_unique<packet::CaptureReader>(options.pcap)) {
  if (!options.out.empty()) {
    out_ = session.port(options.out, "--out");
  }
}

bool CaptureFeed::advance() {
  if (!capture_->next(frame_)) {
    return false;
  }
  const PortRef* const out = out_ ? &*out_ : nullptr;
  const std::optional<uint16_t> vlan =
      options_.vlan == 0 ? std::nullopt : std::optional(static_cast<uint16_t>(options_.vlan));
  const sim::Verdict verdict = session_.judge(capture_->dissect(frame_), in_, out, vlan);
  ++counts_.packets;
  counts_.permit += verdict.permit() ? 1 : 0;
  for (const sim::LookupResult& lookup : verdict.lookups()) {
    hits_.hit(ownerOf(session_, lookup, in_, out));
    if (isHit(lookup)) {
      const XpAcl::TcamType table = tcamType(lookup.table);
      ++rows_[{chipOf(table, in_, out), table, lookup.row}];
    }
  }
  return true;
}

void CaptureFeed::rewind() {
  capture_ = std::make_unique<packet::CaptureReader>(options_.pcap);
}

uint64_t CaptureFeed::rowHits(uint8_t chip, XpAcl::TcamType table, uint32_t row) const {
  const auto found = rows_.find({chip, table, row});
  return found == rows_.end() ? 0 : found->second;
}

} // namespace tool
