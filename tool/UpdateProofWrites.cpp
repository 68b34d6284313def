#include "tool/UpdateProofWrites.h"

#include "sim/Key.h"
#include "tool/Common.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace tool {

using namespace XpXdk;
using sim::Op;

namespace {

template <typename... Numbers>
std::string packed(Numbers... numbers) {
  std::string bytes;
  const auto put = [&](auto number) {
    for (std::size_t i = 0; i < sizeof number; ++i) {
      bytes.push_back(static_cast<char>(number >> (8 * i) & 0xFF));
    }
  };
  (put(numbers), ...);
  return bytes;
}

// Takes numbers from the bytes of a write, which must end with the last one.
class Unpacker {
public:
  explicit Unpacker(const ChipWrite& write) : write_(write) {}

  template <typename... Numbers>
  void take(Numbers&... numbers) {
    if (write_.bytes.size() != (sizeof numbers + ...)) {
      throw BadWrite(std::string(sim::opName(write_.op)) + " has " + std::to_string(write_.bytes.size()) +
                     " bytes instead of " + std::to_string((sizeof numbers + ...)));
    }
    (one(numbers), ...);
  }

private:
  template <typename Number>
  void one(Number& number) {
    uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof number; ++i) {
      value |= uint64_t{static_cast<uint8_t>(write_.bytes[at_++])} << (8 * i);
    }
    number = static_cast<Number>(value);
  }

  const ChipWrite& write_;
  std::size_t at_ = 0;
};

std::string bytesOf(const xpPortConfigEntry& entry) {
  return packed(entry.portAclId, entry.aclEnBits, entry.macAclEn);
}
std::string bytesOf(const xpPortVlanIvifEntry& entry) {
  return packed(entry.keyVlan, entry.keyIvif, entry.routeAclId, entry.routeAclEn);
}
std::string bytesOf(const xpEgressBdEvifEntry& entry) {
  return packed(entry.egressBd, entry.egressVif, entry.ePaclId, entry.ePaclIpV4En, entry.ePaclIpV6En,
                entry.eRaclId, entry.eRaclIpV4En, entry.eRaclIpV6En);
}

std::string keyMaskBytes(const sim::TcamTable& table, const sim::TcamRow& row) {
  const auto bytes = [&](const sim::TcamKeyBytes& from) {
    return std::string(reinterpret_cast<const char*>(from.data()), table.keyLength());
  };
  return bytes(row.value) + bytes(row.mask);
}

sim::Device& deviceOf(sim::System& system, const ChipWrite& write) {
  sim::Device* const device = system.device(write.chip);
  if (device == nullptr) {
    throw BadWrite("there is no chip " + std::to_string(write.chip));
  }
  return *device;
}

void writeRow(sim::TcamTable& table, const ChipWrite& write) {
  if (write.op == Op::setEntryValid) {
    uint8_t valid = 0;
    Unpacker(write).take(valid);
    table.validIs(write.index, valid != 0);
  } else if (write.op == Op::writeData) {
    uint8_t copy = 0;
    uint32_t word = 0;
    Unpacker(write).take(copy, word);
    if (copy >= table.numCopies()) {
      throw BadWrite("there is no copy " + std::to_string(copy) + " of the data words");
    }
    table.dataIs(write.index, copy, word);
  } else {
    const std::size_t length = table.keyLength();
    if (write.bytes.size() != 2 * length) {
      throw BadWrite("writeKeyMask has " + std::to_string(write.bytes.size()) + " bytes instead of " +
                     std::to_string(2 * length));
    }
    sim::TcamRow row;
    std::copy_n(write.bytes.begin(), length, row.value.begin());
    std::copy_n(write.bytes.begin() + static_cast<std::ptrdiff_t>(length), length, row.mask.begin());
    table.keyMaskIs(write.index, row.value, row.mask);
  }
}

template <typename Entry>
void writeKeyed(sim::KeyedTable<Entry>& table, const ChipWrite& write, const Entry* entry, bool add) {
  XP_STATUS status = statusOk;
  if (entry == nullptr) {
    status = table.remove(write.index);
  } else if (!add) {
    status = table.write(write.index, *entry);
  } else {
    uint32_t index = 0;
    status = table.add(*entry, index);
    if (status == statusOk && index != write.index) {
      table.remove(index);
      throw BadWrite("the entry comes to index " + std::to_string(index) + " instead of " +
                     std::to_string(write.index));
    }
  }
  if (status != statusOk) {
    throw BadWrite("the chip answers " + std::to_string(status));
  }
}

