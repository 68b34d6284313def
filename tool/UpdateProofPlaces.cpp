#include "tool/UpdateProofPlaces.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace tool {

using namespace XpXdk;
using agent::Direction;
using agent::Family;
using sim::Op;
using sim::Role;

namespace {

enum class EntryKind : uint8_t { port, portVlan, egress };

// Entries by chip, kind, and port number or key.
using EntryKey = std::tuple<uint8_t, EntryKind, uint32_t>;

// The entries that ever enable a lookup.
class EnabledEntries {
public:
  explicit EnabledEntries(const Change& change) {
    for (const ChipWrite& write : change.start) {
      add(write);
    }
    for (const ChipWrite& write : change.writes) {
      add(write);
    }
  }

  bool has(uint8_t chip, EntryKind kind, uint32_t key) const {
    return enabled_.count({chip, kind, key}) != 0;
  }

private:
  void add(const ChipWrite& write) {
    if (write.op == Op::portConfigWrite) {
      const xpPortConfigEntry entry = portConfigOf(write);
      addIf(entry.aclEnBits != 0 || entry.macAclEn != 0, {write.chip, EntryKind::port, write.index});
    } else if (write.op == Op::portVlanAdd || write.op == Op::portVlanWrite) {
      const xpPortVlanIvifEntry entry = portVlanOf(write);
      addIf(entry.routeAclEn != 0, {write.chip, EntryKind::portVlan, sim::keyOf(entry)});
    } else if (write.op == Op::egressAdd || write.op == Op::egressWrite) {
      const xpEgressBdEvifEntry entry = egressOf(write);
      addIf(entry.ePaclIpV4En + entry.ePaclIpV6En + entry.eRaclIpV4En + entry.eRaclIpV6En != 0,
            {write.chip, EntryKind::egress, sim::keyOf(entry)});
    }
  }
  void addIf(bool enabled, const EntryKey& key) {
    if (enabled) {
      enabled_.insert(key);
    }
  }

  std::set<EntryKey> enabled_;
};

struct Site {
  Direction direction;
  Role role;
  Family family;
};

constexpr Site sites[] = {
    {Direction::in, Role::port, Family::ipv4},    {Direction::in, Role::port, Family::ipv6},
    {Direction::in, Role::port, Family::mac},     {Direction::in, Role::routed, Family::ipv4},
    {Direction::in, Role::routed, Family::ipv6},  {Direction::out, Role::port, Family::ipv4},
    {Direction::out, Role::port, Family::ipv6},   {Direction::out, Role::routed, Family::ipv4},
    {Direction::out, Role::routed, Family::ipv6},
};

class ProofPlaceFinder {
public:
  explicit ProofPlaceFinder(const Change& change) : change_(change), enabled_(change) {}

  std::vector<ProofPlace> find() {
    addTopology(change_.old, &ProofPlace::old);
    addTopology(change_.fresh, &ProofPlace::fresh);
    std::vector<ProofPlace> places;
    for (auto& [key, place] : places_) {
      std::sort(place.vlans.begin(), place.vlans.end(),
                [](const agent::PortRange& a, const agent::PortRange& b) {
                  return std::tie(a.low, a.high) < std::tie(b.low, b.high);
                });
      const bool wanted = !place.old.list.empty() || !place.fresh.list.empty() || isEnabled(place);
      if (wanted) {
        places.push_back(std::move(place));
      }
    }
    return places;
  }

private:
  using Side = PlaceSide ProofPlace::*;
  // Chip, direction, role, family, port or key, name of the interface, copy of the data words.
  using Key = std::tuple<uint8_t, Direction, Role, Family, uint32_t, std::string, unsigned>;

  bool isEnabled(const ProofPlace& place) const {
    return place.isPortEntry()
               ? enabled_.has(place.chip, EntryKind::port, place.port)
               : enabled_.has(place.chip,
                              place.direction == Direction::in ? EntryKind::portVlan : EntryKind::egress,
                              sim::portVlanKey(place.vif, place.vlan));
  }

  void addTopology(const Topology& topology, Side side) {
    std::map<uint16_t, const Topology::Vlan*> vlans;
    for (const Topology::Vlan& vlan : topology.vlans) {
      vlans[vlan.vlan] = &vlan;
    }
    for (const Topology::Port& port : topology.ports) {
      for (const Site& site : sites) {
        if (site.direction == Direction::in && site.role == Role::port) {
          add(port, site, port.name, port.lists, 0, side);
        }
      }
      for (const agent::PortRange& range : port.vlans) {
        for (unsigned vlan = range.low; vlan <= range.high; ++vlan) {
          const auto found = vlans.find(static_cast<uint16_t>(vlan));
          addPair(port, static_cast<uint16_t>(vlan), found == vlans.end() ? nullptr : found->second, side);
        }
      }
    }
  }

