#pragma once

#include "sim/System.h"

#include <cstdint>
#include <string>
#include <vector>

// The managers of sim::System, one class for each SDK interface. Only the files that implement System
// include this.

namespace sim {

class TcamManager : public XpXdk::xpIaclMgr {
public:
  explicit TcamManager(System& system) : system_(system) {}
  XpXdk::XP_STATUS writeKeyMask(uint8_t device, XpXdk::xpIaclType_e table, uint32_t tcamIdx, uint32_t flag,
                                const XpXdk::xpIaclkeyFieldList* key) override;
  XpXdk::XP_STATUS writeData(uint8_t device, XpXdk::xpIaclType_e table, uint8_t tblNum, uint32_t tcamIdx,
                             const XpXdk::xpIaclData_t* data) override;
  XpXdk::XP_STATUS setEntryValid(uint8_t device, XpXdk::xpIaclType_e table, uint32_t tcamIdx,
                                 uint8_t valid) override;
  XpXdk::XP_STATUS readEntry(uint8_t device, XpXdk::xpIaclType_e table, uint32_t tcamIdx, uint32_t& isValid,
                             XpXdk::xpIaclkeyFieldList* key, XpXdk::xpIaclData_t* data,
                             uint8_t tblNum) override;
  XpXdk::XP_STATUS getNumOfEntry(uint8_t device, XpXdk::xpIaclType_e table, uint32_t& count) override;

private:
  // The checks that every row access begins with; on success `tcam` is the table and holds the row.
  XpXdk::XP_STATUS find(uint8_t device, XpXdk::xpIaclType_e table, uint32_t tcamIdx, TcamTable*& tcam);
  System& system_;
};

class CounterManager : public XpXdk::xpAcmMgr {
public:
  explicit CounterManager(System& system) : system_(system) {}
  XpXdk::XP_STATUS readCounter(uint8_t device, XpXdk::xpAcmClient_e client, uint32_t index,
                               uint64_t& count) override;

private:
  System& system_;
};

class PortConfigManager : public XpXdk::xpPortConfigMgr {
public:
  explicit PortConfigManager(System& system) : system_(system) {}
  XpXdk::XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override;
  XpXdk::XP_STATUS writeEntry(uint8_t device, uint32_t portNumber,
                              const XpXdk::xpPortConfigEntry* entry) override;
  XpXdk::XP_STATUS readEntry(uint8_t device, uint32_t portNumber, XpXdk::xpPortConfigEntry* entry,
                             uint8_t copy) override;

private:
  System& system_;
};

class PortVlanManager : public XpXdk::xpPortVlanIvifMgr {
public:
  explicit PortVlanManager(System& system) : system_(system) {}
  XpXdk::XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override;
  XpXdk::XP_STATUS addEntry(uint8_t device, uint8_t copy, const XpXdk::xpPortVlanIvifEntry* entry,
                            std::vector<uint32_t>& indexList) override;
  XpXdk::XP_STATUS writeEntry(uint8_t device, uint8_t copy, uint32_t index,
                              const XpXdk::xpPortVlanIvifEntry* entry) override;
  XpXdk::XP_STATUS removeEntry(uint8_t device, uint32_t index) override;
  XpXdk::XP_STATUS readEntry(uint8_t device, uint32_t index, XpXdk::xpPortVlanIvifEntry* entry,
                             uint8_t copy) override;

private:
  System& system_;
};

class EgressManager : public XpXdk::xpEgressBdEvifMgr {
public:
  explicit EgressManager(System& system) : system_(system) {}
  XpXdk::XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override;
  XpXdk::XP_STATUS addEntry(uint8_t device, const XpXdk::xpEgressBdEvifEntry* entry,
                            std::vector<uint32_t>& indexList) override;
  XpXdk::XP_STATUS writeEntry(uint8_t device, uint32_t index,
                              const XpXdk::xpEgressBdEvifEntry* entry) override;
  XpXdk::XP_STATUS lookup(uint8_t device, const XpXdk::xpEgressBdEvifEntry* entry, uint32_t& index) override;
  XpXdk::XP_STATUS removeEntry(uint8_t device, uint32_t index) override;
  XpXdk::XP_STATUS readEntry(uint8_t device, uint32_t index, XpXdk::xpEgressBdEvifEntry* entry,
                             uint8_t copy) override;

private:
  System& system_;
};

struct System::Managers : XpXdk::xpDeviceMgr, XpXdk::xpAclPl, XpXdk::xpIfPl {
  explicit Managers(System& system)
      : system(system), tcam(system), counters(system), portConfigs(system), portVlans(system),
        egresses(system) {}

  XpXdk::xpDevice* device(uint8_t deviceId) override { return system.device(deviceId); }
  XpXdk::xpIaclMgr* iaclMgr(uint32_t) override { return &tcam; }
  XpXdk::xpAcmMgr* acmMgr() override { return &counters; }
  XpXdk::xpPortConfigMgr* portConfigMgr() override { return &portConfigs; }
  XpXdk::xpPortVlanIvifMgr* portVlanIvifMgr() override { return &portVlans; }
  XpXdk::xpEgressBdEvifMgr* egressBdEvifMgr() override { return &egresses; }

  System& system;
  TcamManager tcam;
  CounterManager counters;
  PortConfigManager portConfigs;
  PortVlanManager portVlans;
  EgressManager egresses;
};

// Executes one SDK call with everything that surrounds it. `arguments` makes the text behind the device
// in the log; it refers to the caller's arguments and is called only when someone reads the text. `place`
// may be completed while the call is executed.
template <typename Arguments, typename Execute>
XpXdk::XP_STATUS System::perform(Op op, uint8_t device, const CallPlace& place, const Arguments& arguments,
                                 const Execute& execute) {
  ++numCalls_;
  const bool write = isWrite(op);
  numWrites_ += write;
  const bool hooked = write && (beforeWrite_ || afterWrite_);
  if (!logEnabled_ && !hooked) {
    return execute();
  }
  Call call(op, device, arguments, place);
  if (write && beforeWrite_) {
    beforeWrite_(call);
  }
  call.statusIs(execute());
  if (logEnabled_) {
    log_.push_back(call.text());
  }
  if (write && afterWrite_) {
    afterWrite_(call);
  }
  return call.status();
}

template <typename Count>
XpXdk::XP_STATUS System::numOfEntry(uint8_t device, uint32_t& count, const Count& countOf) {
  if (device > maxDevice) {
    sdkLog_ += "Invalid device Id " + std::to_string(device) + " specified\n";
    return XpXdk::statusInvalidDevice;
  }
  const Device* d = this->device(device);
  if (!d) {
    sdkLog_ += "The device " + std::to_string(device) + " is not added in primitive manager\n";
    return XpXdk::statusInvalidDevice;
  }
  return countOf(*d, count);
}

} // namespace sim