template <typename Entry>
void putEntries(std::vector<ChipWrite>& writes, uint8_t chip, const sim::KeyedTable<Entry>& table, Op add) {
  uint32_t used = 0;
  for (uint32_t index = 0; used < table.used(); ++index) {
    if (const Entry* const entry = table.entry(index)) {
      ++used;
      writes.push_back({add, chip, TACL_V4_IACL, index, bytesOf(*entry)});
    }
  }
}

void putRows(std::vector<ChipWrite>& writes, uint8_t chip, xpIaclType_e table, const sim::TcamTable& rows) {
  for (uint32_t number = 0; number < rows.numRows(); ++number) {
    const sim::TcamRow row = rows.row(number);
    if (!(row == sim::TcamRow())) {
      writes.push_back({Op::writeKeyMask, chip, table, number, keyMaskBytes(rows, row)});
    }
    for (unsigned copy = 0; copy < rows.numCopies(); ++copy) {
      if (const uint32_t word = rows.data(number, copy); word != 0) {
        writes.push_back({Op::writeData, chip, table, number, packed(static_cast<uint8_t>(copy), word)});
      }
    }
    if (row.valid) {
      writes.push_back({Op::setEntryValid, chip, table, number, packed(uint8_t{1})});
    }
  }
}

// Entries stand at their indexes, whatever the order in which they came there.
template <typename Entry>
void placeEntries(sim::KeyedTable<Entry>& table, const std::map<uint32_t, Entry>& entries) {
  if (entries.empty()) {
    return;
  }
  std::vector<std::optional<Entry>> slots(table.capacity());
  for (const auto& [index, entry] : entries) {
    if (index >= slots.size()) {
      throw BadWrite("index " + std::to_string(index) + " is behind the table's end");
    }
    slots[index] = entry;
  }
  table = sim::KeyedTable<Entry>(std::move(slots));
  if (const char* const broken = table.audit()) {
    throw BadWrite(broken);
  }
}

std::string argumentsText(const ChipWrite& write) {
  const std::string index = std::to_string(write.index);
  switch (write.op) {
  case Op::writeKeyMask: {
    sim::TcamRow row;
    const std::size_t length = write.bytes.size() / 2;
    std::copy_n(write.bytes.begin(), length, row.value.begin());
    std::copy_n(write.bytes.begin() + static_cast<std::ptrdiff_t>(length), length, row.mask.begin());
    const std::string text = sim::keyText(write.table, row.value, row.mask);
    return text.empty() ? "" : " " + text;
  }
  case Op::writeData: {
    uint8_t copy = 0;
    uint32_t word = 0;
    Unpacker(write).take(copy, word);
    return " copy " + std::to_string(copy) + " " + sim::dataText(xpIaclData_t::fromWord(word));
  }
  case Op::setEntryValid:
    return write.bytes == packed(uint8_t{0}) ? " 0" : " 1";
  case Op::portConfigWrite:
    return " " + sim::entryText(portConfigOf(write));
  case Op::portVlanAdd:
  case Op::portVlanWrite:
    return " " + sim::entryText(portVlanOf(write));
  case Op::egressAdd:
  case Op::egressWrite:
    return " " + sim::entryText(egressOf(write));
  default:
    return "";
  }
}

Topology::Port portOf(const agent::Interface& intf, Session& session) {
  Topology::Port port;
  port.name = intf.name;
  port.chip = intf.chip;
  port.number = agent::intfId(intf).number();
  const sim::PortAttachment& attachment = session.system().device(intf.chip)->attachment(port.number);
  port.accessVlan = attachment.accessVlan();
  for (uint16_t vlan = firstVlan; vlan <= lastVlan; ++vlan) {
    if (!attachment.carries(vlan)) {
      continue;
    }
    port.vif = attachment.vif(vlan);
    if (!port.vlans.empty() && port.vlans.back().high + 1 == vlan) {
      port.vlans.back().high = vlan;
    } else {
      port.vlans.push_back({vlan, vlan});
    }
  }
  return port;
}

