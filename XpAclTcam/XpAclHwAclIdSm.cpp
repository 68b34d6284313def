#include "XpAclTcam/XpAclHwAclIdSm.h"

#include "XpAclTcam/XpAclHwAclIdUnit.h"

#include <vector>

// Construction, port ACLs, and the agent-wide split of the (port, VLAN) to VIF map.

namespace XpAcl {

Vane::TraceHandle& hwAclIdTrace() {
  static Vane::TraceHandle handle("XpAclHwAclIdSm");
  return handle;
}

XpLib::PortVlanIvifTableKey portVlanIvifTableKey(XpVif::VifId vif, Bridging::VlanId vlan) {
  return XpLib::PortVlanIvifTableKey((vif.value() << 16) | vlan.value());
}

// ------------------------------------------------------------------------------------------ HwAclIdSm

HwAclIdSm::HwAclIdSm(const Vane::Ptr<XpVif::PortVlanVifStatus const>& portVlanVifStatus,
                     const Vane::Ptr<XpVif::PortVifStatus const>& portVifStatus,
                     const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
                     const Vane::Ptr<XpAclCommonSmData>& xpcsd, const Vane::Ptr<Scribe::Dal>& dal,
                     const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus)
    : portVifStatus_(portVifStatus), systemStatus_(systemStatus), xpcsd_(xpcsd), dal_(dal),
      tcamPartitionStatus_(tcamPartitionStatus), watchedPortVlanVifStatus_(portVlanVifStatus) {}

void HwAclIdSm::attach() {
  portVlanVifStatusIs(watchedPortVlanVifStatus_);
}

void HwAclIdSm::handlePortVlanToVifMap(const XpLib::PortAndVlanId& key) {
  if (!initialized()) {
    return;
  }
  const Ovnet::IntfId intf = key.intf();
  HWACLID_TRACE("handlePortVlanToVifMap"
                << " intf " << intf << " vlan " << key.vlanId());
  if (Ovnet::PortChannelIntfId::isPortChannelIntfId(intf)) {
    HWACLID_TRACE(" ignoring port channel intf " << intf);
    return;
  }
  const Plex::Central::ChipPort chipPort = systemStatus()->intfToChipPort(intf);
  if (!chipPort) {
    HWACLID_TRACE(" intf " << intf << " not present in system status");
    return;
  }
  const XpXdk::XpDeviceId chip(static_cast<Vane::U8>(chipPort.chip().value()));
  Vane::Ptr<XpVif::PortVlanVifStatus> status = chipPortVlanVifStatus(chip);
  if (!status) {
    status = XpVif::portVlanVifStatusFactory(Vane::format("chip%u", chip.value()));
    chipPortVlanVifStatusIs(chip, status);
    handleChipPortVlanVifStatus(chip);
  }
  if (const XpVif::VifId* const vif = portVlanVifStatus()->portVlanToVifMapFind(key)) {
    status->portVlanToVifMapIs(key, *vif);
    HWACLID_TRACE(" add port " << intf << " to vif " << *vif);
  } else {
    status->portVlanToVifMapDel(key);
    HWACLID_TRACE(" delete port " << intf);
  }
}

void HwAclIdSm::handlePortVlanToVifMap() {
  for (const auto& pair : portVlanVifStatus()->portVlanToVifMapAll()) {
    handlePortVlanToVifMap(pair.key());
  }
}

// -------------------------------------------------------------------------------------- ChipHwAclIdSm

ChipHwAclIdSm::ChipHwAclIdSm(XpXdk::XpDeviceId chipId,
                             const Vane::Ptr<XpVif::PortVifStatus const>& portVifStatus,
                             const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
                             const Vane::Ptr<XpAclCommonSmData>& xpcsd, const Vane::Ptr<Scribe::Dal>& dal,
                             const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus)
    : chipId_(chipId), portVifStatus_(portVifStatus), systemStatus_(systemStatus), xpcsd_(xpcsd), dal_(dal),
      tcamPartitionStatus_(tcamPartitionStatus) {}

void ChipHwAclIdSm::vaneConstructed() {
  chipHwAclIdMapIs(chipHwAclIdMapFactory());
}

XpVif::VifId ChipHwAclIdSm::vifOf(Bridging::VlanId vlan, Ovnet::IntfId intf) const {
  const auto status = chipPortVlanVifStatus();
  return status ? status->portVlanToVifMap(XpLib::PortAndVlanId(intf, vlan)) : XpVif::VifId();
}

void ChipHwAclIdSm::handleIngressPortAclIdEn(Ovnet::IntfId intf) {
  if (initialized()) {
    programIngressPAcl(intf);
  }
}

void ChipHwAclIdSm::handleIngressPortAclIdEn() {
  if (!initialized()) {
    return;
  }
  HWACLID_TRACE("handleIngressPortAclIdEn"
                << " chip " << chipId());
  for (const auto& entry : chipHwAclIdMap()->ingressPortAclIdEnAll()) {
    handleIngressPortAclIdEn(entry.key());
  }
}

void ChipHwAclIdSm::programIngressPAcl(Ovnet::IntfId intf) {
  if (!initialized()) {
    return;
  }
  const AclIdEn en = chipHwAclIdMap()->ingressPortAclIdEn(intf);
  const Plex::Central::ChipPort chipPort = systemStatus()->intfToChipPort(intf);
  if (!chipPort) {
    HWACLID_TRACE("programIngressPAcl"
                  << " intf " << intf << " does not seem to available. Not programming ");
    return;
  }
  const Vane::U32 portId = chipPort.port().value();
  const Vane::U8 aclEnBits = static_cast<Vane::U8>((en.v4En() ? 1 : 0) | (en.v6En() ? 2 : 0));
  XpXdk::xpPortConfigEntry portCfgEntry;
  portCfgEntry.portAclId = en.blocked() ? 0 : en.aclId();
  portCfgEntry.aclEnBits = aclEnBits;
  portCfgEntry.macAclEn = en.macEn() ? 1 : 0;
  HWACLID_TRACE("programIngressPAcl"
                << " chip " << chipId() << " intf " << intf << " portId " << portId << " PAclId "
                << portCfgEntry.portAclId << " v4En " << en.v4En() << " v6En " << en.v6En() << " aclEnBits "
                << aclEnBits << " blocked " << en.blocked() << " macAclEn " << en.macEn());
  HWACLID_CHECK_AT(279, portCfgMgr()->writeEntry(chipId().value(), portId, &portCfgEntry),
                   "((portCfgMgr()->writeEntry( chipId().value(), portId.value(), &portCfgEntry )))");
}

VANE_REGISTERED(BlockedIntfColl)
VANE_REGISTERED(BlockedVlanColl)
VANE_REGISTERED(XpAclCommonSmData)
VANE_MADE_BY_NAME(XpAclCommonSmData)
VANE_REGISTERED(ChipHwAclIdMap)
VANE_REGISTERED(AllAclVerEn)
VANE_REGISTERED(ChipHwAclIdSm)

} // namespace XpAcl
