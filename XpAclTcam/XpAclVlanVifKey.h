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
};

} // namespace XpAcl
