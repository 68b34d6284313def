#include "agent/Aggregate.h"

#include <algorithm>

namespace agent {

namespace {

constexpr uint8_t protoIcmpV6 = 58;
constexpr uint8_t ndSolicitation = 135;  // RFC 4861, 4.3
constexpr uint8_t ndAdvertisement = 136; // RFC 4861, 4.4

void fillCommon(const Criteria& criteria, Acl::IpFilterBase& filter) {
  filter.protoIs(criteria.protocol.value_or(0));
  filter.establishedIs(criteria.established);
  filter.fragmentsIs(criteria.fragments);
  if (criteria.icmpType) {
    filter.icmpTypeIs(*criteria.icmpType);
    if (criteria.icmpCode) {
      filter.icmpCodeIs(*criteria.icmpCode);
    }
  }
  if (criteria.ttl) {
    filter.ttlIs(Acl::TtlOp::eq, *criteria.ttl);
  }
}

Acl::IpAddrMask addrMask(const V4Match& match) {
  const uint32_t netmask = ~match.wildcard;
  return {match.address & netmask, Acl::ipMaskWord(netmask)};
}

Acl::Ip6AddrPrefix addrPrefix(const V6Match& match) {
  return {Ovnet::Ip6Addr(match.address), match.prefixLength};
}

Ovnet::MacAddr matchMask(const MacMatch& match) {
  std::array<uint8_t, 6> mask;
  std::transform(match.wildcard.begin(), match.wildcard.end(), mask.begin(),
                 [](uint8_t byte) { return static_cast<uint8_t>(~byte); });
  return Ovnet::MacAddr(mask);
}

// Made in place: there is one for nearly every line.
void addFilter(Family family, const Criteria& criteria, std::vector<Filter>& filters) {
  Filter& made = filters.emplace_back();
  if (family == Family::ipv4) {
    auto& filter = made.emplace<Acl::IpFilter>();
    fillCommon(criteria, filter);
    filter.sourceIs(addrMask(criteria.srcV4));
    filter.destinationIs(addrMask(criteria.dstV4));
  } else if (family == Family::ipv6) {
    auto& filter = made.emplace<Acl::Ip6Filter>();
    fillCommon(criteria, filter);
    filter.sourceIs(addrPrefix(criteria.srcV6));
    filter.destinationIs(addrPrefix(criteria.dstV6));
  } else {
    auto& filter = made.emplace<Acl::MacFilter>();
    filter.sourceIs(Ovnet::MacAddr(criteria.srcMac.address), matchMask(criteria.srcMac));
    filter.destinationIs(Ovnet::MacAddr(criteria.dstMac.address), matchMask(criteria.dstMac));
    if (criteria.etherType) {
      filter.etherTypeIs(*criteria.etherType);
    }
    if (criteria.vlan) {
      filter.vlanIs(*criteria.vlan, 0xFFFF);
    }
  }
}

void addNeighborDiscovery(uint8_t icmpType, std::vector<Filter>& filters) {
  Criteria criteria;
  criteria.protocol = protoIcmpV6;
  criteria.icmpType = icmpType;
  addFilter(Family::ipv6, criteria, filters);
}

const std::vector<PortBlock>& anyBlocks() {
  static const std::vector<PortBlock> blocks = portBlocks(anyPort());
  return blocks;
}

// Most lines leave one side open; `made` holds the blocks of those that do not.
const std::vector<PortBlock>& blocksOf(const PortSet& ports, std::vector<PortBlock>& made) {
  if (isAnyPort(ports)) {
    return anyBlocks();
  }
  portBlocks(ports, made);
  return made;
}

// The rows of one configured entry, and how many rule numbers it used.
class EntryRows {
public:
  EntryRows(AggregatedAcl& acl, uint32_t firstRuleNum) : acl_(acl), ruleNum_(firstRuleNum) {}

