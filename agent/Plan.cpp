#include "agent/Plan.h"

#include "agent/Agent.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace agent {

namespace {

constexpr const char* familyNames[] = {" ipv4 ", " ipv6 ", " mac "};

// One set of rows: an index key on a chip.
using Placement = std::pair<XpAcl::HwAclIndexKey, uint8_t>;

struct Footprint {
  Desired desired;
  std::set<Placement> placements;
  std::set<std::pair<unsigned, XpAcl::HwAclIndexKey>> ids; // kind, index key
};

Footprint footprint(const Config& config, const AclRegistry& registry,
                    const std::map<Attachment, XpAcl::HwAclIndexKey>& keep) {
  Footprint result;
  result.desired = desiredState(config, firstChips(config.numChips), registry, true, keep);
  for (const Wanted& wanted : result.desired.indexKeys) {
    result.ids.insert({idKind(wanted.routed, directionOf(wanted.indexKey)), wanted.indexKey});
    for (const uint8_t chip : wanted.chips) {
      result.placements.insert({wanted.indexKey, chip});
    }
  }
  return result;
}

// Rows of every list of a footprint, by key.
std::map<Plex::AclKey, uint32_t> rowsByKey(const Desired& desired) {
  std::map<Plex::AclKey, uint32_t> rows;
  for (const auto& [name, generation] : desired.lists) {
    rows[aclKey(name, generation.generation)] = static_cast<uint32_t>(generation.acl->rows.size());
  }
  return rows;
}

using TableRows = std::map<std::pair<uint8_t, XpAcl::TcamType>, uint32_t>;

void addRows(const Placement& placement, const std::map<Plex::AclKey, uint32_t>& rows, TableRows& total) {
  for (const Plex::AclKey& member : members(placement.first)) {
    const XpAcl::TcamType table = XpAcl::getTcamType(member.direction(), member.aclType());
    total[{placement.second, table}] += rows.at(member);
  }
}

void addPorts(const char* what, const PortSet& ports, std::string& text) {
  if (!isAnyPort(ports)) {
    text.append(text.empty() ? "" : "; ").append(what).append(expansionText(ports));
  }
}

std::string conditionText(const Criteria& criteria) {
  std::string text;
  if (!criteria.fragments) {
    addPorts("source ports ", criteria.srcPorts, text);
    addPorts("destination ports ", criteria.dstPorts, text);
  }
  return text;
}

std::string lineExpansion(const Rule& rule) {
  const bool several = rule.alternatives.size() > 1;
  std::string text;
  if (several) {
    text.append(std::to_string(rule.alternatives.size())).append(" alternatives");
  }
  for (const Criteria& criteria : rule.alternatives) {
    const std::string ports = conditionText(criteria);
    if (!ports.empty()) {
      text.append(several ? "; the first: " : "").append(ports);
      return text;
    }
  }
  return text;
}

void describeLists(const Desired& desired, Plan& plan) {
  std::map<std::tuple<AclName, bool>, std::set<XpAcl::HwAclIndexKey>> uses;
  for (const Wanted& wanted : desired.indexKeys) {
    for (const Plex::AclKey& member : members(wanted.indexKey)) {
      uses[{aclName(member), wanted.routed}].insert(wanted.indexKey);
    }
  }
  std::set<std::string> seenLines;
  for (const auto& [use, keys] : uses) {
    const auto& [name, routed] = use;
    const AggregatedAcl& acl = *desired.lists.at(name).acl;
    plan.acls.push_back({name.name, name.family, name.direction, routed,
                         static_cast<uint32_t>(acl.source.rules.size()),
                         static_cast<uint32_t>(acl.rows.size()), static_cast<uint32_t>(keys.size())});
    const auto counts = rowsPerEntry(acl);
    for (std::size_t i = 0; i < counts.size(); ++i) {
      const Rule& rule = acl.source.rules[i];
      std::string place = rule.loc.text();
      place.append(familyNames[static_cast<std::size_t>(name.family)]).append(name.name);
      if (counts[i] > 1 && seenLines.insert(place).second) {
        plan.costliest.push_back({name.name, rule.loc, rule.text, counts[i], lineExpansion(rule)});
      }
    }
  }
  std::stable_sort(plan.costliest.begin(), plan.costliest.end(),
                   [](const LinePlan& a, const LinePlan& b) { return a.rows > b.rows; });
}

void checkIds(const Footprint& before, const Footprint& after, Plan& plan) {
  std::map<unsigned, uint32_t> count;
  auto ids = before.ids;
  ids.insert(after.ids.begin(), after.ids.end());
  for (const auto& id : ids) {
    ++count[id.first];
  }
  for (const auto& [kind, number] : count) {
    if (number > idsPerKind) {
      plan.fits = false;
      plan.reasons.push_back(std::to_string(number) + " hardware ACL ids of kind " +
                             stringValue(static_cast<XpAcl::AclIntfTypeAndDir>(kind)).charPtr() +
                             " are needed while old and new stand side by side, a chip has " +
                             std::to_string(idsPerKind) + ": attach fewer combinations of lists");
    }
  }
}

} // namespace

