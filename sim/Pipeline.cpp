#include "sim/Pipeline.h"

namespace sim {

using namespace XpXdk;

namespace {

// The lookups of one packet, as they are made.
class Journey {
public:
  Journey(const packet::Packet& packet, const Ingress& ingress, Verdict& verdict)
      : packet_(packet), ingress_(ingress), verdict_(verdict) {}

  void lookup(Device& device, xpIaclType_e table, uint8_t aclId, Role role) {
    const LookupResult result =
        device.lookup(table, packet_, aclId, role, verdict_.vlan, ingress_.in.port, ingress_.count);
    verdict_.lookupArray[verdict_.numLookups++] = result;
    if (!result.forward) {
      verdict_.fate = Fate::denied;
    }
  }

  // A lookup in the table of the packet's family, when that family is enabled.
  void lookupIp(Device& device, xpIaclType_e v4Table, xpIaclType_e v6Table, bool v4En, bool v6En,
                uint8_t aclId, Role role) {
    if (packet_.l3 == packet::L3::ipv4 && v4En) {
      lookup(device, v4Table, aclId, role);
    } else if (packet_.l3 == packet::L3::ipv6 && v6En) {
      lookup(device, v6Table, aclId, role);
    }
  }

private:
  const packet::Packet& packet_;
  const Ingress& ingress_;
  Verdict& verdict_;
};

// The device of a port, or null when the system has no such port.
Device* deviceOf(System& system, const PortRef& port) {
  Device* device = system.device(port.device);
  return device && port.port < device->config().numPorts ? device : nullptr;
}

void ingressLookups(Device& device, const Ingress& ingress, const Verdict& verdict, Journey& journey) {
  const xpPortConfigEntry& port = device.portConfig()[ingress.in.port];
  journey.lookupIp(device, TACL_V4_IACL, TACL_V6_IACL, port.aclEnBits & 1, port.aclEnBits & 2, port.portAclId,
                   Role::port);
  if (port.macAclEn) {
    journey.lookup(device, TACL_MAC_ACL, port.portAclId, Role::port);
  }
  if (const xpPortVlanIvifEntry* routed = device.portVlan().find(portVlanKey(verdict.vif, verdict.vlan))) {
    journey.lookupIp(device, TACL_V4_IACL, TACL_V6_IACL, routed->routeAclEn & 1, routed->routeAclEn & 2,
                     routed->routeAclId, Role::routed);
  }
}

void egressLookups(Device& device, const Verdict& verdict, Journey& journey) {
  const xpEgressBdEvifEntry* entry = device.egress().find(portVlanKey(verdict.outVif, verdict.outVlan));
  if (entry) {
    journey.lookupIp(device, TACL_V4_EACL, TACL_V6_EACL, entry->ePaclIpV4En, entry->ePaclIpV6En,
                     entry->ePaclId, Role::port);
    journey.lookupIp(device, TACL_V4_EACL, TACL_V6_EACL, entry->eRaclIpV4En, entry->eRaclIpV6En,
                     entry->eRaclId, Role::routed);
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
  Verdict verdict;
  Device* in = deviceOf(system, ingress.in);
  Device* out = ingress.out ? deviceOf(system, *ingress.out) : nullptr;
  if (!in || (ingress.out && !out)) {
    verdict.fate = Fate::unknownPort;
    return verdict;
  }
  const PortAttachment& inPort = in->attachment(ingress.in.port);
  verdict.vlan = packet.vlan != 0           ? packet.vlan
                 : inPort.accessVlan() != 0 ? inPort.accessVlan()
                                            : ingress.defaultVlan;
  if (!inPort.carries(verdict.vlan)) {
    verdict.fate = Fate::vlanNotCarried;
    return verdict;
  }
  verdict.vif = inPort.vif(verdict.vlan);
  Journey journey(packet, ingress, verdict);
  ingressLookups(*in, ingress, verdict, journey);
  if (!out) {
    return verdict;
  }
  const PortAttachment& outPort = out->attachment(ingress.out->port);
  verdict.outVlan = outPort.accessVlan() != 0 ? outPort.accessVlan() : verdict.vlan;
  if (!outPort.carries(verdict.outVlan)) {
    // What the ingress side decided is the stronger reason.
    if (verdict.permit()) {
      verdict.fate = Fate::outVlanNotCarried;
    }
    return verdict;
  }
  verdict.outVif = outPort.vif(verdict.outVlan);
  egressLookups(*out, verdict, journey);
  return verdict;
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