BoundLists listsOf(const agent::Interface& intf, const agent::Config& config) {
  BoundLists lists;
  for (const agent::Binding& binding : intf.bindings) {
    const agent::AccessList* const list = config.list(binding.family, binding.list);
    if (list != nullptr && !list->rules.empty()) {
      lists[{binding.direction, binding.family}] = binding.list;
    }
  }
  return lists;
}

} // namespace

std::size_t numBytes(Op op, xpIaclType_e table) {
  switch (op) {
  case Op::writeKeyMask:
    return 2u * sim::layoutOf(table).length;
  case Op::writeData:
    return sizeof(uint8_t) + sizeof(uint32_t);
  case Op::setEntryValid:
    return sizeof(uint8_t);
  case Op::portConfigWrite:
    return 3 * sizeof(uint8_t);
  case Op::portVlanAdd:
  case Op::portVlanWrite:
    return 2 * sizeof(uint16_t) + 2 * sizeof(uint8_t);
  case Op::egressAdd:
  case Op::egressWrite:
    return 2 * sizeof(uint16_t) + 6 * sizeof(uint8_t);
  default:
    return 0;
  }
}

std::string writeText(const ChipWrite& write) {
  return std::string(sim::opName(write.op)) + " d" + std::to_string(write.chip) + " " +
         (isRowWrite(write.op) ? sim::tableText(write.table) + " " : "") + std::to_string(write.index) +
         argumentsText(write);
}

xpPortConfigEntry portConfigOf(const ChipWrite& write) {
  xpPortConfigEntry entry;
  Unpacker(write).take(entry.portAclId, entry.aclEnBits, entry.macAclEn);
  return entry;
}

xpPortVlanIvifEntry portVlanOf(const ChipWrite& write) {
  xpPortVlanIvifEntry entry;
  Unpacker(write).take(entry.keyVlan, entry.keyIvif, entry.routeAclId, entry.routeAclEn);
  return entry;
}

xpEgressBdEvifEntry egressOf(const ChipWrite& write) {
  xpEgressBdEvifEntry entry;
  Unpacker(write).take(entry.egressBd, entry.egressVif, entry.ePaclId, entry.ePaclIpV4En, entry.ePaclIpV6En,
                       entry.eRaclId, entry.eRaclIpV4En, entry.eRaclIpV6En);
  return entry;
}

ChipWrite writeOf(const sim::System& system, const sim::Call& call) {
  const sim::CallPlace& place = call.place();
  ChipWrite write{call.op(), call.device(), TACL_V4_IACL, place.index, ""};
  const sim::Device& device = *system.device(call.device());
  if (isRowWrite(call.op())) {
    write.table = place.table;
    const sim::TcamTable& table = *device.tcam(place.table);
    const sim::TcamRow row = table.row(place.index);
    write.bytes = call.op() == Op::writeKeyMask ? keyMaskBytes(table, row)
                  : call.op() == Op::writeData  ? packed(place.copy, table.data(place.index, place.copy))
                                                : packed(static_cast<uint8_t>(row.valid ? 1 : 0));
  } else if (call.op() == Op::portConfigWrite) {
    write.bytes = bytesOf(device.portConfig()[place.index]);
  } else if (call.op() == Op::portVlanAdd || call.op() == Op::portVlanWrite) {
    write.bytes = bytesOf(*device.portVlan().entry(place.index));
  } else if (call.op() == Op::egressAdd || call.op() == Op::egressWrite) {
    write.bytes = bytesOf(*device.egress().entry(place.index));
  }
  return write;
}

