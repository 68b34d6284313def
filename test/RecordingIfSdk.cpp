#include "test/RecordingIfSdk.h"

#include <algorithm>
#include <sstream>
#include <type_traits>

namespace test {

using namespace XpXdk;

namespace {

std::string place(const char* operation, const char* table, uint8_t device) {
  return std::string(operation) + " " + table + " d" + std::to_string(device);
}
std::string keyOf(const xpPortVlanIvifEntry& entry) {
  return "vlan=" + std::to_string(entry.keyVlan) + " vif=" + std::to_string(entry.keyIvif);
}
std::string keyOf(const xpEgressBdEvifEntry& entry) {
  return "bd=" + std::to_string(entry.egressBd) + " vif=" + std::to_string(entry.egressVif);
}
std::string textOf(const xpPortConfigEntry& entry) {
  return "id=" + std::to_string(entry.portAclId) + " en=" + std::to_string(entry.aclEnBits) +
         " mac=" + std::to_string(entry.macAclEn);
}
std::string textOf(const xpPortVlanIvifEntry& entry) {
  return keyOf(entry) + " id=" + std::to_string(entry.routeAclId) + " en=" + std::to_string(entry.routeAclEn);
}
std::string textOf(const xpEgressBdEvifEntry& entry) {
  std::ostringstream text;
  text << keyOf(entry) << " port=" << unsigned{entry.ePaclId} << '/' << unsigned{entry.ePaclIpV4En}
       << unsigned{entry.ePaclIpV6En} << " route=" << unsigned{entry.eRaclId} << '/'
       << unsigned{entry.eRaclIpV4En} << unsigned{entry.eRaclIpV6En};
  return text.str();
}

template <typename Entry>
XP_STATUS write(std::map<uint32_t, Entry>& entries, uint32_t index, const Entry& entry) {
  const auto found = entries.find(index);
  if (found == entries.end()) {
    return statusRowOutOfRange;
  }
  // The key of an entry stays for its life.
  if (keyOf(found->second) != keyOf(entry)) {
    return statusInvalidArgument;
  }
  for (auto& [at, held] : entries) {
    if (keyOf(held) == keyOf(entry)) {
      held = entry;
    }
  }
  return statusOk;
}

// Frees every place of the entry at `index`.
template <typename Entry>
XP_STATUS remove(std::map<uint32_t, Entry>& entries, uint32_t index) {
  const auto found = entries.find(index);
  if (found == entries.end()) {
    return statusRowOutOfRange;
  }
  std::erase_if(entries,
                [key = keyOf(found->second)](const auto& held) { return keyOf(held.second) == key; });
  return statusOk;
}

// A place without an entry reads as zero.
template <typename Entry>
XP_STATUS read(const std::map<uint32_t, Entry>& entries, uint32_t index, uint32_t count, Entry* entry) {
  const auto found = entries.find(index);
  *entry = found == entries.end() ? Entry() : found->second;
  return index < count ? statusOk : statusRowOutOfRange;
}

} // namespace

RecordingIfSdk::RecordingIfSdk() : previous_(xpIfPl::install(this)) {}

RecordingIfSdk::~RecordingIfSdk() {
  xpIfPl::install(previous_);
}

void RecordingIfSdk::failCall(unsigned n, XP_STATUS status) {
  failIn_ = n;
  failStatus_ = status;
}

std::optional<XP_STATUS> RecordingIfSdk::arranged() {
  if (failIn_ == 0 || --failIn_ != 0) {
    return std::nullopt;
  }
  return failStatus_;
}

XP_STATUS RecordingIfSdk::record(const std::string& call, XP_STATUS status) {
  const XP_STATUS answer = status == statusOk ? everyStatus_ : status;
  calls_.push_back(call + " -> " + std::to_string(answer));
  return answer;
}

std::string RecordingIfSdk::takeCalls() {
  std::string text;
  for (const std::string& call : calls_) {
    text += call + "\n";
  }
  calls_.clear();
  return text;
}

template <typename Entry>
XP_STATUS RecordingIfSdk::add(std::map<uint32_t, Entry>& entries, const Entry& entry,
                              std::vector<uint32_t>& indexList) const {
  const bool stands = std::any_of(entries.begin(), entries.end(),
                                  [&](const auto& held) { return keyOf(held.second) == keyOf(entry); });
  if (stands) {
    return statusDuplicateKey;
  }
  if (entries.size() + places_ > numEntries_) {
    return statusTableFull;
  }
  for (uint32_t index = 0; indexList.size() < places_; ++index) {
    if (entries.emplace(index, entry).second) {
      indexList.push_back(index);
    }
  }
  return statusOk;
}

std::string RecordingIfSdk::tables(uint8_t device) const {
  std::string text;
  const auto show = [&](const char* table, const auto& devices) {
    const auto found = devices.find(device);
    if (found != devices.end()) {
      for (const auto& [index, entry] : found->second) {
        if (!(entry == std::decay_t<decltype(entry)>())) {
          text += std::string(table) + " " + std::to_string(index) + ": " + textOf(entry) + "\n";
        }
      }
    }
  };
  show("portConfig", portConfig_.entries_);
  show("portVlan", portVlan_.entries_);
  show("egress", egress_.entries_);
  return text;
}

void RecordingIfSdk::portConfigIs(uint8_t device, uint32_t port, const xpPortConfigEntry& entry) {
  portConfig_.entries_[device][port] = entry;
}
void RecordingIfSdk::portVlanIs(uint8_t device, uint32_t index, const xpPortVlanIvifEntry& entry) {
  portVlan_.entries_[device][index] = entry;
}
void RecordingIfSdk::egressIs(uint8_t device, uint32_t index, const xpEgressBdEvifEntry& entry) {
  egress_.entries_[device][index] = entry;
}

// --------------------------------------------------------------------------------------- port-config

XP_STATUS RecordingIfSdk::PortConfig::getNumOfEntry(uint8_t device, uint32_t& count) {
  const auto failure = sdk_.arranged();
  if (!failure) {
    count = sdk_.numPorts_;
  }
  return sdk_.record(place("getNumOfEntry", "portConfig", device), failure.value_or(statusOk));
}

XP_STATUS RecordingIfSdk::PortConfig::writeEntry(uint8_t device, uint32_t port,
                                                 const xpPortConfigEntry* entry) {
  XP_STATUS status = port < sdk_.numPorts_ ? statusOk : statusRowOutOfRange;
  if (const auto failure = sdk_.arranged()) {
    status = *failure;
  } else if (status == statusOk) {
    entries_[device][port] = *entry;
  }
  return sdk_.record(
      place("writeEntry", "portConfig", device) + " p" + std::to_string(port) + " " + textOf(*entry), status);
}

XP_STATUS RecordingIfSdk::PortConfig::readEntry(uint8_t device, uint32_t port, xpPortConfigEntry* entry,
                                                uint8_t copy) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : read(entries_[device], port, sdk_.numPorts_, entry);
  return sdk_.record(place("readEntry", "portConfig", device) + " p" + std::to_string(port) + " c" +
                         std::to_string(copy),
                     status);
}

