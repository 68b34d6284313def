#pragma once

#include "packet/Packet.h"
#include "tool/Common.h"

#include <cstdint>
#include <string>
#include <vector>

// One packet's way through the tables of a running switch.

namespace tool {

class Session;

struct TraceOptions : CommonOptions {
  std::string config; // of the command alone
  std::string in;
  std::string out;
  std::string pcap;
  uint64_t number = 0;
  unsigned vlan = 0;
  std::vector<std::string> words; // of the packet's text
};

// Everything but CONFIG and the common options.
void addTraceOptions(Command command, TraceOptions& options);

// The packet, from its text or its capture. Ends the command with status 2 when there is none.
packet::Packet packetOf(const TraceOptions& options);

// Sends the packet and prints its way on standard output. Ends the command with status 2 when there is no
// such port or packet.
void trace(Session& session, const TraceOptions& options);

} // namespace tool
