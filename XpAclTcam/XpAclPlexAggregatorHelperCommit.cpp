#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

#include <charconv>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Two-phase change: reserve rows for further versions, write what is staged, drop it, retire old versions,
// and the blocking of interfaces while they move.

namespace XpAcl {

namespace {

// "NAME:rule.subrule", made for every row that counts.
Vane::String counterLabel(const Vane::String& name, Vane::U32 ruleNum, Vane::U32 subruleNum) {
  constexpr std::size_t mostDigits = std::numeric_limits<Vane::U32>::digits10 + 1;
  char numbers[2 * (1 + mostDigits)];
  char* end = numbers;
  for (const auto& [before, number] : {std::pair(':', ruleNum), std::pair('.', subruleNum)}) {
    *end++ = before;
    end = std::to_chars(end, std::end(numbers), number).ptr;
  }
  const std::string_view both(numbers, static_cast<std::size_t>(end - numbers));
  char small[64];
  if (name.size() + both.size() > sizeof small) {
    return Vane::String(std::string(name.view()).append(both));
  }
  name.view().copy(small, name.size());
  both.copy(small + name.size(), both.size());
  return Vane::String(std::string_view(small, name.size() + both.size()));
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
    commitVersion(version.ptr());
  }
  for (const auto& acl : pending->pendingAclKeyToTcamInfoAll()) {
    const auto programmed = programmedAclKeyToTcamInfo(acl.key());
    Vane::Ptr<TcamRuleIdMapping> mapping; // of the rule before: the sub-rules of a rule follow each other
    for (const auto& rule : programmed->tcamRuleInfoAll()) {
      const Acl::UniqueId& aclId = rule.ptr()->aclId();
      if (!mapping || !(mapping->uniqueId() == aclId)) {
        mapping = programmed->tcamRuleIdMappingIs(aclId);
      }
      mapping->ruleIdIs(rule.key(), true);
    }
  }
  pendingTcamMappingDel(key);
  printDebugStatePlatform();
}

// What is staged becomes what is programmed by changing hands: the records are neither copied nor made anew.
// Only where the ACL has programmed rules already they take the attributes over.
void XpAclPlexAggregatorHelper::commitRules(PendingTcamMapping& pending) {
  for (const auto& acl : pending.pendingAclKeyToTcamInfoAll()) {
    if (programmedAclKeyToTcamInfo_.insert(acl.key(), acl.ptr())) {
      programmedAclKeyToTcamInfoNotify(acl.key());
      continue;
    }
    const auto programmed = programmedAclKeyToTcamInfo(acl.key());
    for (const auto& rule : acl.ptr()->tcamRuleInfoAll()) {
      programmed->tcamRuleInfoIs(rule.key())->attributesFrom(*rule.ptr());
    }
  }
}

void XpAclPlexAggregatorHelper::commitVersion(const Vane::Ptr<TcamIdxMapping>& programmed) {
  const AclKeyInfo& aclKeyInfo = programmed->aclKeyInfo();
  XPACL_UNIT_ASSERT(!programmedAclKeyInfoToIdxHas(aclKeyInfo), "!programmedAclKeyInfoHas( iter.key() )");
  programmedAclKeyInfoToIdx_.insert(aclKeyInfo, programmed);
  programmedAclKeyInfoToIdxNotify(aclKeyInfo);
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
  const auto aclData = rule.finalAclRule() ? Vane::Ptr<Plex::AclData>() : rule.aclData();
  if (aclData && aclData->countersEnabled()) {
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
void XpAclPlexAggregatorHelper::retireRow(const TcamTableInfo& table, TcamIdxAllocator& pool,
                                          XpLib::AcmHelper* acm, Vane::U32 row, const char* rowText) {
  setEntryValid(table, row, false, rowText);
  if (acm != nullptr) {
    acm->freeAcmIdx(counterIndexOfRow(table.aclType, row));
  }
  pool.freeTcamIdxIs(row, true);
}

void XpAclPlexAggregatorHelper::retireRows(const TcamIdxMapping& mapping, bool permit) {
  const Plex::AclKey& aclKey = mapping.aclKeyInfo().aclKey();
  const TcamTableInfo& table = tcamTable(getTcamType(aclKey.direction(), aclKey.aclType()));
  const auto pool = tcamIdxAllocatorIs(table.tcamType);
  const auto acm = acmHelper(aclKey.direction());
  if (!permit) {
    for (const auto& placed : mapping.tcamIdxAll()) {
      retireRow(table, *pool, acm.ptr(), placed.value(), "tcamIdx");
    }
    return;
  }
  std::vector<Vane::U32> rows;
  rows.reserve(mapping.tcamIdxCount());
  for (const auto& placed : mapping.tcamIdxAll()) {
    rows.push_back(placed.value());
  }
  for (const Vane::U32 row : rows) {
    retireRow(table, *pool, acm.ptr(), row, "*it");
  }
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
  if (mapping->tcamIdxCount() != 0) {
    retireRows(*mapping, permit);
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
