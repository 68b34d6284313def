#pragma once

#include "Acl/AclTypes.h"
#include "Acl/Filters.h"
#include "Plex/PlexAclAggregatorHelper.h"
#include "Scribe/Dal.h"
#include "Vane/Vane.h"
#include "XpAclTcam/XpAclAgentCommon.h"
#include "XpAclTcam/XpAclApi.h"
#include "XpAclTcam/XpAclTcamTypes.h"
#include "XpLib/AcmHelper.h"
#include "XpLib/OvIaclKey.h"
#include "XpLib/TcamPartitionStatus.h"
#include "XpSystem/SystemStatus.h"
#include "XpXdk/DeviceId.h"
#include "XpXdk/Managers.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace XpAcl {

// The table that an ACL of this direction and type lives in. MAC ACLs exist at ingress only: an egress
// one fails the assertion "Egress MAC aclType unsupported"; another unknown type "false".
XPACL_API TcamType getTcamType(Acl::AclDirection direction, Acl::AclType aclType);

// Turns 16 bytes in key order (least significant first) back into an address.
XPACL_API Ovnet::Ip6Addr ipv6AddrToIp6Addr(const std::array<uint8_t, 16>& bytes);

// The counter of a row: IPv4 rows use the odd counters of their direction's block, others the even ones.
constexpr Vane::U32 counterIndexOfRow(Acl::AclType aclType, Vane::U32 row) {
  return aclType == Acl::ipv4 ? 2 * row + 1 : 2 * row;
}

// The trace handle of this unit: level 5 for operations, 7 and 8 for hooks and details.
constexpr unsigned debugStateTraceLevel = 8;
XPACL_API Vane::TraceHandle& aggregatorHelperTrace();

// The chip-specific ACL helper of one device: owns the pools, the staged and the programmed placements
// and the counter helpers, and writes rows. The generic layer drives it from the top level of the event
// loop (Plex/PlexAclAggregatorHelper.h shows the order of calls); no operation takes a lock.
//
// Every SDK call is checked (XpAclSdkCheck.h): a status that is not accepted ends the process.
// Implementation files by verb: ...Init, ...Stage, ...Program, ...Commit, ...Counters, ...Dump, ...Audit.
class XPACL_API XpAclPlexAggregatorHelper : public PlexAclAggregatorHelper {
public:
  VANE_ENTITY(XpAcl, XpAclPlexAggregatorHelper, PlexAclAggregatorHelper,
              CONST(Vane::Ptr<BlockedIntfColl>, blockedIntfColl),
              CONST(Vane::Ptr<XpAclTcamLimit>, xpAclTcamLimit),
              CONST(Vane::Ptr<XpSystem::SystemStatus const>, systemStatus),
              CONST(Vane::Ptr<XpLib::TcamPartitionStatus const>, tcamPartitionStatus),
              CONST(Vane::Ptr<Scribe::Dal>, dal),
              SCALAR(XpXdk::XpDeviceId, xpDevId, XpDevId,
                     XpXdk::XpDeviceId()), // set by the owner before hwInit
              ORDERED_CHILDREN(TcamType, TcamIdxAllocator, tcamIdxAllocator, TcamIdxAllocator),
              MAP(Acl::AclDirection, Vane::Ptr<XpLib::AcmHelper>, acmHelper, AcmHelper),
              SCALAR(Vane::U8, numTableCopies, NumTableCopies, 0),  // copies of the data table
              SCALAR(Vane::U32, unusedAcmIndex, UnusedAcmIndex, 0), // the counter that nobody reads
              CHILDREN(Plex::AclKey, PendingTcamMapping, pendingTcamMapping, PendingTcamMapping),
              CHILDREN(AclKeyInfo, TcamIdxMapping, programmedAclKeyInfoToIdx, ProgrammedAclKeyInfoToIdx),
              CHILDREN(Plex::AclKey, TcamInfo, programmedAclKeyToTcamInfo, ProgrammedAclKeyToTcamInfo))

