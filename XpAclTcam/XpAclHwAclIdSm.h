#pragma once

#include "Bridging/VlanId.h"
#include "Ovnet/IntfId.h"
#include "Plex/AclIdMapping.h"
#include "Scribe/Dal.h"
#include "Vane/Vane.h"
#include "XpAclTcam/XpAclAgentCommon.h"
#include "XpAclTcam/XpAclApi.h"
#include "XpLib/PortAndVlanId.h"
#include "XpLib/TcamPartitionStatus.h"
#include "XpSystem/SystemStatus.h"
#include "XpVif/VifStatus.h"
#include "XpXdk/DeviceId.h"
#include "XpXdk/Managers.h"

// Per-chip programming of hardware ACL ids: from the enables of ports and VLANs (ChipHwAclIdMap) to the
// chip's port-config table, port-VLAN ingress-VIF table and egress-BD egress-VIF table.
//
// Several (port, VLAN) pairs can resolve to one VIF and then share the entry (VIF, VLAN) of the two VIF
// tables. The pairs that use an entry are its reference count (VifVlanInfo); the last one that leaves takes
// the entry away. Entries are always built from nothing, never read, modified and written back.

namespace XpAcl {

// The trace handle of this unit, level 7.
XPACL_API Vane::TraceHandle& hwAclIdTrace();

// What applies to one interface or VLAN in one direction.
class XPACL_API AclIdEn {
public:
  VANE_VALUE_UNORDERED(XpAcl, AclIdEn, (Vane::U8, aclId, 0), // what the chip's lookup key carries
                       (bool, v4En, false),                  // which lookups are made
                       (bool, v6En, false), (bool, macEn, false),
                       (bool, blocked, false)) // the traffic is to be dropped
};

// The enables of one chip. An absent key: no ACL applies.
class XPACL_API ChipHwAclIdMap : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, ChipHwAclIdMap, Vane::PtrInterface,
              MAP(Ovnet::IntfId, AclIdEn, ingressPortAclIdEn, IngressPortAclIdEn),
              MAP(Bridging::VlanId, AclIdEn, ingressRouteAclIdEn, IngressRouteAclIdEn),
              MAP(Ovnet::IntfId, AclIdEn, egressPortAclIdEn, EgressPortAclIdEn),
              MAP(Bridging::VlanId, AclIdEn, egressRouteAclIdEn, EgressRouteAclIdEn))
};
VANE_FACTORY_DECLARED(ChipHwAclIdMap, chipHwAclIdMapFactory)

// All eight enables in one record (P: port ACL, R: routed ACL).
class XPACL_API AllAclVerEn : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, AllAclVerEn, Vane::PtrInterface, SCALAR(bool, ingressPaclV4En, IngressPaclV4En, false),
              SCALAR(bool, ingressPaclV6En, IngressPaclV6En, false),
              SCALAR(bool, ingressRaclV4En, IngressRaclV4En, false),
              SCALAR(bool, ingressRaclV6En, IngressRaclV6En, false),
              SCALAR(bool, egressPaclV4En, EgressPaclV4En, false),
              SCALAR(bool, egressPaclV6En, EgressPaclV6En, false),
              SCALAR(bool, egressRaclV4En, EgressRaclV4En, false),
              SCALAR(bool, egressRaclV6En, EgressRaclV6En, false))
};
VANE_FACTORY_DECLARED(AllAclVerEn, allAclVerEnFactory)

// The (port, VLAN) pairs that use one entry of the port-VLAN table.
class XPACL_API VifVlanInfo : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, VifVlanInfo, Vane::PtrInterface, CONST(XpLib::PortVlanIvifTableKey, tableKey),
              SMALL_SET(XpLib::PortAndVlanId, portVlan, PortVlan))

  explicit VifVlanInfo(const XpLib::PortVlanIvifTableKey& key) : tableKey_(key) {}
};

// (VIF << 16) | VLAN in unsigned 32 bits.
XPACL_API XpLib::PortVlanIvifTableKey portVlanIvifTableKey(XpVif::VifId vif, Bridging::VlanId vlan);

