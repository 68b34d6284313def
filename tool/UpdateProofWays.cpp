#include "tool/UpdateProofWays.h"

#include <algorithm>

namespace tool {

using agent::Direction;
using agent::Family;
using agent::VlanSet;
using verify::Condition;
using verify::Field;
using verify::PacketSet;

namespace {

bool meet(const std::vector<uint32_t>& places, const std::set<uint32_t>& some) {
  return std::any_of(places.begin(), places.end(),
                     [&](uint32_t place) { return some.find(place) != some.end(); });
}

// What all places of a way permit together, for the fields of one family.
struct Together {
  explicit Together(verify::PacketSpace& space) : now(space.all()), old(space.all()), fresh(space.all()) {}
  void add(const PlaceSets& sets) {
    now = now & *sets.now;
    old = old & *sets.old;
    fresh = fresh & *sets.fresh;
  }
  void keep(const PacketSet& only) { now = now & only; }

  PacketSet now;
  PacketSet old;
  PacketSet fresh;
};

} // namespace

std::vector<uint32_t> Way::places() const {
  std::vector<uint32_t> all = in->places;
  if (out != nullptr) {
    all.insert(all.end(), out->places.begin(), out->places.end());
  }
  return all;
}

WayProof::WayProof(const Change& change, const std::vector<ProofPlace>& places, SetsAt setsAt,
                   SpaceOf spaceOf)
    : change_(change), places_(places), setsAt_(std::move(setsAt)), spaceOf_(std::move(spaceOf)) {}

bool WayProof::isBeyond(const PacketSet& now, const PacketSet& list) {
  return !(now == list) && !(now - list).isEmpty();
}

void WayProof::placeMoves(uint32_t place) {
  const PlaceSets sets = setsAt_(place);
  const auto note = [&](std::set<uint32_t>& beyond, const PacketSet& list) {
    if (isBeyond(*sets.now, list)) {
      beyond.insert(place);
    } else {
      beyond.erase(place);
    }
  };
  note(beyondOld_, *sets.old);
  note(beyondNew_, *sets.fresh);
  moved_.insert(place);
}

// Ports that are connected alike before and after, in the VLANs that they carry before and after.
void WayProof::findEnds() {
  std::map<std::pair<uint8_t, uint32_t>, const Topology::Port*> fresh;
  for (const Topology::Port& port : change_.fresh.ports) {
    fresh[{port.chip, port.number}] = &port;
  }
  for (const Topology::Port& port : change_.old.ports) {
    const auto found = fresh.find({port.chip, port.number});
    if (found == fresh.end() || found->second->vif != port.vif ||
        found->second->accessVlan != port.accessVlan) {
      continue;
    }
    const VlanSet vlans = agent::vlansOf(port.vlans) & agent::vlansOf(found->second->vlans);
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      addEnds(port, vlans, family, ends_[family]);
    }
  }
}

void WayProof::addEnds(const Topology::Port& port, const VlanSet& vlans, Family family, Ends& ends) {
  std::vector<uint32_t> atPort;                        // that judge what enters in every VLAN
  std::map<uint16_t, std::vector<uint32_t>> enterings; // by VLAN
  std::map<uint16_t, std::vector<uint32_t>> leavings;
  for (uint32_t i = 0; i < places_.size(); ++i) {
    const ProofPlace& place = places_[i];
    if (place.chip != port.chip || (place.family != family && place.family != Family::mac)) {
      continue;
    }
    if (place.isPortEntry()) {
      if (place.port == port.number) {
        atPort.push_back(i);
      }
    } else if (place.vif == port.vif && place.family == family &&
               (place.role == sim::Role::routed || place.interface == port.name)) {
      (place.direction == Direction::in ? enterings : leavings)[place.vlan].push_back(i);
    }
  }
  const auto add = [&](std::vector<WayEnd>& to, const std::vector<uint32_t>& always,
                       const std::map<uint16_t, std::vector<uint32_t>>& more) {
    std::map<std::vector<uint32_t>, VlanSet> alike;
    for (std::size_t number = 1; number < vlans.size(); ++number) {
      if (vlans.test(number)) {
        const auto vlan = static_cast<uint16_t>(number);
        std::vector<uint32_t> places = always;
        const auto found = more.find(vlan);
        if (found != more.end()) {
          places.insert(places.end(), found->second.begin(), found->second.end());
        }
        alike[places].set(vlan);
      }
    }
    for (const auto& [places, in] : alike) {
      to.push_back({port.chip, port.number, port.name, port.accessVlan, places, in});
    }
  };
  add(ends.in, atPort, enterings);
  if (port.accessVlan == 0) {
    add(ends.out, {}, leavings);
  } else if (vlans.test(port.accessVlan)) {
    const auto found = leavings.find(port.accessVlan);
    ends.out.push_back({port.chip, port.number, port.name, port.accessVlan,
                        found == leavings.end() ? std::vector<uint32_t>() : found->second, VlanSet().set()});
  }
}