// ----------------------------------------------------------------------------------------- port-VLAN

XP_STATUS RecordingIfSdk::PortVlan::getNumOfEntry(uint8_t device, uint32_t& count) {
  const auto failure = sdk_.arranged();
  if (!failure) {
    count = sdk_.numEntries_;
  }
  return sdk_.record(place("getNumOfEntry", "portVlan", device), failure.value_or(statusOk));
}

XP_STATUS RecordingIfSdk::PortVlan::addEntry(uint8_t device, uint8_t copy, const xpPortVlanIvifEntry* entry,
                                             std::vector<uint32_t>& indexList) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : sdk_.add(entries_[device], *entry, indexList);
  return sdk_.record(
      place("addEntry", "portVlan", device) + " c" + std::to_string(copy) + " " + textOf(*entry), status);
}

XP_STATUS RecordingIfSdk::PortVlan::writeEntry(uint8_t device, uint8_t copy, uint32_t index,
                                               const xpPortVlanIvifEntry* entry) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : write(entries_[device], index, *entry);
  return sdk_.record(place("writeEntry", "portVlan", device) + " c" + std::to_string(copy) + " i" +
                         std::to_string(index) + " " + textOf(*entry),
                     status);
}

XP_STATUS RecordingIfSdk::PortVlan::removeEntry(uint8_t device, uint32_t index) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : remove(entries_[device], index);
  return sdk_.record(place("removeEntry", "portVlan", device) + " i" + std::to_string(index), status);
}

XP_STATUS RecordingIfSdk::PortVlan::readEntry(uint8_t device, uint32_t index, xpPortVlanIvifEntry* entry,
                                              uint8_t copy) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : read(entries_[device], index, sdk_.numEntries_, entry);
  return sdk_.record(place("readEntry", "portVlan", device) + " i" + std::to_string(index) + " c" +
                         std::to_string(copy),
                     status);
}

// -------------------------------------------------------------------------------------------- egress

XP_STATUS RecordingIfSdk::Egress::getNumOfEntry(uint8_t device, uint32_t& count) {
  const auto failure = sdk_.arranged();
  if (!failure) {
    count = sdk_.numEntries_;
  }
  return sdk_.record(place("getNumOfEntry", "egress", device), failure.value_or(statusOk));
}

XP_STATUS RecordingIfSdk::Egress::addEntry(uint8_t device, const xpEgressBdEvifEntry* entry,
                                           std::vector<uint32_t>& indexList) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : sdk_.add(entries_[device], *entry, indexList);
  return sdk_.record(place("addEntry", "egress", device) + " " + textOf(*entry), status);
}

XP_STATUS RecordingIfSdk::Egress::writeEntry(uint8_t device, uint32_t index,
                                             const xpEgressBdEvifEntry* entry) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : write(entries_[device], index, *entry);
  return sdk_.record(
      place("writeEntry", "egress", device) + " i" + std::to_string(index) + " " + textOf(*entry), status);
}

XP_STATUS RecordingIfSdk::Egress::lookup(uint8_t device, const xpEgressBdEvifEntry* entry, uint32_t& index) {
  XP_STATUS status = statusNotFound;
  if (const auto failure = sdk_.arranged()) {
    status = *failure;
  } else {
    for (const auto& [at, held] : entries_[device]) {
      if (keyOf(held) == keyOf(*entry)) {
        index = at;
        status = statusOk;
        break;
      }
    }
  }
  return sdk_.record(place("lookup", "egress", device) + " " + keyOf(*entry), status);
}

XP_STATUS RecordingIfSdk::Egress::removeEntry(uint8_t device, uint32_t index) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : remove(entries_[device], index);
  return sdk_.record(place("removeEntry", "egress", device) + " i" + std::to_string(index), status);
}

XP_STATUS RecordingIfSdk::Egress::readEntry(uint8_t device, uint32_t index, xpEgressBdEvifEntry* entry,
                                            uint8_t copy) {
  const auto failure = sdk_.arranged();
  const XP_STATUS status = failure ? *failure : read(entries_[device], index, sdk_.numEntries_, entry);
  return sdk_.record(place("readEntry", "egress", device) + " i" + std::to_string(index) + " c" +
                         std::to_string(copy),
                     status);
}

} // namespace test
