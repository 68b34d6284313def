#pragma once

#include "XpXdk/Managers.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

// A small stand-in for the chip's SDK: keeps rows and counters, refuses what no chip accepts, and writes down
// every call as one line of text. Independent of the simulated chip, so that the library's tests do not lean
// on it. Lines look like this (fields of a key as id=value/ignore-mask, bytes in hexadecimal):
//
//   writeKeyMask d0 TACL_V4_IACL 5 0=0100/0001 1=00/fe
//   writeData d0 TACL_V4_IACL t0 5 log=0 en=1 res=1 cnt=11
//   setEntryValid d0 TACL_V4_IACL 5 1
//   readEntry d0 TACL_V4_IACL 5
//   getNumOfEntry d0 TACL_V4_IACL
//   readCounter d0 c39 11

namespace test {

class RecordingSdk : private XpXdk::xpIaclMgr,
                     private XpXdk::xpAcmMgr,
                     private XpXdk::xpDeviceMgr,
                     private XpXdk::xpDevice,
                     private XpXdk::xpAclPl {
public:
  // Installs itself; the destructor brings back what was installed before.
  explicit RecordingSdk(uint32_t rowsPerTable = 64);
  ~RecordingSdk() override;
  RecordingSdk(const RecordingSdk&) = delete;
  RecordingSdk& operator=(const RecordingSdk&) = delete;

  // A table of 0 rows answers 9 for every row.
  void numRowsIs(XpXdk::xpIaclType_e table, uint32_t rows);
  void numTableCopiesIs(uint8_t copies) { profile_.numTableCopies = copies; }

  // What the platform objects hand out; all of it at first.
  void hasIaclMgrIs(bool has) { hasIaclMgr_ = has; }
  void hasDeviceIs(bool has) { hasDevice_ = has; }
  void hasTableProfileIs(bool has) { hasProfile_ = has; }

  // The n-th call from now (1: the next one) answers `status` and does nothing.
  void failCall(unsigned n, XpXdk::XP_STATUS status);
  // Every call that is carried out answers `status`.
  void everyStatusIs(XpXdk::XP_STATUS status) { everyStatus_ = status; }

  // The calls since the last time, a line each.
  std::string takeCalls();
  // The number of calls since the last takeCalls.
  std::size_t numCalls() const { return calls_.size(); }

  bool valid(XpXdk::xpIaclType_e table, uint32_t row) const;
  // Behind the driver's back: what a chip that lost its mind would hold.
  void validIs(XpXdk::xpIaclType_e table, uint32_t row, bool valid);

  uint64_t counter(XpXdk::xpAcmClient_e client, uint32_t index) const;
  void counterIs(XpXdk::xpAcmClient_e client, uint32_t index, uint64_t count);
  XpXdk::xpAcmMgr* acm() { return this; }

private:
  struct Field {
    std::vector<uint8_t> value;
    std::vector<uint8_t> mask;
  };
  struct Row {
    bool valid = false;
    std::map<uint8_t, Field> fields;
    std::map<uint8_t, XpXdk::xpIaclData_t> data; // by copy
  };

  XpXdk::XP_STATUS writeKeyMask(uint8_t device, XpXdk::xpIaclType_e table, uint32_t row, uint32_t flag,
                                const XpXdk::xpIaclkeyFieldList* key) override;
  XpXdk::XP_STATUS writeData(uint8_t device, XpXdk::xpIaclType_e table, uint8_t copy, uint32_t row,
                             const XpXdk::xpIaclData_t* data) override;
  XpXdk::XP_STATUS setEntryValid(uint8_t device, XpXdk::xpIaclType_e table, uint32_t row,
                                 uint8_t valid) override;
  XpXdk::XP_STATUS readEntry(uint8_t device, XpXdk::xpIaclType_e table, uint32_t row, uint32_t& isValid,
                             XpXdk::xpIaclkeyFieldList* key, XpXdk::xpIaclData_t* data,
                             uint8_t copy) override;
  XpXdk::XP_STATUS getNumOfEntry(uint8_t device, XpXdk::xpIaclType_e table, uint32_t& count) override;
  XpXdk::XP_STATUS readCounter(uint8_t device, XpXdk::xpAcmClient_e client, uint32_t index,
                               uint64_t& count) override;
  XpXdk::xpDevice* device(uint8_t deviceId) override;
  const XpXdk::xpTableProfile* tableProfile() const override;
  XpXdk::xpIaclMgr* iaclMgr(uint32_t plMgrId) override;
  XpXdk::xpAcmMgr* acmMgr() override { return this; }

  // Records the call. Answers the status that was arranged for it, or whether the row exists.
  XpXdk::XP_STATUS enter(const std::string& call, XpXdk::xpIaclType_e table, uint32_t row);
  // Records the call; true when a status was arranged for it.
  bool arranged(const std::string& call, XpXdk::XP_STATUS* status);
  // The answer to a call that was carried out.
  XpXdk::XP_STATUS done() const { return everyStatus_; }

  std::map<XpXdk::xpIaclType_e, std::vector<Row>> tables_;
  std::map<std::pair<XpXdk::xpAcmClient_e, uint32_t>, uint64_t> counters_;
  XpXdk::xpTableProfile profile_;
  bool hasIaclMgr_ = true;
  bool hasDevice_ = true;
  bool hasProfile_ = true;
  std::vector<std::string> calls_;
  unsigned failIn_ = 0; // 0: no call fails
  XpXdk::XP_STATUS failStatus_ = XpXdk::statusOk;
  XpXdk::XP_STATUS everyStatus_ = XpXdk::statusOk;
  XpXdk::xpDeviceMgr* previousDeviceMgr_;
  XpXdk::xpAclPl* previousAclPl_;
};

} // namespace test