void applyWrite(sim::System& system, const ChipWrite& write) {
  sim::Device& device = deviceOf(system, write);
  if (isRowWrite(write.op)) {
    sim::TcamTable* const table = device.tcam(write.table);
    if (table == nullptr || write.index >= table->numRows()) {
      throw BadWrite("there is no row " + std::to_string(write.index) + " of " + sim::tableText(write.table));
    }
    writeRow(*table, write);
  } else if (write.op == Op::portConfigWrite) {
    if (write.index >= device.portConfig().size()) {
      throw BadWrite("there is no port " + std::to_string(write.index));
    }
    device.portConfig()[write.index] = portConfigOf(write);
  } else if (write.op == Op::portVlanAdd || write.op == Op::portVlanWrite) {
    const xpPortVlanIvifEntry entry = portVlanOf(write);
    writeKeyed(device.portVlan(), write, &entry, write.op == Op::portVlanAdd);
  } else if (write.op == Op::portVlanRemove) {
    writeKeyed<xpPortVlanIvifEntry>(device.portVlan(), write, nullptr, false);
  } else if (write.op == Op::egressAdd || write.op == Op::egressWrite) {
    const xpEgressBdEvifEntry entry = egressOf(write);
    writeKeyed(device.egress(), write, &entry, write.op == Op::egressAdd);
  } else if (write.op == Op::egressRemove) {
    writeKeyed<xpEgressBdEvifEntry>(device.egress(), write, nullptr, false);
  } else {
    throw BadWrite(std::string(sim::opName(write.op)) + " is no write");
  }
}

std::vector<ChipWrite> writesThatMake(const sim::System& system) {
  std::vector<ChipWrite> writes;
  for (const auto& [number, device] : system.devices()) {
    for (const IaclTableInfo& info : iaclTables) {
      putRows(writes, number, info.table, *device->tcam(info.table));
    }
    for (uint32_t port = 0; port < device->portConfig().size(); ++port) {
      if (!(device->portConfig()[port] == xpPortConfigEntry())) {
        writes.push_back(
            {Op::portConfigWrite, number, TACL_V4_IACL, port, bytesOf(device->portConfig()[port])});
      }
    }
    putEntries(writes, number, device->portVlan(), Op::portVlanAdd);
    putEntries(writes, number, device->egress(), Op::egressAdd);
  }
  return writes;
}

bool Topology::Port::carries(uint16_t vlan) const {
  return std::any_of(vlans.begin(), vlans.end(),
                     [&](const agent::PortRange& range) { return vlan >= range.low && vlan <= range.high; });
}

Topology topologyOf(Session& session) {
  Topology topology;
  const agent::Config& config = session.config();
  for (const agent::Interface& intf : config.interfaces) {
    if (intf.kind == agent::InterfaceKind::ethernet && session.agent().activeChips().count(intf.chip) != 0) {
      topology.ports.push_back(portOf(intf, session));
      topology.ports.back().lists = listsOf(intf, config);
    } else if (intf.kind == agent::InterfaceKind::vlan) {
      topology.vlans.push_back({intf.name, intf.vlan, listsOf(intf, config)});
    }
  }
  return topology;
}

std::unique_ptr<sim::System> emptyChips(const ChipSizes& sizes) {
  auto system = std::make_unique<sim::System>();
  for (const auto& [number, config] : sizes) {
    system->deviceAdd(number, config);
  }
  return system;
}

std::unique_ptr<sim::System> chipsOf(const ChipSizes& sizes, const std::vector<ChipWrite>& content) {
  std::unique_ptr<sim::System> system = emptyChips(sizes);
  std::map<uint8_t, std::map<uint32_t, xpPortVlanIvifEntry>> portVlans;
  std::map<uint8_t, std::map<uint32_t, xpEgressBdEvifEntry>> egresses;
  for (const ChipWrite& write : content) {
    if (write.op == Op::portVlanAdd) {
      portVlans[write.chip][write.index] = portVlanOf(write);
    } else if (write.op == Op::egressAdd) {
      egresses[write.chip][write.index] = egressOf(write);
    } else {
      applyWrite(*system, write);
    }
  }
  for (const auto& [number, device] : system->devices()) {
    placeEntries(device->portVlan(), portVlans[number]);
    placeEntries(device->egress(), egresses[number]);
  }
  return system;
}

Change recordChange(Session& session, const agent::Config& config, agent::ApplyResult& result) {
  Change change;
  session.addDevices(config);
  sim::System& system = session.system();
  for (const auto& [number, device] : system.devices()) {
    change.chips[number] = device->config();
  }
  change.start = writesThatMake(system);
  change.old = topologyOf(session);
  system.afterWriteIs([&](const sim::Call& call) {
    if (call.status() == statusOk) {
      change.writes.push_back(writeOf(system, call));
    }
  });
  result = session.agent().apply(config);
  system.afterWriteIs({});
  if (result.ok) {
    session.configIs(config);
  }
  change.fresh = topologyOf(session);
  return change;
}

} // namespace tool
