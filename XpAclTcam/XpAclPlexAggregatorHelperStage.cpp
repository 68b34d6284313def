#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

#include <string>

// Staging: rules of a changed ACL are recorded and take rows; the chip knows nothing of it yet.

namespace XpAcl {

bool XpAclPlexAggregatorHelper::needToInstallIcmp6NeighborDiscoveryRules() {
  HELPER_TRACE(8, "AclHelper::needToInstallIcmp6NeighborDiscoveryRules");
  return capabilities()->ip6Capability() == 1;
}

// Records the rule `ruleId` of the version with its lowest free row, or publishes that the table is full
// and answers null.
TcamRuleInfo* XpAclPlexAggregatorHelper::stageRule(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType,
                                                   const Vane::Ptr<Plex::AclData>& aclData,
                                                   const TcamAclRuleId& ruleId, const char* operation,
                                                   const char* traceText) {
  const Plex::AclKey& aclKey = aclKeyInfo.aclKey();
  // What the rules before have made already is found in place, as a version has many.
  const TcamType tcamType = getTcamType(aclKey.direction(), aclType);
  const Vane::Ptr<TcamIdxAllocator>* const found = tcamIdxAllocator_.find(tcamType);
  TcamIdxAllocator* const pool = found != nullptr ? found->ptr() : tcamIdxAllocatorIs(tcamType).ptr();
  // Raises the range error for a device number that no chip has.
  static_cast<void>(Plex::Central::DeviceId(xpDevId().value()));

  if (pool->freeTcamIdxCount() == 0) {
    const Vane::String text =
        Vane::String("XpAclPlexAggregatorHelper aclCreateErrorTcamExhaustion::") + Vane::String(operation);
    HELPER_TRACE(5, text);
    dirtyIs(true);
    publishUnitErrorIs(text, true);
    unitErrorIs(text, Plex::aclCreateErrorTcamExhaustion);
    return nullptr;
  }
  const Vane::Ptr<PendingTcamMapping>* const begun = pendingTcamMapping_.find(aclKey);
  PendingTcamMapping* const pending = begun != nullptr ? begun->ptr() : pendingTcamMappingIs(aclKey).ptr();
  const auto rule = pending->rulesOf(aclKey).tcamRuleInfoIs(ruleId);
  rule->aclDataIs(aclData);
  rule->ruleNumIs(ruleId.ruleNum());
  rule->subruleNumIs(ruleId.subRuleNum());
  const Vane::U32 row = pool->takeLowestFor(pending->placementOf(aclKeyInfo), ruleId);
  HELPER_TRACE(5, traceText << row);
  return rule.ptr();
}

unsigned XpAclPlexAggregatorHelper::createIpAclCommonAggregate(
    const AclKeyInfo& aclKeyInfo, Acl::AclType aclType, const Acl::RuleConfig& ruleConfig,
    const Acl::UniqueId& uniqueId, const Vane::Ptr<Plex::AclData>& aclData, Vane::U32 ruleNum,
    Vane::U32 subRuleNum, bool implicit, Vane::U16 srcPort, Vane::U16 srcPortMask, Vane::U16 dstPort,
    Vane::U16 dstPortMask, Vane::U16 srcPortLow, Vane::U16 srcPortHigh, Vane::U16 dstPortLow,
    Vane::U16 dstPortHigh, Vane::U16, Vane::U16, Vane::U16, Vane::U16, Vane::U8, bool) {
  // A port without mask is "any port": a range that still has two ends was not split into pieces.
  const bool srcUnsplit = srcPortMask == 0 && srcPortLow != srcPortHigh;
  const bool dstUnsplit = dstPortMask == 0 && dstPortLow != dstPortHigh;
  if (srcUnsplit || dstUnsplit) {
    return portRangeNotStageable;
  }
  TcamRuleInfo* const rule = stageRule(aclKeyInfo, aclType, aclData, TcamAclRuleId(ruleNum, subRuleNum),
                                       "createIpAclCommonAggregate", "tcamIdx ");
  if (rule == nullptr) {
    return tableFull;
  }
  if (aclType == Acl::ipv4) {
    rule->filterIs(static_cast<const Acl::IpRuleConfig&>(ruleConfig).filter());
  } else {
    rule->ip6FilterIs(static_cast<const Acl::Ip6RuleConfig&>(ruleConfig).filter());
  }
  rule->actionIs(ruleConfig.action());
  rule->logIs(ruleConfig.log());
  rule->aclIdIs(uniqueId);
  rule->srcL4PortIs(srcPort);
  rule->srcL4PortMaskIs(srcPortMask);
  rule->dstL4PortIs(dstPort);
  rule->dstL4PortMaskIs(dstPortMask);
  rule->implicitIs(implicit);
  return staged;
}

unsigned XpAclPlexAggregatorHelper::createMacAclCommonAggregate(const AclKeyInfo& aclKeyInfo,
                                                                Acl::AclType aclType,
                                                                const Acl::RuleConfig& ruleConfig,
                                                                const Acl::UniqueId& uniqueId,
                                                                const Vane::Ptr<Plex::AclData>& aclData,
                                                                Vane::U32 ruleNum, bool implicit) {
  TcamRuleInfo* const rule = stageRule(aclKeyInfo, aclType, aclData, TcamAclRuleId(ruleNum, 0),
                                       "createMacAclCommonAggregate", "tcamIdx ");
  if (rule == nullptr) {
    return tableFull;
  }
  rule->macFilterIs(static_cast<const Acl::MacRuleConfig&>(ruleConfig).filter());
  rule->actionIs(ruleConfig.action());
  rule->logIs(ruleConfig.log());
  rule->aclIdIs(uniqueId);
  rule->implicitIs(implicit);
  return staged;
}

unsigned XpAclPlexAggregatorHelper::createFinalAclRulePlatform(const AclKeyInfo& aclKeyInfo,
                                                               Acl::AclType aclType,
                                                               const Vane::Ptr<Plex::AclData>& aclData,
                                                               Vane::U32 ruleNum) {
  TcamRuleInfo* const rule = stageRule(aclKeyInfo, aclType, aclData, TcamAclRuleId(ruleNum, 0),
                                       "createFinalAclRulePlatform", " last rule ");
  if (rule == nullptr) {
    return tableFull;
  }
  rule->finalAclRuleIs(true);
  return staged;
}

} // namespace XpAcl
