#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include "XpAclTcam/XpAclHelperUnit.h"

#include <charconv>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Two-phase change: reserve rows for further versions, write what is staged, drop it, retire old versions,
// and the blocking of interfaces while they move.

namespace XpAcl {

// The labels of a list's counters, "NAME:rule.subrule", one for every row that counts.
class XpAclPlexAggregatorHelper::CounterLabels {
public:
  explicit CounterLabels(const Vane::String& name) : name_(name.view()) {
    if (fits()) {
      name_.copy(small_, name_.size());
    }
  }

  Vane::String of(const TcamAclRuleId& rule) {
    if (fits()) {
      char* const end = addNumbers(rule, small_ + name_.size());
      return Vane::String(std::string_view(small_, static_cast<std::size_t>(end - small_)));
    }
    char numbers[mostOfNumbers];
    return Vane::String(std::string(name_).append(numbers, addNumbers(rule, numbers)));
  }

private:
  static constexpr std::size_t mostOfNumbers = 2 * (1 + std::numeric_limits<Vane::U32>::digits10 + 1);

  bool fits() const { return name_.size() + mostOfNumbers <= sizeof small_; }
  static char* addNumbers(const TcamAclRuleId& rule, char* at) {
    for (const auto& [before, number] : {std::pair(':', rule.ruleNum()), std::pair('.', rule.subRuleNum())}) {
      *at++ = before;
      at = std::to_chars(at, at + std::numeric_limits<Vane::U32>::digits10 + 1, number).ptr;
    }
    return at;
  }

  const std::string_view name_;
  char small_[64]; // begins with the name
};

namespace {

// The records of a list are more than the nearer caches hold: walks over its rules in step with another walk,
// some rules ahead, and has what is read of them fetched.
class RulesAhead {
public:
  using Iterator = decltype(std::declval<const TcamInfo&>().tcamRuleInfoFirst());

  explicit RulesAhead(const TcamInfo& rules) : at_(rules.tcamRuleInfoFirst()) {
    for (unsigned i = 0; i < distance; ++i) {
      step();
    }
  }
  void step() {
    if (at_) {
      constexpr std::size_t line = 64; // bytes
      const auto* const record = reinterpret_cast<const char*>(at_.ptr().ptr());
      for (std::size_t offset = 0; offset < sizeof(TcamRuleInfo); offset += line) {
        __builtin_prefetch(record + offset);
      }
      ++at_;
    }
  }

private:
  static constexpr unsigned distance = 4;
  Iterator at_;
};

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
    RulesAhead ahead(*programmed);
    for (const auto& rule : programmed->tcamRuleInfoAll()) {
      ahead.step();
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
  RulesAhead ahead(*tcamInfo);
  const Plex::AclKey& aclKey = aclKeyInfo.aclKey();
  const TcamTableInfo& table = tcamTable(getTcamType(aclKey.direction(), aclKey.aclType()));
  const auto acm = acmHelper(aclKey.direction());
  CounterLabels labels(aclKey.name());
  for (const auto& placed : programmed->tcamIdxAll()) {
    while (rule && rule.key() < placed.key()) {
      ++rule;
      ahead.step();
    }
    VANE_ASSERT(rule && rule.key() == placed.key());
    const Vane::U32 counterIdx = takeCounter(table, acm.ptr(), labels, *rule.ptr(), placed.value());
    programRule(table, aclKeyInfo, *rule.ptr(), placed.value(), counterIdx);
  }
}

// Settles the rule's counter: the final rule, and every rule of an ACL that asks for none, count where
// nobody reads.
Vane::U32 XpAclPlexAggregatorHelper::takeCounter(const TcamTableInfo& table, XpLib::AcmHelper* acm,
                                                 CounterLabels& labels, TcamRuleInfo& rule,
                                                 Vane::U32 tcamIdx) {
  Vane::U32 counterIdx = unusedAcmIndex();
  bool counted = false;
  const Plex::AclData* const aclData = rule.finalAclRule() ? nullptr : rule.aclDataHeld().ptr();
  if (aclData != nullptr && aclData->countersEnabled()) {
    VANE_ASSERT(acm != nullptr);
    counterIdx = acm->getAcmIdx(counterIndexOfRow(table.aclType, tcamIdx), labels.of(rule.ruleId()));
    counted = counterIdx != unusedAcmIndex();
  }
  rule.countIs(counted);
  return counterIdx;
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
  // The version given may be the one in the books, which goes.
  const auto aclKey = Plex::AclKey(aclKeyInfo.aclKey());
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
