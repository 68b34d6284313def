#include "XpAclTcam/XpAclTcamHwAclIdSm.h"

#include "XpAclTcam/XpAclSdkCheck.h"

// The agent-wide machine.

#define TCAM_HWACLID_TRACE(pieces) VANE_TRACE(XpAcl::tcamHwAclIdTrace(), 7, "XpAclTcamHwAclIdSm", pieces)
#define TCAM_HWACLID_ASSERT(condition, text) XPACL_ASSERT_TEXT("XpAclTcamHwAclIdSm", condition, text)

namespace XpAcl {

Vane::TraceHandle& tcamHwAclIdTrace() {
  static Vane::TraceHandle handle("XpAclTcamHwAclIdSm");
  return handle;
}

TcamHwAclIdSm::TcamHwAclIdSm(const Vane::Ptr<XpVif::PortVlanVifStatus const>& portVlanVifStatus,
                             const Vane::Ptr<XpVif::PortVifStatus const>& portVifStatus,
                             const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
                             const Vane::Ptr<XpAclCommonSmData>& xpcsd, const Vane::Ptr<Scribe::Dal>& dal,
                             const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus,
                             const Vane::Ptr<AclIdMapping const>& aclIdMapping,
                             const Vane::Ptr<BlockedIntfColl const>& blockedIntfColl,
                             const Vane::Ptr<XpXdk::XpDeviceIdColl const>& activeXpDeviceColl)
    : HwAclIdSm(portVlanVifStatus, portVifStatus, systemStatus, xpcsd, dal, tcamPartitionStatus),
      watchedAclIdMapping_(aclIdMapping), watchedBlockedIntfColl_(blockedIntfColl),
      watchedActiveXpDeviceColl_(activeXpDeviceColl) {}

TcamHwAclIdSm::~TcamHwAclIdSm() {
  chipHwAclIdSmDelAll();
}

void TcamHwAclIdSm::vaneConstructed() {
  attach();
  aclIdMappingIs(watchedAclIdMapping_);
  blockedIntfCollIs(watchedBlockedIntfColl_);
  activeXpDeviceCollIs(watchedActiveXpDeviceColl_);
  handleInitialized();
}

void TcamHwAclIdSm::handleInitialized() {
  TCAM_HWACLID_TRACE("HwAclIdSm::"
                     << "handleInitialized");
  initializedIs(true);
  handleXpDevice();
  handleBlockedIntf();
  handlePortVlanToVifMap();
  handleKeyToAclIdMapping();
  handleIntfDirectionToIndexKey();
}

Vane::Ptr<BlockedVlanColl> TcamHwAclIdSm::blockedVlanCollIs() {
  if (!sharedBlockedVlanColl()) {
    const auto coll = blockedVlanCollFactory();
    coll->hasNotificationActiveIs(true);
    sharedBlockedVlanCollIs(coll);
  }
  return sharedBlockedVlanColl();
}

void TcamHwAclIdSm::handleXpDevice(XpXdk::XpDeviceId chipId) {
  if (!initialized()) {
    TCAM_HWACLID_TRACE("handleXpDevice"
                       << "before init chipId " << chipId);
    return;
  }
  TCAM_HWACLID_TRACE("TcamHwAclIdSm::"
                     << "handleXpDevice"
                     << " chipId " << chipId);
  if (!activeXpDeviceColl()->deviceIdHas(chipId)) {
    chipHwAclIdSmDel(chipId);
    chipAclIdMappingDel(chipId);
    return;
  }
  // Made anew on every pass, without a look at what is there: the device set notifies a chip only when it is
  // added or removed, and a second pass for a live machine is an error that the collection raises.
  chipAclIdMappingIs(chipId, aclIdMappingFactory());
  chipBlockedIntfCollIs(chipId, blockedIntfCollFactory());
  blockedVlanCollIs();
  const auto machine = chipHwAclIdSmIs(chipId, portVifStatus(), systemStatus(), xpcsd(), dal(),
                                       tcamPartitionStatus(), chipAclIdMapping(chipId));
  machine->chipBlockedIntfCollIs(chipBlockedIntfColl(chipId));
  if (const auto status = chipPortVlanVifStatus(chipId)) {
    machine->ChipHwAclIdSm::handleChipPortVlanVifStatus(status);
  }
  machine->blockedVlanCollIs(sharedBlockedVlanColl());
}

void TcamHwAclIdSm::handleXpDevice() {
  for (const auto& device : activeXpDeviceColl()->deviceIdAll()) {
    handleXpDevice(device.key());
  }
}

void TcamHwAclIdSm::handleKeyToAclIdMapping(const HwAclIndexKey& key) {
  if (!initialized()) {
    return;
  }
  TCAM_HWACLID_TRACE("TcamHwAclIdSm::"
                     << "handleKeyToAclIdMapping");
  const AclId* const aclId = aclIdMapping()->keyToAclIdMappingFind(key);
  for (const auto& chip : chipAclIdMappingAll()) {
    if (aclId != nullptr) {
      chip.value()->keyToAclIdMappingIs(key, *aclId);
    } else {
      chip.value()->keyToAclIdMappingDel(key);
    }
  }
}

void TcamHwAclIdSm::handleKeyToAclIdMapping() {
  for (const auto& entry : aclIdMapping()->keyToAclIdMappingAll()) {
    handleKeyToAclIdMapping(entry.key());
  }
}

void TcamHwAclIdSm::handleIntfDirectionToIndexKey(const IntfIdDirection& key) {
  if (!initialized()) {
    return;
  }
  TCAM_HWACLID_TRACE("TcamHwAclIdSm::"
                     << "handleIntfDirectionToIndexKey");
  const Ovnet::IntfId intf = key.intfId();
  const bool isVlan = Ovnet::VlanIntfId::isVlanIntfId(intf);
  TCAM_HWACLID_ASSERT(isVlan || Ovnet::EthIntfId::isEthIntfId(intf),
                      "false && \"Invalid interface type selected\"");
  const bool present = aclIdMapping()->intfDirectionToIndexKeyHas(key);
  const HwAclIndexKey indexKey = aclIdMapping()->intfDirectionToIndexKey(key);
  if (isVlan) {
    for (const auto& chip : chipAclIdMappingAll()) {
      if (present) {
        chip.value()->intfDirectionToIndexKeyIs(key, indexKey);
      } else {
        chip.value()->intfDirectionToIndexKeyDel(key);
      }
    }
    return;
  }
  const Plex::Central::ChipPort chipPort = systemStatus()->intfToChipPort(intf);
  if (!present) {
    if (!systemStatus()->intfToChipPortHas(intf)) {
      TCAM_HWACLID_TRACE(" intf " << intf << " not present in current system ");
      return;
    }
    const auto mapping = chipAclIdMapping(XpXdk::XpDeviceId(static_cast<Vane::U8>(chipPort.chip().value())));
    if (mapping) {
      mapping->intfDirectionToIndexKeyDel(key);
    }
    return;
  }
  TCAM_HWACLID_ASSERT(!!chipPort, "!!chipPort");
  const auto mapping = chipAclIdMapping(XpXdk::XpDeviceId(static_cast<Vane::U8>(chipPort.chip().value())));
  TCAM_HWACLID_ASSERT(mapping, "chipAclIdMapping( chipId )");
  mapping->intfDirectionToIndexKeyIs(key, indexKey);
}

void TcamHwAclIdSm::handleIntfDirectionToIndexKey() {
  for (const auto& entry : aclIdMapping()->intfDirectionToIndexKeyAll()) {
    handleIntfDirectionToIndexKey(entry.key());
  }
}

void TcamHwAclIdSm::handleBlockedIntf(Ovnet::IntfId intf) {
  if (!initialized()) {
    return;
  }
  TCAM_HWACLID_TRACE("TcamHwAclIdSm::"
                     << "handleBlockedIntf");
  if (Ovnet::VlanIntfId::isVlanIntfId(intf)) {
    blockVlanIntf(intf);
  } else {
    blockPort(intf);
  }
}

void TcamHwAclIdSm::handleBlockedIntf() {
  for (const auto& entry : blockedIntfColl()->intfAll()) {
    handleBlockedIntf(entry.key());
  }
}

// A VLAN interface is blocked by membership, whatever the stored value.
void TcamHwAclIdSm::blockVlanIntf(Ovnet::IntfId intf) {
  const Bridging::VlanId vlan = Ovnet::VlanIntfId::vlanId(intf);
  if (!blockedIntfColl()->intfHas(intf)) {
    if (sharedBlockedVlanColl()) {
      sharedBlockedVlanColl()->vlanDel(vlan);
    }
    return;
  }
  if (!sharedBlockedVlanColl()) {
    blockedVlanCollIs();
    for (const auto& chip : chipHwAclIdSmAll()) {
      chip.ptr()->blockedVlanCollIs(sharedBlockedVlanColl());
    }
  }
  sharedBlockedVlanColl()->vlanIs(vlan, true);
}

// A port is blocked by the stored value.
void TcamHwAclIdSm::blockPort(Ovnet::IntfId intf) {
  if (!systemStatus()->intfToChipPortHas(intf)) {
    TCAM_HWACLID_TRACE(" intf " << intf << " not present in system status");
    return;
  }
  const Plex::Central::ChipPort chipPort = systemStatus()->intfToChipPort(intf);
  TCAM_HWACLID_ASSERT(!!chipPort, "!!chipPort");
  const XpXdk::XpDeviceId chip(static_cast<Vane::U8>(chipPort.chip().value()));
  if (!blockedIntfColl()->intf(intf)) {
    if (const auto blocked = chipBlockedIntfColl(chip)) {
      blocked->intfDel(intf);
    }
    return;
  }
  if (!chipBlockedIntfColl(chip)) {
    chipBlockedIntfCollIs(chip, blockedIntfCollFactory());
    if (const auto machine = chipHwAclIdSm(chip)) {
      machine->chipBlockedIntfCollIs(chipBlockedIntfColl(chip));
    }
  }
  chipBlockedIntfColl(chip)->intfIs(intf, true);
}

void TcamHwAclIdSm::handleChipPortVlanVifStatus(XpXdk::XpDeviceId chipId) {
  const auto machine = chipHwAclIdSm(chipId);
  const auto status = chipPortVlanVifStatus(chipId);
  if (machine && status) {
    machine->ChipHwAclIdSm::handleChipPortVlanVifStatus(status);
  }
}

VANE_REGISTERED(TcamHwAclIdSm)

} // namespace XpAcl
