#pragma once

#include "Bridging/VlanId.h"
#include "Vane/Vane.h"
#include "XpAclTcam/XpAclApi.h"
#include "XpVif/VifStatus.h"

namespace XpAcl {

// The key of hardware entries that are tracked per (VLAN, VIF). Default: VLAN 1, no VIF.
class XPACL_API XpAclVlanVifKey {
public:
  VANE_VALUE(XpAcl, XpAclVlanVifKey, (Bridging::VlanId, vlanId, Bridging::VlanId()),
             (XpVif::VifId, vif, XpVif::VifId()))

  friend Vane::U32 vaneSlot(const XpAclVlanVifKey& key) { // for hash maps
    return Vane::slotOfGrid(key.vif().value(), key.vlanId().value());
  }
};

} // namespace XpAcl
