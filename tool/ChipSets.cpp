#include "tool/ChipSets.h"

#include "sim/Key.h"
#include "tool/Common.h"
#include "tool/Session.h"
#include "tool/SetCommands.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace tool {

using namespace XpXdk;
using verify::Condition;
using verify::Diagram;
using verify::Field;
using verify::FieldBits;

namespace {

constexpr uint8_t roleBit = 1;
constexpr uint8_t establishedBit = 2;
constexpr uint8_t l4Bit = 4; // 0 for non-initial fragments alone

// Reads a row back into conditions on header fields: the inverse of how the chip forms a key.
class RowReader {
public:
  RowReader(const ChipLookup& lookup, const sim::TcamRow& row)
      : lookup_(lookup), row_(row), layout_(sim::layoutOf(lookup.table)) {}

  // Nothing: no packet of this lookup can hit.
  std::optional<std::vector<Condition>> read() {
    if (layout_.keyType == IACL_MAC_KEY_TYPE) {
      readMac();
    } else {
      readIp();
    }
    return possible_ ? std::optional(std::move(conditions_)) : std::nullopt;
  }

private:
  const IaclFieldLayout& field(uint8_t id) const { return layout_.fields[id]; }
  uint8_t value(uint8_t id, unsigned byte) const { return row_.value[field(id).offset + byte]; }
  uint8_t compared(uint8_t id, unsigned byte) const {
    return static_cast<uint8_t>(~row_.mask[field(id).offset + byte]);
  }

  // A byte of the key that is the same for every packet of the lookup.
  void fixed(uint8_t id, unsigned byte, uint8_t key) {
    possible_ = possible_ && ((value(id, byte) ^ key) & compared(id, byte)) == 0;
  }

  // A field whose bytes stand in the key from the least or from the most significant one on.
  void bytes(Field name, uint8_t id, bool leastFirst) {
    std::array<uint8_t, maxIaclFieldBytes> valueBytes{};
    std::array<uint8_t, maxIaclFieldBytes> comparedBytes{};
    const unsigned width = field(id).width;
    for (unsigned i = 0; i < width; ++i) {
      const unsigned from = leastFirst ? width - 1 - i : i;
      valueBytes[i] = value(id, from);
      comparedBytes[i] = compared(id, from);
    }
    conditions_.push_back(Condition::masked(name, verify::bitsOf(valueBytes.data(), width),
                                            verify::bitsOf(comparedBytes.data(), width)));
  }

  void readIp() {
    const bool v4 = layout_.keyType == IACL_V4_KEY_TYPE;
    fixed(IACL_IP_ACL_ID, 0, lookup_.aclId);
    fixed(IACL_IP_ACL_ID, 1, 0);
    readFlags();
    bytes(Field::l4Dst, IACL_IP_DST_L4, true);
    bytes(Field::l4Src, IACL_IP_SRC_L4, true);
    bytes(Field::protocol, IACL_IP_PROTO, false);
    if (v4) {
      readTtl();
    } else {
      bytes(Field::ttl, IACL_IP_TTL, false);
    }
    bytes(Field::dst, IACL_IP_DST_ADDR, !v4);
    bytes(Field::src, IACL_IP_SRC_ADDR, !v4);
  }

  void readFlags() {
    const uint8_t flags = value(IACL_IP_FLAGS, 0);
    const uint8_t asked = compared(IACL_IP_FLAGS, 0);
    const uint8_t known = lookup_.role == sim::Role::routed ? roleBit : 0;
    possible_ = possible_ && ((flags ^ known) & asked & ~(establishedBit | l4Bit)) == 0;
    if ((asked & establishedBit) != 0) {
      conditions_.push_back(Condition::equals(Field::established, (flags & establishedBit) != 0 ? 1 : 0, 1));
    }
    if ((asked & l4Bit) != 0) {
      conditions_.push_back(Condition::equals(Field::fragment, (flags & l4Bit) != 0 ? 0 : 1, 1));
    }
  }

  // The IPv4 key has the time to live less one, so that the bits of a row are not those of the packet.
  void readTtl() {
    if (compared(IACL_IP_TTL, 0) == 0) {
      return;
    }
    agent::PortSet ttls;
    for (uint16_t ttl = 0; ttl <= 255; ++ttl) {
      if (((static_cast<uint8_t>(ttl - 1) ^ value(IACL_IP_TTL, 0)) & compared(IACL_IP_TTL, 0)) == 0) {
        ttls.push_back({ttl, ttl});
      }
    }
    conditions_.push_back(Condition::within(Field::ttl, std::move(ttls)));
  }

