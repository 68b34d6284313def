#pragma once

#include "Acl/AclTypes.h"
#include "Acl/Filters.h"
#include "Ovnet/IntfId.h"
#include "Plex/AclIdMapping.h"
#include "Plex/AclKey.h"
#include "Plex/ChipPort.h"
#include "Plex/HwAclIdAllocator.h"
#include "Vane/Vane.h"

#include <cstdint>

// The agent's generic ACL layer as a chip library sees it: the base classes that a chip-specific
// helper derives from. The generic layer parses and aggregates lists, then drives the helper:
//
//   create... for every rule of a changed ACL   (stages, takes rows, no hardware access)
//   allocateResource for every further version  (stages)
//   commitPendingPlatform or cleanupPendingPlatform
//   allocateAndCommitAcl for every interface     (block, publish id and index key, unblock)
//   freeResource for every version out of use
//
// Everything runs on the agent's one event-loop thread, at top level: never from within a reactor.

namespace PlexHelper {

// What every ACL helper has: its error state, and hooks that show commands and checks call.
class AclHelper : public Vane::Entity {
public:
  VANE_ENTITY(PlexHelper, AclHelper, Vane::Entity, SCALAR(bool, initialized, Initialized, false),
              SCALAR(bool, dirty, Dirty, false), // a change failed and is to be tried again
              SCALAR(Vane::String, unitErrorText, UnitErrorText, Vane::String("")),
              SCALAR(Vane::U32, unitErrorCode, UnitErrorCode, 0), // Plex::AclCreateError
              SCALAR(bool, unitErrorPublished, UnitErrorPublished, false))

  // Raises (true) or clears the error that operators see.
  virtual void publishUnitErrorIs(const Vane::String& text, bool on);
  virtual void unitErrorIs(const Vane::String& text, Plex::AclCreateError error);

  virtual void hwInit() = 0; // called once, before all others
  virtual void handleInitialized() = 0;
  virtual void blockIntf(Ovnet::IntfId intf, bool block, unsigned int unit) = 0; // `unit`: the caller's own
};

} // namespace PlexHelper

namespace XpAcl {

class ChipRecord { // a chip, for people
public:
  VANE_VALUE(XpAcl, ChipRecord, (Vane::String, name, Vane::String("unknown")))
};

// Agent-wide ACL helper data.
class PlexAclAggregatorHelperInfo : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, PlexAclAggregatorHelperInfo, Vane::PtrInterface,
              MAP(Plex::Central::DeviceId, ChipRecord, chip, Chip))
};
VANE_FACTORY_DECLARED(PlexAclAggregatorHelperInfo, plexAclAggregatorHelperInfoFactory)

// What the chip can do, as hardware initialisation announces it.
class AclCapabilities : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, AclCapabilities, Vane::PtrInterface,
              SCALAR(Vane::U32, supportedTcpFlags, SupportedTcpFlags,
                     0), // set of TCP flags a row can compare
              SCALAR(bool, ipIngressAclSupported, IpIngressAclSupported, false),
              SCALAR(bool, ipEgressAclSupported, IpEgressAclSupported, false),
              SCALAR(bool, macAclSupported, MacAclSupported, false),
              SCALAR(bool, ip6IngressAclSupported, Ip6IngressAclSupported, false),
              SCALAR(bool, ip6EgressAclSupported, Ip6EgressAclSupported, false),
              SCALAR(bool, dscpFilterSupported, DscpFilterSupported, false),
              SCALAR(Vane::U32, ip6Capability, Ip6Capability, 0), // 1: the chip has IPv6 ACL rows
              SCALAR(bool, establishedSupported, EstablishedSupported, false),
              SCALAR(bool, fragmentsSupported, FragmentsSupported, false),
              SCALAR(bool, ttlFilterSupported, TtlFilterSupported, false),
              SCALAR(bool, countersSupported, CountersSupported, false),
              SCALAR(bool, logSupported, LogSupported, false))
};
VANE_FACTORY_DECLARED(AclCapabilities, aclCapabilitiesFactory)