  void entry(int32_t origin, const Rule& rule) {
    const bool isMac = acl_.source.family == Family::mac;
    uint32_t subRule = 0;
    for (const Criteria& criteria : rule.alternatives) {
      // A non-initial fragment carries no ports and the row compares none.
      const auto& srcBlocks = criteria.fragments ? anyBlocks() : blocksOf(criteria.srcPorts, srcMade_);
      const auto& dstBlocks = criteria.fragments ? anyBlocks() : blocksOf(criteria.dstPorts, dstMade_);
      if (srcBlocks.empty() || dstBlocks.empty()) {
        continue;
      }
      const uint32_t filter = static_cast<uint32_t>(acl_.filters.size());
      addFilter(acl_.source.family, criteria, acl_.filters);
      for (const PortBlock& src : srcBlocks) {
        for (const PortBlock& dst : dstBlocks) {
          acl_.rows.push_back({ruleNum_, subRule, origin, filter, src, dst});
          ++subRule;
        }
      }
      if (isMac) {
        ++ruleNum_;
        subRule = 0;
      }
    }
    if (subRule != 0) {
      ++ruleNum_;
    }
  }

  uint32_t nextRuleNum() const { return ruleNum_; }

private:
  AggregatedAcl& acl_;
  uint32_t ruleNum_;
  // Their memory serves all lines.
  std::vector<PortBlock> srcMade_;
  std::vector<PortBlock> dstMade_;
};

} // namespace

Acl::AclType aclType(Family family) {
  return static_cast<Acl::AclType>(family);
}
Acl::AclDirection aclDirection(Direction direction) {
  return static_cast<Acl::AclDirection>(direction);
}

int32_t AggregatedAcl::originOf(uint32_t ruleNum) const {
  const auto row =
      std::lower_bound(rows.begin(), rows.end(), ruleNum,
                       [](const AggregatedRow& r, uint32_t number) { return r.ruleNum < number; });
  return row == rows.end() ? originFinal : row->origin;
}

std::string AggregatedAcl::textOf(int32_t origin) const {
  switch (origin) {
  case originSolicitation:
    return "(implicit) permit icmp any any neighbor-solicitation";
  case originAdvertisement:
    return "(implicit) permit icmp any any neighbor-advertisement";
  case originFinal:
    return source.family == Family::ipv4   ? "(implicit) deny ip any any"
           : source.family == Family::ipv6 ? "(implicit) deny ipv6 any any"
                                           : "(implicit) deny any any";
  default:
    return source.rules[static_cast<std::size_t>(origin)].text;
  }
}

std::vector<uint32_t> rowsPerEntry(const AggregatedAcl& acl) {
  std::vector<uint32_t> counts(acl.source.rules.size(), 0);
  for (const AggregatedRow& row : acl.rows) {
    if (row.origin >= 0) {
      ++counts[static_cast<std::size_t>(row.origin)];
    }
  }
  return counts;
}

std::shared_ptr<AggregatedAcl> aggregate(const AccessList& list, bool neighborDiscovery) {
  auto acl = std::make_shared<AggregatedAcl>();
  acl->source = list;
  acl->filters.reserve(list.rules.size());
  acl->rows.reserve(list.rules.size() + 1);
  EntryRows entries(*acl, 1);
  constexpr std::size_t ahead = 6; // lines whose conditions are fetched meanwhile
  for (std::size_t i = 0; i < list.rules.size(); ++i) {
    if (i + ahead < list.rules.size() && !list.rules[i + ahead].alternatives.empty()) {
      const Criteria& later = list.rules[i + ahead].alternatives.front();
      __builtin_prefetch(&later);
      __builtin_prefetch(&later.dstPorts);
    }
    entries.entry(static_cast<int32_t>(i), list.rules[i]);
  }
  uint32_t ruleNum = entries.nextRuleNum();
  const auto implicitRow = [&](int32_t origin, uint8_t icmpType) {
    const uint32_t index = static_cast<uint32_t>(acl->filters.size());
    addNeighborDiscovery(icmpType, acl->filters);
    acl->rows.push_back({ruleNum++, 0, origin, index, {}, {}});
  };
  if (list.family == Family::ipv6 && neighborDiscovery) {
    implicitRow(originSolicitation, ndSolicitation);
    implicitRow(originAdvertisement, ndAdvertisement);
  }
  acl->rows.push_back({ruleNum, 0, originFinal, 0, {}, {}});
  return acl;
}

bool sameRules(const AccessList& a, const AccessList& b) {
  if (a.family == b.family && a.rules.sharedWith(b.rules)) {
    return true;
  }
  return a.family == b.family && std::equal(a.rules.begin(), a.rules.end(), b.rules.begin(), b.rules.end(),
                                            [](const Rule& x, const Rule& y) {
                                              return x.permit == y.permit && x.log == y.log &&
                                                     x.alternatives == y.alternatives;
                                            });
}

namespace {

std::size_t uniqueIndex(const AggregatedAcl& acl, int32_t origin) {
  return origin >= 0 ? static_cast<std::size_t>(origin)
                     : acl.source.rules.size() + static_cast<std::size_t>(-origin - 1);
}

template <typename F>
unsigned stageIpRow(XpAcl::PlexAclAggregatorHelper& helper, const XpAcl::AclKeyInfo& version,
                    const Vane::Ptr<Plex::AclData>& aclData, const AggregatedRow& row, const F& filter,
                    bool permit, bool log, const Acl::UniqueId& uniqueId) {
  const Acl::FilterRuleConfig<F> config(filter, permit ? Acl::permit : Acl::deny, log);
  return helper.createIpAclCommonAggregate(version, version.aclKey().aclType(), config, uniqueId, aclData,
                                           row.ruleNum, row.subRuleNum, row.origin < 0, row.src.value,
                                           row.src.mask, row.dst.value, row.dst.mask, row.src.low,
                                           row.src.high, row.dst.low, row.dst.high, 0, 0, 0, 0, 0, false);
}

} // namespace

unsigned stageAcl(XpAcl::PlexAclAggregatorHelper& helper, const XpAcl::AclKeyInfo& version,
                  const Vane::Ptr<Plex::AclData>& aclData, const AggregatedAcl& acl,
                  const UniqueIds& uniqueIds) {
  constexpr std::size_t ahead = 8; // lines that are fetched meanwhile
  const std::size_t lines = acl.source.rules.size();
  for (const AggregatedRow& row : acl.rows) {
    if (row.origin >= 0 && static_cast<std::size_t>(row.origin) + ahead < lines) {
      __builtin_prefetch(&acl.source.rules[static_cast<std::size_t>(row.origin) + ahead].permit);
    }
    const Acl::UniqueId uniqueId(uniqueIds[uniqueIndex(acl, row.origin)]);
    unsigned status = 0;
    if (row.origin == originFinal) {
      status = helper.createFinalAclRulePlatform(version, version.aclKey().aclType(), aclData, row.ruleNum);
    } else {
      const bool configured = row.origin >= 0;
      const Rule* const rule = configured ? &acl.source.rules[static_cast<std::size_t>(row.origin)] : nullptr;
      const bool permit = !configured || rule->permit;
      const bool log = configured && rule->log;
      const Filter& filter = acl.filters[row.filter];
      if (const auto* v4 = std::get_if<Acl::IpFilter>(&filter)) {
        status = stageIpRow(helper, version, aclData, row, *v4, permit, log, uniqueId);
      } else if (const auto* v6 = std::get_if<Acl::Ip6Filter>(&filter)) {
        status = stageIpRow(helper, version, aclData, row, *v6, permit, log, uniqueId);
      } else {
        const Acl::MacRuleConfig config(std::get<Acl::MacFilter>(filter), permit ? Acl::permit : Acl::deny,
                                        log);
        status = helper.createMacAclCommonAggregate(version, Acl::mac, config, uniqueId, aclData, row.ruleNum,
                                                    false);
      }
    }
    if (status != XpAcl::staged) {
      return status;
    }
  }
  return XpAcl::staged;
}

} // namespace agent
