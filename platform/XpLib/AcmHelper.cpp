#include "XpLib/AcmHelper.h"

namespace XpLib {

Vane::U32 AcmHelper::getAcmIdx(Vane::U32 index, const Vane::String& name) {
  if (!acmIdx_.insert(index, name)) {
    return baseIndex();
  }
  acmIdxNotify(index);
  lastCountIs(index, dal()->readCounter(device().value(), client(), index));
  return index;
}

void AcmHelper::freeAcmIdx(Vane::U32 index) {
  acmIdxDel(index);
}

Vane::U64 AcmHelper::getCounterValue(Vane::U32 index) {
  const Vane::U64 now = dal()->readCounter(device().value(), client(), index);
  const Vane::U64* const held = lastCountFind(index);
  if (held == nullptr) {
    lastCountIs(index, now);
    return now;
  }
  const Vane::U64 before = *held;
  if (before != now) {
    lastCountIs(index, now);
  }
  return now - before;
}

} // namespace XpLib
