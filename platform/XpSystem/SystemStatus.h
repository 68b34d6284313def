#pragma once

#include "Ovnet/IntfId.h"
#include "Plex/ChipPort.h"
#include "Vane/Vane.h"

namespace XpSystem {

// What is known of one chip.
class ChipInfo {
public:
  VANE_VALUE(XpSystem, ChipInfo, (Vane::String, name, Vane::String("")))
};

// Members of the chip family, as the device type numbers them.
constexpr Vane::U32 deviceTypeWithPartition = 5; // ACL tables follow the partition profile; has egress tables
constexpr Vane::U32 deviceTypeFixed = 6;         // ingress IP ACLs always

// System-wide status, written by the agent's platform layer.
class SystemStatus : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpSystem, SystemStatus, Vane::PtrInterface, SCALAR(Vane::U32, deviceType, DeviceType, 0),
              SCALAR(Vane::U32, mode, Mode, 0),
              SCALAR(Vane::U8, numTableCopies, NumTableCopies, 1), // copies of the port-VLAN table
              MAP(Ovnet::IntfId, Plex::Central::ChipPort, intfToChipPort, IntfToChipPort),
              MAP(Plex::Central::DeviceId, ChipInfo, chipInfo, ChipInfo))
};
VANE_FACTORY_DECLARED(SystemStatus, systemStatusFactory)

} // namespace XpSystem
