#pragma once

#include "agent/config/ConfigModel.h"
#include "tool/Common.h"
#include "tool/Hits.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A running switch changes its configuration while packets flow.

namespace tool {

class Session;

struct UpdateOptions : CommonOptions {
  std::string from; // in reports, and of the command alone
  std::string to;
  std::string pcap;
  std::string in;
  std::string out;
  unsigned vlan = 0;
  bool every = false;
};

struct UpdateResult {
  uint64_t packets = 0;
  uint64_t permit = 0;
  uint64_t blocked = 0; // met a blocked interface
  std::vector<Hits::Line> lines;
  std::size_t findings = 0;
};

// Everything but the configurations and the common options.
void addUpdateOptions(Command command, UpdateOptions& options);

// Tells the tables that differ in size, "ingressV4, egressV4"; empty when the two can follow each other: the
// sizes are fixed when a chip starts.
std::string otherSizes(const agent::Config& running, const agent::Config& next);

// Changes the session to `config`, one packet of the capture between any two writes, and prints the report on
// standard output. Ends the command with status 1 when the change does not fit. `everyPacket`: with --json a
// line for each packet comes before the summary.
UpdateResult update(Session& session, const agent::Config& config, const UpdateOptions& options,
                    bool everyPacket);

} // namespace tool
