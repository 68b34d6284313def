#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "XpXdk/Managers.h"

#include "sim/System.h"

// Faults on purpose: a wrapper over the SDK's interfaces that answers a chosen status at the n-th call.
// It stands in front of any SDK, the simulated one or another wrapper. Calls are counted from 1; calls of
// all managers count together. The usual test runs a scenario with the fault at call 1, 2, 3 ... until
// `fired()` stays false.

namespace sim {

struct Fault {       // what happens to one call
  uint64_t call = 0; // the n-th call from the moment the fault is set, counted from 1; 0: no fault
  XpXdk::XP_STATUS status = XpXdk::statusInvalidArgument;
  bool writesOnly = false;               // count only calls that change the chip
  bool execute = false;                  // also execute the call that is answered with the fault
  std::optional<Op> only = std::nullopt; // count only calls of this operation
};

class FaultySdk { // an SDK that fails when told to
public:
  // Wraps the managers of `system`, which outlives the wrapper.
  explicit FaultySdk(System& system);
  // Wraps any SDK; nothing is owned.
  FaultySdk(XpXdk::xpDeviceMgr& deviceMgr, XpXdk::xpAclPl& aclPl, XpXdk::xpIfPl& ifPl);
  ~FaultySdk();
  FaultySdk(const FaultySdk&) = delete;
  FaultySdk& operator=(const FaultySdk&) = delete;

  // Sets the fault and starts counting anew. It fires once.
  void faultIs(const Fault& fault);
  bool fired() const;
  // Calls seen since the fault was set (all that its conditions count).
  uint64_t numCalls() const;

  XpXdk::xpDeviceMgr& deviceMgr();              // those that pass the calls on
  XpXdk::xpAclPl& aclPl();                      // those that pass the calls on
  XpXdk::xpIfPl& ifPl();                        // those that pass the calls on
  [[nodiscard]] System::Installation install(); // as System::install

private:
  struct Managers;
  std::unique_ptr<Managers> managers_;
};

} // namespace sim