  XpAclPlexAggregatorHelper(const Vane::Ptr<PlexAclAggregatorHelperInfo>& helperInfo,
                            const Vane::Ptr<AclIdMapping>& aclIdMapping,
                            const Vane::Ptr<Acl::ParamConfig const>& paramConfig,
                            const Vane::Ptr<BlockedIntfColl>& blockedIntfColl,
                            const Vane::Ptr<XpAclTcamLimit>& xpAclTcamLimit,
                            const Vane::Ptr<XpSystem::SystemStatus const>& systemStatus,
                            const Vane::Ptr<XpLib::TcamPartitionStatus const>& tcamPartitionStatus,
                            const Vane::Ptr<Scribe::Dal>& dal);

  // The SDK's manager of the ACL tables; null until hwInit has found it.
  XpXdk::xpIaclMgr* iaclMgr() const { return iaclMgr_; }

  // Announces the capabilities, makes the ACL-id allocators, finds the SDK's managers, invalidates every
  // row, fills the pools and writes the default entry into the last row of each table. Called once, after
  // xpDevIdIs. Requires an installed SDK (XpXdk/Managers.h); assertions "iaclMgr()", "device",
  // "tableProfile" name what is missing. Raises "Range::min > Range::max not allowed" for an ACL-id count
  // of 0.
  void hwInit() override;
  void handleInitialized() override;
  // Raises "DeviceId::value < DeviceId::min or > DeviceId::null not allowed" for a device number above 64.
  Vane::String getChipName() override;
  bool needToInstallIcmp6NeighborDiscoveryRules() override;

  // Staging: each records one TCAM rule under the ACL's key and takes the lowest free row of its table.
  // No hardware access. Answers StageStatus: 0 staged; 2 the table is full (nothing staged for the rule,
  // the unit error is published, rules staged earlier stay for cleanupPendingPlatform); 3 a port without
  // mask whose range ends differ (nothing staged, nothing published).
  unsigned createIpAclCommonAggregate(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType,
                                      const Acl::RuleConfig& ruleConfig, const Acl::UniqueId& uniqueId,
                                      const Vane::Ptr<Plex::AclData>& aclData, Vane::U32 ruleNum,
                                      Vane::U32 subRuleNum, bool implicit, Vane::U16 srcPort,
                                      Vane::U16 srcPortMask, Vane::U16 dstPort, Vane::U16 dstPortMask,
                                      Vane::U16 srcPortLow, Vane::U16 srcPortHigh, Vane::U16 dstPortLow,
                                      Vane::U16 dstPortHigh, Vane::U16, Vane::U16, Vane::U16, Vane::U16,
                                      Vane::U8, bool) override;
  unsigned createMacAclCommonAggregate(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType,
                                       const Acl::RuleConfig& ruleConfig, const Acl::UniqueId& uniqueId,
                                       const Vane::Ptr<Plex::AclData>& aclData, Vane::U32 ruleNum,
                                       bool implicit) override;
  unsigned createFinalAclRulePlatform(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType,
                                      const Vane::Ptr<Plex::AclData>& aclData, Vane::U32 ruleNum) override;

  // Stages, on behalf of `triggerKey`, one more version of another ACL that is programmed already. Answers
  // false, with nothing changed, when its table has too few free rows.
  bool allocateResource(const Plex::AclKey& triggerKey, const AclKeyInfo& aclKeyInfo) override;
  // Writes everything staged for `key` to the chip and makes it the programmed state. Only adds and
  // overwrites: rows of older versions stay as they are.
  void commitPendingPlatform(const Plex::AclKey& key) override;
  // Gives the rows staged for `key` back. No hardware access.
  void cleanupPendingPlatform(const Plex::AclKey& key) override;
  // Retires a programmed version: invalidates its rows, then gives them and their counters back. A version
  // that has no rows is only traced.
  void freeResource(const AclKeyInfo& aclKeyInfo) override;

  // Adds `intf` to, or takes it from, the agent-wide set of blocked interfaces; nothing else. `unit` is
  // not used. Blocks do not count: one unblock ends any number of blocks.
  void blockIntf(Ovnet::IntfId intf, bool block, unsigned int unit) override;
  // The base's operation between a block and an unblock of the pair's interface. Must not run while
  // notifications are being delivered: the block would then be seen only after the unblock.
  bool allocateAndCommitAcl(const Plex::IntfPairKey& intfPair, const Vane::Ptr<Plex::AclData>& aclData,
                            const HwAclIndexKey& indexKey) override;

