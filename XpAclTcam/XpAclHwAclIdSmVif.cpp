#include "XpAclTcam/XpAclHwAclIdSm.h"

#include "XpAclTcam/XpAclHwAclIdUnit.h"

#include <vector>

// The two VIF tables: routed ACLs on port-VLAN entries, egress ACLs on egress-BD entries, and the reference
// counts of the entries that (port, VLAN) pairs share.

namespace XpAcl {

namespace {

// The chip's key fields have 16 bits; a pair without VIF has all ones there too.
Vane::U16 keyVif(XpVif::VifId vif) {
  return static_cast<Vane::U16>(vif.value());
}

constexpr Vane::U8 onlyCopy = 0;

// What failed calls name, whatever function makes them.
constexpr const char* ingressSignature =
    "void XpAcl::ChipHwAclIdSm::programIngressRAcl(Bridging::VlanId, Ovnet::IntfId)";
constexpr const char* egressSignature =
    "void XpAcl::ChipHwAclIdSm::programEgressBdEvif(Bridging::VlanId, Ovnet::IntfId)";

bool hasVif(XpVif::VifId vif) {
  return !(vif == XpVif::VifId());
}

Vane::U16 keyVlan(Bridging::VlanId vlan) {
  return Bridging::VlanIdOrNone(vlan.value()).value();
}

} // namespace

// -------------------------------------------------------------------------------- ingress routed ACLs

void ChipHwAclIdSm::handleIngressRouteAclIdEn(Bridging::VlanId vlan) {
  const auto status = chipPortVlanVifStatus();
  if (!initialized() || !status) {
    return;
  }
  const AclIdEn en = chipHwAclIdMap()->ingressRouteAclIdEn(vlan);
  for (const Ovnet::IntfId intf : status->intfsOfVlan(vlan)) {
    writeIngressRAcl(vlan, status->portVlanToVifMap(XpLib::PortAndVlanId(intf, vlan)), en);
  }
}

void ChipHwAclIdSm::handleIngressRouteAclIdEn() {
  HWACLID_TRACE("handleIngressRouteAclIdEn"
                << " chip " << chipId());
  for (const auto& entry : chipHwAclIdMap()->ingressRouteAclIdEnAll()) {
    handleIngressRouteAclIdEn(entry.key());
  }
}

void ChipHwAclIdSm::programIngressRAcl(Bridging::VlanId vlan, Ovnet::IntfId intf) {
  writeIngressRAcl(vlan, vifOf(vlan, intf), chipHwAclIdMap()->ingressRouteAclIdEn(vlan));
}

void ChipHwAclIdSm::writeIngressRAcl(Bridging::VlanId vlan, XpVif::VifId vif, const AclIdEn& en) {
  VANE_ASSERT_AT(systemStatus()->numTableCopies() == 1, "systemStatus()->numTableCopies() == 1",
                 "XpAclHwAclIdSm", 343, ingressSignature);
  XpXdk::xpPortVlanIvifEntry entry;
  entry.keyVlan = keyVlan(vlan);
  entry.keyIvif = keyVif(vif);
  entry.routeAclEn = static_cast<Vane::U8>((en.v4En() ? 1 : 0) | (en.v6En() ? 2 : 0));
  entry.routeAclId = en.blocked() ? 0 : en.aclId();
  const bool wanted = hasVif(vif) && !(en == AclIdEn());
  writeIngressRAclEntry(vlan, vif, entry, wanted);
}

void ChipHwAclIdSm::writeIngressRAclEntry(Bridging::VlanId vlan, XpVif::VifId vif,
                                          const XpXdk::xpPortVlanIvifEntry& portVlanIvifEntry, bool wanted) {
  constexpr const char* addText =
      "((portVlanIvifMgr()->addEntry( chipId().value(), copy, &portVlanIvifEntry, indexList )))";
  constexpr const char* writeText =
      "((portVlanIvifMgr()->writeEntry( chipId().value(), copy, index, &portVlanIvifEntry )))";
  constexpr const char* removeText = "((portVlanIvifMgr()->removeEntry( chipId().value(), index )))";
  const XpAclVlanVifKey key(vlan, vif);
  const auto& map = xpcsd()->portVlanIvifKeyAndIndexMap();
  const Vane::U32* const held = map->index(key);
  const auto trace = [&](const auto& what, Vane::U32 index) { // a literal, which is kept by its address
    HWACLID_TRACE(what << vlan << " vifId " << vif << " copy " << onlyCopy << " index " << index
                       << " routeAclId " << portVlanIvifEntry.routeAclId << " routeAclEn "
                       << portVlanIvifEntry.routeAclEn);
  };
  const Vane::U8 chip = chipId().value();
  if (wanted && held != nullptr) {
    const Vane::U32 index = *held;
    if (vifTableStepEnds(portVlanIvifMgr()->writeEntry(chip, onlyCopy, index, &portVlanIvifEntry), 391,
                         ingressSignature, writeText)) {
      return;
    }
    trace(" updating vlanId ", index);
  } else if (wanted) {
    std::vector<Vane::U32> indexList;
    if (vifTableStepEnds(portVlanIvifMgr()->addEntry(chip, onlyCopy, &portVlanIvifEntry, indexList), 400,
                         ingressSignature, addText)) {
      return;
    }
    map->newKeyAndIndexList(key, indexList);
    trace(" add vlanId ", indexList.front());
  } else if (held != nullptr) {
    const Vane::U32 index = *held;
    if (vifTableStepEnds(portVlanIvifMgr()->writeEntry(chip, onlyCopy, index, &portVlanIvifEntry), 418,
                         ingressSignature, writeText)) {
      return;
    }
    trace(" disable vlanId ", index);
    if (vifTableStepEnds(portVlanIvifMgr()->removeEntry(chip, index), 428, ingressSignature, removeText)) {
      return;
    }
    trace(" remove vlanId ", index);
    map->keyDel(key);
  } else {
    HWACLID_TRACE(" vlanId " << vlan << " entry not present for removal");
  }
}

// The last user of (VLAN, VIF) has left: the entry is written without any ACL, then removed.
void ChipHwAclIdSm::removeIngressRAclEntry(Bridging::VlanId vlan, XpVif::VifId vif) {
  if (xpcsd()->portVlanIvifKeyAndIndexMap()->index(XpAclVlanVifKey(vlan, vif)) == nullptr) {
    return;
  }
  XpXdk::xpPortVlanIvifEntry entry;
  entry.keyVlan = keyVlan(vlan);
  entry.keyIvif = keyVif(vif);
  writeIngressRAclEntry(vlan, vif, entry, false);
}

// --------------------------------------------------------------------------------------- egress ACLs

void ChipHwAclIdSm::handleEgressPortAclIdEn(Ovnet::IntfId intf) {
  const auto status = chipPortVlanVifStatus();
  if (!initialized() || !status) {
    return;
  }
  const auto map = chipHwAclIdMap();
  const AclIdEn port = map->egressPortAclIdEn(intf);
  for (const Bridging::VlanId vlan : status->vlansOfIntf(intf)) {
    writeEgressBdEvif(vlan, intf, status->portVlanToVifMap(XpLib::PortAndVlanId(intf, vlan)), port,
                      map->egressRouteAclIdEn(vlan));
  }
}

void ChipHwAclIdSm::handleEgressPortAclIdEn() {
  HWACLID_TRACE("handleEgressPortAclIdEn"
                << " chip " << chipId());
  for (const auto& entry : chipHwAclIdMap()->egressPortAclIdEnAll()) {
    handleEgressPortAclIdEn(entry.key());
  }
}

void ChipHwAclIdSm::handleEgressRouteAclIdEn(Bridging::VlanId vlan) {
  const auto status = chipPortVlanVifStatus();
  if (!initialized() || !status) {
    return;
  }
  const auto map = chipHwAclIdMap();
  const AclIdEn route = map->egressRouteAclIdEn(vlan);
  for (const Ovnet::IntfId intf : status->intfsOfVlan(vlan)) {
    writeEgressBdEvif(vlan, intf, status->portVlanToVifMap(XpLib::PortAndVlanId(intf, vlan)),
                      map->egressPortAclIdEn(intf), route);
  }
}

void ChipHwAclIdSm::handleEgressRouteAclIdEn() {
  HWACLID_TRACE("handleEgressRouteAclIdEn"
                << " chip " << chipId());
  for (const auto& entry : chipHwAclIdMap()->egressRouteAclIdEnAll()) {
    handleEgressRouteAclIdEn(entry.key());
  }
}

void ChipHwAclIdSm::programEgressBdEvif(Bridging::VlanId vlan, Ovnet::IntfId intf) {
  const auto map = chipHwAclIdMap();
  writeEgressBdEvif(vlan, intf, vifOf(vlan, intf), map->egressPortAclIdEn(intf),
                    map->egressRouteAclIdEn(vlan));
}

void ChipHwAclIdSm::writeEgressBdEvif(Bridging::VlanId vlan, Ovnet::IntfId intf, XpVif::VifId vif,
                                      const AclIdEn& port, const AclIdEn& route) {
  XpXdk::xpEgressBdEvifEntry egressBdEvifEntry;
  egressBdEvifEntry.egressBd = keyVlan(vlan);
  egressBdEvifEntry.egressVif = keyVif(vif);
  egressBdEvifEntry.ePaclId = port.blocked() ? 0 : port.aclId();
  egressBdEvifEntry.ePaclIpV4En = port.v4En();
  egressBdEvifEntry.ePaclIpV6En = port.v6En();
  egressBdEvifEntry.eRaclId = route.blocked() ? 0 : route.aclId();
  egressBdEvifEntry.eRaclIpV4En = route.v4En();
  egressBdEvifEntry.eRaclIpV6En = route.v6En();
  const bool anyEnabled = port.v4En() || port.v6En() || route.v4En() || route.v6En();
  const bool wanted = hasVif(vif) && (!(port == AclIdEn()) || !(route == AclIdEn())) && anyEnabled;

  const XpAclVlanVifKey key(vlan, vif);
  const auto& map = xpcsd()->egressVlanVifKeyAndIndexMap();
  const Vane::U32* const held = map->index(key);
  const auto trace = [&](const auto& what, Vane::U32 index) { // a literal, which is kept by its address
    HWACLID_TRACE(what << vlan << " intfId " << intf << " vif " << vif << " paclId "
                       << egressBdEvifEntry.ePaclId << " raclId " << egressBdEvifEntry.eRaclId
                       << " paclIdEnV4 " << egressBdEvifEntry.ePaclIpV4En << " paclIdEnV6 "
                       << egressBdEvifEntry.ePaclIpV6En << " raclIdEnV4 " << egressBdEvifEntry.eRaclIpV4En
                       << " raclIdEnV6 " << egressBdEvifEntry.eRaclIpV6En << " index " << index);
  };
  const Vane::U8 chip = chipId().value();
  const auto stepEnds = [](XpXdk::XP_STATUS status, unsigned line, const char* callText) {
    return vifTableStepEnds(status, line, egressSignature, callText);
  };
  if (wanted && held != nullptr) {
    const Vane::U32 index = *held;
    if (stepEnds(egressBdEvifMgr()->writeEntry(chip, index, &egressBdEvifEntry), 496,
                 "((egressBdEvifMgr()->writeEntry( chipId().value(), index, &egressBdEvifEntry )))")) {
      return;
    }
    trace(" updating egress vlanId ", index);
  } else if (wanted) {
    std::vector<Vane::U32> indexList;
    if (stepEnds(egressBdEvifMgr()->addEntry(chip, &egressBdEvifEntry, indexList), 508,
                 "((egressBdEvifMgr()->addEntry( chipId().value(), &egressBdEvifEntry, indexList )))")) {
      return;
    }
    map->newKeyAndIndexList(key, indexList);
    trace(" adding egress vlanId ", indexList.front());
  } else if (held != nullptr) {
    const Vane::U32 index = *held;
    if (stepEnds(egressBdEvifMgr()->removeEntry(chip, index), 523,
                 "((egressBdEvifMgr()-> removeEntry( chipId().value(), index )))")) {
      return;
    }
    trace(" removing egress vlanId ", index);
    map->keyDel(key);
  } else {
    HWACLID_TRACE(" removing egress vlanId " << vlan << " for an entry not present");
  }
}

void ChipHwAclIdSm::deleteEgressBdEvifEntry(XpLib::PortVlanIvifTableKey tableKey) {
  const Bridging::VlanId vlan(static_cast<Vane::U16>(tableKey.value() & 0xFFFF));
  const XpVif::VifId vif(tableKey.value() >> 16);
  XpXdk::xpEgressBdEvifEntry staleEgressBdEvifEntry;
  staleEgressBdEvifEntry.egressBd = vlan.value();
  staleEgressBdEvifEntry.egressVif = keyVif(vif);
  Vane::U32 staleIndex = 0;
  HWACLID_CHECK_AT(__LINE__, egressBdEvifMgr()->lookup(chipId().value(), &staleEgressBdEvifEntry, staleIndex),
                   "((egressBdEvifMgr()->lookup( chipId().value(), &staleEgressBdEvifEntry, staleIndex )))");
  HWACLID_TRACE(" removing stale egress vlanId " << vlan << " vif " << vif << " index " << staleIndex);
  HWACLID_CHECK_AT(__LINE__, egressBdEvifMgr()->removeEntry(chipId().value(), staleIndex),
                   "((egressBdEvifMgr()-> removeEntry( chipId().value(), staleIndex )))");
  xpcsd()->egressVlanVifKeyAndIndexMap()->keyDel(XpAclVlanVifKey(vlan, vif));
}

// --------------------------------------------------------------------------- (port, VLAN) to VIF pairs

void ChipHwAclIdSm::handleChipPortVlanVifStatus(const Vane::Ptr<XpVif::PortVlanVifStatus const>& status) {
  HWACLID_TRACE("handleChipPortVlanVifStatus"
                << " chipId " << chipId());
  chipPortVlanVifStatusIs(status);
}

// VIFs are tracked where the chip has egress entries.
bool ChipHwAclIdSm::tracksVifs() const {
  constexpr Vane::U32 modeAlways = 3;
  constexpr Vane::U32 modeByPartition = 5;
  const Vane::U32 mode = systemStatus()->mode();
  return mode == modeAlways ||
         (mode == modeByPartition && (XpLib::isDbAllocatedForEAclV4(tcamPartitionStatus()) ||
                                      XpLib::isDbAllocatedForEAclV6(tcamPartitionStatus())));
}

void ChipHwAclIdSm::handlePortVlan(const XpLib::PortAndVlanId& key) {
  if (!initialized()) {
    return;
  }
  HWACLID_TRACE("handlePortVlan"
                << " chip " << chipId() << " intf " << key.intf() << " vlan " << key.vlanId());
  if (!tracksVifs()) {
    programIngressRAcl(key.vlanId(), key.intf());
    return;
  }
  const auto status = chipPortVlanVifStatus();
  const XpVif::VifId* const found = status ? status->portVlanToVifMapFind(key) : nullptr;
  if (found == nullptr) {
    pairDeleted(key);
  } else {
    pairAdded(key, *found);
  }
}

void ChipHwAclIdSm::handlePortVlan() {
  const auto status = chipPortVlanVifStatus();
  if (!status) {
    return;
  }
  HWACLID_TRACE("handlePortVlan"
                << " chipId " << chipId());
  for (const auto& pair : status->portVlanToVifMapAll()) {
    handlePortVlan(pair.key());
  }
}

void ChipHwAclIdSm::pairLeft(XpVif::VifId vif, const XpLib::PortAndVlanId& pair) {
  const auto info = vifVlanInfoIs(portVlanIvifTableKey(vif, pair.vlanId()));
  info->portVlanDel(pair);
  userLeft(info);
}

// A pair that was never cached has no VIF: its entry is that of VIF 65535, which then has no users.
void ChipHwAclIdSm::pairDeleted(const XpLib::PortAndVlanId& key) {
  constexpr Vane::U32 noVif = 65535;
  HWACLID_TRACE("ChipHwAclIdSm::"
                << "handlePortVlan"
                << " delete "
                << " port " << key.intf());
  const XpVif::VifId* const cached = portVlanToVifCacheFind(key);
  pairLeft(cached == nullptr ? XpVif::VifId(noVif) : XpVif::VifId(*cached), key);
  portVlanToVifCacheDel(key);
  writeIngressRAcl(key.vlanId(), XpVif::VifId(), chipHwAclIdMap()->ingressRouteAclIdEn(key.vlanId()));
}

// The pair leaves its old entry, which may go with it, before it joins the new one.
void ChipHwAclIdSm::pairAdded(const XpLib::PortAndVlanId& key, XpVif::VifId vif) {
  HWACLID_TRACE(" add "
                << " port " << key.intf());
  const XpVif::VifId* const cached = portVlanToVifCacheFind(key);
  if (cached != nullptr && hasVif(*cached) && !(*cached == vif)) {
    pairLeft(XpVif::VifId(*cached), key);
  }
  portVlanToVifCacheIs(key, vif);
  vifVlanInfoIs(portVlanIvifTableKey(vif, key.vlanId()))->portVlanIs(key, true);
  const auto map = chipHwAclIdMap();
  writeEgressBdEvif(key.vlanId(), key.intf(), vif, map->egressPortAclIdEn(key.intf()),
                    map->egressRouteAclIdEn(key.vlanId()));
  writeIngressRAcl(key.vlanId(), vif, map->ingressRouteAclIdEn(key.vlanId()));
}

void ChipHwAclIdSm::processPortVlanDeletion(XpLib::PortVlanIvifTableKey tableKey) {
  userLeft(vifVlanInfoIs(tableKey));
}

void ChipHwAclIdSm::userLeft(const Vane::Ptr<VifVlanInfo>& info) {
  const XpLib::PortVlanIvifTableKey tableKey = info->tableKey();
  const Bridging::VlanId vlan(static_cast<Vane::U16>(tableKey.value() & 0xFFFF));
  if (info->portVlanCount() != 0) {
    for (const auto& member : info->portVlanAll()) {
      const Ovnet::IntfId port = member.key().intf();
      HWACLID_TRACE("ChipHwAclIdSm::"
                    << "processPortVlanDeletion"
                    << " reprogram"
                    << " port " << port << " vlan " << vlan);
      programEgressBdEvif(vlan, port);
    }
    return;
  }
  const XpVif::VifId vif(tableKey.value() >> 16);
  HWACLID_TRACE(" no more references. delete "
                << " vifId " << vif);
  deleteEgressBdEvifEntry(tableKey);
  removeIngressRAclEntry(vlan, vif);
  vifVlanInfoDel(tableKey);
}

} // namespace XpAcl
