#pragma once

#include "Vane/Vane.h"

namespace Bridging {

// A VLAN (IEEE 802.1Q, 9.6): 1 to 4094.
VANE_RANGE_VALUE(Bridging, VlanId, Vane::U16, 1, 4094, 1, "VlanId::value < 1 or > 4094 not allowed")

// A VLAN or 0 for none.
VANE_RANGE_VALUE(Bridging, VlanIdOrNone, Vane::U16, 0, 4094, 0, "VlanIdOrNone::value > 4094 not allowed")

} // namespace Bridging
