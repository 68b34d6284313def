#pragma once

#include "test/RecordingSdk.h"

#include "XpAclTcam/XpAclPlexAggregatorHelper.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

// One helper over a recording SDK, with the shared entities that it needs, and its state as short text.

namespace test {

struct HelperOptions {
  std::map<XpAcl::TcamType, Vane::U32> rows{{XpAcl::ingressV4, 8}};
  Vane::U32 deviceType = XpSystem::deviceTypeWithPartition;
  Vane::U8 copies = 1;
  unsigned device = 0;
  std::map<Vane::U32, bool> partition = {}; // feature to allocated; empty: no profile
  bool hwInit = true;
};

// Rows for all five tables.
HelperOptions allTables(Vane::U32 rows);

class HelperUnderTest {
public:
  // Runs hwInit, unless told otherwise, and forgets its calls.
  explicit HelperUnderTest(const HelperOptions& options = {});

  RecordingSdk sdk;
  Vane::Ptr<XpAcl::PlexAclAggregatorHelperInfo> helperInfo;
  Vane::Ptr<XpAcl::AclIdMapping> aclIdMapping;
  Vane::Ptr<Acl::ParamConfig> paramConfig;
  Vane::Ptr<XpAcl::BlockedIntfColl> blockedIntfColl;
  Vane::Ptr<XpAcl::XpAclTcamLimit> limit;
  Vane::Ptr<XpSystem::SystemStatus> systemStatus;
  Vane::Ptr<XpLib::TcamPartitionStatus> partition;
  Vane::Ptr<Scribe::Dal> dal;
  Vane::Ptr<XpAcl::XpAclPlexAggregatorHelper> helper;

  XpAcl::XpAclPlexAggregatorHelper* operator->() { return helper.ptr(); }

  // Stages one rule of a version; the answer is the operation's.
  unsigned stageV4(const XpAcl::AclKeyInfo& info, const Vane::Ptr<Plex::AclData>& data, unsigned ruleNum,
                   unsigned subRuleNum, const Acl::IpFilter& filter = {}, Acl::Action action = Acl::permit,
                   Vane::U64 uniqueId = 0);
  unsigned stageV6(const XpAcl::AclKeyInfo& info, const Vane::Ptr<Plex::AclData>& data, unsigned ruleNum,
                   const Acl::Ip6Filter& filter = {}, Vane::U64 uniqueId = 0);
  unsigned stageMac(const XpAcl::AclKeyInfo& info, const Vane::Ptr<Plex::AclData>& data, unsigned ruleNum,
                    const Acl::MacFilter& filter = {}, Vane::U64 uniqueId = 0);
  unsigned stageFinal(const XpAcl::AclKeyInfo& info, const Vane::Ptr<Plex::AclData>& data, unsigned ruleNum);

  // The free rows of a table: "{0-4, 6}"; "no pool" without one.
  std::string pool(XpAcl::TcamType type) const;
  // Rules and placements, a line each: "pending web: rule web 1.0" and so on, sorted.
  std::string books() const;
  // What audit() finds, a line each.
  std::string audit() const;
};

// A key named `name`, by default of an ingress IPv4 ACL.
Plex::AclKey aclKey(const char* name, Acl::AclDirection direction = Acl::ingress,
                    Acl::AclType type = Acl::ipv4);
// How traces print such a key.
std::string aclKeyText(const char* name);
Vane::Ptr<Plex::AclData> aclData(const Plex::AclKey& key, bool countersEnabled = false);

// Runs `action` in a process of its own and answers how it ended: "returned", or what the process wrote to
// standard error before it aborted. Line numbers are shown as "#", and the signature of a failed assertion
// as the function's name: what stays is exact.
std::string deathOf(const std::function<void()>& action);

// What `action` throws, as "RangeException: message", or "nothing".
std::string thrownBy(const std::function<void()>& action);

// Everything that `action` writes to a file descriptor.
std::string writtenBy(const std::function<void(Vane::U32 fd)>& action);

} // namespace test