// Statuses of the staging operations.
enum StageStatus : unsigned { staged = 0, tableFull = 2, portRangeNotStageable = 3 };

// Base of the chip-specific helper.
class PlexAclAggregatorHelper : public PlexHelper::AclHelper {
public:
  VANE_ENTITY(XpAcl, PlexAclAggregatorHelper, PlexHelper::AclHelper,
              CONST(Vane::Ptr<PlexAclAggregatorHelperInfo>, helperInfo),
              CONST(Vane::Ptr<AclIdMapping>, aclIdMapping),
              CONST(Vane::Ptr<Acl::ParamConfig const>, paramConfig),
              CONST(Vane::Ptr<AclCapabilities>, capabilities),
              MAP(AclIntfTypeAndDir, Vane::U32, aclIdCount, AclIdCount), // ids of each kind: 1 to n
              CHILDREN(AclIntfTypeAndDir, Plex::HwAclIdAllocator, hwAclIdAllocator, HwAclIdAllocator),
              MAP(HwAclIndexKey, AclId, assignedAclId, AssignedAclId)) // ids that are to be published

  PlexAclAggregatorHelper(const Vane::Ptr<PlexAclAggregatorHelperInfo>& helperInfo,
                          const Vane::Ptr<AclIdMapping>& aclIdMapping,
                          const Vane::Ptr<Acl::ParamConfig const>& paramConfig);

  // What happens to packets of an ACL while it is updated.
  bool getPermitDuringAclUpdate(bool setting) const { return setting; }

  // Publishes what the pair's interface uses in the direction of `aclData`: the index key's hardware
  // ACL id first, then the index key. The default index key takes the interface's entry away.
  // Answers false, and publishes nothing, when no id is assigned to the index key.
  virtual bool allocateAndCommitAcl(const Plex::IntfPairKey& intfPair,
                                    const Vane::Ptr<Plex::AclData>& aclData, const HwAclIndexKey& indexKey);

  // ------------------------------------------------- operations that the chip library provides

  // The trailing four 16-bit values, the 8-bit value and the flag are the generic layer's own.
  virtual unsigned createIpAclCommonAggregate(
      const AclKeyInfo& aclKeyInfo, Acl::AclType aclType, const Acl::RuleConfig& ruleConfig,
      const Acl::UniqueId& uniqueId, const Vane::Ptr<Plex::AclData>& aclData, Vane::U32 ruleNum,
      Vane::U32 subRuleNum, bool implicit, Vane::U16 srcPort, Vane::U16 srcPortMask, Vane::U16 dstPort,
      Vane::U16 dstPortMask, Vane::U16 srcPortLow, Vane::U16 srcPortHigh, Vane::U16 dstPortLow,
      Vane::U16 dstPortHigh, Vane::U16, Vane::U16, Vane::U16, Vane::U16, Vane::U8, bool) = 0;
  virtual unsigned createMacAclCommonAggregate(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType,
                                               const Acl::RuleConfig& ruleConfig,
                                               const Acl::UniqueId& uniqueId,
                                               const Vane::Ptr<Plex::AclData>& aclData, Vane::U32 ruleNum,
                                               bool implicit) = 0;
  virtual unsigned createFinalAclRulePlatform(const AclKeyInfo& aclKeyInfo, Acl::AclType aclType,
                                              const Vane::Ptr<Plex::AclData>& aclData, Vane::U32 ruleNum) = 0;
  virtual bool needToInstallIcmp6NeighborDiscoveryRules() = 0;
  // Further versions, and what becomes of what is staged; XpAclPlexAggregatorHelper says more.
  virtual bool allocateResource(const Plex::AclKey& triggerKey, const AclKeyInfo& aclKeyInfo) = 0;
  virtual void commitPendingPlatform(const Plex::AclKey& key) = 0;  // writes what is staged
  virtual void cleanupPendingPlatform(const Plex::AclKey& key) = 0; // drops what is staged
  virtual void freeResource(const AclKeyInfo& aclKeyInfo) = 0;      // retires a version
  virtual Vane::String getChipName() = 0;                           // for messages

