#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

#include <charconv>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

// Two-phase change: reserve rows for further versions, write what is staged, drop it, retire old versions,
// and the blocking of interfaces while they move.

namespace XpAcl {

namespace {

// "NAME:rule.subrule", made for every row that counts.
Vane::String counterLabel(const Vane::String& name, Vane::U32 ruleNum, Vane::U32 subruleNum) {
  std::string label(name.view());
  for (const auto& [before, number] : {std::pair(':', ruleNum), std::pair('.', subruleNum)}) {
    char digits[std::numeric_limits<Vane::U32>::digits10 + 1];
    label += before;
    label.append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
  }
  return Vane::String(label);
}

} // namespace

bool XpAclPlexAggregatorHelper::allocateResource(const Plex::AclKey& triggerKey,
                                                 const AclKeyInfo& aclKeyInfo) {
  HELPER_TRACE(5, "allocateResource"
                      << " aclKeyInfo: aclKey " << aclKeyInfo.aclKey() << " aclId " << aclKeyInfo.aclId()
                      << " aclType " << aclKeyInfo.type() << " triggering aclKey " << triggerKey);
  XPACL_UNIT_ASSERT(!(triggerKey == aclKeyInfo.aclKey()), "triggerKey != aclKeyInfo.aclKey()");
  const auto tcamInfo = programmedAclKeyToTcamInfo(aclKeyInfo.aclKey());
  XPACL_UNIT_ASSERT(tcamInfo, "tcamInfo");
  const auto pool =
      tcamIdxAllocatorIs(getTcamType(aclKeyInfo.aclKey().direction(), aclKeyInfo.aclKey().aclType()));
  if (tcamInfo->tcamRuleInfoCount() > pool->freeTcamIdxCount()) {
    return false;
  }
  const auto mapping = pendingTcamMappingIs(triggerKey)->pendingAclKeyInfoToIdxIs(aclKeyInfo);
  for (const auto& rule : tcamInfo->tcamRuleInfoAll()) {
    pool->takeLowestFor(*mapping, rule.key());
  }
  return true;
}

void XpAclPlexAggregatorHelper::commitPendingPlatform(const Plex::AclKey& key) {
  HELPER_TRACE(5, "XpAclPlexAggregatorHelper::"
                      << "commitPendingPlatform"
                      << " key " << key);
  printDebugStatePlatform();
  const auto pending = pendingTcamMappingIs(key);
  commitRules(*pending);
  for (const auto& version : pending->pendingAclKeyInfoToIdxAll()) {
    commitVersion(*version.ptr());
  }
  for (const auto& acl : pending->pendingAclKeyToTcamInfoAll()) {
    const auto programmed = programmedAclKeyToTcamInfo(acl.key());
    for (const auto& rule : programmed->tcamRuleInfoAll()) {
      programmed->tcamRuleIdMappingIs(rule.ptr()->aclId())->ruleIdIs(rule.key(), true);
    }
  }
  pendingTcamMappingDel(key);
  printDebugStatePlatform();
}

void XpAclPlexAggregatorHelper::commitRules(PendingTcamMapping& pending) {
  for (const auto& acl : pending.pendingAclKeyToTcamInfoAll()) {
    const auto programmed = programmedAclKeyToTcamInfoIs(acl.key());
    for (const auto& rule : acl.ptr()->tcamRuleInfoAll()) {
      programmed->tcamRuleInfoIs(rule.key())->attributesFrom(*rule.ptr());
    }
  }
}

void XpAclPlexAggregatorHelper::commitVersion(const TcamIdxMapping& staged) {
  const AclKeyInfo& aclKeyInfo = staged.aclKeyInfo();
  XPACL_UNIT_ASSERT(!programmedAclKeyInfoToIdxHas(aclKeyInfo), "!programmedAclKeyInfoHas( iter.key() )");
  const auto programmed = programmedAclKeyInfoToIdxIs(aclKeyInfo);
  for (const auto& placed : staged.tcamIdxAll()) {
    programmed->tcamIdxIs(placed.key(), placed.value());
  }
  const auto tcamInfo = programmedAclKeyToTcamInfo(aclKeyInfo.aclKey());
  // Rules and placement are in the same order, so one walk over the rules serves the whole version.
  auto rule = tcamInfo->tcamRuleInfoFirst();
  for (const auto& placed : programmed->tcamIdxAll()) {
    while (rule && rule.key() < placed.key()) {
      ++rule;
    }
    VANE_ASSERT(rule && rule.key() == placed.key());
    programRule(aclKeyInfo, *rule.ptr(), placed.value());
  }
}

// Settles the rule's counter: the final rule, and every rule of an ACL that asks for none, count where
// nobody reads.
Vane::U32 XpAclPlexAggregatorHelper::takeCounter(const AclKeyInfo& aclKeyInfo, TcamRuleInfo& rule,
                                                 Vane::U32 tcamIdx) {
  Vane::U32 counterIdx = unusedAcmIndex();
  bool counted = false;
  if (!rule.finalAclRule() && rule.aclData() && rule.aclData()->countersEnabled()) {
    const Plex::AclKey& aclKey = aclKeyInfo.aclKey();
    const auto acm = acmHelper(aclKey.direction());
    VANE_ASSERT(acm);
    const Vane::String label =
        counterLabel(aclKey.name(), rule.ruleId().ruleNum(), rule.ruleId().subRuleNum());
    counterIdx = acm->getAcmIdx(counterIndexOfRow(aclKey.aclType(), tcamIdx), label);
    counted = counterIdx != unusedAcmIndex();
  }
  rule.countIs(counted);
  return counterIdx;
}

void XpAclPlexAggregatorHelper::programRule(const AclKeyInfo& aclKeyInfo, TcamRuleInfo& rule,
                                            Vane::U32 tcamIdx) {
  const Vane::U32 counterIdx = takeCounter(aclKeyInfo, rule, tcamIdx);
  const Acl::AclType aclType = aclKeyInfo.aclKey().aclType();
  switch (getTcamType(aclKeyInfo.aclKey().direction(), aclType)) {
  case ingressV4:
  case egressV4:
    programTcamRuleV4(aclKeyInfo, aclType, rule.filter(), rule.action(), rule.log(), rule.aclId(),
                      rule.aclData(), rule.ruleNum(), rule.subruleNum(), rule.srcL4Port(),
                      rule.srcL4PortMask(), rule.dstL4Port(), rule.dstL4PortMask(), rule.finalAclRule(),
                      tcamIdx, counterIdx);
    return;
  case ingressV6:
  case egressV6:
    programTcamRuleV6(aclKeyInfo, aclType, rule.ip6Filter(), rule.action(), rule.log(), rule.aclId(),
                      rule.aclData(), rule.ruleNum(), rule.subruleNum(), rule.srcL4Port(),
                      rule.srcL4PortMask(), rule.dstL4Port(), rule.dstL4PortMask(), rule.finalAclRule(),
                      tcamIdx, counterIdx);
    return;
  case ingressMac:
    programTcamRuleMac(aclKeyInfo, aclType, rule.macFilter(), rule.action(), rule.log(), rule.aclId(),
                       rule.aclData(), rule.ruleNum(), rule.subruleNum(), rule.finalAclRule(), tcamIdx,
                       counterIdx);
    return;
  }
}

void XpAclPlexAggregatorHelper::cleanupPendingPlatform(const Plex::AclKey& key) {
  HELPER_TRACE(5, "XpAclPlexAggregatorHelper::"
                      << "cleanupPendingPlatform"
                      << " key " << key);
  const auto pending = pendingTcamMapping(key);
  if (!pending) {
    return;
  }
  for (const auto& version : pending->pendingAclKeyInfoToIdxAll()) {
    const Plex::AclKey& aclKey = version.key().aclKey();
    const auto pool = tcamIdxAllocatorIs(getTcamType(aclKey.direction(), aclKey.aclType()));
    for (const auto& placed : version.ptr()->tcamIdxAll()) {
      pool->freeTcamIdxIs(placed.value(), true);
    }
  }
  pendingTcamMappingDel(key);
}

// Invalid in the chip first, then the counter, then the pool: a free row never hits.
void XpAclPlexAggregatorHelper::retireRow(const AclKeyInfo& aclKeyInfo, Vane::U32 row, const char* rowText) {
  const Plex::AclKey& aclKey = aclKeyInfo.aclKey();
  const TcamTableInfo& table = tcamTable(getTcamType(aclKey.direction(), aclKey.aclType()));
  setEntryValid(table, row, false, rowText);
  const auto acm = acmHelper(aclKey.direction());
  if (acm) {
    acm->freeAcmIdx(counterIndexOfRow(aclKey.aclType(), row));
  }
  tcamIdxAllocatorIs(table.tcamType)->freeTcamIdxIs(row, true);
}

void XpAclPlexAggregatorHelper::freeResource(const AclKeyInfo& aclKeyInfo) {
  HELPER_TRACE(5, "freeResource"
                      << " aclKeyInfo: aclKey " << aclKeyInfo.aclKey() << " aclId " << aclKeyInfo.aclId()
                      << " aclType " << aclKeyInfo.type());
  const auto mapping = programmedAclKeyInfoToIdx(aclKeyInfo);
  if (!mapping) {
    HELPER_TRACE(5, "Skipping unprogrammed AclKey ( presumably due to empty acl )");
    return;
  }
  const Plex::AclKey aclKey = aclKeyInfo.aclKey();
  const auto tcamInfo = programmedAclKeyToTcamInfo(aclKey);
  bool permit = false;
  if (tcamInfo && tcamInfo->tcamRuleInfoCount() != 0) {
    const auto aclData = tcamInfo->tcamRuleInfoFirst().ptr()->aclData();
    permit = aclData && getPermitDuringAclUpdate(aclData->permitDuringAclUpdate());
  }
  if (permit) {
    std::vector<Vane::U32> rows;
    rows.reserve(mapping->tcamIdxCount());
    for (const auto& placed : mapping->tcamIdxAll()) {
      rows.push_back(placed.value());
    }
    for (const Vane::U32 row : rows) {
      retireRow(aclKeyInfo, row, "*it");
    }
  } else {
    for (const auto& placed : mapping->tcamIdxAll()) {
      retireRow(aclKeyInfo, placed.value(), "tcamIdx");
    }
  }
  programmedAclKeyInfoToIdxDel(aclKeyInfo);
  for (const auto& version : programmedAclKeyInfoToIdxAll()) {
    if (version.key().aclKey() == aclKey) {
      return;
    }
  }
  programmedAclKeyToTcamInfoDel(aclKey);
}

void XpAclPlexAggregatorHelper::blockIntf(Ovnet::IntfId intf, bool block, unsigned int) {
  HELPER_TRACE(5, "XpAclPlexAggregatorHelper::"
                      << "blockIntf"
                      << " intf " << intf.stringValue() << " block " << block);
  if (block) {
    blockedIntfColl()->intfIs(intf, true);
  } else {
    blockedIntfColl()->intfDel(intf);
  }
}

bool XpAclPlexAggregatorHelper::allocateAndCommitAcl(const Plex::IntfPairKey& intfPair,
                                                     const Vane::Ptr<Plex::AclData>& aclData,
                                                     const HwAclIndexKey& indexKey) {
  VANE_ASSERT(!Vane::notificationDrainRunning());
  const Ovnet::IntfId intf = intfPair.intf();
  blockIntf(intf, true, 0);
  const bool result = PlexAclAggregatorHelper::allocateAndCommitAcl(intfPair, aclData, indexKey);
  blockIntf(intf, false, 0);
  return result;
}

} // namespace XpAcl
