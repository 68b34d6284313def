#include "sim/ChipFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <vector>

namespace sim {

using namespace XpXdk;

namespace {

constexpr std::string_view magic = "XPCHIPS1";

class Writer {
public:
  template <typename... Numbers>
  void put(Numbers... numbers) {
    (number(numbers), ...);
  }
  void bytes(const uint8_t* data, std::size_t count) {
    text.append(reinterpret_cast<const char*>(data), count);
  }
  std::string text;

private:
  template <typename Number>
  void number(Number value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
      text.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    }
  }
};

class Reader {
public:
  explicit Reader(std::string_view image) : image_(image) {}

  template <typename Number>
  Number get(const char* what) {
    need(sizeof(Number), what);
    uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      value |= uint64_t{static_cast<uint8_t>(image_[at_ + i])} << (8 * i);
    }
    at_ += sizeof(Number);
    return static_cast<Number>(value);
  }
  void bytes(uint8_t* data, std::size_t count, const char* what) {
    need(count, what);
    std::memcpy(data, image_.data() + at_, count);
    at_ += count;
  }
  [[noreturn]] void fail(const std::string& why) const {
    throw ChipFileError("byte " + std::to_string(at_) + ": " + why);
  }
  template <typename Number>
  void expect(Number expected, const char* what) {
    const Number found = get<Number>(what);
    if (found != expected) {
      fail(std::string(what) + " " + std::to_string(found) + ", but the switch has " +
           std::to_string(expected));
    }
  }
  bool atEnd() const { return at_ == image_.size(); }

private:
  void need(std::size_t count, const char* what) const {
    if (image_.size() - at_ < count) {
      fail(std::string("the file ends where ") + what + " should stand");
    }
  }

  std::string_view image_;
  std::size_t at_ = 0;
};

template <typename Table, typename Put>
void putEntries(Writer& out, const Table& table, const Put& put) {
  std::vector<uint32_t> used;
  for (uint32_t index = 0; index < table.capacity(); ++index) {
    if (table.entry(index) != nullptr) {
      used.push_back(index);
    }
  }
  out.put(static_cast<uint32_t>(used.size()));
  for (const uint32_t index : used) {
    out.put(index);
    put(*table.entry(index));
  }
}

void putDevice(Writer& out, const Device& device) {
  const DeviceConfig& config = device.config();
  out.put(device.number(), config.numTableCopies, config.numPorts, config.portVlanCapacity,
          config.egressCapacity);
  for (const uint32_t rows : config.tcamRows) {
    out.put(rows);
  }
  for (const IaclTableInfo& info : iaclTables) {
    const TcamTable& table = *device.tcam(info.table);
    for (uint32_t number = 0; number < table.numRows(); ++number) {
      const TcamRow row = table.row(number);
      out.put(uint8_t{row.valid});
      out.bytes(row.value.data(), table.keyLength());
      out.bytes(row.mask.data(), table.keyLength());
      for (unsigned copy = 0; copy < table.numCopies(); ++copy) {
        out.put(table.data(number, copy));
      }
    }
  }
  for (const xpPortConfigEntry& entry : device.portConfig()) {
    out.put(entry.portAclId, entry.aclEnBits, entry.macAclEn);
  }
  putEntries(out, device.portVlan(), [&](const xpPortVlanIvifEntry& entry) {
    out.put(entry.keyVlan, entry.keyIvif, entry.routeAclId, entry.routeAclEn);
  });
  putEntries(out, device.egress(), [&](const xpEgressBdEvifEntry& entry) {
    out.put(entry.egressBd, entry.egressVif, entry.ePaclId, entry.ePaclIpV4En, entry.ePaclIpV6En,
            entry.eRaclId, entry.eRaclIpV4En, entry.eRaclIpV6En);
  });
  for (const xpAcmClient_e client : {acmClientIngressAcl, acmClientEgressAcl}) {
    const std::vector<uint64_t>& block = device.counterBlock(client);
    std::vector<uint32_t> used;
    for (uint32_t index = 0; index < block.size(); ++index) {
      if (block[index] != 0) {
        used.push_back(index);
      }
    }
    out.put(static_cast<uint32_t>(used.size()));
    for (const uint32_t index : used) {
      out.put(index, block[index]);
    }
  }
}

// The entries of a keyed table, at their indexes.
template <typename Entry, typename Get>
std::vector<std::optional<Entry>> getEntries(Reader& in, uint32_t capacity, const Get& get) {
  std::vector<std::optional<Entry>> slots(capacity);
  const auto count = in.get<uint32_t>("the number of entries");
  for (uint32_t i = 0; i < count; ++i) {
    const auto index = in.get<uint32_t>("the index of an entry");
    if (index >= capacity) {
      in.fail("index " + std::to_string(index) + " is behind the table's end");
    }
    slots[index] = get();
  }
  return slots;
}

