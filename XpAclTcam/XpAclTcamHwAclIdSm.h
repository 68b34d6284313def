#pragma once

#include "Plex/AclIdMapping.h"
#include "Vane/Vane.h"
#include "XpAclTcam/XpAclAgentCommon.h"
#include "XpAclTcam/XpAclApi.h"
#include "XpAclTcam/XpAclHwAclIdSm.h"
#include "XpXdk/DeviceId.h"

// Distribution of hardware ACL ids: one agent-wide machine follows the ACL-id mapping, the blocked
// interfaces and the active chips, and gives every chip's machine its own copy of what concerns it. Port
// ACLs reach the one chip of their port, routed ACLs every chip; hardware ACL ids are global.

namespace XpAcl {

// The trace handle of this unit, level 7.
XPACL_API Vane::TraceHandle& tcamHwAclIdTrace();

// One chip: computes what applies to each interface and VLAN and writes it into the chip's ChipHwAclIdMap.
class XPACL_API TcamChipHwAclIdSm : public ChipHwAclIdSm {
public:
  VANE_STATE_MACHINE(XpAcl, TcamChipHwAclIdSm, ChipHwAclIdSm,
                     CONST(Vane::Ptr<AclIdMapping const>, constructedAclIdMapping))
  // Reacts to index keys only: an ACL id reaches the chip when an interface is processed.
  VANE_REACTOR(TcamChipHwAclIdSm, AclIdMapping, chipAclIdMapping, ChipAclIdMapping,
               ON_KEYED(IntfDirectionToIndexKey, IntfIdDirection))
  VANE_REACTOR(TcamChipHwAclIdSm, BlockedIntfColl, chipBlockedIntfColl, ChipBlockedIntfColl,
               ON_KEYED_AS(Intf, Ovnet::IntfId, handleBlockedIntf))
  VANE_REACTOR(TcamChipHwAclIdSm, BlockedVlanColl, blockedVlanColl, BlockedVlanColl,
               ON_KEYED_AS(Vlan, Bridging::VlanId, handleBlockedVlan))
  VANE_REACTORS(chipAclIdMapping, chipBlockedIntfColl, blockedVlanColl)
  VANE_CONSTRUCTOR_PARAMS((portVifStatus), (systemStatus), (xpcsd), (dal), (tcamPartitionStatus),
                          (chipAclIdMapping))

  TcamChipHwAclIdSm(XpXdk::XpDeviceId chipId, const Vane::Ptr<XpVif::PortVifStatus const>& portVifStatus,
                    const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
                    const Vane::Ptr<XpAclCommonSmData>& xpcsd, const Vane::Ptr<Scribe::Dal>& dal,
                    const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus,
                    const Vane::Ptr<AclIdMapping const>& chipAclIdMapping);
  // Attaches to the mapping and runs handleInitialized() on the finished object.
  void vaneConstructed();

  // Makes the chip's map, takes the SDK's managers, and runs the first full pass.
  void handleInitialized();
  void doApplyConfig();

  void handleIntfDirectionToIndexKey(const IntfIdDirection& key);
  void handleIntfDirectionToIndexKey();
  // Assert "initialized()" and that their set is there; the key-less forms do nothing without it.
  void handleBlockedIntf(Ovnet::IntfId intf);
  void handleBlockedIntf();
  void handleBlockedVlan(Bridging::VlanId vlan);
  void handleBlockedVlan();

private:
  // Computes and writes the enables of one interface and direction; always writes, also all zero.
  void setAclIdEn(const IntfIdDirection& key);
};
VANE_FACTORY_DECLARED(TcamChipHwAclIdSm, tcamChipHwAclIdSmFactory)

// The agent-wide machine.
class XPACL_API TcamHwAclIdSm : public HwAclIdSm {
public:
  VANE_STATE_MACHINE(XpAcl, TcamHwAclIdSm, HwAclIdSm,
                     PTR(BlockedVlanColl, sharedBlockedVlanColl, SharedBlockedVlanColl), // one for all chips
                     MAP(XpXdk::XpDeviceId, Vane::Ptr<AclIdMapping>, chipAclIdMapping, ChipAclIdMapping),
                     MAP(XpXdk::XpDeviceId, Vane::Ptr<BlockedIntfColl>, chipBlockedIntfColl,
                         ChipBlockedIntfColl),
                     CHILDREN(XpXdk::XpDeviceId, TcamChipHwAclIdSm, chipHwAclIdSm, ChipHwAclIdSm))
  VANE_REACTOR(TcamHwAclIdSm, AclIdMapping, aclIdMapping, AclIdMapping,
               ON_KEYED(IntfDirectionToIndexKey, IntfIdDirection), ON_KEYED(KeyToAclIdMapping, HwAclIndexKey))
  VANE_REACTOR(TcamHwAclIdSm, BlockedIntfColl, blockedIntfColl, BlockedIntfColl,
               ON_KEYED_AS(Intf, Ovnet::IntfId, handleBlockedIntf))
  VANE_REACTOR(TcamHwAclIdSm, XpXdk::XpDeviceIdColl, activeXpDeviceColl, ActiveXpDeviceColl,
               ON_KEYED_AS(DeviceId, XpXdk::XpDeviceId, handleXpDevice))
  VANE_REACTORS(aclIdMapping, blockedIntfColl, activeXpDeviceColl)

  TcamHwAclIdSm(const Vane::Ptr<XpVif::PortVlanVifStatus const>& portVlanVifStatus,
                const Vane::Ptr<XpVif::PortVifStatus const>& portVifStatus,
                const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
                const Vane::Ptr<XpAclCommonSmData>& xpcsd, const Vane::Ptr<Scribe::Dal>& dal,
                const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus,
                const Vane::Ptr<AclIdMapping const>& aclIdMapping,
                const Vane::Ptr<BlockedIntfColl const>& blockedIntfColl,
                const Vane::Ptr<XpXdk::XpDeviceIdColl const>& activeXpDeviceColl);
  ~TcamHwAclIdSm() override;
  void vaneConstructed(); // attaches the reactors

  void handleInitialized();

  void handleXpDevice(XpXdk::XpDeviceId chipId);
  void handleXpDevice();
  void handleKeyToAclIdMapping(const HwAclIndexKey& key);
  void handleKeyToAclIdMapping();
  void handleIntfDirectionToIndexKey(const IntfIdDirection& key);
  void handleIntfDirectionToIndexKey();
  void handleBlockedIntf(Ovnet::IntfId intf);
  void handleBlockedIntf();
  void handleChipPortVlanVifStatus(XpXdk::XpDeviceId chipId) override;

  // The shared set of blocked VLANs, made when it is first needed.
  Vane::Ptr<BlockedVlanColl> blockedVlanCollIs();

private:
  void blockVlanIntf(Ovnet::IntfId intf);
  void blockPort(Ovnet::IntfId intf);

  Vane::Ptr<AclIdMapping const> watchedAclIdMapping_;
  Vane::Ptr<BlockedIntfColl const> watchedBlockedIntfColl_;
  Vane::Ptr<XpXdk::XpDeviceIdColl const> watchedActiveXpDeviceColl_;
};
VANE_FACTORY_DECLARED(TcamHwAclIdSm, tcamHwAclIdSmFactory)

} // namespace XpAcl