  // Hits of one configured rule since the last poll, summed over its rows in all programmed versions.
  Vane::U64 aclRuleCountersSinceLastPoll(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32,
                                         const Acl::UniqueId& uniqueId) override;
  // True when every rule of the installed, counted ACL has a counter of its own.
  bool aclCountersAllocated(const Vane::Ptr<Plex::AclData const>& aclData) override;

  // Writes one TCAM rule to row `tcamIdx`: data, key and mask, valid for a normal rule; key and mask,
  // data, valid for the final rule (which compares only ACL id and role, and drops). Port masks are match
  // masks; 0 means that the port is not compared. The rule type, unique id, ACL data and the two numbers
  // do not enter the row.
  void programTcamRuleV4(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType, const Acl::IpFilter& filter,
                         Acl::Action action, bool log, const Acl::UniqueId& uniqueId,
                         const Vane::Ptr<Plex::AclData>& aclData, Vane::U32, Vane::U32, Vane::U16 srcPort,
                         Vane::U16 srcPortMask, Vane::U16 dstPort, Vane::U16 dstPortMask, bool finalRule,
                         Vane::U32 tcamIdx, Vane::U32 counterIdx);
  void programTcamRuleV6(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType, const Acl::Ip6Filter& filter,
                         Acl::Action action, bool log, const Acl::UniqueId& uniqueId,
                         const Vane::Ptr<Plex::AclData>& aclData, Vane::U32, Vane::U32, Vane::U16 srcPort,
                         Vane::U16 srcPortMask, Vane::U16 dstPort, Vane::U16 dstPortMask, bool finalRule,
                         Vane::U32 tcamIdx, Vane::U32 counterIdx);
  void programTcamRuleMac(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType, const Acl::MacFilter& filter,
                          Acl::Action action, bool log, const Acl::UniqueId& uniqueId,
                          const Vane::Ptr<Plex::AclData>& aclData, Vane::U32, Vane::U32, bool finalRule,
                          Vane::U32 tcamIdx, Vane::U32 counterIdx);

  // Print the valid rows of one table, key and mask, as a framed text table on file descriptor `fd`.
  void showV4AclTable(Vane::U32 fd, Acl::AclDirection direction);
  void showV6AclTable(Vane::U32 fd, Acl::AclDirection direction);
  void showMacAclTable(Vane::U32 fd, Acl::AclDirection direction);

  // Writes the programmed and the staged mappings to the trace, at level 8.
  void printDebugStatePlatform();
  // The same lines, one call each.
  void debugState(const std::function<void(const std::string&)>& line) const;

  // The listing has nothing to add for this chip.
  void showAclTypeHeader(Vane::U32 fd, Vane::U32 detail, Acl::AclType aclType) override;
  void showAclHeader(Vane::U32 fd, Vane::U32 detail, bool summary,
                     const Vane::Ptr<Plex::AclData const>& aclData) override;
  void showIpAclRule(Vane::U32 fd, Vane::U32 detail, const Vane::Ptr<Plex::AclData const>& aclData,
                     Vane::U32 ruleNum, const Acl::UniqueId& uniqueId) override;
  void showIpAclRuleCommon(Vane::U32 fd, Vane::U32 detail, Vane::U32 ruleNum, Vane::U32 subRuleNum) override;
  // What stands in the chip is compared by audit(); these trace their own signature at level 7 and do nothing
  // else.
  void verifyMacRuleGeneral(const Vane::Ptr<Plex::AclData const>& aclData,
                            const Acl::UniqueId& uniqueId) override;
  void verifyMacRuleAction(const Vane::Ptr<Plex::AclData const>& aclData, const Acl::UniqueId& uniqueId,
                           Acl::Action action) override;
  void verifyMacRuleSrcMac(const Vane::Ptr<Plex::AclData const>& aclData, const Acl::UniqueId& uniqueId,
                           const Ovnet::MacAddr& addr, const Ovnet::MacAddr& mask) override;
  void verifyMacRuleDstMac(const Vane::Ptr<Plex::AclData const>& aclData, const Acl::UniqueId& uniqueId,
                           const Ovnet::MacAddr& addr, const Ovnet::MacAddr& mask) override;
  void verifyMacRuleEtherType(const Vane::Ptr<Plex::AclData const>& aclData, const Acl::UniqueId& uniqueId,
                              Vane::U32 etherType) override;
  void verifyIpRuleGeneral(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                           Vane::U32 subRuleNum) override;
  void verifyIpRuleAction(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                          Vane::U32 subRuleNum, Acl::Action action) override;
  void verifyIpRuleIpProto(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                           Vane::U32 subRuleNum, Vane::U8 proto) override;
  void verifyIpRuleSrcIp(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                         Vane::U32 subRuleNum, const Acl::IpAddrMask& addr) override;
  void verifyIpRuleDstIp(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                         Vane::U32 subRuleNum, const Acl::IpAddrMask& addr) override;
  void verifyIpRuleFragments(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                             Vane::U32 subRuleNum, bool fragments) override;
  void verifyIpRuleTcpFlags(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                            Vane::U32 subRuleNum, bool established) override;
  void verifyIpRuleIcmp(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                        Vane::U32 subRuleNum, Vane::U16 icmpType, Vane::U16 icmpCode) override;
  void verifyIpRuleSrcPort(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                           Vane::U32 subRuleNum, Vane::U16 port, Vane::U16 portMask) override;
  void verifyIpRuleDstPort(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                           Vane::U32 subRuleNum, Vane::U16 port, Vane::U16 portMask) override;
  void verifyAclGeneral(const Vane::Ptr<Plex::AclData const>& aclData) override;
  void verifyDropAllRule(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum) override;

