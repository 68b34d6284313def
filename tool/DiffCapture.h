#pragma once

#include "agent/config/ConfigModel.h"
#include "packet/Packet.h"
#include "tool/Common.h"
#include "verify/PacketSet.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// How many packets and flows of a capture would fare differently, interface by interface.

namespace tool {

// Both permitted sets of one family at an interface; of packets that are not of the family nothing is asked.
struct FamilySets {
  verify::PacketSet before;
  verify::PacketSet after;
};

// One direction of one interface, with the sets of the families that have a list before or after.
struct CapturePlace {
  std::string interface;
  agent::Direction direction = agent::Direction::in;
  agent::PortSet carried;  // VLANs whose frames pass; all of them where packets leave, routed perhaps
  uint16_t vlanBefore = 1; // of frames without a tag
  uint16_t vlanAfter = 1;
  std::vector<std::pair<agent::Family, FamilySets>> families;
};

// Packets with the same addresses, protocol and ports, one way; frames without IP: with the same MAC
// addresses and EtherType.
using Flow =
    std::tuple<packet::L3, std::array<uint8_t, 16>, std::array<uint8_t, 16>, uint16_t, uint16_t, uint16_t>;
Flow flowOf(const packet::Packet& packet);

struct CaptureCount {
  uint64_t seen = 0; // packets that can pass here
  uint64_t denied = 0;
  uint64_t permitted = 0;
  std::set<Flow> deniedFlows; // with a packet that changes so
  std::set<Flow> permittedFlows;
};

struct CaptureAnswer {
  uint64_t packets = 0;
  std::size_t flows = 0;
  std::vector<CaptureCount> counts; // place by place
};

// Judges every packet of the capture as if it passed at each place: it is permitted where every family's list
// permits it. Ends the command with status 2 when the file cannot be read.
CaptureAnswer countCapture(const std::string& file, const std::vector<CapturePlace>& places);

Json toJson(const CaptureAnswer& answer, const std::vector<CapturePlace>& places);
std::string captureText(const CaptureAnswer& answer, const std::vector<CapturePlace>& places);

} // namespace tool
