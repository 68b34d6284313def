#pragma once

#include "Bridging/VlanId.h"
#include "Ovnet/IntfId.h"
#include "Vane/Vane.h"

namespace XpLib {

// One (port, VLAN) pair.
class PortAndVlanId {
public:
  VANE_VALUE(XpLib, PortAndVlanId, (Ovnet::IntfId, intf, Ovnet::IntfId()),
             (Bridging::VlanId, vlanId, Bridging::VlanId()))
};

// The key of one ingress port-VLAN table entry: (VIF << 16) | VLAN, computed in unsigned 32 bits.
VANE_WRAPPER_VALUE(XpLib, PortVlanIvifTableKey, Vane::U32, 0)

} // namespace XpLib
