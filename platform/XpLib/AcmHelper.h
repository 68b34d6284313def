#pragma once

#include "Scribe/Dal.h"
#include "Vane/Vane.h"
#include "XpXdk/DeviceId.h"

namespace XpLib {

// One direction's block of hit counters. Counter indexes are the chip's own (identity); counts live
// in the chip and run freely, so this helper only remembers what it last read of each.
class AcmHelper : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpLib, AcmHelper, Vane::PtrInterface, CONST(XpXdk::XpDeviceId, device),
              CONST(XpXdk::xpAcmClient_e, client), CONST(XpXdk::XP_ACM_CONFIG_MODE, mode),
              CONST(Vane::U32, baseIndex), CONST(Vane::Ptr<Scribe::Dal>, dal),
              MAP(Vane::U32, Vane::String, acmIdx, AcmIdx),    // indexes in use, with their labels
              MAP(Vane::U32, Vane::U64, lastCount, LastCount)) // what each read last

  AcmHelper(XpXdk::XpDeviceId device, XpXdk::xpAcmClient_e client, XpXdk::XP_ACM_CONFIG_MODE mode,
            Vane::U32 baseIndex, const Vane::Ptr<Scribe::Dal>& dal)
      : device_(device), client_(client), mode_(mode), baseIndex_(baseIndex), dal_(dal) {}

  // Takes counter `index` for the rule labelled `name` and starts it at 0. Answers `index`, or
  // baseIndex() (the counter that nobody reads) when the index is in use already.
  Vane::U32 getAcmIdx(Vane::U32 index, const Vane::String& name);
  // Gives the counter back; an index that is not in use is left alone.
  void freeAcmIdx(Vane::U32 index);
  // Hits since this counter was last read, or taken.
  Vane::U64 getCounterValue(Vane::U32 index);
};
VANE_FACTORY_DECLARED(AcmHelper, acmHelperFactory)

} // namespace XpLib
