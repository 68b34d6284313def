#pragma once

#include "Vane/Vane.h"
#include "XpXdk/Managers.h"

namespace Scribe {

// Logged hardware access: the way to the chip's counters. Each read is traced.
class Dal : public Vane::PtrInterface {
public:
  VANE_ENTITY(Scribe, Dal, Vane::PtrInterface, SCALAR(Vane::U64, numReads, NumReads, 0))

  // `acm` (not owned) reads the counters; null: every counter reads 0.
  explicit Dal(XpXdk::xpAcmMgr* acm) : acm_(acm) {}

  // The free-running count of one counter; a counter that the chip refuses reads 0.
  Vane::U64 readCounter(Vane::U8 device, XpXdk::xpAcmClient_e client, Vane::U32 index);

private:
  XpXdk::xpAcmMgr* acm_;
};
VANE_FACTORY_DECLARED(Dal, dalFactory)

} // namespace Scribe
