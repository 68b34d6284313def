#include "XpAclTcam/XpAclTcamHwAclIdSm.h"

#include "XpAclTcam/XpAclSdkCheck.h"

#include <initializer_list>

// The machine of one chip.

#define TCAM_CHIP_TRACE(pieces) VANE_TRACE(XpAcl::tcamHwAclIdTrace(), 7, "XpAclTcamHwAclIdSm", pieces)
#define TCAM_CHIP_ASSERT(condition, text) XPACL_ASSERT_TEXT("XpAclTcamHwAclIdSm", condition, text)

namespace XpAcl {

TcamChipHwAclIdSm::TcamChipHwAclIdSm(XpXdk::XpDeviceId chipId,
                                     const Vane::Ptr<XpVif::PortVifStatus const>& portVifStatus,
                                     const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
                                     const Vane::Ptr<XpAclCommonSmData>& xpcsd,
                                     const Vane::Ptr<Scribe::Dal>& dal,
                                     const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus,
                                     const Vane::Ptr<AclIdMapping const>& chipAclIdMapping)
    : ChipHwAclIdSm(chipId, portVifStatus, systemStatus, xpcsd, dal, tcamPartitionStatus),
      constructedAclIdMapping_(chipAclIdMapping) {}

void TcamChipHwAclIdSm::vaneConstructed() {
  ChipHwAclIdSm::vaneConstructed();
  chipAclIdMappingIs(constructedAclIdMapping());
  handleInitialized();
}

void TcamChipHwAclIdSm::handleInitialized() {
  TCAM_CHIP_TRACE("ChipHwAclIdSm::"
                  << "handleInitialized"
                  << " chip " << chipId());
  chipHwAclIdMapIs(chipHwAclIdMapFactory());
  if (XpXdk::xpIfPl* const pl = XpXdk::xpIfPl::instance()) {
    portCfgMgrIs(pl->portConfigMgr());
    portVlanIvifMgrIs(pl->portVlanIvifMgr());
    egressBdEvifMgrIs(pl->egressBdEvifMgr());
  }
  initializedIs(true);
  doApplyConfig();
}

void TcamChipHwAclIdSm::doApplyConfig() {
  TCAM_CHIP_TRACE("doApplyConfig"
                  << " chip " << chipId());
  handleBlockedIntf();
  handleBlockedVlan();
  handleIntfDirectionToIndexKey();
}

void TcamChipHwAclIdSm::handleIntfDirectionToIndexKey(const IntfIdDirection& key) {
  if (initialized()) {
    setAclIdEn(key);
  }
}

void TcamChipHwAclIdSm::handleIntfDirectionToIndexKey() {
  if (!chipAclIdMapping()) {
    return;
  }
  for (const auto& entry : chipAclIdMapping()->intfDirectionToIndexKeyAll()) {
    handleIntfDirectionToIndexKey(entry.key());
  }
}

void TcamChipHwAclIdSm::handleBlockedIntf(Ovnet::IntfId intf) {
  TCAM_CHIP_ASSERT(initialized(), "initialized()");
  TCAM_CHIP_ASSERT(chipBlockedIntfColl(), "chipBlockedIntfColl()");
  TCAM_CHIP_TRACE("TcamChipHwAclIdSm::"
                  << "handleBlockedIntf"
                  << " chip " << chipId() << " intf " << intf.stringValue());
  setAclIdEn(IntfIdDirection(intf, Acl::ingress));
  setAclIdEn(IntfIdDirection(intf, Acl::egress));
}

void TcamChipHwAclIdSm::handleBlockedIntf() {
  if (!chipBlockedIntfColl()) {
    return;
  }
  TCAM_CHIP_TRACE("TcamChipHwAclIdSm::"
                  << "handleBlockedIntf"
                  << " chipId " << chipId());
  for (const auto& entry : chipBlockedIntfColl()->intfAll()) {
    handleBlockedIntf(entry.key());
  }
}

void TcamChipHwAclIdSm::handleBlockedVlan(Bridging::VlanId vlan) {
  TCAM_CHIP_ASSERT(initialized(), "initialized()");
  TCAM_CHIP_ASSERT(blockedVlanColl(), "blockedVlanColl()");
  TCAM_CHIP_TRACE("TcamChipHwAclIdSm::"
                  << "handleBlockedVlan"
                  << " chip " << chipId() << " vlan " << vlan);
  const Ovnet::IntfId intf(Vane::format("Vlan%d", vlan.value()));
  setAclIdEn(IntfIdDirection(intf, Acl::ingress));
  setAclIdEn(IntfIdDirection(intf, Acl::egress));
}

void TcamChipHwAclIdSm::handleBlockedVlan() {
  if (!blockedVlanColl()) {
    return;
  }
  for (const auto& entry : blockedVlanColl()->vlanAll()) {
    handleBlockedVlan(entry.key());
  }
}

namespace {

// A family is enabled when any of its slots holds an ACL.
bool anySlot(const HwAclIndexKey& key, std::initializer_list<unsigned> slots) {
  const Plex::AclKey none;
  for (const unsigned slot : slots) {
    if (!(key.slot(slot) == none)) {
      return true;
    }
  }
  return false;
}

// A blocked interface makes every lookup, under id 0, and so meets the default entry of every table.
void block(AclIdEn& en) {
  en.blockedIs(true);
  en.v4EnIs(true);
  en.v6EnIs(true);
  en.macEnIs(true);
}

} // namespace

void TcamChipHwAclIdSm::setAclIdEn(const IntfIdDirection& key) {
  const Ovnet::IntfId intf = key.intfId();
  const bool ingress = key.direction() == Acl::ingress;
  TCAM_CHIP_TRACE("setAclIdEn"
                  << " intf " << intf << " direction " << key.direction());
  const HwAclIndexKey indexKey = chipAclIdMapping()->intfDirectionToIndexKey(key);
  AclIdEn en;
  en.aclIdIs(static_cast<Vane::U8>(chipAclIdMapping()->keyToAclIdMapping(indexKey).value()));
  en.v4EnIs(anySlot(indexKey, {0, 5, 2, 7}));
  en.v6EnIs(anySlot(indexKey, {1, 6, 3, 8}));
  en.macEnIs(anySlot(indexKey, {4})); // only the first MAC slot counts
  if (Ovnet::VlanIntfId::isVlanIntfId(intf)) {
    const Bridging::VlanId vlan = Ovnet::VlanIntfId::vlanId(intf);
    if (blockedVlanColl() && blockedVlanColl()->vlanHas(vlan)) {
      block(en);
    }
    if (ingress) {
      chipHwAclIdMap()->ingressRouteAclIdEnIs(vlan, en);
    } else {
      chipHwAclIdMap()->egressRouteAclIdEnIs(vlan, en);
    }
    return;
  }
  if (chipBlockedIntfColl() && chipBlockedIntfColl()->intfHas(intf)) {
    block(en);
  }
  if (ingress) {
    chipHwAclIdMap()->ingressPortAclIdEnIs(intf, en);
  } else {
    chipHwAclIdMap()->egressPortAclIdEnIs(intf, en);
  }
}

VANE_REGISTERED(TcamChipHwAclIdSm)

} // namespace XpAcl
