#pragma once

#include "Vane/Vane.h"

// Chips and their ports as the agent numbers them.

namespace Plex::Central {

// A chip of the system: 0 to 63; 64 is the null device.
VANE_RANGE_VALUE(Plex::Central, DeviceId, Vane::U32, 0, 64, 64,
                 "DeviceId::value < DeviceId::min or > DeviceId::null not allowed")

VANE_WRAPPER_VALUE(Plex::Central, PortId, Vane::U16, 65535) // a port number of a chip; 65535: none

// A port of a chip. The default is the null chip port (chip 64, port 65535).
class ChipPort {
public:
  VANE_VALUE(Plex::Central, ChipPort, (DeviceId, chip, DeviceId()), (PortId, port, PortId()))

  bool operator!() const { return *this == ChipPort(); }
};

} // namespace Plex::Central
