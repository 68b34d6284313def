#include "Scribe/Dal.h"

namespace Scribe {

Vane::U64 Dal::readCounter(Vane::U8 device, XpXdk::xpAcmClient_e client, Vane::U32 index) {
  numReadsIs(numReads() + 1);
  uint64_t count = 0;
  if (acm_ == nullptr || acm_->readCounter(device, client, index, count) != XpXdk::statusOk) {
    return 0;
  }
  return count;
}

VANE_REGISTERED(Dal)

} // namespace Scribe