// One per agent: splits the system-wide (port, VLAN) to VIF map into one map for each chip.
class XPACL_API HwAclIdSm : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(XpAcl, HwAclIdSm, Vane::PtrInterface,
                     CONST(Vane::Ptr<XpVif::PortVifStatus const>, portVifStatus),
                     CONST(Vane::Ptr<XpSystem::SystemStatus const>, systemStatus),
                     CONST(Vane::Ptr<XpAclCommonSmData>, xpcsd), CONST(Vane::Ptr<Scribe::Dal>, dal),
                     CONST(Vane::Ptr<XpLib::TcamPartitionStatus const>, tcamPartitionStatus),
                     SCALAR(bool, initialized, Initialized, false),
                     MAP(XpXdk::XpDeviceId, Vane::Ptr<XpVif::PortVlanVifStatus>, chipPortVlanVifStatus,
                         ChipPortVlanVifStatus))
  VANE_REACTOR(HwAclIdSm, XpVif::PortVlanVifStatus, portVlanVifStatus, PortVlanVifStatus,
               ON_KEYED(PortVlanToVifMap, XpLib::PortAndVlanId))
  VANE_REACTORS(portVlanVifStatus)

  HwAclIdSm(const Vane::Ptr<XpVif::PortVlanVifStatus const>& portVlanVifStatus,
            const Vane::Ptr<XpVif::PortVifStatus const>& portVifStatus,
            const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
            const Vane::Ptr<XpAclCommonSmData>& xpcsd, const Vane::Ptr<Scribe::Dal>& dal,
            const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus);

  // Brings the chip of the pair's port in line with the system-wide map. Port-channels and ports that the
  // system does not know are traced and skipped.
  void handlePortVlanToVifMap(const XpLib::PortAndVlanId& key);
  void handlePortVlanToVifMap();
  // A chip's map was made: connects it to the chip's machine.
  virtual void handleChipPortVlanVifStatus(XpXdk::XpDeviceId) {}

protected:
  // Attaches the reactor; called on the finished object.
  void attach();

private:
  Vane::Ptr<XpVif::PortVlanVifStatus const> watchedPortVlanVifStatus_;
};

