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

  friend Vane::U32 vaneSlot(const PortAndVlanId& pair) { // for hash maps
    return Vane::slotOfGrid(pair.intf().code(), pair.vlanId().value());
  }
};

// The key of one ingress port-VLAN table entry: (VIF << 16) | VLAN, computed in unsigned 32 bits.
VANE_WRAPPER_VALUE(XpLib, PortVlanIvifTableKey, Vane::U32, 0)
inline Vane::U32 vaneSlot(PortVlanIvifTableKey key) { // for hash maps
  return Vane::slotOfGrid(key.value() >> 16, key.value() & 0xFFFF);
}

} // namespace XpLib