  void readMac() {
    fixed(IACL_MAC_ACL_ID, 0, lookup_.aclId);
    fixed(IACL_MAC_ACL_ID, 1, 0);
    // VLANs have 12 bits.
    constexpr uint8_t vlanBits = 0x0F;
    possible_ = possible_ && (value(IACL_MAC_VLAN, 1) & compared(IACL_MAC_VLAN, 1) & ~vlanBits) == 0;
    const auto vlan = [&](uint8_t low, uint8_t high) {
      return verify::bitsOf(static_cast<uint64_t>((high & vlanBits) << 8 | low), 12);
    };
    conditions_.push_back(Condition::masked(Field::vlan,
                                            vlan(value(IACL_MAC_VLAN, 0), value(IACL_MAC_VLAN, 1)),
                                            vlan(compared(IACL_MAC_VLAN, 0), compared(IACL_MAC_VLAN, 1))));
    bytes(Field::etherType, IACL_MAC_ETHERTYPE, true);
    bytes(Field::dstMac, IACL_MAC_DST, true);
    bytes(Field::srcMac, IACL_MAC_SRC, true);
  }

  const ChipLookup& lookup_;
  const sim::TcamRow& row_;
  const IaclKeyLayout& layout_;
  bool possible_ = true;
  std::vector<Condition> conditions_;
};

} // namespace

agent::Family familyOf(xpIaclType_e table) {
  switch (iaclTable(table)->keyType) {
  case IACL_V4_KEY_TYPE:
    return agent::Family::ipv4;
  case IACL_V6_KEY_TYPE:
    return agent::Family::ipv6;
  default:
    return agent::Family::mac;
  }
}

Diagram rowMatches(verify::PacketSpace& space, const ChipLookup& lookup, const sim::TcamRow& row,
                   uint32_t number) {
  auto conditions = RowReader(lookup, row).read();
  return conditions ? space.where(std::move(*conditions), number)
                    : Diagram(space.diagrams(), verify::emptyLeaf);
}

verify::PacketSet chipPermitted(verify::PacketSpace& space, const sim::Device& device,
                                const ChipLookup& lookup, std::size_t* rows, const verify::Tick& tick) {
  constexpr uint32_t permit = 1;
  constexpr uint32_t deny = 2;
  const sim::TcamTable& table = *device.tcam(lookup.table);
  const unsigned copy = lookup.ingressPort % table.numCopies();
  std::vector<uint32_t> relevant;
  for (uint32_t at = table.nextValid(0); at != sim::TcamTable::noRow; at = table.nextValid(at + 1)) {
    if (RowReader(lookup, table.row(at)).read()) {
      relevant.push_back(at);
    }
  }
  if (rows != nullptr) {
    *rows = relevant.size();
  }
  if (relevant.empty()) {
    return space.none();
  }
  const Diagram verdicts = verify::joined(
      0, relevant.size(),
      [&](std::size_t i) {
        if (tick) {
          tick();
        }
        const auto data = xpIaclData_t::fromWord(table.data(relevant[i], copy));
        return rowMatches(space, lookup, table.row(relevant[i]), data.result() == 1 ? permit : deny);
      },
      [&](const Diagram& a, const Diagram& b) { return space.diagrams().combine(a, b, verify::FirstOf()); });
  return space.set(
      space.diagrams().relabelled(verdicts, [](uint32_t number) { return number == permit ? 1u : 0u; }));
}

namespace {

class PlaceFinder {
public:
  explicit PlaceFinder(Session& session) : session_(session), config_(session.config()) {}

  std::vector<ChipPlace> find() {
    for (const agent::Interface& intf : config_.interfaces) {
      if (intf.kind == agent::InterfaceKind::vlan) {
        vlanInterfaces_[intf.vlan] = &intf;
      }
    }
    for (const agent::Interface& intf : config_.interfaces) {
      if (intf.kind == agent::InterfaceKind::ethernet &&
          session_.agent().activeChips().count(intf.chip) != 0) {
        addPort(intf);
      }
    }
    addUnreached();
    return std::move(places_);
  }

private:
  static constexpr agent::Direction in = agent::Direction::in;
  static constexpr agent::Direction out = agent::Direction::out;
  static constexpr agent::Family v4 = agent::Family::ipv4;
  static constexpr agent::Family v6 = agent::Family::ipv6;

  void addPort(const agent::Interface& intf) {
    const sim::Device& device = *session_.system().device(intf.chip);
    const uint32_t port = agent::intfId(intf).number();
    const xpPortConfigEntry& entry = device.portConfig()[port];
    add(&intf, in, intf, 0, (entry.aclEnBits & 1) != 0, {TACL_V4_IACL, entry.portAclId});
    add(&intf, in, intf, 0, (entry.aclEnBits & 2) != 0, {TACL_V6_IACL, entry.portAclId});
    add(&intf, in, intf, 0, entry.macAclEn != 0, {TACL_MAC_ACL, entry.portAclId});
    const sim::PortAttachment& attachment = device.attachment(port);
    for (uint16_t vlan = firstVlan; vlan <= lastVlan; ++vlan) {
      if (attachment.carries(vlan)) {
        addPair(device, attachment, intf, vlan);
      }
    }
  }

