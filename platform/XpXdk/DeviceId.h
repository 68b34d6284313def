#pragma once

#include "Vane/Vane.h"

namespace XpXdk {

// The SDK's device number of a chip, passed on every SDK call. 127 is the null device.
VANE_WRAPPER_VALUE(XpXdk, XpDeviceId, Vane::U8, 127)

// The chips that are active.
class XpDeviceIdColl : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpXdk, XpDeviceIdColl, Vane::PtrInterface, SET(XpDeviceId, deviceId, DeviceId))
};
VANE_FACTORY_DECLARED(XpDeviceIdColl, xpDeviceIdCollFactory)

} // namespace XpXdk
