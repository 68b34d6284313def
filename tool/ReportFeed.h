#pragma once

#include "packet/Capture.h"
#include "tool/Hits.h"
#include "tool/Session.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

// A capture, packet by packet through a running switch, with everything added up that reports and live views
// show of it.

namespace tool {

struct FeedOptions {
  std::string pcap;
  std::string in;
  std::string out;
  unsigned vlan = 0; // of frames without a tag; 0: that of the port
};

// --pcap, --in, --out and --vlan.
void addFeedOptions(Command command, FeedOptions& options);
// Ends the command with status 2 when --in, --out or --vlan come without --pcap.
void checkFeedOptions(const FeedOptions& options);

struct FeedCounts {
  uint64_t packets = 0;
  uint64_t permit = 0;
  uint64_t deny() const { return packets - permit; }
};

class CaptureFeed {
public:
  // Opens the capture and finds the ports. Ends the command with status 2 when one of them is not there.
  CaptureFeed(Session& session, const FeedOptions& options);

  // Judges the next packet; false at the end of the capture.
  bool advance();
  // Begins the capture again; everything that was counted stays.
  void rewind();

  const FeedCounts& counts() const { return counts_; }
  const Hits& hits() const { return hits_; }
  const PortRef& in() const { return in_; }
  const std::optional<PortRef>& out() const { return out_; }
  // Hits of one row, the default row included.
  uint64_t rowHits(uint8_t chip, XpAcl::TcamType table, uint32_t row) const;
  // When the packet that was judged last was captured, in nanoseconds since 1970-01-01 UTC.
  uint64_t timeNs() const { return frame_.timeNs; }

private:
  using Row = std::tuple<uint8_t, XpAcl::TcamType, uint32_t>;

  Session& session_;
  const FeedOptions& options_;
  PortRef in_;
  std::optional<PortRef> out_;
  std::unique_ptr<packet::CaptureReader> capture_;
  packet::Frame frame_;
  FeedCounts counts_;
  Hits hits_;
  std::map<Row, uint64_t> rows_;
};

} // namespace tool
