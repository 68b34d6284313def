#include "sim/System.h"

#include <utility>

#include "Vane/Assert.h"

#include "sim/Managers.h"

namespace sim {

using namespace XpXdk;

const char* opName(Op op) {
  switch (op) {
  case Op::writeKeyMask:
    return "writeKeyMask";
  case Op::writeData:
    return "writeData";
  case Op::setEntryValid:
    return "setEntryValid";
  case Op::readEntry:
    return "readEntry";
  case Op::getNumOfEntry:
    return "getNumOfEntry";
  case Op::readCounter:
    return "readCounter";
  case Op::portConfigWrite:
    return "portConfigWrite";
  case Op::portConfigRead:
    return "portConfigRead";
  case Op::portVlanAdd:
    return "portVlanAdd";
  case Op::portVlanWrite:
    return "portVlanWrite";
  case Op::portVlanRemove:
    return "portVlanRemove";
  case Op::portVlanRead:
    return "portVlanRead";
  case Op::egressAdd:
    return "egressAdd";
  case Op::egressWrite:
    return "egressWrite";
  case Op::egressRemove:
    return "egressRemove";
  case Op::egressLookup:
    return "egressLookup";
  case Op::egressRead:
    return "egressRead";
  }
  return "unknown";
}

std::string Call::text() const {
  std::string text = std::string(opName(op_)) + " d" + std::to_string(device_);
  const std::string arguments = arguments_();
  if (!arguments.empty()) {
    text += " " + arguments;
  }
  if (status_ != statusOk) {
    text += " -> " + std::to_string(status_);
  }
  return text;
}

System::System() : managers_(std::make_unique<Managers>(*this)) {}
System::System(const DeviceConfig& device0) : System() {
  deviceAdd(0, device0);
}
System::~System() = default;

Device& System::deviceAdd(uint8_t number, const DeviceConfig& config) {
  VANE_ASSERT(number <= maxDevice);
  const auto [it, added] = devices_.emplace(number, std::make_unique<Device>(number, config));
  VANE_ASSERT(added);
  byNumber_[number] = it->second.get();
  return *it->second;
}

void System::deviceDel(uint8_t number) {
  if (devices_.erase(number) != 0) {
    byNumber_[number] = nullptr;
  }
}

xpDeviceMgr& System::deviceMgr() {
  return *managers_;
}
xpAclPl& System::aclPl() {
  return *managers_;
}
xpIfPl& System::ifPl() {
  return *managers_;
}

System::Installation::Installation(xpDeviceMgr* deviceMgr, xpAclPl* aclPl, xpIfPl* ifPl)
    : deviceMgrBefore_(xpDeviceMgr::install(deviceMgr)), aclPlBefore_(xpAclPl::install(aclPl)),
      ifPlBefore_(xpIfPl::install(ifPl)) {}

System::Installation::Installation(Installation&& other) noexcept
    : active_(std::exchange(other.active_, false)), deviceMgrBefore_(other.deviceMgrBefore_),
      aclPlBefore_(other.aclPlBefore_), ifPlBefore_(other.ifPlBefore_) {}

System::Installation::~Installation() {
  if (active_) {
    xpDeviceMgr::install(deviceMgrBefore_);
    xpAclPl::install(aclPlBefore_);
    xpIfPl::install(ifPlBefore_);
  }
}

System::Installation System::install() {
  return {managers_.get(), managers_.get(), managers_.get()};
}

std::string System::logText() const {
  std::string text;
  for (const std::string& line : log_) {
    text += line + "\n";
  }
  return text;
}

} // namespace sim