std::optional<WayProof::Finding> WayProof::check() {
  if (!isMixed()) {
    // Nothing is looked at, so nothing is known of any way when they mix again.
    all_ = true;
    moved_.clear();
    return std::nullopt;
  }
  ++mixed_;
  if (ends_.empty()) {
    findEnds();
  }
  std::optional<Finding> finding;
  for (const auto& [family, ends] : ends_) {
    for (const WayEnd& in : ends.in) {
      const bool changed = all_ || meet(in.places, moved_);
      if (!finding && changed) {
        finding = checkWay(family, in, nullptr);
      }
      for (const WayEnd& out : ends.out) {
        if (!finding && (changed || meet(out.places, moved_))) {
          finding = checkWay(family, in, &out);
        }
      }
    }
  }
  all_ = false;
  moved_.clear();
  return finding;
}

std::optional<WayProof::Finding> WayProof::checkWay(Family family, const WayEnd& in, const WayEnd* out) {
  const auto canMix = [&](const std::set<uint32_t>& beyond) {
    return meet(in.places, beyond) || (out != nullptr && meet(out->places, beyond));
  };
  if (!canMix(beyondOld_) || !canMix(beyondNew_)) {
    return std::nullopt;
  }
  Way way{&in, out, out == nullptr ? in.vlans : in.vlans & out->vlans};
  if (way.vlans.none()) {
    return std::nullopt;
  }
  ++looked_;
  return strayOn(family, way);
}

// MAC lists ask other fields than IP lists, so that a packet is one of each set; they share nothing but that
// the frame carries a packet of the family. With m for the MAC part and i for the IP part, (m, i) is a stray
// when all permit it now and either part is denied by the old lists, and either part by the new ones.
std::optional<WayProof::Finding> WayProof::strayOn(Family family, const Way& way) {
  Together ip(spaceOf_(family));
  verify::PacketSpace& macSpace = spaceOf_(Family::mac);
  Together mac(macSpace);
  const uint16_t carried = family == Family::ipv4 ? packet::etherTypeIpv4 : packet::etherTypeIpv6;
  mac.keep(macSpace.fromRow({Condition::within(Field::vlan, agent::rangesOf(way.vlans)),
                             Condition::equals(Field::etherType, carried, 16)}));
  for (const uint32_t place : way.places()) {
    (places_[place].family == Family::mac ? mac : ip).add(setsAt_(place));
  }
  const PacketSet anyFrame = macSpace.all();
  const bool asksMac = !(mac.old == anyFrame && mac.fresh == anyFrame);
  const std::pair<PacketSet, PacketSet> parts[] = {
      {mac.now - mac.old - mac.fresh, ip.now},
      {mac.now - mac.old, ip.now - ip.fresh},
      {mac.now - mac.fresh, ip.now - ip.old},
      {mac.now, ip.now - ip.old - ip.fresh},
  };
  for (const auto& [frames, packets] : parts) {
    if (frames.isEmpty() || packets.isEmpty()) {
      continue;
    }
    Finding finding{way, packets.witness(), 0};
    const packet::Packet frame = frames.witness();
    finding.vlan = frame.vlan;
    if (asksMac) {
      finding.witness.dstMac = frame.dstMac;
      finding.witness.srcMac = frame.srcMac;
    }
    finding.witness.etherType = carried;
    // Without a tag where that leads into the same VLAN: most readers have packets without.
    const uint16_t untagged = way.in->accessVlan != 0 ? way.in->accessVlan : uint16_t{1};
    finding.witness.vlan = finding.vlan == untagged ? uint16_t{0} : finding.vlan;
    return finding;
  }
  return std::nullopt;
}

} // namespace tool
