#pragma once

#include "Acl/Filters.h"
#include "Plex/AclIdMapping.h"
#include "Plex/PlexAclAggregatorHelper.h"
#include "agent/PortBlocks.h"
#include "agent/config/ConfigModel.h"

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

// Aggregation: a configured list becomes the numbered TCAM rules that the chip library stages.
//
//   1..n      the configured entries in order; source blocks times destination blocks of every alternative
//             are the sub-rules 0..k-1 (a MAC rule has no sub-rules, so each alternative is a rule)
//   then      for IPv6, the implicit neighbour-discovery permits (RFC 4861): solicitation, advertisement
//   last      the final rule, which drops

namespace agent {

using Filter = std::variant<Acl::IpFilter, Acl::Ip6Filter, Acl::MacFilter>; // what a row compares

// Where a TCAM rule came from: the index of the configured entry, or one of these.
constexpr int32_t originSolicitation = -1;  // implicit permit of ICMPv6 type 135
constexpr int32_t originAdvertisement = -2; // implicit permit of ICMPv6 type 136
constexpr int32_t originFinal = -3;         // the implicit deny

struct AggregatedRow { // what one TCAM row of a list compares and does
  uint32_t ruleNum = 0;
  uint32_t subRuleNum = 0;
  int32_t origin = 0;
  uint32_t filter = 0; // index into AggregatedAcl::filters; unused for the final rule
  PortBlock src;
  PortBlock dst;
};

// One aggregated list for one direction.
struct AggregatedAcl {
  AccessList source;               // the entries as configured
  std::vector<Filter> filters;     // one for each alternative that takes rows
  std::vector<AggregatedRow> rows; // in priority order, the final rule last

  // The entry that rule `ruleNum` came from: an index into source.rules, or an origin constant.
  int32_t originOf(uint32_t ruleNum) const;
  // Configured text of an origin: the entry as written, or what the implicit rule does.
  std::string textOf(int32_t origin) const;
};

// How many rows entry `index` takes.
std::vector<uint32_t> rowsPerEntry(const AggregatedAcl& acl);

// `neighborDiscovery`: IPv6 lists get the implicit neighbour-discovery permits.
std::shared_ptr<AggregatedAcl> aggregate(const AccessList& list, bool neighborDiscovery);

// The same packets are permitted, denied and logged by the same rows.
bool sameRules(const AccessList& a, const AccessList& b);

Acl::AclType aclType(Family family);                 // the library's number of a family
Acl::AclDirection aclDirection(Direction direction); // the library's number of a direction

// Unique ids of the entries of a list, stable while an entry's text is unchanged.
using UniqueIds = std::vector<uint64_t>; // by entry; the last three are solicitation, advertisement, final

// Hands every row of the ACL to the helper for one version, in priority order. Answers the first status
// that is not 0 (staged), or 0.
unsigned stageAcl(XpAcl::PlexAclAggregatorHelper& helper, const XpAcl::AclKeyInfo& version,
                  const Vane::Ptr<Plex::AclData>& aclData, const AggregatedAcl& acl,
                  const UniqueIds& uniqueIds);

} // namespace agent
