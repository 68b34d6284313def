#include "tool/CertificateWays.h"

#include "packet/PacketText.h"

#include <algorithm>

namespace tool {

using agent::Direction;
using agent::Family;

CertificateWays::CertificateWays(const Change& change, const std::vector<ProofPlace>& places)
    : change_(change), places_(places) {
  for (uint32_t i = 0; i < places.size(); ++i) {
    const ProofPlace& place = places[i];
    if (place.isPortEntry()) {
      byPort_[{place.chip, place.port}].push_back(i);
    } else {
      byVif_[{place.chip, place.vif}].push_back(i);
    }
  }
  std::vector<std::vector<bool>> carried;
  const std::vector<const Topology::Port*> ports = lastingPorts(carried);
  for (std::size_t in = 0; in < ports.size(); ++in) {
    for (uint16_t vlan = 1; vlan < 4096; ++vlan) {
      if (!carried[in][vlan]) {
        continue;
      }
      for (const Family family : {Family::ipv4, Family::ipv6}) {
        walk(*ports[in], vlan, nullptr, family);
        for (std::size_t out = 0; out < ports.size(); ++out) {
          const uint16_t access = ports[out]->accessVlan;
          if (carried[out][access != 0 ? access : vlan]) {
            walk(*ports[in], vlan, ports[out], family);
          }
        }
      }
    }
  }
}

std::vector<const Topology::Port*>
CertificateWays::lastingPorts(std::vector<std::vector<bool>>& carried) const {
  std::vector<const Topology::Port*> lasting;
  for (const Topology::Port& port : change_.old.ports) {
    for (const Topology::Port& later : change_.fresh.ports) {
      if (later.chip == port.chip && later.number == port.number && later.vif == port.vif &&
          later.accessVlan == port.accessVlan) {
        lasting.push_back(&port);
        carried.emplace_back(4096, false);
        for (uint16_t vlan = 1; vlan < 4096; ++vlan) {
          carried.back()[vlan] = port.carries(vlan) && later.carries(vlan);
        }
      }
    }
  }
  return lasting;
}

void CertificateWays::addPlaces(std::vector<uint32_t>& to, const Topology::Port& port, Direction direction,
                                Family family, uint16_t vlan) const {
  const auto found = byVif_.find({port.chip, port.vif});
  if (found == byVif_.end()) {
    return;
  }
  for (const uint32_t i : found->second) {
    const ProofPlace& place = places_[i];
    if (place.direction == direction && place.family == family && place.vlan == vlan &&
        (place.role == sim::Role::routed || place.interface == port.name)) {
      to.push_back(i);
    }
  }
}

void CertificateWays::walk(const Topology::Port& in, uint16_t vlan, const Topology::Port* out,
                           Family family) {
  std::vector<uint32_t> met;
  uint16_t macVlan = 0;
  const auto atPort = byPort_.find({in.chip, in.number});
  if (atPort != byPort_.end()) {
    for (const uint32_t i : atPort->second) {
      if (places_[i].family == family || places_[i].family == Family::mac) {
        met.push_back(i);
        macVlan = places_[i].family == Family::mac ? vlan : macVlan;
      }
    }
  }
  addPlaces(met, in, Direction::in, family, vlan);
  std::string text = "from " + in.name + " in VLAN " + std::to_string(vlan);
  if (out != nullptr) {
    addPlaces(met, *out, Direction::out, family, out->accessVlan != 0 ? out->accessVlan : vlan);
    text += " to " + out->name;
  }
  std::sort(met.begin(), met.end());
  if (met.size() > 1 && known_.emplace(Key(met, macVlan), family).second) {
    ways_.push_back({met, family, macVlan, text});
  }
}

std::string strayText(const WaySets& packets, const WaySets& frames) {
  const bool asksMac = !(~frames.old).isEmpty() || !(~frames.fresh).isEmpty();
  // Frames by what the MAC lists say of them.
  for (const bool old : {false, true}) {
    for (const bool fresh : {false, true}) {
      verify::PacketSet some = frames.now;
      some = old ? some & frames.old : some - frames.old;
      some = fresh ? some & frames.fresh : some - frames.fresh;
      if (some.isEmpty()) {
        continue;
      }
      verify::PacketSet stray = packets.now;
      stray = old ? stray - packets.old : stray;
      stray = fresh ? stray - packets.fresh : stray;
      if (!stray.isEmpty()) {
        packet::Packet packet = stray.witness();
        if (asksMac) {
          const packet::Packet frame = some.witness();
          packet.srcMac = frame.srcMac;
          packet.dstMac = frame.dstMac;
          packet.vlan = frame.vlan;
        }
        return packet::toText(packet);
      }
    }
  }
  return {};
}

} // namespace tool