  void addPair(const sim::Device& device, const sim::PortAttachment& attachment, const agent::Interface& intf,
               uint16_t vlan) {
    const auto found = vlanInterfaces_.find(vlan);
    const agent::Interface* const routedIntf = found == vlanInterfaces_.end() ? nullptr : found->second;
    const uint32_t key = sim::portVlanKey(attachment.vif(vlan), vlan);
    const xpPortVlanIvifEntry* const stood = device.portVlan().find(key);
    const xpPortVlanIvifEntry ingress = stood == nullptr ? xpPortVlanIvifEntry() : *stood;
    const sim::Role routed = sim::Role::routed;
    add(routedIntf, in, intf, vlan, (ingress.routeAclEn & 1) != 0,
        {TACL_V4_IACL, ingress.routeAclId, routed});
    add(routedIntf, in, intf, vlan, (ingress.routeAclEn & 2) != 0,
        {TACL_V6_IACL, ingress.routeAclId, routed});
    const xpEgressBdEvifEntry* const leaving = device.egress().find(key);
    const xpEgressBdEvifEntry egress = leaving == nullptr ? xpEgressBdEvifEntry() : *leaving;
    add(&intf, out, intf, vlan, egress.ePaclIpV4En != 0, {TACL_V4_EACL, egress.ePaclId});
    add(&intf, out, intf, vlan, egress.ePaclIpV6En != 0, {TACL_V6_EACL, egress.ePaclId});
    add(routedIntf, out, intf, vlan, egress.eRaclIpV4En != 0, {TACL_V4_EACL, egress.eRaclId, routed});
    add(routedIntf, out, intf, vlan, egress.eRaclIpV6En != 0, {TACL_V6_EACL, egress.eRaclId, routed});
  }

  void add(const agent::Interface* intf, agent::Direction direction, const agent::Interface& port,
           uint16_t vlan, bool enabled, ChipLookup lookup) {
    ChipPlace place;
    place.list = listAt(config_, intf, direction, familyOf(lookup.table));
    if (place.list == nullptr && !enabled) {
      return;
    }
    place.interface = intf != nullptr ? intf->name : "Vlan" + std::to_string(vlan);
    place.kind = intf != nullptr ? intf->kind : agent::InterfaceKind::vlan;
    place.direction = direction;
    place.chip = port.chip;
    place.enabled = enabled;
    place.port = agent::intfId(port).number();
    place.vlan = vlan;
    lookup.ingressPort = place.port;
    place.lookup = lookup;
    addOnce(place);
  }

  void addOnce(const ChipPlace& place) {
    const unsigned copies = session_.system().device(place.chip)->config().numTableCopies;
    const auto key = std::tuple(place.interface, place.direction, place.lookup.table, place.chip,
                                place.enabled, place.lookup.aclId, place.lookup.ingressPort % copies);
    if (known_.insert(key).second) {
      places_.push_back(place);
    }
  }

  // Rows of a routed list stand on every chip, whether a port leads to its VLAN or not.
  void addUnreached() {
    std::set<std::pair<std::string, agent::Direction>> reached;
    for (const ChipPlace& place : places_) {
      reached.insert({place.interface, place.direction});
    }
    const agent::Agent& agent = session_.agent();
    for (const auto& [vlan, intf] : vlanInterfaces_) {
      for (const agent::Direction direction : {in, out}) {
        const auto attached =
            agent.attachments().find({agent::intfId(*intf), agent::aclDirection(direction)});
        if (reached.count({intf->name, direction}) != 0 || attached == agent.attachments().end()) {
          continue;
        }
        const agent::LiveIndexKey& live = agent.liveIndexKeys().at(attached->second);
        for (const uint8_t chip : live.chips) {
          for (const agent::Family family : {v4, v6}) {
            addUnreached(*intf, direction, family, chip, static_cast<uint8_t>(live.id));
          }
        }
      }
    }
  }

  void addUnreached(const agent::Interface& intf, agent::Direction direction, agent::Family family,
                    uint8_t chip, uint8_t id) {
    ChipPlace place;
    place.list = listAt(config_, &intf, direction, family);
    if (place.list == nullptr) {
      return;
    }
    place.interface = intf.name;
    place.kind = intf.kind;
    place.direction = direction;
    place.chip = chip;
    place.enabled = true;
    place.vlan = intf.vlan;
    const bool ingress = direction == in;
    place.lookup = {family == v4 ? (ingress ? TACL_V4_IACL : TACL_V4_EACL)
                                 : (ingress ? TACL_V6_IACL : TACL_V6_EACL),
                    id, sim::Role::routed, 0};
    addOnce(place);
  }

  Session& session_;
  const agent::Config& config_;
  std::map<uint16_t, const agent::Interface*> vlanInterfaces_;
  std::set<std::tuple<std::string, agent::Direction, xpIaclType_e, uint8_t, bool, uint8_t, unsigned>> known_;
  std::vector<ChipPlace> places_;
};

} // namespace

std::vector<ChipPlace> chipPlaces(Session& session) {
  return PlaceFinder(session).find();
}

} // namespace tool
