#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "XpXdk/Managers.h"

#include "sim/Device.h"

// A system of simulated chips behind the SDK's interfaces.
//
// A System implements every manager of XpXdk/Managers.h for its devices. `install()` makes it the SDK of
// the process for as long as the returned object lives; several systems can exist side by side, and
// installations nest like a stack.
//
// It refuses what hardware refuses, with these statuses, tested in this order:
//   statusInvalidDevice    a device number above 63, or a device that is not in the system
//   statusInvalidTable     a table number that is none of the five
//   statusNotPresent (9)   any row of a table of size 0, and any entry read of one
//   statusRowOutOfRange    a TCAM row, port number or entry index behind the table's end
//   statusInvalidArgument  a null pointer, a key of another key type, an unknown data copy or counter
//                          client, a VLAN above 4094, a write to or removal of an unused index
//   statusInvalidField     a field id that the key type does not have, or one given twice
//   statusInvalidWidth     a field of the wrong width or outside the key's buffer, an enable field too big
//   statusTableFull, statusDuplicateKey   adding to a full table, or a key that stands already
//   statusNotFound (41)    egress lookup of an absent key; reading an index that is not used
// A refused call changes nothing.
//
// The call log records each SDK call as one line of text when enabled, "writeKeyMask d0 TACL_V4_IACL 5
// aclId=0001/0000 flags=00/fe"; a refused one ends in " -> " and the status. While it is disabled and no
// hook is set, no text is made.

namespace sim {

constexpr uint8_t maxDevice = 63; // the SDK knows 64 devices

enum class Op : uint8_t { // the calls of the SDK
  writeKeyMask,
  writeData,
  setEntryValid,
  readEntry,
  getNumOfEntry,
  readCounter,
  portConfigWrite,
  portConfigRead,
  portVlanAdd,
  portVlanWrite,
  portVlanRemove,
  portVlanRead,
  egressAdd,
  egressWrite,
  egressRemove,
  egressLookup,
  egressRead,
};
const char* opName(Op op); // as it stands in the log
// Whether the operation changes the chip.
constexpr bool isWrite(Op op) {
  switch (op) {
  case Op::writeKeyMask:
  case Op::writeData:
  case Op::setEntryValid:
  case Op::portConfigWrite:
  case Op::portVlanAdd:
  case Op::portVlanWrite:
  case Op::portVlanRemove:
  case Op::egressAdd:
  case Op::egressWrite:
  case Op::egressRemove:
    return true;
  default:
    return false;
  }
}

// What a call writes to: a row of a TCAM table and, for data, one of its copies; a port; or an index of a
// keyed table, which an addition knows only when it is done.
struct CallPlace {
  XpXdk::xpIaclType_e table = XpXdk::TACL_V4_IACL;
  uint32_t index = 0;
  uint8_t copy = 0;
};

// One SDK call while it happens. The texts are made when asked for.
class Call {
public:
  Call(Op op, uint8_t device, std::function<std::string()> arguments, const CallPlace& place)
      : op_(op), device_(device), arguments_(std::move(arguments)), place_(place) {}
  Op op() const { return op_; }
  uint8_t device() const { return device_; }
  // Of a write. May be refused for what it names.
  const CallPlace& place() const { return place_; }
  // The status; statusOk before the call is executed.
  XpXdk::XP_STATUS status() const { return status_; }
  void statusIs(XpXdk::XP_STATUS status) { status_ = status; }
  std::string text() const;

private:
  Op op_;
  uint8_t device_;
  XpXdk::XP_STATUS status_ = XpXdk::statusOk;
  std::function<std::string()> arguments_;
  const CallPlace& place_;
};

class System { // not for several threads at once
public:
  System();
  // A system with one device 0.
  explicit System(const DeviceConfig& device0);
  ~System();
  System(const System&) = delete;
  System& operator=(const System&) = delete;

  // Adds a chip (number 0..63, not there yet).
  Device& deviceAdd(uint8_t number, const DeviceConfig& config = {});
  void deviceDel(uint8_t number);
  // Null when there is none.
  Device* device(uint8_t number) { return number <= maxDevice ? byNumber_[number] : nullptr; }
  const Device* device(uint8_t number) const { return number <= maxDevice ? byNumber_[number] : nullptr; }
  const std::map<uint8_t, std::unique_ptr<Device>>& devices() const { return devices_; }

  // The managers, as the SDK hands them out.
  XpXdk::xpDeviceMgr& deviceMgr();
  XpXdk::xpAclPl& aclPl();
  XpXdk::xpIfPl& ifPl();

  // While it lives the system is the process's SDK; its end restores what was installed before. Must not
  // outlive the system.
  class Installation {
  public:
    Installation(XpXdk::xpDeviceMgr* deviceMgr, XpXdk::xpAclPl* aclPl, XpXdk::xpIfPl* ifPl);
    ~Installation();
    Installation(Installation&& other) noexcept;
    Installation& operator=(Installation&&) = delete;

  private:
    bool active_ = true;
    XpXdk::xpDeviceMgr* deviceMgrBefore_;
    XpXdk::xpAclPl* aclPlBefore_;
    XpXdk::xpIfPl* ifPlBefore_;
  };
  [[nodiscard]] Installation install(); // until the result ends

  // The call log. Turning it off keeps what it holds.
  void logEnabledIs(bool enabled) { logEnabled_ = enabled; }
  bool logEnabled() const { return logEnabled_; }
  const std::vector<std::string>& log() const { return log_; }
  // All lines, each ended by a newline.
  std::string logText() const;
  void logClear() { log_.clear(); }

  // Calls since the system was made; refused ones count too.
  uint64_t numCalls() const { return numCalls_; }
  uint64_t numWrites() const { return numWrites_; }

  // Called right before and right after each write is executed. A hook may look at the chip and send
  // packets through it; it must not call the SDK. An empty function removes the hook.
  using WriteHook = std::function<void(const Call& call)>;
  void beforeWriteIs(WriteHook hook) { beforeWrite_ = std::move(hook); }
  void afterWriteIs(WriteHook hook) { afterWrite_ = std::move(hook); }

  // The SDK's own log, where its table managers report errors.
  const std::string& sdkLog() const { return sdkLog_; }
  void sdkLogClear() { sdkLog_.clear(); }

private:
  struct Managers;
  friend class TcamManager;
  friend class CounterManager;
  friend class PortConfigManager;
  friend class PortVlanManager;
  friend class EgressManager;

  template <typename Arguments, typename Execute>
  XpXdk::XP_STATUS perform(Op op, uint8_t device, const Arguments& arguments, const Execute& execute) {
    return perform(op, device, CallPlace(), arguments, execute);
  }
  template <typename Arguments, typename Execute>
  XpXdk::XP_STATUS perform(Op op, uint8_t device, const CallPlace& place, const Arguments& arguments,
                           const Execute& execute);
  // The number of entries of a table of `device`, with the SDK log's messages about unknown devices.
  template <typename Count>
  XpXdk::XP_STATUS numOfEntry(uint8_t device, uint32_t& count, const Count& countOf);

  std::map<uint8_t, std::unique_ptr<Device>> devices_;
  std::array<Device*, maxDevice + 1> byNumber_{}; // the same; each call asks for one
  std::unique_ptr<Managers> managers_;
  bool logEnabled_ = false;
  std::vector<std::string> log_;
  uint64_t numCalls_ = 0;
  uint64_t numWrites_ = 0;
  WriteHook beforeWrite_;
  WriteHook afterWrite_;
  std::string sdkLog_;
};

} // namespace sim
