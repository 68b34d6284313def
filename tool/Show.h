#pragma once

#include "tool/Common.h"
#include "tool/Session.h"

#include <cstddef>
#include <string>
#include <vector>

// What the chip and the driver hold, in words: the `show` command, and the show step of scripts.

namespace tool {

struct ShowOptions : CommonOptions {
  std::string config;
  std::string what;
  std::vector<std::string> arguments;
  unsigned chip = 0;
  // show counters, show openconfig: packets to send first
  std::string pcap;
  std::string in;
  std::string out;
  unsigned vlan = 0;
  bool byHits = false;
  // show trace: the last statements
  std::size_t last = 0; // 0: all that the ring has
};

// The arguments and options behind the configuration.
void addShowOptions(Command command, ShowOptions& options);
// Prints to standard output. Ends the command with status 2 for arguments that do not fit.
void show(Session& session, const ShowOptions& options);

// Judges the packets of the capture that the options name.
void sendCapture(Session& session, const ShowOptions& options);

// The running state as a document of the OpenConfig models, with the packets that each entry matched.
void showOpenConfig(Session& session, const ShowOptions& options);

// Hits of every line, read from the chips' counters.
void showCounters(Session& session, const ShowOptions& options);

} // namespace tool
