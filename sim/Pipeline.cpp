#include "sim/Pipeline.h"

#include <algorithm>

namespace sim {

using namespace XpXdk;

namespace {

// The device of a port, or null when the system has no such port.
Device* deviceOf(System& system, const PortRef& port) {
  Device* device = system.device(port.device);
  return device && port.port < device->config().numPorts ? device : nullptr;
}

void addLookup(Way& way, Device& device, xpIaclType_e table, uint8_t aclId, Role role) {
  way.lookups[way.numLookups++] = {&device, table, aclId, role};
}

// A lookup in the table of the packet's family, when that family is enabled.
void addIpLookup(Way& way, Device& device, packet::L3 l3, xpIaclType_e v4Table, xpIaclType_e v6Table,
                 bool v4En, bool v6En, uint8_t aclId, Role role) {
  if (l3 == packet::L3::ipv4 && v4En) {
    addLookup(way, device, v4Table, aclId, role);
  } else if (l3 == packet::L3::ipv6 && v6En) {
    addLookup(way, device, v6Table, aclId, role);
  }
}

void addIngressLookups(Way& way, Device& device, packet::L3 l3, const Ingress& ingress) {
  const xpPortConfigEntry& port = device.portConfig()[ingress.in.port];
  addIpLookup(way, device, l3, TACL_V4_IACL, TACL_V6_IACL, port.aclEnBits & 1, port.aclEnBits & 2,
              port.portAclId, Role::port);
  if (port.macAclEn) {
    addLookup(way, device, TACL_MAC_ACL, port.portAclId, Role::port);
  }
  if (const xpPortVlanIvifEntry* routed = device.portVlan().find(portVlanKey(way.vif, way.vlan))) {
    addIpLookup(way, device, l3, TACL_V4_IACL, TACL_V6_IACL, routed->routeAclEn & 1, routed->routeAclEn & 2,
                routed->routeAclId, Role::routed);
  }
}

void addEgressLookups(Way& way, Device& device, packet::L3 l3) {
  if (const xpEgressBdEvifEntry* entry = device.egress().find(portVlanKey(way.outVif, way.outVlan))) {
    addIpLookup(way, device, l3, TACL_V4_EACL, TACL_V6_EACL, entry->ePaclIpV4En, entry->ePaclIpV6En,
                entry->ePaclId, Role::port);
    addIpLookup(way, device, l3, TACL_V4_EACL, TACL_V6_EACL, entry->eRaclIpV4En, entry->eRaclIpV6En,
                entry->eRaclId, Role::routed);
  }
}

// `tag`: the VLAN of the frame's tag, or 0.
Way wayOf(System& system, const Ingress& ingress, uint16_t tag, packet::L3 l3) {
  Way way;
  Device* in = deviceOf(system, ingress.in);
  Device* out = ingress.out ? deviceOf(system, *ingress.out) : nullptr;
  if (!in || (ingress.out && !out)) {
    way.fate = Fate::unknownPort;
    return way;
  }
  const PortAttachment& inPort = in->attachment(ingress.in.port);
  way.vlan = tag != 0 ? tag : inPort.accessVlan() != 0 ? inPort.accessVlan() : ingress.defaultVlan;
  if (!inPort.carries(way.vlan)) {
    way.fate = Fate::vlanNotCarried;
    return way;
  }
  way.vif = inPort.vif(way.vlan);
  addIngressLookups(way, *in, l3, ingress);
  if (!out) {
    return way;
  }
  const PortAttachment& outPort = out->attachment(ingress.out->port);
  way.outVlan = outPort.accessVlan() != 0 ? outPort.accessVlan() : way.vlan;
  if (!outPort.carries(way.outVlan)) {
    way.fate = Fate::outVlanNotCarried;
    return way;
  }
  way.outVif = outPort.vif(way.outVlan);
  addEgressLookups(way, *out, l3);
  return way;
}

// A verdict before its lookups, whose results are left as they are.
void startVerdict(Verdict& verdict, const Way& way) {
  verdict.fate = way.fate;
  verdict.vlan = way.vlan;
  verdict.vif = way.vif;
  verdict.outVlan = way.outVlan;
  verdict.outVif = way.outVif;
  verdict.numLookups = way.numLookups;
}

// What a lookup denies is the stronger reason.
void decide(Verdict& verdict, const LookupResult& result) {
  if (!result.forward) {
    verdict.fate = Fate::denied;
  }
}

} // namespace

const char* fateText(Fate fate) {
  switch (fate) {
  case Fate::permitted:
    return "permit";
  case Fate::denied:
    return "deny";
  case Fate::unknownPort:
    return "dropped: no such port";
  case Fate::vlanNotCarried:
    return "dropped: the input port does not carry the VLAN";
  case Fate::outVlanNotCarried:
    return "dropped: the output port does not carry the VLAN";
  }
  return "unknown";
}

Verdict judge(System& system, const packet::Packet& packet, const Ingress& ingress) {
  const Way way = wayOf(system, ingress, packet.vlan, packet.l3);
  Verdict verdict;
  startVerdict(verdict, way);
  for (unsigned i = 0; i < way.numLookups; ++i) {
    const WayLookup& lookup = way.lookups[i];
    verdict.lookupArray[i] = lookup.device->lookup(lookup.table, packet, lookup.aclId, lookup.role, way.vlan,
                                                   ingress.in.port, ingress.count);
    decide(verdict, verdict.lookupArray[i]);
  }
  return verdict;
}

unsigned Burst::searches(Device& device, xpIaclType_e table) {
  const auto it = std::find_if(searches_.begin(), searches_.end(), [&](const Searches& searches) {
    return searches.table == table && searches.device == &device;
  });
  const auto place = static_cast<unsigned>(it - searches_.begin());
  if (it == searches_.end()) {
    searches_.push_back({&device, table, {}, {}, {}, {}});
  }
  return place;
}

const Burst::KnownWay& Burst::knownWay(const packet::Packet& packet, const Ingress& ingress) {
  KnownWay& known =
      ways_[(packet.vlan * 4u + static_cast<unsigned>(packet.l3) + ingress.in.port * 16u) % numKnownWays];
  if (known.known && known.tag == packet.vlan && known.l3 == packet.l3 && known.ingress == ingress) {
    return known;
  }
  known = {true, ingress, packet.vlan, packet.l3, wayOf(system_, ingress, packet.vlan, packet.l3), {}};
  for (unsigned i = 0; i < known.way.numLookups; ++i) {
    known.searches[i] = searches(*known.way.lookups[i].device, known.way.lookups[i].table);
  }
  return known;
}

void Burst::add(const packet::Packet& packet, const Ingress& ingress, Verdict& verdict) {
  const KnownWay& known = knownWay(packet, ingress);
  const Way& way = known.way;
  startVerdict(verdict, way);
  for (unsigned i = 0; i < way.numLookups; ++i) {
    const WayLookup& lookup = way.lookups[i];
    LookupResult& result = verdict.lookupArray[i];
    result = LookupResult();
    result.role = lookup.role;
    result.aclId = lookup.aclId;
    Searches& searches = searches_[known.searches[i]];
    buildKey(lookup.table, packet, lookup.aclId, lookup.role, way.vlan, searches.keys.emplace_back());
    searches.asked.push_back({&result, ingress.in.port, ingress.count});
    searches.verdicts.push_back(&verdict);
  }
}

void Burst::finish() {
  for (Searches& searches : searches_) {
    searches.rows.resize(searches.keys.size());
    searches.device->lookup(searches.table, searches.keys, searches.rows, searches.asked);
    for (std::size_t i = 0; i < searches.asked.size(); ++i) {
      decide(*searches.verdicts[i], *searches.asked[i].result);
    }
    searches.keys.clear();
    searches.asked.clear();
    searches.verdicts.clear();
  }
  // The port tables may be others in the next burst.
  for (KnownWay& known : ways_) {
    known.known = false;
  }
}

std::string verdictText(const Verdict& verdict) {
  std::string text = fateText(verdict.fate);
  const char* separator = ": ";
  for (const LookupResult& lookup : verdict.lookups()) {
    text += separator + tableText(lookup.table) + (lookup.role == Role::routed ? " routed" : " port") +
            " id " + std::to_string(lookup.aclId) +
            (lookup.row == TcamTable::noRow ? " no row" : " row " + std::to_string(lookup.row)) +
            (lookup.forward ? " permit" : " deny");
    separator = "; ";
  }
  return text;
}

} // namespace sim
