#include "XpLib/AcmHelper.h"

namespace XpLib {

namespace {
// Rows are written, read and retired in ascending order, and the counters of neighbours are two apart: what
// those that come soon need is fetched meanwhile.
template <class Map>
[[gnu::always_inline]] inline void expectNeighbours(const Map& map, Vane::U32 index) {
  constexpr Vane::U32 next = 2 * 6;
  constexpr Vane::U32 later = 2 * 12;
  map.expect(index + next, index + later);
}
} // namespace

Vane::U32 AcmHelper::getAcmIdx(Vane::U32 index, const Vane::String& name) {
  expectNeighbours(acmIdx_, index);
  expectNeighbours(lastCount_, index);
  if (!acmIdx_.insert(index, name)) {
    return baseIndex();
  }
  acmIdxNotify(index);
  lastCountIs(index, dal()->readCounter(device().value(), client(), index));
  return index;
}

void AcmHelper::freeAcmIdx(Vane::U32 index) {
  expectNeighbours(acmIdx_, index);
  acmIdxDel(index);
}

Vane::U64 AcmHelper::getCounterValue(Vane::U32 index) {
  expectNeighbours(lastCount_, index);
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

VANE_REGISTERED(AcmHelper)

} // namespace XpLib
