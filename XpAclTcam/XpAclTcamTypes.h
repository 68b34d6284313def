#pragma once

#include "Acl/AclTypes.h"
#include "Acl/Filters.h"
#include "Plex/AclIdMapping.h"
#include "Plex/AclKey.h"
#include "Vane/Vane.h"
#include "XpAclTcam/XpAclApi.h"
#include "XpXdk/IaclTypes.h"

#include <array>
#include <cstdint>

// The books of the ACL TCAMs. Start here: these are the words that the rest of the library uses.
//
// A *table* is one of the chip's five ternary memories (TcamType). It has a number of *rows*, counted
// from 0; the row with the lowest number that matches a packet decides. A row holds one *TCAM rule*:
// a key, an ignore-mask and a data word (forward or drop, log, counter index).
//
// An *ACL* (Plex::AclKey) is one generation of a configured list for one direction. Its TCAM rules
// (TcamInfo) are numbered (ruleNum, subRuleNum): the configured rule, and the piece of it when port
// ranges split it. That order is their priority.
//
// A *version* (AclKeyInfo) is one copy of an ACL in the chip under one hardware ACL id. The same ACL
// stands there once for every combination of ACLs it is used in. Each version has a *placement*
// (TcamIdxMapping): which row holds which rule. Rows are taken from a pool (TcamIdxAllocator), always
// the lowest free one, so the rules of a version have ascending rows in priority order.
//
// Life of a version:
//
//   staged      rules recorded and rows taken, under the ACL key whose change needs them
//               (PendingTcamMapping). The chip knows nothing of it.
//   programmed  written to the chip, recorded in the helper's programmed collections. The old version
//               still decides until the interfaces are moved to the new hardware ACL id.
//   retired     its rows invalidated in the chip and given back to the pool.
//
// Invariants, recomputed by XpAclPlexAggregatorHelper::audit():
//   1. A row is free, or mapped to exactly one rule of exactly one version (staged or programmed), or
//      it is the table's last row, which holds the default entry and is never free.
//   2. A free row is invalid in the chip.
//   3. A version is staged or programmed, never both.

namespace XpAcl {

// The five tables.
VANE_ENUM(XpAcl, TcamType, (ingressV4, 0), (ingressV6, 1), (egressV4, 2), (egressV6, 3), (ingressMac, 4))

// Everything that tells one table from another: the one place where it stands.
struct TcamTableInfo {
  TcamType tcamType;
  XpXdk::xpIaclType_e table; // the SDK's table
  const char* tableName;     // as it stands in SDK call texts
  XpXdk::xpIaclKeyType keyType;
  uint8_t aclIdField; // field id of the ACL id in a key of this type
  Acl::AclDirection direction;
  Acl::AclType aclType;
  Vane::U32 partitionFeature; // feature id of its space in the TCAM partition profile
};
// In the order of TcamType.
inline constexpr std::array<TcamTableInfo, 5> tcamTables{{
    {ingressV4, XpXdk::TACL_V4_IACL, "TACL_V4_IACL", XpXdk::IACL_V4_KEY_TYPE, 0, Acl::ingress, Acl::ipv4, 64},
    {ingressV6, XpXdk::TACL_V6_IACL, "TACL_V6_IACL", XpXdk::IACL_V6_KEY_TYPE, 0, Acl::ingress, Acl::ipv6, 65},
    {egressV4, XpXdk::TACL_V4_EACL, "TACL_V4_EACL", XpXdk::IACL_V4_KEY_TYPE, 0, Acl::egress, Acl::ipv4, 66},
    {egressV6, XpXdk::TACL_V6_EACL, "TACL_V6_EACL", XpXdk::IACL_V6_KEY_TYPE, 0, Acl::egress, Acl::ipv6, 67},
    {ingressMac, XpXdk::TACL_MAC_ACL, "TACL_MAC_ACL", XpXdk::IACL_MAC_KEY_TYPE, 1, Acl::ingress, Acl::mac,
     68},
}};

// The description of one table. Any other value fails the assertion
// "false && \"not yet implemented other tcamType\"".
XPACL_API const TcamTableInfo& tcamTable(TcamType type);

// Names one TCAM rule within an ACL. Ordered by ruleNum, then subRuleNum: the priority order.
class XPACL_API TcamAclRuleId {
public:
  VANE_VALUE(XpAcl, TcamAclRuleId, (Vane::U32, ruleNum, 0), (Vane::U32, subRuleNum, 0))
};

// How many rows of each table the books may use: rows 0 to maxTcamIdx - 1. Filled by the agent before
// hardware initialisation; a table without an entry reads as 0.
class XPACL_API XpAclTcamLimit : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, XpAclTcamLimit, Vane::PtrInterface,
              ORDERED_MAP(TcamType, Vane::U32, maxTcamIdx, MaxTcamIdx))
};
VANE_FACTORY_DECLARED(XpAclTcamLimit, xpAclTcamLimitFactory)

class TcamIdxMapping;

