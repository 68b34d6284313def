#include "XpXdk/DeviceId.h"

namespace XpXdk {

VANE_REGISTERED(XpDeviceIdColl)

} // namespace XpXdk