// A chip made anew from the image; `like` is the one that it must resemble.
Device getDevice(Reader& in, const Device& like) {
  const DeviceConfig& config = like.config();
  in.expect(like.number(), "device number");
  in.expect(config.numTableCopies, "data words a row");
  in.expect(config.numPorts, "ports");
  in.expect(config.portVlanCapacity, "capacity of the port-VLAN table");
  in.expect(config.egressCapacity, "capacity of the egress table");
  for (const uint32_t rows : config.tcamRows) {
    in.expect(rows, "rows of a table");
  }
  Device device(like.number(), config);
  for (const IaclTableInfo& info : iaclTables) {
    TcamTable& table = *device.tcam(info.table);
    for (uint32_t number = 0; number < table.numRows(); ++number) {
      TcamRow row;
      row.valid = in.get<uint8_t>("a row") != 0;
      in.bytes(row.value.data(), table.keyLength(), "a row's key");
      in.bytes(row.mask.data(), table.keyLength(), "a row's mask");
      table.keyMaskIs(number, row.value, row.mask);
      for (unsigned copy = 0; copy < table.numCopies(); ++copy) {
        table.dataIs(number, copy, in.get<uint32_t>("a row's data word"));
      }
      table.validIs(number, row.valid);
    }
  }
  for (xpPortConfigEntry& entry : device.portConfig()) {
    entry.portAclId = in.get<uint8_t>("a port's entry");
    entry.aclEnBits = in.get<uint8_t>("a port's entry");
    entry.macAclEn = in.get<uint8_t>("a port's entry");
  }
  device.portVlan() = PortVlanTable(getEntries<xpPortVlanIvifEntry>(in, config.portVlanCapacity, [&] {
    xpPortVlanIvifEntry entry;
    entry.keyVlan = in.get<uint16_t>("a port-VLAN entry");
    entry.keyIvif = in.get<uint16_t>("a port-VLAN entry");
    entry.routeAclId = in.get<uint8_t>("a port-VLAN entry");
    entry.routeAclEn = in.get<uint8_t>("a port-VLAN entry");
    return entry;
  }));
  device.egress() = EgressTable(getEntries<xpEgressBdEvifEntry>(in, config.egressCapacity, [&] {
    xpEgressBdEvifEntry entry;
    entry.egressBd = in.get<uint16_t>("an egress entry");
    entry.egressVif = in.get<uint16_t>("an egress entry");
    for (uint8_t* const field : {&entry.ePaclId, &entry.ePaclIpV4En, &entry.ePaclIpV6En, &entry.eRaclId,
                                 &entry.eRaclIpV4En, &entry.eRaclIpV6En}) {
      *field = in.get<uint8_t>("an egress entry");
    }
    return entry;
  }));
  for (const xpAcmClient_e client : {acmClientIngressAcl, acmClientEgressAcl}) {
    const auto count = in.get<uint32_t>("the number of counters");
    for (uint32_t i = 0; i < count; ++i) {
      const auto index = in.get<uint32_t>("a counter's index");
      if (index >= numCounters) {
        in.fail("there is no counter " + std::to_string(index));
      }
      device.counterIs(client, index, in.get<uint64_t>("a counter"));
    }
  }
  return device;
}

} // namespace

std::string chipImage(const System& system) {
  Writer out;
  out.text = magic;
  out.put(static_cast<uint32_t>(system.devices().size()));
  for (const auto& [number, device] : system.devices()) {
    putDevice(out, *device);
  }
  return std::move(out.text);
}

void chipImageIs(System& system, std::string_view image) {
  Reader in(image);
  uint8_t begin[magic.size()] = {};
  in.bytes(begin, sizeof begin, "the file's mark");
  if (std::memcmp(begin, magic.data(), magic.size()) != 0) {
    throw ChipFileError("byte 0: this is no chip file, it does not begin with " + std::string(magic));
  }
  in.expect(static_cast<uint32_t>(system.devices().size()), "chips");
  std::vector<Device> devices;
  for (const auto& [number, device] : system.devices()) {
    devices.push_back(getDevice(in, *device));
  }
  if (!in.atEnd()) {
    in.fail("the file goes on where it should end");
  }
  for (Device& device : devices) {
    system.device(device.number())->tablesSwap(device);
  }
}

void saveChips(const System& system, const std::string& path) {
  std::ofstream file(path, std::ios::binary);
  file << chipImage(system);
  file.close();
  if (!file) {
    throw ChipFileError(path + ": cannot be written: " + std::strerror(errno));
  }
}

void loadChips(System& system, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream image;
  if (!file || !(image << file.rdbuf())) {
    throw ChipFileError(path + ": cannot be read: " + std::strerror(errno));
  }
  try {
    chipImageIs(system, image.view());
  } catch (const ChipFileError& error) {
    throw ChipFileError(path + ": " + error.what());
  }
}

} // namespace sim