  virtual Vane::U64 aclRuleCountersSinceLastPoll(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32,
                                                 const Acl::UniqueId& uniqueId) = 0;    // hits
  virtual bool aclCountersAllocated(const Vane::Ptr<Plex::AclData const>& aclData) = 0; // of every rule

  // -------------------------------------------------- hooks of the generic layer's show and check commands

  // Lines of the generic layer's own ACL listing that a chip may add to. `fd`: where the listing goes;
  // `detail`: how much of it was asked for.
  virtual void showAclTypeHeader(Vane::U32 fd, Vane::U32 detail, Acl::AclType aclType) = 0;
  virtual void showAclHeader(Vane::U32 fd, Vane::U32 detail, bool summary,
                             const Vane::Ptr<Plex::AclData const>& aclData) = 0;
  virtual void showIpAclRule(Vane::U32 fd, Vane::U32 detail, const Vane::Ptr<Plex::AclData const>& aclData,
                             Vane::U32 ruleNum, const Acl::UniqueId& uniqueId) = 0;
  virtual void showIpAclRuleCommon(Vane::U32 fd, Vane::U32 detail, Vane::U32 ruleNum,
                                   Vane::U32 subRuleNum) = 0;

  // The generic layer's self-check walks its rules and names what each is expected to be; a chip may compare.
  // MAC rules are named by unique id, IP rules by their numbers.
  virtual void verifyMacRuleGeneral(const Vane::Ptr<Plex::AclData const>& aclData,
                                    const Acl::UniqueId& uniqueId) = 0;
  virtual void verifyMacRuleAction(const Vane::Ptr<Plex::AclData const>& aclData,
                                   const Acl::UniqueId& uniqueId, Acl::Action action) = 0;
  virtual void verifyMacRuleSrcMac(const Vane::Ptr<Plex::AclData const>& aclData,
                                   const Acl::UniqueId& uniqueId, const Ovnet::MacAddr& addr,
                                   const Ovnet::MacAddr& mask) = 0;
  virtual void verifyMacRuleDstMac(const Vane::Ptr<Plex::AclData const>& aclData,
                                   const Acl::UniqueId& uniqueId, const Ovnet::MacAddr& addr,
                                   const Ovnet::MacAddr& mask) = 0;
  virtual void verifyMacRuleEtherType(const Vane::Ptr<Plex::AclData const>& aclData,
                                      const Acl::UniqueId& uniqueId, Vane::U32 etherType) = 0;
  virtual void verifyIpRuleGeneral(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                   Vane::U32 subRuleNum) = 0;
  virtual void verifyIpRuleAction(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                  Vane::U32 subRuleNum, Acl::Action action) = 0;
  virtual void verifyIpRuleIpProto(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                   Vane::U32 subRuleNum, Vane::U8 proto) = 0;
  virtual void verifyIpRuleSrcIp(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                 Vane::U32 subRuleNum, const Acl::IpAddrMask& addr) = 0;
  virtual void verifyIpRuleDstIp(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                 Vane::U32 subRuleNum, const Acl::IpAddrMask& addr) = 0;
  virtual void verifyIpRuleFragments(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                     Vane::U32 subRuleNum, bool fragments) = 0;
  virtual void verifyIpRuleTcpFlags(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                    Vane::U32 subRuleNum, bool established) = 0;
  virtual void verifyIpRuleIcmp(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                Vane::U32 subRuleNum, Vane::U16 icmpType, Vane::U16 icmpCode) = 0;
  virtual void verifyIpRuleSrcPort(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                   Vane::U32 subRuleNum, Vane::U16 port, Vane::U16 portMask) = 0;
  virtual void verifyIpRuleDstPort(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum,
                                   Vane::U32 subRuleNum, Vane::U16 port, Vane::U16 portMask) = 0;
  virtual void verifyAclGeneral(const Vane::Ptr<Plex::AclData const>& aclData) = 0;
  virtual void verifyDropAllRule(const Vane::Ptr<Plex::AclData const>& aclData, Vane::U32 ruleNum) = 0;
};

} // namespace XpAcl