  void addPair(const Topology::Port& port, uint16_t vlan, const Topology::Vlan* routed, Side side) {
    static const BoundLists none;
    const uint32_t key = sim::portVlanKey(port.vif, vlan);
    const bool looksIn = enabled_.has(port.chip, EntryKind::portVlan, key);
    const bool looksOut = enabled_.has(port.chip, EntryKind::egress, key);
    // Most pairs have no list at all.
    if (!looksIn && !looksOut && port.lists.empty() && (routed == nullptr || routed->lists.empty())) {
      return;
    }
    const std::string name = routed == nullptr ? "Vlan" + std::to_string(vlan) : routed->name;
    for (const Site& site : sites) {
      if (site.role == Role::routed) {
        add(port, site, name, routed == nullptr ? none : routed->lists, vlan, side);
      } else if (site.direction == Direction::out) {
        add(port, site, port.name, port.lists, vlan, side);
      }
    }
  }

  void add(const Topology::Port& port, const Site& site, const std::string& interface,
           const BoundLists& lists, uint16_t vlan, Side side) {
    const bool isPort = vlan == 0;
    const unsigned copies = change_.chips.at(port.chip).numTableCopies;
    const Key key{port.chip,
                  site.direction,
                  site.role,
                  site.family,
                  isPort ? port.number : sim::portVlanKey(port.vif, vlan),
                  interface,
                  port.number % copies};
    const auto [at, added] = places_.try_emplace(key);
    ProofPlace& place = at->second;
    if (added) {
      place.interface = interface;
      place.direction = site.direction;
      place.role = site.role;
      place.family = site.family;
      place.chip = port.chip;
      place.port = port.number;
      place.vif = isPort ? sim::noVif : port.vif;
      place.vlan = vlan;
      place.accessVlan = port.accessVlan;
    }
    const std::vector<agent::PortRange> entering =
        isPort ? port.vlans : std::vector<agent::PortRange>{{vlan, vlan}};
    place.vlans.insert(place.vlans.end(), entering.begin(), entering.end());
    PlaceSide& says = place.*side;
    says.there = true;
    const auto bound = lists.find({site.direction, site.family});
    says.list = bound == lists.end() ? std::string() : bound->second;
  }

  const Change& change_;
  EnabledEntries enabled_;
  std::map<Key, ProofPlace> places_;
};

} // namespace

xpIaclType_e ProofPlace::table() const {
  const bool in = direction == Direction::in;
  switch (family) {
  case Family::ipv4:
    return in ? TACL_V4_IACL : TACL_V4_EACL;
  case Family::ipv6:
    return in ? TACL_V6_IACL : TACL_V6_EACL;
  case Family::mac:
    break;
  }
  return TACL_MAC_ACL;
}

std::string ProofPlace::text() const {
  return interface + " " + directionName(direction) + " " + familyName(family);
}

std::string ProofPlace::entryText() const {
  const std::string text = "chip " + std::to_string(chip);
  return isPortEntry() ? text + " port " + std::to_string(port)
                       : text + (vif == sim::noVif ? " without VIF" : " VIF " + std::to_string(vif)) +
                             " VLAN " + std::to_string(vlan);
}

PlaceState stateAt(const sim::System& system, const ProofPlace& place) {
  const sim::Device& device = *system.device(place.chip);
  const bool v4 = place.family == Family::ipv4;
  // An id that is not looked up with says nothing.
  const auto state = [](bool enabled, uint8_t id) { return enabled ? PlaceState{true, id} : PlaceState(); };
  if (place.isPortEntry()) {
    const xpPortConfigEntry& entry = device.portConfig()[place.port];
    return state(place.family == Family::mac ? entry.macAclEn != 0 : (entry.aclEnBits & (v4 ? 1 : 2)) != 0,
                 entry.portAclId);
  }
  const uint32_t key = sim::portVlanKey(place.vif, place.vlan);
  if (place.direction == Direction::in) {
    const xpPortVlanIvifEntry* const entry = device.portVlan().find(key);
    return entry == nullptr ? PlaceState()
                            : state((entry->routeAclEn & (v4 ? 1 : 2)) != 0, entry->routeAclId);
  }
  const xpEgressBdEvifEntry* const entry = device.egress().find(key);
  if (entry == nullptr) {
    return {};
  }
  return place.role == Role::routed
             ? state((v4 ? entry->eRaclIpV4En : entry->eRaclIpV6En) != 0, entry->eRaclId)
             : state((v4 ? entry->ePaclIpV4En : entry->ePaclIpV6En) != 0, entry->ePaclId);
}

ChipLookup lookupAt(const ProofPlace& place, uint8_t aclId) {
  return {place.table(), aclId, place.role, place.port};
}

std::vector<ProofPlace> proofPlaces(const Change& change) {
  return ProofPlaceFinder(change).find();
}

} // namespace tool