// The free rows of one table. Pure bookkeeping: it never touches hardware. The pool does not guard
// against a row given back twice; its users keep the invariants above.
class XPACL_API TcamIdxAllocator : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, TcamIdxAllocator, Vane::PtrInterface, CONST(TcamType, tcamType),
              ORDERED_MAP(Vane::U32, bool, freeTcamIdx, FreeTcamIdx)) // present: the row is free

  explicit TcamIdxAllocator(TcamType type) : tcamType_(type) {}

  // Takes the lowest free row. Requires one.
  Vane::U32 takeLowest();
  // Takes the lowest free row for a rule of `mapping` and records it there; answers the row. Requires one.
  // When memory runs out nothing is taken: a row that nobody records would be lost to the pool.
  Vane::U32 takeLowestFor(TcamIdxMapping& mapping, const TcamAclRuleId& rule);
};
VANE_FACTORY_DECLARED(TcamIdxAllocator, tcamIdxAllocatorFactory)

// One TCAM rule: what it matches and does. Which of the three filters counts follows from the type of
// its ACL; the other two stay default.
class XPACL_API TcamRuleInfo : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, TcamRuleInfo, Vane::PtrInterface, CONST(TcamAclRuleId, ruleId),
              SCALAR(Acl::IpFilter, filter, Filter, Acl::IpFilter()),
              SCALAR(Acl::Ip6Filter, ip6Filter, Ip6Filter, Acl::Ip6Filter()),
              SCALAR(Acl::MacFilter, macFilter, MacFilter, Acl::MacFilter()),
              SCALAR(Acl::Action, action, Action, Acl::permit), SCALAR(bool, log, Log, false),
              SCALAR(Acl::UniqueId, aclId, AclId, Acl::UniqueId()), // the configured rule it came from
              PTR(Plex::AclData, aclData, AclData),                 // the ACL it belongs to
              SCALAR(Vane::U32, ruleNum, RuleNum, 0), SCALAR(Vane::U32, subruleNum, SubruleNum, 0),
              SCALAR(Vane::U16, srcL4Port, SrcL4Port, 0), // value and match mask; mask 0: not compared
              SCALAR(Vane::U16, srcL4PortMask, SrcL4PortMask, 0), SCALAR(Vane::U16, dstL4Port, DstL4Port, 0),
              SCALAR(Vane::U16, dstL4PortMask, DstL4PortMask, 0),
              SCALAR(bool, implicit, Implicit, false),         // added by the system, not configured
              SCALAR(bool, finalAclRule, FinalAclRule, false), // the ACL's closing rule
              SCALAR(bool, count, Count, false))               // it has a hit counter of its own

  explicit TcamRuleInfo(const TcamAclRuleId& id) : ruleId_(id) {}

  // Takes over every attribute of `other` but its key.
  void attributesFrom(const TcamRuleInfo& other);
  // aclData(), for who only looks at it: the rule goes on holding it.
  const Vane::Ptr<Plex::AclData>& aclDataHeld() const { return aclData_; }
};

// The TCAM rules that came from one configured rule.
class XPACL_API TcamRuleIdMapping : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, TcamRuleIdMapping, Vane::PtrInterface, CONST(Acl::UniqueId, uniqueId),
              ORDERED_MAP(TcamAclRuleId, bool, ruleId, RuleId))

  explicit TcamRuleIdMapping(const Acl::UniqueId& id) : uniqueId_(id) {}
};

// All TCAM rules of one ACL, and from which configured rule each came. Deleting a rule leaves the
// reverse index alone; keeping the two in step is the caller's duty.
class XPACL_API TcamInfo : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, TcamInfo, Vane::PtrInterface, CONST(Plex::AclKey, aclKey),
              ORDERED_CHILDREN(TcamAclRuleId, TcamRuleInfo, tcamRuleInfo, TcamRuleInfo),
              CHILDREN(Acl::UniqueId, TcamRuleIdMapping, tcamRuleIdMapping, TcamRuleIdMapping))

  explicit TcamInfo(const Plex::AclKey& key) : aclKey_(key) {}

  // tcamRuleIdMapping(id) in place, or null; valid until it is deleted here.
  const TcamRuleIdMapping* rulesFrom(const Acl::UniqueId& id) const {
    const Vane::Ptr<TcamRuleIdMapping>* const found = tcamRuleIdMapping_.find(id);
    return found == nullptr ? nullptr : found->ptr();
  }
};

// The placement of one version: the row of each rule, in rule order.
class XPACL_API TcamIdxMapping : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, TcamIdxMapping, Vane::PtrInterface, CONST(AclKeyInfo, aclKeyInfo),
              ORDERED_MAP(TcamAclRuleId, Vane::U32, tcamIdx, TcamIdx))

  explicit TcamIdxMapping(const AclKeyInfo& info) : aclKeyInfo_(info) {}
};

// What is staged on behalf of one ACL key, between aggregation or allocation and commit.
class XPACL_API PendingTcamMapping : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, PendingTcamMapping, Vane::PtrInterface, CONST(Plex::AclKey, aclKey),
              CHILDREN(AclKeyInfo, TcamIdxMapping, pendingAclKeyInfoToIdx, PendingAclKeyInfoToIdx),
              CHILDREN(Plex::AclKey, TcamInfo, pendingAclKeyToTcamInfo, PendingAclKeyToTcamInfo))

  explicit PendingTcamMapping(const Plex::AclKey& key) : aclKey_(key) {}

  // The staged rules of an ACL and the placement of a version, made when there are none; each valid until it
  // is deleted here.
  TcamInfo& rulesOf(const Plex::AclKey& key);
  TcamIdxMapping& placementOf(const AclKeyInfo& info);
};

} // namespace XpAcl
