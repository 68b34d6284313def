#pragma once

#include "Bridging/VlanId.h"
#include "Ovnet/IntfId.h"
#include "Plex/PlexCommonSmData.h"
#include "Vane/Vane.h"
#include "XpAclTcam/XpAclApi.h"
#include "XpAclTcam/XpAclVlanVifKey.h"
#include "XpLib/KeyAndIndexMap.h"

// Shared objects that the ACL helper and the ACL-id state machines pass between each other.

namespace XpAcl {

// Interfaces whose traffic is to be blocked. The agent-wide set is written by the ACL helper; each
// chip has a copy of its own.
class XPACL_API BlockedIntfColl : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, BlockedIntfColl, Vane::PtrInterface, SET(Ovnet::IntfId, intf, Intf))
};
VANE_FACTORY_DECLARED(BlockedIntfColl, blockedIntfCollFactory)

// VLANs whose traffic is to be blocked, on every chip.
class XPACL_API BlockedVlanColl : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, BlockedVlanColl, Vane::PtrInterface, SET(Bridging::VlanId, vlan, Vlan))
};
VANE_FACTORY_DECLARED(BlockedVlanColl, blockedVlanCollFactory)

using VlanVifIndexMap = XpLib::KeyAndIndexMap<XpAclVlanVifKey>; // both ways between keys and hardware indexes

// The agent-wide shared data of this chip family. Never restored from a backup copy.
class XPACL_API XpAclCommonSmData : public Plex::PlexCommonSmData {
public:
  VANE_ENTITY(XpAcl, XpAclCommonSmData, Plex::PlexCommonSmData,
              // Indexes of the port-VLAN ingress-VIF entries and of the egress-BD egress-VIF entries.
              PTR(VlanVifIndexMap, portVlanIvifKeyAndIndexMap, PortVlanIvifKeyAndIndexMap),
              PTR(VlanVifIndexMap, egressVlanVifKeyAndIndexMap, EgressVlanVifKeyAndIndexMap))

  explicit XpAclCommonSmData(const Vane::Name& name) : Plex::PlexCommonSmData(name) {}

  bool hasBackupSupport() const override { return false; }
};
VANE_FACTORY_DECLARED(XpAclCommonSmData, xpAclCommonSmDataFactory)

} // namespace XpAcl