std::string expansionText(const PortSet& ports) {
  std::string text;
  for (const PortRange& range : ports) {
    text.append(text.empty() ? "" : ",").append(std::to_string(range.low));
    if (range.high != range.low) {
      text.append("-").append(std::to_string(range.high));
    }
  }
  const auto blocks = portBlocks(ports);
  text += " =";
  for (const PortBlock& block : blocks) {
    text += Vane::format(" %u/0x%04x", block.value, block.mask).charPtr();
  }
  return text;
}

Plan plan(const Config& config, const Config* from) {
  Plan result;
  AclRegistry registry;
  Footprint before;
  if (from != nullptr) {
    before = footprint(*from, registry, {});
    for (const auto& [name, generation] : before.desired.lists) {
      registry.generationIs(name, generation);
    }
  }
  const Footprint after = footprint(config, registry, before.desired.attachments);

  TableRows used;
  TableRows peak;
  const auto rowsAfter = rowsByKey(after.desired);
  const auto rowsBefore = rowsByKey(before.desired);
  for (const Placement& placement : after.placements) {
    addRows(placement, rowsAfter, used);
    if (before.placements.count(placement) == 0) {
      addRows(placement, rowsAfter, peak);
    }
  }
  for (const Placement& placement : before.placements) {
    addRows(placement, rowsBefore, peak);
  }

  AgentSetup setup = setupFor(from != nullptr ? *from : config);
  setup.numChips = std::max(setup.numChips, config.numChips);
  for (unsigned chip = 0; chip < setup.numChips; ++chip) {
    ChipPlan chipPlan;
    chipPlan.chip = static_cast<uint8_t>(chip);
    for (const XpAcl::TcamTableInfo& info : XpAcl::tcamTables) {
      TablePlan table;
      table.table = info.tcamType;
      table.rows = setup.rows(static_cast<Table>(info.tcamType));
      table.used = used[{chipPlan.chip, info.tcamType}];
      table.peak = peak[{chipPlan.chip, info.tcamType}];
      if (table.lack() != 0) {
        result.fits = false;
        result.reasons.push_back("table " + std::string(stringValue(info.tcamType).charPtr()) + " of chip " +
                                 std::to_string(chip) + " has " + std::to_string(table.capacity()) +
                                 " rows for lists, " + std::to_string(table.peak) + " are needed" +
                                 (from != nullptr ? " while old and new stand side by side" : "") + ": " +
                                 std::to_string(table.lack()) + " rows lack");
      }
      chipPlan.tables.push_back(table);
    }
    result.chips.push_back(chipPlan);
  }
  result.fullest = result.chips.front().tables;
  for (const ChipPlan& chip : result.chips) {
    for (std::size_t i = 0; i < chip.tables.size(); ++i) {
      if (std::tuple(chip.tables[i].peak, chip.tables[i].used) >
          std::tuple(result.fullest[i].peak, result.fullest[i].used)) {
        result.fullest[i] = chip.tables[i];
      }
    }
  }
  checkIds(before, after, result);
  describeLists(after.desired, result);
  return result;
}

} // namespace agent
