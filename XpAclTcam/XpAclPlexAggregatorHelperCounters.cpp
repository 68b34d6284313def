#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

// Hit counters of configured rules.

namespace XpAcl {

Vane::U64
XpAclPlexAggregatorHelper::aclRuleCountersSinceLastPoll(const Vane::Ptr<Plex::AclData const>& aclData,
                                                        Vane::U32, const Acl::UniqueId& uniqueId) {
  if (!aclData->countersEnabled()) {
    return 0;
  }
  const Plex::AclKey& aclKey = aclData->aclKey();
  HELPER_TRACE(5, "aclRuleCountersSinceLastPoll"
                      << " acldata key" << aclKey);
  const Vane::Ptr<TcamInfo>* const tcamInfo = programmedAclKeyToTcamInfo_.find(aclKey);
  if (tcamInfo == nullptr) {
    return 0;
  }
  const TcamRuleIdMapping* const ruleIdMapping = (*tcamInfo)->rulesFrom(uniqueId);
  XPACL_UNIT_ASSERT(ruleIdMapping, "ruleIdMapping");
  const Vane::Ptr<XpLib::AcmHelper>* const acm = acmHelperFind(aclKey.direction());
  Vane::U64 sum = 0;
  for (const auto& version : programmedAclKeyInfoToIdxAll()) {
    if (!(version.key().aclKey() == aclKey)) {
      continue;
    }
    for (const auto& member : ruleIdMapping->ruleIdAll()) {
      // A rule without a row reads as row 0.
      const Vane::U32 row = version.ptr()->tcamIdx(member.key());
      HELPER_TRACE(5, " tcamIdx " << row);
      sum += (*acm)->getCounterValue(counterIndexOfRow(aclKey.aclType(), row));
    }
  }
  return sum;
}

bool XpAclPlexAggregatorHelper::aclCountersAllocated(const Vane::Ptr<Plex::AclData const>& aclData) {
  XPACL_UNIT_ASSERT(aclData->installed(), "aclData->installed()");
  const auto tcamInfo = programmedAclKeyToTcamInfo(aclData->aclKey());
  if (!tcamInfo || !aclData->countersEnabled()) {
    return false;
  }
  for (const auto& rule : tcamInfo->tcamRuleInfoAll()) {
    if (!rule.ptr()->finalAclRule() && !rule.ptr()->count()) {
      return false;
    }
  }
  return true;
}

} // namespace XpAcl
