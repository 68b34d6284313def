#include "XpAclTcam/XpAclTcamTypes.h"

#include "XpAclTcam/XpAclSdkCheck.h"

namespace XpAcl {

const TcamTableInfo& tcamTable(TcamType type) {
  XPACL_ASSERT_TEXT("XpAclTcamTypes", static_cast<unsigned>(type) < tcamTables.size(),
                    "false && \"not yet implemented other tcamType\"");
  return tcamTables[type];
}

Vane::U32 TcamIdxAllocator::takeLowest() {
  Vane::U32 row = 0;
  {
    // An iterator that stayed would keep the row's member from going at once.
    const auto lowest = freeTcamIdxFirst();
    VANE_ASSERT(lowest);
    row = lowest.key();
  }
  freeTcamIdxDel(row);
  return row;
}

Vane::U32 TcamIdxAllocator::takeLowestFor(TcamIdxMapping& mapping, const TcamAclRuleId& rule) {
  Vane::U32 row = 0;
  {
    const auto lowest = freeTcamIdxFirst();
    VANE_ASSERT(lowest);
    row = lowest.key();
  }
  mapping.tcamIdxIs(rule, row);
  freeTcamIdxDel(row);
  return row;
}

TcamInfo& PendingTcamMapping::rulesOf(const Plex::AclKey& key) {
  const Vane::Ptr<TcamInfo>* const found = pendingAclKeyToTcamInfo_.find(key);
  return found != nullptr ? **found : *pendingAclKeyToTcamInfoIs(key);
}

TcamIdxMapping& PendingTcamMapping::placementOf(const AclKeyInfo& info) {
  const Vane::Ptr<TcamIdxMapping>* const found = pendingAclKeyInfoToIdx_.find(info);
  return found != nullptr ? **found : *pendingAclKeyInfoToIdxIs(info);
}

void TcamRuleInfo::attributesFrom(const TcamRuleInfo& other) {
  filterIs(other.filter());
  ip6FilterIs(other.ip6Filter());
  macFilterIs(other.macFilter());
  actionIs(other.action());
  logIs(other.log());
  aclIdIs(other.aclId());
  aclDataIs(other.aclData());
  ruleNumIs(other.ruleNum());
  subruleNumIs(other.subruleNum());
  srcL4PortIs(other.srcL4Port());
  srcL4PortMaskIs(other.srcL4PortMask());
  dstL4PortIs(other.dstL4Port());
  dstL4PortMaskIs(other.dstL4PortMask());
  implicitIs(other.implicit());
  finalAclRuleIs(other.finalAclRule());
  countIs(other.count());
}

VANE_REGISTERED(XpAclTcamLimit)
VANE_REGISTERED(TcamIdxAllocator)

} // namespace XpAcl
