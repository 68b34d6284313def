#pragma once

#include "XpXdk/Managers.h"

#include <algorithm>
#include <map>
#include <vector>

// The other half of sdk_adapter.h: the tables that say which ACL id a port, a port in a VLAN, or a way out
// has.

namespace adapter {

using namespace XpXdk;

// A table whose entries stand at indexes that the chip gives out.
template <typename Entry>
struct Indexed {
  std::map<uint32_t, Entry> entries;
  uint32_t next = 0;

  XP_STATUS add(const Entry& entry, std::vector<uint32_t>& indexes) {
    entries[next] = entry;
    indexes.push_back(next++);
    return statusOk;
  }
  template <typename Act>
  XP_STATUS at(uint32_t index, Act act) {
    const auto found = entries.find(index);
    return found == entries.end() ? statusNotFound : (act(found->second), statusOk);
  }
};

class PortConfig : public xpPortConfigMgr {
  XP_STATUS getNumOfEntry(uint8_t, uint32_t& count) override { return count = 128, statusOk; }
  XP_STATUS writeEntry(uint8_t, uint32_t port, const xpPortConfigEntry* entry) override {
    return ports_[port] = *entry, statusOk;
  }
  XP_STATUS readEntry(uint8_t, uint32_t port, xpPortConfigEntry* entry, uint8_t) override {
    return *entry = ports_[port], statusOk;
  }
  std::map<uint32_t, xpPortConfigEntry> ports_;
};

class PortVlan : public xpPortVlanIvifMgr, Indexed<xpPortVlanIvifEntry> {
  using Entry = xpPortVlanIvifEntry;
  XP_STATUS getNumOfEntry(uint8_t, uint32_t& count) override { return count = 4096, statusOk; }
  XP_STATUS addEntry(uint8_t, uint8_t, const Entry* entry, std::vector<uint32_t>& indexes) override {
    return add(*entry, indexes);
  }
  XP_STATUS writeEntry(uint8_t, uint8_t, uint32_t index, const Entry* entry) override {
    return at(index, [&](Entry& found) { found = *entry; });
  }
  XP_STATUS removeEntry(uint8_t, uint32_t index) override { return entries.erase(index), statusOk; }
  XP_STATUS readEntry(uint8_t, uint32_t index, Entry* entry, uint8_t) override {
    return at(index, [&](Entry& found) { *entry = found; });
  }
};

class Egress : public xpEgressBdEvifMgr, Indexed<xpEgressBdEvifEntry> {
  using Entry = xpEgressBdEvifEntry;
  XP_STATUS getNumOfEntry(uint8_t, uint32_t& count) override { return count = 4096, statusOk; }
  XP_STATUS addEntry(uint8_t, const Entry* entry, std::vector<uint32_t>& indexes) override {
    return add(*entry, indexes);
  }
  XP_STATUS writeEntry(uint8_t, uint32_t index, const Entry* entry) override {
    return at(index, [&](Entry& found) { found = *entry; });
  }
  XP_STATUS lookup(uint8_t, const Entry* key, uint32_t& index) override {
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const auto& each) {
      return each.second.egressBd == key->egressBd && each.second.egressVif == key->egressVif;
    });
    return found == entries.end() ? statusNotFound : (index = found->first, statusOk);
  }
  XP_STATUS removeEntry(uint8_t, uint32_t index) override { return entries.erase(index), statusOk; }
  XP_STATUS readEntry(uint8_t, uint32_t index, Entry* entry, uint8_t) override {
    return at(index, [&](Entry& found) { *entry = found; });
  }
};

} // namespace adapter
