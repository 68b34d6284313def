#pragma once

#include "tool/Common.h"
#include "tool/Hits.h"

#include <cstdint>
#include <string>
#include <vector>

// Packets of captures and header traces, judged one after the other by a running switch.

namespace tool {

class Session;

struct ReplayOptions : CommonOptions {
  std::string config; // of the command alone
  std::string pcap;
  std::string headers;
  std::vector<std::string> in; // a port, or PORT=FILE for each capture
  std::string out;
  std::string write;
  unsigned vlan = 0;
  bool brief = false; // a report without the lines
};

struct ReplayResult {
  uint64_t packets = 0;
  uint64_t permit = 0;
  uint64_t notCarried = 0; // dropped because the port does not carry the frame's VLAN
  uint64_t blocked = 0;    // met a blocked interface
  std::vector<Hits::Line> lines;

  uint64_t deny() const { return packets - permit; }
};

// What --in says: "PORT", or "PORT=FILE".
struct ReplayInput {
  std::string port;
  std::string file;
};
ReplayInput replayInput(const std::string& text);

// Everything but CONFIG and the common options.
void addReplayOptions(Command command, ReplayOptions& options);

// Ends the command with status 2 for options that contradict each other.
void checkReplayOptions(const ReplayOptions& options);

// Judges every packet and prints the report on standard output. Captures are merged by time stamp, each kept
// in its own order; of equal times the earlier --in goes first. Memory does not grow with the captures.
// Ends the command with status 2 for ports and files that are not there. `everyPacket`: with --json a line
// for each packet comes before the summary.
ReplayResult replay(Session& session, const ReplayOptions& options, bool everyPacket);

} // namespace tool
