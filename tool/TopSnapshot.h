#pragma once

#include "tool/Hits.h"
#include "tool/ReportFeed.h"
#include "tool/Session.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// What `xpacl top` shows at one moment.

namespace tool {

struct TopTable {
  uint8_t chip = 0;
  std::string table;
  uint32_t rows = 0; // that lists can take
  uint32_t used = 0;
};

struct TopLine {
  Hits::Line line;
  double rate = 0; // hits a second
};

struct TopSnapshot {
  double seconds = 0; // that the packets so far took, in their own time
  bool ended = false; // all packets of the capture were judged
  FeedCounts counts;
  // Of the time that rates are for, in packets a second. 0 when no time passed.
  double permitRate = 0;
  double denyRate = 0;
  std::vector<TopTable> tables; // those that exist
  std::vector<TopLine> lines;   // those that were ever hit, the hottest first, then by hits
};

// Takes snapshots one after the other; rates are those since the one before. `seconds`: the time of the
// packets since the first. The first snapshot's rates are since the start.
class TopSampler {
public:
  TopSampler(Session& session, const CaptureFeed& feed) : session_(session), feed_(feed) {}
  TopSnapshot sample(double seconds, bool ended);

private:
  std::vector<TopTable> tables();

  Session& session_;
  const CaptureFeed& feed_;
  double lastSeconds_ = 0;
  FeedCounts lastCounts_;
  std::vector<std::pair<std::string, uint64_t>> lastHits_;
};

Json topJson(const TopSnapshot& snapshot, std::size_t maxLines);

// At most `height` lines (0: no limit) of at most `width` columns (0: no limit).
std::string topText(const TopSnapshot& snapshot, const std::string& title, std::size_t width,
                    std::size_t height);

} // namespace tool
