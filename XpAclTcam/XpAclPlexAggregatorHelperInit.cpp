#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

#include <string>

// Construction and hardware initialisation.

namespace XpAcl {

namespace {

constexpr Vane::U8 maxSdkDevice = 63;

// The module's primitive-manager id, fetched once in each process.
Vane::U32 plMgrId() {
  static const Vane::U32 id = XpXdk::getNewPlMgrId();
  return id;
}

} // namespace

Vane::TraceHandle& aggregatorHelperTrace() {
  static Vane::TraceHandle handle("XpAclPlexAggregatorHelper");
  return handle;
}

TcamType getTcamType(Acl::AclDirection direction, Acl::AclType aclType) {
  for (const TcamTableInfo& table : tcamTables) {
    if (table.direction == direction && table.aclType == aclType) {
      return table.tcamType;
    }
  }
  XPACL_UNIT_ASSERT(direction == Acl::ingress, "Egress MAC aclType unsupported");
  XPACL_UNIT_ASSERT(false, "false");
  return ingressV4;
}

XpAclPlexAggregatorHelper::XpAclPlexAggregatorHelper(
    const Vane::Ptr<PlexAclAggregatorHelperInfo>& helperInfo, const Vane::Ptr<AclIdMapping>& aclIdMapping,
    const Vane::Ptr<Acl::ParamConfig const>& paramConfig, const Vane::Ptr<BlockedIntfColl>& blockedIntfColl,
    const Vane::Ptr<XpAclTcamLimit>& xpAclTcamLimit,
    const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
    const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus, const Vane::Ptr<Scribe::Dal>& dal)
    : PlexAclAggregatorHelper(helperInfo, aclIdMapping, paramConfig), blockedIntfColl_(blockedIntfColl),
      xpAclTcamLimit_(xpAclTcamLimit), systemStatus_(systemStatus), tcamPartitionStatus_(tcamPartitionStatus),
      dal_(dal) {}

void XpAclPlexAggregatorHelper::handleInitialized() {
  initializedIs(true);
}

Vane::String XpAclPlexAggregatorHelper::getChipName() {
  return helperInfo()->chip(Plex::Central::DeviceId(xpDevId().value())).name();
}

void XpAclPlexAggregatorHelper::hwInit() {
  HELPER_TRACE(5, "hwInit");
  announceCapabilities();
  makeAclIdAllocators();
  findManagers();
  for (const auto& limit : xpAclTcamLimit()->maxTcamIdxAll()) {
    initTable(limit.key(), limit.value());
  }
}

// What a row can compare is announced here; what the chip has tables for depends on the member of the
// family.
void XpAclPlexAggregatorHelper::announceCapabilities() {
  AclCapabilities& can = *capabilities();
  const auto& partition = tcamPartitionStatus();
  can.supportedTcpFlagsIs(0);
  can.establishedSupportedIs(true);
  can.fragmentsSupportedIs(true);
  can.ttlFilterSupportedIs(true);
  can.countersSupportedIs(true);
  can.logSupportedIs(true);
  const bool v6Rows = XpLib::isDbAllocatedForIAclV6(partition) || XpLib::isDbAllocatedForEAclV6(partition);
  can.ip6CapabilityIs(v6Rows ? 1 : 0);
  if (systemStatus()->deviceType() == XpSystem::deviceTypeFixed) {
    can.ipIngressAclSupportedIs(true);
  } else if (systemStatus()->deviceType() == XpSystem::deviceTypeWithPartition) {
    can.ipIngressAclSupportedIs(XpLib::isDbAllocatedForIAclV4(partition));
    can.ipEgressAclSupportedIs(XpLib::isDbAllocatedForEAclV4(partition));
    can.macAclSupportedIs(XpLib::isDbAllocatedForMacAcl(partition));
    can.ip6IngressAclSupportedIs(XpLib::isDbAllocatedForIAclV6(partition));
    can.ip6EgressAclSupportedIs(XpLib::isDbAllocatedForEAclV6(partition));
    can.dscpFilterSupportedIs(XpLib::isDbAllocatedForFeature(XpLib::featureDscpA, partition) ||
                              XpLib::isDbAllocatedForFeature(XpLib::featureDscpB, partition));
  }
}

void XpAclPlexAggregatorHelper::makeAclIdAllocators() {
  const auto clock = Vane::Ptr<Plex::ActivityClock>(new Plex::ActivityClock);
  for (const auto& count : aclIdCountAll()) {
    const Plex::Range range(1, count.value());
    const auto allocator = hwAclIdAllocatorIs(count.key());
    allocator->configIs(range);
    allocator->expiryTimeIs(0);
    allocator->statusIs(Vane::Ptr<Plex::HwAclIdAllocatorStatus>(new Plex::HwAclIdAllocatorStatus));
    allocator->numAllocatorIs(Vane::Ptr<Plex::NumAllocator>(new Plex::NumAllocator(clock)));
    allocator->configured();
  }
}

void XpAclPlexAggregatorHelper::findManagers() {
  XpXdk::xpAclPl* const pl = XpXdk::xpAclPl::instance();
  iaclMgr_ = pl == nullptr ? nullptr : pl->iaclMgr(plMgrId());
  XPACL_UNIT_ASSERT(iaclMgr_ != nullptr, "iaclMgr()");
  XpXdk::xpDeviceMgr* const deviceMgr = XpXdk::xpDeviceMgr::instance();
  const Vane::U8 number = xpDevId().value();
  XpXdk::xpDevice* const device =
      deviceMgr == nullptr || number > maxSdkDevice ? nullptr : deviceMgr->device(number);
  XPACL_UNIT_ASSERT(device != nullptr, "device");
  const XpXdk::xpTableProfile* const tableProfile = device->tableProfile();
  XPACL_UNIT_ASSERT(tableProfile != nullptr, "tableProfile");
  numTableCopiesIs(tableProfile->numTableCopies);
}

void XpAclPlexAggregatorHelper::initTable(TcamType type, Vane::U32 max) {
  const TcamTableInfo& table = tcamTable(type);
  const auto pool = tcamIdxAllocatorIs(type);
  for (Vane::U32 i = 0; i < max; ++i) {
    setEntryValid(table, i, false, "i");
    pool->freeTcamIdxIs(i, true);
  }
  makeAcmHelpers();
  // For a table of no rows this wraps on purpose: the chip is asked for the row and answers that it has
  // none.
  const Vane::U32 lastTcamIdx = max - 1;
  pool->freeTcamIdxDel(lastTcamIdx);
  writeDefaultEntry(table, lastTcamIdx);
}

// Made anew for each table; only those of the last one remain. Counts live in the chip, so nothing is lost.
void XpAclPlexAggregatorHelper::makeAcmHelpers() {
  unusedAcmIndexIs(0);
  const auto make = [this](Acl::AclDirection direction, XpXdk::xpAcmClient_e client) {
    const auto helper =
        XpLib::acmHelperFactory(xpDevId(), client, XpXdk::acmConfigModeCounter, unusedAcmIndex(), dal());
    helper->hasNotificationActiveIs(true);
    acmHelperIs(direction, helper);
  };
  make(Acl::ingress, XpXdk::acmClientIngressAcl);
  if (systemStatus()->deviceType() == XpSystem::deviceTypeWithPartition) {
    make(Acl::egress, XpXdk::acmClientEgressAcl);
  }
}

// The closing row of each table: ACL id 0, which a blocked interface uses, matches here and is dropped.
void XpAclPlexAggregatorHelper::writeDefaultEntry(const TcamTableInfo& table, Vane::U32 lastTcamIdx) {
  OvIaclKey key(table.keyType);
  const Vane::U8 zero[2] = {0, 0};
  addIaclKeyField(table.keyType, table.aclIdField, zero, zero, sizeof zero, key);
  key.finalize();
  writeKeyMask(table, key, lastTcamIdx, "lastTcamIdx");
  XpXdk::xpIaclData_t data;
  clearIaclData(data);
  writeData(table, data, lastTcamIdx, "lastTcamIdx");
  setEntryValid(table, lastTcamIdx, true, "lastTcamIdx");
}

VANE_REGISTERED(XpAclPlexAggregatorHelper)

} // namespace XpAcl
