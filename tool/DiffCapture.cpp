#include "tool/DiffCapture.h"

#include "packet/Capture.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tool {

namespace {

bool sees(agent::Family family, const packet::Packet& packet) {
  switch (family) {
  case agent::Family::ipv4:
    return packet.l3 == packet::L3::ipv4;
  case agent::Family::ipv6:
    return packet.l3 == packet::L3::ipv6;
  case agent::Family::mac:
    return true;
  }
  return false;
}

bool carries(const CapturePlace& place, uint16_t vlan) {
  return vlan == 0 ||
         std::any_of(place.carried.begin(), place.carried.end(), [vlan](const agent::PortRange& range) {
           return vlan >= range.low && vlan <= range.high;
         });
}

void count(const CapturePlace& place, const packet::Packet& packet, const Flow& flow, CaptureCount& counted) {
  if (!carries(place, packet.vlan)) {
    return;
  }
  ++counted.seen;
  bool before = true;
  bool after = true;
  for (const auto& [family, sets] : place.families) {
    if (sees(family, packet)) {
      before = before && sets.before.contains(packet, packet.vlan != 0 ? packet.vlan : place.vlanBefore);
      after = after && sets.after.contains(packet, packet.vlan != 0 ? packet.vlan : place.vlanAfter);
    }
  }
  if (before && !after) {
    ++counted.denied;
    counted.deniedFlows.insert(flow);
  } else if (after && !before) {
    ++counted.permitted;
    counted.permittedFlows.insert(flow);
  }
}

} // namespace

Flow flowOf(const packet::Packet& packet) {
  if (packet.l3 != packet::L3::none) {
    return {packet.l3, packet.src, packet.dst, packet.protocol, packet.l4Src(), packet.l4Dst()};
  }
  std::array<uint8_t, 16> src{};
  std::array<uint8_t, 16> dst{};
  std::copy(packet.srcMac.begin(), packet.srcMac.end(), src.begin());
  std::copy(packet.dstMac.begin(), packet.dstMac.end(), dst.begin());
  return {packet.l3, src, dst, packet.etherType, uint16_t{0}, uint16_t{0}};
}

CaptureAnswer countCapture(const std::string& file, const std::vector<CapturePlace>& places) {
  CaptureAnswer answer;
  answer.counts.resize(places.size());
  std::set<Flow> flows;
  try {
    packet::CaptureReader capture(file);
    Progress progress("packets judged:");
    packet::Frame frame;
    while (capture.next(frame)) {
      const packet::Packet packet = capture.dissect(frame);
      const Flow flow = flowOf(packet);
      flows.insert(flow);
      for (std::size_t i = 0; i < places.size(); ++i) {
        count(places[i], packet, flow, answer.counts[i]);
      }
      progress.at(++answer.packets);
    }
  } catch (const packet::CaptureError& error) {
    throw Exit(exitBadInput, error.what());
  }
  answer.flows = flows.size();
  return answer;
}

Json toJson(const CaptureAnswer& answer, const std::vector<CapturePlace>& places) {
  Json json{{"packets", answer.packets}, {"flows", answer.flows}, {"places", Json::array()}};
  for (std::size_t i = 0; i < places.size(); ++i) {
    const CaptureCount& counted = answer.counts[i];
    json["places"].push_back(
        {{"interface", places[i].interface},
         {"direction", directionName(places[i].direction)},
         {"seen", counted.seen},
         {"permitToDeny", {{"packets", counted.denied}, {"flows", counted.deniedFlows.size()}}},
         {"denyToPermit", {{"packets", counted.permitted}, {"flows", counted.permittedFlows.size()}}}});
  }
  return json;
}

std::string captureText(const CaptureAnswer& answer, const std::vector<CapturePlace>& places) {
  std::vector<std::vector<std::string>> rows{
      {"INTERFACE", "DIRECTION", "SEEN", "NOW DENIED", "FLOWS", "NOW PERMITTED", "FLOWS"}};
  for (std::size_t i = 0; i < places.size(); ++i) {
    const CaptureCount& counted = answer.counts[i];
    rows.push_back({places[i].interface, directionName(places[i].direction), std::to_string(counted.seen),
                    std::to_string(counted.denied), std::to_string(counted.deniedFlows.size()),
                    std::to_string(counted.permitted), std::to_string(counted.permittedFlows.size())});
  }
  return std::to_string(answer.packets) + " packets in " + std::to_string(answer.flows) +
         " flows, judged as if they passed everywhere; frames with a tag enter only where their VLAN is "
         "carried:\n" +
         columns(rows, "  ");
}

} // namespace tool
