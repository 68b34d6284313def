#include "agent/Agent.h"

#include "agent/AgentChange.h"

#include <algorithm>

// One change, from the configuration to the chips.

namespace agent {

namespace {

constexpr std::size_t bytesToAbandon = std::size_t{64} << 10; // giving back mostly frees

// Rows that are kept out of a pool while a list is staged.
class Withheld {
public:
  Withheld(const Vane::Ptr<XpAcl::TcamIdxAllocator>& pool, std::vector<uint32_t> rows, MemoryReserve& reserve)
      : pool_(pool), rows_(std::move(rows)), reserve_(reserve) {
    for (const uint32_t row : rows_) {
      pool_->freeTcamIdxDel(row);
    }
  }
  ~Withheld() {
    const MemoryReserve::Use use(reserve_);
    for (const uint32_t row : rows_) {
      pool_->freeTcamIdxIs(row, true);
    }
  }
  Withheld(const Withheld&) = delete;
  Withheld& operator=(const Withheld&) = delete;

private:
  Vane::Ptr<XpAcl::TcamIdxAllocator> pool_;
  std::vector<uint32_t> rows_;
  MemoryReserve& reserve_;
};

std::string tableText(XpAcl::TcamType table) {
  return stringValue(table).charPtr();
}

std::string shortageText(const Shortage& shortage) {
  return "table " + tableText(shortage.table) + " of chip " + std::to_string(shortage.chip) + " has " +
         std::to_string(shortage.free) + " free rows, the new versions need " +
         std::to_string(shortage.needed) + ": " + std::to_string(shortage.needed - shortage.free) +
         " rows lack";
}

} // namespace

const AclGeneration* Agent::generationOf(const Change* change, const Plex::AclKey& key) const {
  if (change != nullptr) {
    const auto wanted = change->desired.lists.find(aclName(key));
    if (wanted != change->desired.lists.end() && wanted->second.generation == key.generation()) {
      return &wanted->second;
    }
  }
  const auto held = generations_.find(key);
  return held == generations_.end() ? nullptr : &held->second;
}

// Counts rows and ids instead of taking them; the figures are those that staging would find.
ApplyResult Agent::check(const Config& config) const {
  ApplyResult result;
  const std::set<uint8_t> chips = wantedChips(config);
  Change change;
  change.desired = desiredState(config, chips, registry_, neighborDiscovery_, attachments_);
  std::map<std::pair<uint8_t, XpAcl::TcamType>, uint32_t> needed;
  std::map<XpAcl::AclIntfTypeAndDir, uint32_t> ids;
  for (const Wanted& wanted : change.desired.indexKeys) {
    const auto live = live_.find(wanted.indexKey);
    if (live == live_.end()) {
      ++ids[idKind(wanted.routed, directionOf(wanted.indexKey))];
    }
    for (const uint8_t chip : wanted.chips) {
      if (live != live_.end() && live->second.chips.count(chip) != 0) {
        continue;
      }
      for (const Plex::AclKey& member : members(wanted.indexKey)) {
        const XpAcl::TcamType table = XpAcl::getTcamType(member.direction(), member.aclType());
        needed[{chip, table}] += static_cast<uint32_t>(generationOf(&change, member)->acl->rows.size());
      }
    }
  }
  for (const auto& [place, rows] : needed) {
    uint32_t free = 0;
    if (const auto present = helper(place.first)) {
      const auto pool = present->tcamIdxAllocator(place.second);
      free = pool ? static_cast<uint32_t>(pool->freeTcamIdxCount()) : 0;
    } else {
      const uint32_t rows = setup_.rows(static_cast<Table>(place.second));
      free = rows == 0 ? 0 : rows - 1;
    }
    result.rowsStaged += rows;
    if (rows > free) {
      result.shortages.push_back({place.first, place.second, rows, free});
      result.errors.push_back(shortageText(result.shortages.back()));
    }
  }
  for (const auto& [kind, count] : ids) {
    const uint32_t free = helpers_.begin()->second->hwAclIdAllocator(kind)->numFree();
    if (count > free) {
      result.errors.push_back("the change needs " + std::to_string(count) + " new " +
                              std::string(stringValue(kind).charPtr()) + " ids, " + std::to_string(free) +
                              " are free: attach fewer combinations of lists, or change them in steps");
    }
  }
  result.ok = result.errors.empty();
  return result;
}

// A change that cannot be made, for want of rows, ids or memory, is given back before the first write. One
// that has begun to write is finished, on memory that was set aside for it.
ApplyResult Agent::apply(const Config& config) {
  VANE_ASSERT(!Vane::notificationDrainRunning());
  reserveAtLeast(bytesToAbandon);
  foldRemoved();
  const std::set<uint8_t> chips = wantedChips(config);
  for (const uint8_t chip : chips) {
    makeHelper(chip);
  }
  Change change;
  change.config = config;
  change.desired = desiredState(config, chips, registry_, neighborDiscovery_, attachments_);
  change.pairs = wantedPairs(config);
  bool staged = false;
  try {
    staged = giveIds(change) && stageAll(change);
    if (staged) {
      reserveAtLeast(bytesToFinish(change));
    }
  } catch (const std::bad_alloc&) {
    abandon(change);
    throw;
  }
  if (!staged) {
    abandon(change);
    ApplyResult refused = check(config);
    refused.ok = false;
    refused.rowsStaged = 0;
    return refused;
  }
  try {
    const MemoryReserve::Use use(reserve_);
    finish(change, chips);
  } catch (const std::bad_alloc&) {
    // As with a chip that does not answer: what stands in it is closed or old or new, and the next start
    // makes it whole.
    VANE_ASSERT_TEXT(false, "memory for a change that has begun");
  }
  reserve_.release();
  return std::move(change.result);
}

void Agent::finish(Change& change, const std::set<uint8_t>& chips) {
  const Config& config = change.config;
  commitAll(change);
  adoptLists(change);
  unpublishMovedPorts(config);
  addPorts(config);
  makeMachine();
  activateChips(chips);
  if (adopted_.empty()) {
    joinPairs(config, change.pairs);
    publishAll(change);
  } else {
    // After a restart the entries of pairs are closed; each opens when its pair joins the lists that stand.
    publishAll(change);
    joinPairs(config, change.pairs);
  }
  removePairs(change.pairs);
  retireUnused(change);
  deactivateChips(chips);
  removePorts(config);
  sweepChips();
  clearUnitError();
  config_ = std::move(change.config);
  change.result.ok = true;
}

bool Agent::giveIds(Change& change) {
  for (const Wanted& wanted : change.desired.indexKeys) {
    if (live_.find(wanted.indexKey) != live_.end()) {
      continue;
    }
    const auto kind = idKind(wanted.routed, directionOf(wanted.indexKey));
    uint16_t& given = change.newIds[wanted.indexKey];
    const auto id = helpers_.begin()->second->hwAclIdAllocator(kind)->allocate();
    if (!id) {
      const Vane::String text("no hardware ACL id is free");
      helpers_.begin()->second->publishUnitErrorIs(text, true);
      helpers_.begin()->second->unitErrorIs(text, Plex::aclCreateErrorInvalid);
      return false;
    }
    given = *id;
  }
  return true;
}

bool Agent::stageAll(Change& change) {
  for (const Wanted& wanted : change.desired.indexKeys) {
    const auto live = live_.find(wanted.indexKey);
    for (const uint8_t chip : wanted.chips) {
      const bool placed = live != live_.end() && live->second.chips.count(chip) != 0;
      if (!placed && !stageIndexKey(change, wanted, chip)) {
        return false;
      }
    }
  }
  return true;
}

// The changed lists of an index key are staged by create calls under their own keys; the unchanged ones get
// one more version on behalf of a changed one. Where nothing changed (a new combination of known lists) the
// first one stands in as the trigger.
bool Agent::stageIndexKey(Change& change, const Wanted& wanted, uint8_t chip) {
  const auto keys = members(wanted.indexKey);
  const auto& chipHelper = helpers_.at(chip);
  const auto isNew = [&](const Plex::AclKey& key) { return !chipHelper->programmedAclKeyToTcamInfoHas(key); };
  const auto changed = std::find_if(keys.begin(), keys.end(), isNew);
  const Plex::AclKey trigger = changed == keys.end() ? keys.front() : *changed;
  for (const Plex::AclKey& member : keys) {
    if (!stageMember(change, wanted, chip, member, trigger, member == trigger || isNew(member))) {
      return false;
    }
  }
  return true;
}

bool Agent::stageMember(Change& change, const Wanted& wanted, uint8_t chip, const Plex::AclKey& member,
                        const Plex::AclKey& trigger, bool create) {
  const auto live = live_.find(wanted.indexKey);
  const uint16_t id = live != live_.end() ? live->second.id : change.newIds.at(wanted.indexKey);
  const XpAcl::AclKeyInfo version = versionOf(member, id, wanted.routed);
  const AclGeneration& generation = *generationOf(&change, member);
  XpAcl::XpAclPlexAggregatorHelper& helper = *helpers_.at(chip);
  const XpAcl::TcamType table = XpAcl::getTcamType(member.direction(), member.aclType());
  const Withheld withheld(helper.tcamIdxAllocator(table),
                          withholdRows(chip, table, generation.acl->rows.size()), reserve_);
  change.pendingKeys[chip].insert(create ? member : trigger);
  if (!create) {
    if (!helper.allocateResource(trigger, version)) {
      const Vane::String text("XpAclPlexAggregatorHelper aclCreateErrorTcamExhaustion::allocateResource");
      helper.dirtyIs(true);
      helper.publishUnitErrorIs(text, true);
      helper.unitErrorIs(text, Plex::aclCreateErrorTcamExhaustion);
      return false;
    }
  } else {
    if (aclData_.find(member) == aclData_.end()) {
      change.newAclData.insert(member);
    }
    if (stageAcl(helper, version, aclDataOf(member), *generation.acl, generation.uniqueIds) !=
        XpAcl::staged) {
      return false;
    }
  }
  change.result.rowsStaged += static_cast<uint32_t>(generation.acl->rows.size());
  change.bytesToCommit += bytesToCommit(table, generation.acl->rows.size());
  return true;
}

// Everything goes back; what is published and what stands in the chips was never touched.
void Agent::abandon(Change& change) {
  const MemoryReserve::Use use(reserve_);
  for (const auto& [chip, keys] : change.pendingKeys) {
    for (const Plex::AclKey& key : keys) {
      helpers_.at(chip)->cleanupPendingPlatform(key);
    }
  }
  for (const auto& [key, id] : change.newIds) {
    const Wanted& wanted = *change.desired.find(key);
    if (id != 0) {
      helpers_.begin()->second->hwAclIdAllocator(idKind(wanted.routed, directionOf(key)))->release(id);
    }
  }
  for (const Plex::AclKey& key : change.newAclData) {
    aclData_.erase(key);
  }
}

bool Agent::ownRows(uint8_t chip, const XpAcl::TcamIdxMapping& placement, const AclGeneration& generation,
                    std::vector<bool>& claimed) {
  const XpAcl::AclKeyInfo& version = placement.aclKeyInfo();
  const Acl::AclType type = version.aclKey().aclType();
  const AggregatedAcl& acl = *generation.acl;
  const auto acm = helpers_.at(chip)->acmHelper(version.aclKey().direction());
  const uint32_t nobodys = helpers_.at(chip)->unusedAcmIndex();
  RowOwners& owners = owners_.at(chip)[XpAcl::getTcamType(version.aclKey().direction(), type)];
  claimed.resize(std::max(claimed.size(), std::size_t{2} * owners.size() + 1));
  auto row = acl.rows.begin();
  bool counted = true;
  for (const auto& placed : placement.tcamIdxAll()) {
    // Rules and placement are in the same order.
    const std::size_t unique = row->origin >= 0
                                   ? static_cast<std::size_t>(row->origin)
                                   : acl.source.rules.size() + static_cast<std::size_t>(-row->origin - 1);
    const uint32_t counter = XpAcl::counterIndexOfRow(type, placed.value());
    const bool ownCounter = setup_.counters && row->origin != originFinal && counter != nobodys &&
                            !acm->acmIdxHas(counter) && !claimed[counter];
    if (ownCounter) {
      claimed[counter] = true;
    }
    counted = counted && (ownCounter || row->origin == originFinal);
    owners.valueIs(placed.value(), {generation.acl, version, row->ruleNum, row->subRuleNum, row->origin,
                                    generation.uniqueIds[unique], ownCounter});
    ++row;
  }
  return counted;
}

void Agent::disownRows(uint8_t chip, const XpAcl::TcamIdxMapping& placement, ApplyResult& result) {
  const Plex::AclKey& key = placement.aclKeyInfo().aclKey();
  RowOwners& owners = owners_.at(chip)[XpAcl::getTcamType(key.direction(), key.aclType())];
  for (const auto& placed : placement.tcamIdxAll()) {
    owners.valueDel(placed.value());
    ++result.rowsRetired;
  }
}

void Agent::commitAll(Change& change) {
  for (const auto& [chip, keys] : change.pendingKeys) {
    for (const Plex::AclKey& key : keys) {
      const auto pending = helpers_.at(chip)->pendingTcamMapping(key);
      std::vector<bool> claimed[2]; // by direction, counter
      for (const auto& version : pending->pendingAclKeyInfoToIdxAll()) {
        const bool counted = ownRows(chip, *version.ptr(), *generationOf(&change, version.key().aclKey()),
                                     claimed[version.key().aclKey().direction() == Acl::ingress ? 0 : 1]);
        if (!counted) {
          warnOfCounters(chip, *version.ptr(), change.result);
        }
      }
      const std::map<Acl::AclDirection, uint64_t> implicitRead = implicitHitsRead(chip);
      helpers_.at(chip)->commitPendingPlatform(key);
      implicitHitsReadIs(chip, implicitRead);
    }
  }
  for (const Wanted& wanted : change.desired.indexKeys) {
    LiveIndexKey& live = live_[wanted.indexKey];
    const auto id = change.newIds.find(wanted.indexKey);
    if (id != change.newIds.end()) {
      live.id = id->second;
      live.routed = wanted.routed;
    }
    live.chips.insert(wanted.chips.begin(), wanted.chips.end());
  }
}

// A list whose rules are unchanged keeps its generation; only where its lines stand may be new.
void Agent::adoptLists(Change& change) {
  for (auto& [name, generation] : change.desired.lists) {
    const Plex::AclKey key = aclKey(name, generation.generation);
    const auto held = generations_.find(key);
    if (held != generations_.end()) {
      held->second.acl->source = generation.acl->source;
      generation.acl = held->second.acl;
    }
    generations_[key] = generation;
    registry_.generationIs(name, generation);
    aclDataOf(key)->installedIs(true);
  }
}

// `bracket`: through the helper, which blocks the interface for the publishing and unblocks it afterwards;
// otherwise the interface is blocked already and stays so.
void Agent::publish(const Attachment& attachment, const XpAcl::HwAclIndexKey& key, bool bracket) {
  XpAcl::XpAclPlexAggregatorHelper& helper = *helpers_.at(chipOf(attachment.intf));
  const auto live = live_.find(key);
  Vane::Ptr<Plex::AclData> data;
  if (live != live_.end()) {
    helper.assignedAclIdIs(key, XpAcl::AclId(live->second.id));
    data = aclDataOf(members(key).front());
  } else {
    // Taking the lists away needs the direction only.
    data = Plex::aclDataFactory(Plex::AclKey(Plex::AclKey().name(), attachment.direction, Acl::ipv4, 0));
  }
  const Plex::IntfPairKey pair(attachment.intf, Ovnet::IntfId());
  const bool published = bracket ? helper.allocateAndCommitAcl(pair, data, key)
                                 : helper.PlexAclAggregatorHelper::allocateAndCommitAcl(pair, data, key);
  VANE_ASSERT(published);
}

// A packet can meet several interfaces (its port, its VLAN, the port and VLAN it leaves by). When more than
// one of them changes, all are blocked before the first one moves and each is unblocked when it has moved: no
// packet meets the new lists of one and the old lists of another, which together might let through what
// both configurations deny.
void Agent::publishAll(Change& change) {
  std::map<Ovnet::IntfId, std::vector<std::pair<Attachment, XpAcl::HwAclIndexKey>>> moves;
  for (const auto& [attachment, key] : attachments_) {
    if (change.desired.attachments.count(attachment) == 0) {
      moves[attachment.intf].push_back({attachment, XpAcl::HwAclIndexKey()});
    }
  }
  for (const auto& [attachment, key] : change.desired.attachments) {
    const auto held = attachments_.find(attachment);
    if (held == attachments_.end() || !(held->second == key)) {
      moves[attachment.intf].push_back({attachment, key});
    }
  }
  const bool several = moves.size() > 1 || (moves.size() == 1 && moves.begin()->second.size() > 1);
  for (const auto& [intf, steps] : moves) {
    if (several) {
      helpers_.begin()->second->blockIntf(intf, true, 0);
    }
  }
  for (const auto& [intf, steps] : moves) {
    for (std::size_t i = 0; i < steps.size(); ++i) {
      publish(steps[i].first, steps[i].second, i + 1 == steps.size() && blocks_.count(intf) == 0);
    }
  }
  attachments_ = change.desired.attachments;
}

void Agent::retire(const XpAcl::HwAclIndexKey& key, const LiveIndexKey& live, uint8_t chip,
                   ApplyResult& result) {
  for (const Plex::AclKey& member : members(key)) {
    const XpAcl::AclKeyInfo version = versionOf(member, live.id, live.routed);
    pollAcl(chip, member);
    std::vector<uint32_t> shared;
    if (const auto placement = helpers_.at(chip)->programmedAclKeyInfoToIdx(version)) {
      shared = rowsThatShare(chip, *placement);
      disownRows(chip, *placement, result);
    }
    helpers_.at(chip)->freeResource(version);
    restoreCounters(chip, XpAcl::getTcamType(member.direction(), member.aclType()), shared);
  }
}

void Agent::retireUnused(Change& change) {
  for (auto it = live_.begin(); it != live_.end();) {
    const XpAcl::HwAclIndexKey key = it->first;
    LiveIndexKey& live = it->second;
    const Wanted* const wanted = change.desired.find(key);
    if (wanted == nullptr) {
      aclIdMapping_->keyToAclIdMappingDel(key);
    }
    const std::set<uint8_t> chips = live.chips;
    for (const uint8_t chip : chips) {
      if (wanted == nullptr || wanted->chips.count(chip) == 0) {
        retire(key, live, chip, change.result);
        live.chips.erase(chip);
      }
    }
    if (wanted != nullptr) {
      ++it;
      continue;
    }
    for (const auto& [chip, chipHelper] : helpers_) {
      chipHelper->assignedAclIdDel(key);
    }
    helpers_.begin()->second->hwAclIdAllocator(idKind(live.routed, directionOf(key)))->release(live.id);
    it = live_.erase(it);
  }
  std::set<Plex::AclKey> used;
  for (const auto& [key, live] : live_) {
    for (const Plex::AclKey& member : members(key)) {
      used.insert(member);
    }
  }
  std::erase_if(generations_, [&](const auto& entry) { return used.count(entry.first) == 0; });
  std::erase_if(aclData_, [&](const auto& entry) { return used.count(entry.first) == 0; });
}

void Agent::clearUnitError() {
  for (const auto& [chip, chipHelper] : helpers_) {
    if (chipHelper->unitErrorPublished() || chipHelper->dirty()) {
      chipHelper->dirtyIs(false);
      chipHelper->publishUnitErrorIs(Vane::String(""), false);
      chipHelper->unitErrorIs(Vane::String(""), Plex::aclCreateErrorNone);
    }
  }
}

} // namespace agent