// One per chip: programs the chip's tables.
class XPACL_API ChipHwAclIdSm : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(XpAcl, ChipHwAclIdSm, Vane::PtrInterface, CONST(XpXdk::XpDeviceId, chipId),
                     CONST(Vane::Ptr<XpVif::PortVifStatus const>, portVifStatus),
                     CONST(Vane::Ptr<XpSystem::SystemStatus const>, systemStatus),
                     CONST(Vane::Ptr<XpAclCommonSmData>, xpcsd), CONST(Vane::Ptr<Scribe::Dal>, dal),
                     CONST(Vane::Ptr<XpLib::TcamPartitionStatus const>, tcamPartitionStatus),
                     SCALAR(bool, initialized, Initialized, false), // nothing is written before
                     MAP(Ovnet::IntfId, Ovnet::IntfId, portToLagCache, PortToLagCache),
                     MAP(XpLib::PortAndVlanId, XpVif::VifId, portVlanToVifCache, PortVlanToVifCache),
                     CHILDREN(XpLib::PortVlanIvifTableKey, VifVlanInfo, vifVlanInfo, VifVlanInfo))
  VANE_REACTOR_RW(ChipHwAclIdSm, ChipHwAclIdMap, chipHwAclIdMap, ChipHwAclIdMap,
                  ON_KEYED(IngressPortAclIdEn, Ovnet::IntfId),
                  ON_KEYED(IngressRouteAclIdEn, Bridging::VlanId), ON_KEYED(EgressPortAclIdEn, Ovnet::IntfId),
                  ON_KEYED(EgressRouteAclIdEn, Bridging::VlanId))
  VANE_REACTOR(ChipHwAclIdSm, XpVif::PortVlanVifStatus, chipPortVlanVifStatus, ChipPortVlanVifStatus,
               ON_KEYED_AS(PortVlanToVifMap, XpLib::PortAndVlanId, handlePortVlan))
  VANE_REACTORS(chipHwAclIdMap, chipPortVlanVifStatus)
  VANE_OPERATIONS(doShowPortVlanIvifTblEntries, doShowPortCfgTblEntries, doShowEgressBdEvifTblEntries)

  ChipHwAclIdSm(XpXdk::XpDeviceId chipId, const Vane::Ptr<XpVif::PortVifStatus const>& portVifStatus,
                const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
                const Vane::Ptr<XpAclCommonSmData>& xpcsd, const Vane::Ptr<Scribe::Dal>& dal,
                const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus);
  void vaneConstructed(); // attaches the reactors

  // The SDK's managers (not owned); null until set by the per-chip ACL-id machine.
  XpXdk::xpPortConfigMgr* portCfgMgr() const { return portCfgMgr_; }
  void portCfgMgrIs(XpXdk::xpPortConfigMgr* mgr) { portCfgMgr_ = mgr; }
  XpXdk::xpPortVlanIvifMgr* portVlanIvifMgr() const { return portVlanIvifMgr_; }
  void portVlanIvifMgrIs(XpXdk::xpPortVlanIvifMgr* mgr) { portVlanIvifMgr_ = mgr; }
  XpXdk::xpEgressBdEvifMgr* egressBdEvifMgr() const { return egressBdEvifMgr_; }
  void egressBdEvifMgrIs(XpXdk::xpEgressBdEvifMgr* mgr) { egressBdEvifMgr_ = mgr; }

  // Reactions to the enable map; the key-less forms re-apply every key.
  void handleIngressPortAclIdEn(Ovnet::IntfId intf);
  void handleIngressPortAclIdEn();
  void handleIngressRouteAclIdEn(Bridging::VlanId vlan);
  void handleIngressRouteAclIdEn();
  void handleEgressPortAclIdEn(Ovnet::IntfId intf);
  void handleEgressPortAclIdEn();
  void handleEgressRouteAclIdEn(Bridging::VlanId vlan);
  void handleEgressRouteAclIdEn();

  // Reactions to the chip's (port, VLAN) to VIF map.
  void handlePortVlan(const XpLib::PortAndVlanId& key);
  void handlePortVlan();
  void handleChipPortVlanVifStatus(const Vane::Ptr<XpVif::PortVlanVifStatus const>& status);

  // Write what applies now. SDK statuses 0 and 9 are accepted, 41 and 42 end the step silently, any other
  // ends the process.
  void programIngressPAcl(Ovnet::IntfId intf);
  void programIngressRAcl(Bridging::VlanId vlan, Ovnet::IntfId intf);
  void programEgressBdEvif(Bridging::VlanId vlan, Ovnet::IntfId intf);
  void deleteEgressBdEvifEntry(XpLib::PortVlanIvifTableKey tableKey);
  // A pair left the shared entry: the remaining users are programmed again, or the entry goes.
  void processPortVlanDeletion(XpLib::PortVlanIvifTableKey tableKey);

  // Print every entry of one chip table that carries ACL state on file descriptor `fd`, as the chip holds
  // it. Callable by name through the type record. A table without entries fails the assertion "numEntries".
  void doShowPortVlanIvifTblEntries(Vane::U32 fd, XpXdk::XpDeviceId device);
  void doShowPortCfgTblEntries(Vane::U32 fd, XpXdk::XpDeviceId device);
  void doShowEgressBdEvifTblEntries(Vane::U32 fd, XpXdk::XpDeviceId device);

private:
  XpVif::VifId vifOf(Bridging::VlanId vlan, Ovnet::IntfId intf) const;
  bool tracksVifs() const;
  void pairLeft(XpVif::VifId vif, const XpLib::PortAndVlanId& pair);
  void pairDeleted(const XpLib::PortAndVlanId& key);
  void pairAdded(const XpLib::PortAndVlanId& key, XpVif::VifId vif);
  void userLeft(const Vane::Ptr<VifVlanInfo>& info);
  void writeIngressRAcl(Bridging::VlanId vlan, XpVif::VifId vif, const AclIdEn& en);
  void removeIngressRAclEntry(Bridging::VlanId vlan, XpVif::VifId vif);
  void writeIngressRAclEntry(Bridging::VlanId vlan, XpVif::VifId vif, const XpXdk::xpPortVlanIvifEntry& entry,
                             bool wanted);
  void writeEgressBdEvif(Bridging::VlanId vlan, Ovnet::IntfId intf, XpVif::VifId vif, const AclIdEn& port,
                         const AclIdEn& route);

  XpXdk::xpPortConfigMgr* portCfgMgr_ = nullptr;
  XpXdk::xpPortVlanIvifMgr* portVlanIvifMgr_ = nullptr;
  XpXdk::xpEgressBdEvifMgr* egressBdEvifMgr_ = nullptr;
};
VANE_FACTORY_DECLARED(ChipHwAclIdSm, chipHwAclIdSmFactory)

} // namespace XpAcl