  // Recomputes the invariants of XpAclTcamTypes.h from the books and the chip; answers what is broken, one
  // sentence each, empty when all hold.
  std::vector<std::string> audit() const;

private:
  struct RowAction {
    bool log;
    bool forward;
    bool finalRule;
    Vane::U32 counterIdx;
  };
  class CounterLabels;

  void showTable(Vane::U32 fd, TcamType type);
  // `users`: how many rules claim each row.
  void auditTable(const TcamTableInfo& table, Vane::U32 max, const TcamIdxAllocator& pool,
                  const std::map<Vane::U32, unsigned>& users, std::vector<std::string>& broken) const;

  void announceCapabilities();
  void makeAclIdAllocators();
  void findManagers();
  void initTable(TcamType type, Vane::U32 max);
  void makeAcmHelpers();
  void writeDefaultEntry(const TcamTableInfo& table, Vane::U32 lastTcamIdx);

  TcamRuleInfo* stageRule(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType,
                          const Vane::Ptr<Plex::AclData>& aclData, const TcamAclRuleId& ruleId,
                          const char* operation, const char* traceText);

  void commitRules(PendingTcamMapping& pending);
  void commitVersion(const Vane::Ptr<TcamIdxMapping>& programmed);
  void programRule(const TcamTableInfo& table, const AclKeyInfo& aclKeyInfo, const TcamRuleInfo& rule,
                   Vane::U32 tcamIdx, Vane::U32 counterIdx);
  Vane::U32 takeCounter(const TcamTableInfo& table, XpLib::AcmHelper* acm, CounterLabels& labels,
                        TcamRuleInfo& rule, Vane::U32 tcamIdx);
  void retireRow(const TcamTableInfo& table, TcamIdxAllocator& pool, XpLib::AcmHelper* acm, Vane::U32 row,
                 const char* rowText);
  void retireRows(const TcamIdxMapping& mapping, bool permit);

  template <typename Filter>
  void programIpRow(const TcamTableInfo& table, const AclKeyInfo& aclKeyInfo, const Filter& filter,
                    const RowAction& action, Vane::U16 srcPort, Vane::U16 srcPortMask, Vane::U16 dstPort,
                    Vane::U16 dstPortMask, Vane::U32 tcamIdx);
  void writeRow(const TcamTableInfo& table, OvIaclKey& key, const RowAction& action, Vane::U32 tcamIdx);
  void writeKeyMask(const TcamTableInfo& table, const OvIaclKey& key, Vane::U32 row, const char* rowText);
  void writeData(const TcamTableInfo& table, const XpXdk::xpIaclData_t& data, Vane::U32 row,
                 const char* rowText);
  void setEntryValid(const TcamTableInfo& table, Vane::U32 row, bool valid, const char* rowText);

  XpXdk::xpIaclMgr* iaclMgr_ = nullptr;
};
VANE_FACTORY_DECLARED(XpAclPlexAggregatorHelper, xpAclPlexAggregatorHelperFactory)

} // namespace XpAcl
