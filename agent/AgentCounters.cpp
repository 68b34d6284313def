#include "agent/Agent.h"

#include <algorithm>
#include <unordered_set>

// Hit counters. The chip has one block of counters a direction, shared by its tables: row r of an IPv4 table
// counts at 2r + 1, row r of the IPv6 and of the MAC table both at 2r, and counter 0 is where everything
// counts that has no counter of its own. So row 0 of the IPv6 and MAC tables, and rows with the same number
// in both, would count for nobody or for two lines. Lists are kept off such rows as long as there are others.

namespace agent {

namespace {

// The table whose rows count at the same indexes; nothing for tables that share theirs with none.
std::optional<XpAcl::TcamType> counterTwin(XpAcl::TcamType table) {
  switch (table) {
  case XpAcl::ingressV6:
    return XpAcl::ingressMac;
  case XpAcl::ingressMac:
    return XpAcl::ingressV6;
  default:
    return std::nullopt;
  }
}

bool countsAtEven(XpAcl::TcamType table) {
  return XpAcl::tcamTable(table).aclType != Acl::ipv4;
}

// The rows of one version are mostly ascending already.
void sortRows(std::vector<uint32_t>& rows) {
  if (!std::is_sorted(rows.begin(), rows.end())) {
    std::sort(rows.begin(), rows.end());
  }
}

Vane::String counterLabel(const RowOwner& owner) {
  return Vane::format("%s:%u.%u", owner.version.aclKey().name().charPtr(), owner.ruleNum, owner.subRuleNum);
}

} // namespace

// Rows of `table` whose counter is not free: that of row 0, and those that the twin table's rows use.
std::set<uint32_t> Agent::takenCounterRows(uint8_t chip, XpAcl::TcamType table) const {
  std::set<uint32_t> taken;
  if (!countsAtEven(table)) {
    return taken;
  }
  taken.insert(0);
  const auto acm = helpers_.at(chip)->acmHelper(XpAcl::tcamTable(table).direction);
  const std::size_t rows = counterTwin(table) ? owners_.at(chip)[*counterTwin(table)].size() : 0;
  for (uint32_t row = 0; row < rows; ++row) {
    if (acm->acmIdxHas(XpAcl::counterIndexOfRow(XpAcl::tcamTable(table).aclType, row))) {
      taken.insert(row);
    }
  }
  return taken;
}

// The free rows of `table` that a list of `needed` rows is to be kept off. Where too few rows would be left,
// as many as lack stay in the pool.
std::vector<uint32_t> Agent::withholdRows(uint8_t chip, XpAcl::TcamType table, std::size_t needed) {
  std::vector<uint32_t> rows;
  const auto pool = helpers_.at(chip)->tcamIdxAllocator(table);
  if (!setup_.counters || !countsAtEven(table) || !pool) {
    return rows;
  }
  std::set<uint32_t> taken = takenCounterRows(chip, table);
  if (const auto twin = counterTwin(table)) {
    for (const auto& pending : helpers_.at(chip)->pendingTcamMappingAll()) {
      for (const auto& version : pending.ptr()->pendingAclKeyInfoToIdxAll()) {
        const Plex::AclKey& key = version.key().aclKey();
        if (XpAcl::getTcamType(key.direction(), key.aclType()) == *twin) {
          for (const auto& placed : version.ptr()->tcamIdxAll()) {
            taken.insert(placed.value());
          }
        }
      }
    }
  }
  std::copy_if(taken.begin(), taken.end(), std::back_inserter(rows),
               [&](uint32_t row) { return pool->freeTcamIdxHas(row); });
  const std::size_t free = pool->freeTcamIdxCount();
  const std::size_t spare = free > needed ? free - needed : 0;
  if (rows.size() > spare) {
    rows.resize(spare);
  }
  return rows;
}

// Ascending.
std::vector<uint32_t> Agent::rowsWithoutCounter(uint8_t chip, const XpAcl::TcamIdxMapping& placement) const {
  std::vector<uint32_t> rows;
  if (!setup_.counters) {
    return rows;
  }
  const Plex::AclKey& key = placement.aclKeyInfo().aclKey();
  const RowOwners& owners = owners_.at(chip)[XpAcl::getTcamType(key.direction(), key.aclType())];
  for (const auto& placed : placement.tcamIdxAll()) {
    const RowOwner& owner = owners[placed.value()];
    if (owner.acl && owner.version == placement.aclKeyInfo() && !owner.ownCounter) {
      rows.push_back(placed.value());
    }
  }
  sortRows(rows);
  return rows;
}

// Those whose counter a row of another table may have.
std::vector<uint32_t> Agent::rowsThatShare(uint8_t chip, const XpAcl::TcamIdxMapping& placement) const {
  const Plex::AclKey& key = placement.aclKeyInfo().aclKey();
  return counterTwin(XpAcl::getTcamType(key.direction(), key.aclType())) ? rowsWithoutCounter(chip, placement)
                                                                         : std::vector<uint32_t>();
}

void Agent::warnOfCounters(uint8_t chip, const XpAcl::TcamIdxMapping& placement, ApplyResult& result) const {
  const Plex::AclKey& key = placement.aclKeyInfo().aclKey();
  const XpAcl::TcamType table = XpAcl::getTcamType(key.direction(), key.aclType());
  std::set<int32_t> named;
  for (const uint32_t row : rowsWithoutCounter(chip, placement)) {
    const RowOwner& owner = owners_.at(chip)[table][row];
    if (owner.origin != originFinal && named.insert(owner.origin).second) {
      const Rule* const rule = owner.rule();
      result.warnings.push_back(
          (rule != nullptr ? rule->loc.text() : "list " + owner.acl->source.name) + ": table " +
          stringValue(table).charPtr() + " of chip " + std::to_string(chip) + " is too full to give \"" +
          owner.acl->textOf(owner.origin) + "\" a counter of its own; its hits are not counted");
    }
  }
}

// When a row retires that has no counter, the library gives the counter of its number back all the same. The
// row of the twin table that has it keeps it.
void Agent::restoreCounters(uint8_t chip, XpAcl::TcamType table, const std::vector<uint32_t>& rows) {
  const auto twin = counterTwin(table);
  if (!twin) {
    return;
  }
  const auto acm = helpers_.at(chip)->acmHelper(XpAcl::tcamTable(table).direction);
  for (const uint32_t row : rows) {
    const RowOwners& owners = owners_.at(chip)[*twin];
    if (row < owners.size() && owners[row].acl && owners[row].ownCounter) {
      acm->acmIdxIs(XpAcl::counterIndexOfRow(owners[row].version.aclKey().aclType(), row),
                    counterLabel(owners[row]));
    }
  }
}

// Up to where counter 0 was read. A rule on row 0 of an IPv6 or MAC table would start it anew at its commit.
std::map<Acl::AclDirection, uint64_t> Agent::implicitHitsRead(uint8_t chip) const {
  std::map<Acl::AclDirection, uint64_t> read;
  for (const Acl::AclDirection direction : {Acl::ingress, Acl::egress}) {
    if (const auto acm = helpers_.at(chip)->acmHelper(direction)) {
      read[direction] = acm->lastCount(helpers_.at(chip)->unusedAcmIndex());
    }
  }
  return read;
}

void Agent::implicitHitsReadIs(uint8_t chip, const std::map<Acl::AclDirection, uint64_t>& read) {
  for (const auto& [direction, count] : read) {
    helpers_.at(chip)->acmHelper(direction)->lastCountIs(helpers_.at(chip)->unusedAcmIndex(), count);
  }
}

// A line that was never hit needs no total: most lines of a long list.
void Agent::addHits(const AclName& name, uint64_t uniqueId, uint64_t hits) {
  if (hits == 0) {
    return;
  }
  const auto [total, isNew] = totals_.try_emplace(uniqueId);
  if (isNew) {
    total->second.name = name;
  }
  total->second.hits += hits;
}

// Lines that a list lost never come back: what they counted becomes one number a list. Done when they are
// more than the lines that are left, so that it costs nothing to speak of.
void Agent::foldRemoved() {
  std::size_t lines = 0;
  for (const auto& [name, generation] : registry_.all()) {
    lines += generation.uniqueIds.size();
  }
  constexpr std::size_t few = 64;
  if (totals_.size() <= 2 * lines + few) {
    return;
  }
  std::unordered_set<uint64_t> current;
  current.reserve(lines);
  for (const auto& [name, generation] : registry_.all()) {
    current.insert(generation.uniqueIds.begin(), generation.uniqueIds.end());
  }
  for (auto total = totals_.begin(); total != totals_.end();) {
    if (current.count(total->first) != 0) {
      ++total;
      continue;
    }
    removed_[total->second.name] += total->second.hits;
    total = totals_.erase(total);
  }
}

// Calls visit(row, its owner) for the rows of all versions of a list that stand in a chip, while it answers
// true.
template <class Visit>
void Agent::forEachRowOf(uint8_t chip, const Plex::AclKey& key, const Visit& visit) const {
  const RowOwners& owners = owners_.at(chip)[XpAcl::getTcamType(key.direction(), key.aclType())];
  for (const auto& version : helpers_.at(chip)->programmedAclKeyInfoToIdxAll()) {
    if (!(version.key().aclKey() == key)) {
      continue;
    }
    for (const auto& placed : version.ptr()->tcamIdxAll()) {
      const RowOwner& owner = owners[placed.value()];
      if (owner.acl && owner.version.aclKey() == key && !visit(placed.value(), owner)) {
        return;
      }
    }
  }
}

// Ascending.
std::vector<uint32_t> Agent::rowsOf(uint8_t chip, const Plex::AclKey& key) const {
  std::vector<uint32_t> rows;
  forEachRowOf(chip, key, [&](uint32_t row, const RowOwner&) {
    rows.push_back(row);
    return true;
  });
  sortRows(rows);
  return rows;
}

// Through the library where every line has its counters; else row by row, so that nobody's hits are read in
// the name of another.
void Agent::pollAcl(uint8_t chip, const Plex::AclKey& key) {
  const auto generation = generations_.find(key);
  const auto data = aclData_.find(key);
  XpAcl::XpAclPlexAggregatorHelper& helper = *helpers_.at(chip);
  const auto tcamInfo = helper.programmedAclKeyToTcamInfo(key);
  if (!setup_.counters || generation == generations_.end() || data == aclData_.end() || !tcamInfo) {
    return;
  }
  const AclName name = aclName(key);
  bool allOwn = true;
  forEachRowOf(chip, key, [&](uint32_t, const RowOwner& owner) {
    allOwn = owner.origin == originFinal || owner.ownCounter;
    return allOwn;
  });
  if (allOwn && data->second->installed() && helper.aclCountersAllocated(data->second)) {
    for (const uint64_t uniqueId : generation->second.uniqueIds) {
      const Acl::UniqueId id(uniqueId);
      if (tcamInfo->rulesFrom(id) != nullptr) {
        addHits(name, uniqueId, helper.aclRuleCountersSinceLastPoll(data->second, 0, id));
      }
    }
    return;
  }
  const auto acm = helper.acmHelper(key.direction());
  const RowOwners& owners = owners_.at(chip)[XpAcl::getTcamType(key.direction(), key.aclType())];
  for (const uint32_t row : rowsOf(chip, key)) {
    if (owners[row].ownCounter) {
      addHits(name, owners[row].uniqueId, acm->getCounterValue(XpAcl::counterIndexOfRow(key.aclType(), row)));
    }
  }
}

void Agent::pollCounters() {
  std::set<std::pair<uint8_t, Plex::AclKey>> polled;
  for (const auto& [indexKey, live] : live_) {
    for (const uint8_t chip : live.chips) {
      for (const Plex::AclKey& member : members(indexKey)) {
        if (polled.insert({chip, member}).second) {
          pollAcl(chip, member);
        }
      }
    }
  }
  for (const auto& [chip, helper] : helpers_) {
    for (const Acl::AclDirection direction : {Acl::ingress, Acl::egress}) {
      if (const auto acm = helper->acmHelper(direction)) {
        implicitDeny_[direction == Acl::ingress ? 0 : 1] += acm->getCounterValue(helper->unusedAcmIndex());
      }
    }
  }
}

Counters Agent::counters() const {
  Counters counters;
  std::set<uint64_t> uncounted;
  for (const auto& [chip, tables] : owners_) {
    for (const RowOwners& owners : tables) {
      for (uint32_t row = 0; row < owners.size(); ++row) {
        const RowOwner& owner = owners[row];
        if (owner.acl && owner.origin != originFinal && !owner.ownCounter) {
          uncounted.insert(owner.uniqueId);
        }
      }
    }
  }
  std::set<uint64_t> current;
  std::map<AclName, std::size_t> place;
  for (const auto& [name, generation] : registry_.all()) {
    ListCounters list;
    list.name = name;
    list.acl = generation.acl;
    list.applied = generations_.count(aclKey(name, generation.generation)) != 0;
    const std::size_t entries = generation.acl->source.rules.size();
    for (std::size_t i = 0; i < generation.uniqueIds.size(); ++i) {
      const uint64_t id = generation.uniqueIds[i];
      current.insert(id);
      const int32_t origin = i < entries ? static_cast<int32_t>(i) : -static_cast<int32_t>(i - entries) - 1;
      const bool neighborDiscovery = origin == originSolicitation || origin == originAdvertisement;
      if (origin == originFinal || (neighborDiscovery && name.family != Family::ipv6)) {
        continue;
      }
      const auto total = totals_.find(id);
      list.lines.push_back(
          {origin, total == totals_.end() ? 0 : total->second.hits, uncounted.count(id) == 0});
    }
    place[name] = counters.lists.size();
    counters.lists.push_back(std::move(list));
  }
  for (const auto& [id, total] : totals_) {
    if (current.count(id) == 0) {
      counters.lists[place.at(total.name)].removed += total.hits;
    }
  }
  for (const auto& [name, hits] : removed_) {
    counters.lists[place.at(name)].removed += hits;
  }
  std::copy(std::begin(implicitDeny_), std::end(implicitDeny_), counters.implicitDeny);
  return counters;
}

} // namespace agent
