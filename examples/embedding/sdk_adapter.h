#pragma once

#include "XpXdk/Managers.h"

#include <map>
#include <vector>

// What to implement to drive a chip: one class for each manager, one for each platform object. The bodies
// here keep everything in memory; put your SDK's calls in their places. A status is an answer, not an
// exception: 0, 9 (no such table or row), 41 and 42 are accepted, any other ends the process.

namespace adapter {

using namespace XpXdk;

// The five ACL tables. A write to a valid row takes effect at once, and a read gives back what was written.
class Iacl : public xpIaclMgr {
public:
  XP_STATUS writeKeyMask(uint8_t, xpIaclType_e table, uint32_t row, uint32_t,
                         const xpIaclkeyFieldList* key) override {
    return at(table, row, [&](Row& found) { found.key = *key; });
  }
  XP_STATUS writeData(uint8_t, xpIaclType_e table, uint8_t, uint32_t row, const xpIaclData_t* data) override {
    return at(table, row, [&](Row& found) { found.data = *data; });
  }
  XP_STATUS setEntryValid(uint8_t, xpIaclType_e table, uint32_t row, uint8_t valid) override {
    return at(table, row, [&](Row& found) { found.valid = valid; });
  }
  XP_STATUS readEntry(uint8_t, xpIaclType_e table, uint32_t row, uint32_t& valid, xpIaclkeyFieldList* key,
                      xpIaclData_t* data, uint8_t) override {
    return at(table, row, [&](Row& found) { valid = found.valid, *key = found.key, *data = found.data; });
  }
  XP_STATUS getNumOfEntry(uint8_t, xpIaclType_e table, uint32_t& count) override {
    count = static_cast<uint32_t>(tables_[table].size());
    return statusOk;
  }
  void rowsIs(xpIaclType_e table, uint32_t rows) { tables_[table].resize(rows); }

private:
  struct Row {
    uint32_t valid = 0;
    xpIaclkeyFieldList key;
    xpIaclData_t data;
  };
  template <typename Act>
  XP_STATUS at(xpIaclType_e table, uint32_t row, Act act) {
    if (row >= tables_[table].size()) {
      return statusNotPresent;
    }
    act(tables_[table][row]);
    return statusOk;
  }
  std::map<xpIaclType_e, std::vector<Row>> tables_;
};

// Hit counters: 64 bits, running freely, two blocks.
class Acm : public xpAcmMgr {
  XP_STATUS readCounter(uint8_t, xpAcmClient_e, uint32_t, uint64_t& count) override {
    count = 0;
    return statusOk;
  }
};

// One device with one copy of its data table.
class Device : public xpDevice {
  const xpTableProfile* tableProfile() const override { return &profile_; }
  xpTableProfile profile_;
};
class Devices : public xpDeviceMgr {
  xpDevice* device(uint8_t deviceId) override { return deviceId == 0 ? &device_ : nullptr; }
  Device device_;
};

} // namespace adapter
