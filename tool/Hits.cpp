#include "tool/Hits.h"

#include "tool/Common.h"
#include "tool/Session.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tool {

void Hits::hit(const agent::RowOwner* owner, uint64_t hits) {
  if (owner == nullptr) {
    return;
  }
  const Key key{owner->acl.get(), static_cast<agent::Direction>(owner->version.aclKey().direction())};
  if (last_ == nullptr || key != lastKey_) {
    Counts& counts = counts_[key];
    if (!counts.acl) {
      counts.acl = owner->acl;
      counts.entries.resize(owner->acl->source.rules.size() + 3, 0);
    }
    lastKey_ = key;
    last_ = &counts;
  }
  const std::size_t entry = owner->origin >= 0
                                ? static_cast<std::size_t>(owner->origin)
                                : last_->entries.size() - 4 + static_cast<std::size_t>(-owner->origin);
  last_->entries[entry] += hits;
}

std::vector<Hits::Line> Hits::lines(const std::vector<std::shared_ptr<agent::AggregatedAcl>>& lists,
                                    const std::vector<agent::Direction>& directions) const {
  std::vector<Key> order;
  for (std::size_t i = 0; i < lists.size(); ++i) {
    order.push_back({lists[i].get(), directions[i]});
  }
  for (const auto& [key, counts] : counts_) {
    if (std::find(order.begin(), order.end(), key) == order.end()) {
      order.push_back(key);
    }
  }
  std::vector<Line> lines;
  for (const Key& key : order) {
    const auto counted = counts_.find(key);
    const agent::AccessList& list = key.acl->source;
    const auto hitsOf = [&](std::size_t entry) {
      return counted == counts_.end() ? 0 : counted->second.entries[entry];
    };
    for (std::size_t i = 0; i < list.rules.size(); ++i) {
      lines.push_back({list.name, list.family, key.direction, list.rules[i].loc.line, list.rules[i].loc.file,
                       list.rules[i].text, hitsOf(i)});
    }
    for (const int32_t origin : {agent::originSolicitation, agent::originAdvertisement, agent::originFinal}) {
      if (origin != agent::originFinal && list.family != agent::Family::ipv6) {
        continue;
      }
      lines.push_back({list.name, list.family, key.direction, std::nullopt, "", key.acl->textOf(origin),
                       hitsOf(list.rules.size() + static_cast<std::size_t>(-origin - 1))});
    }
  }
  return lines;
}

void RowHits::hit(const sim::LookupResult& lookup, const PortRef& in, const PortRef* out) {
  if (!isHit(lookup)) {
    return;
  }
  const XpAcl::TcamType table = tcamType(lookup.table);
  const uint8_t chip = chipOf(table, in, out);
  if (chip >= chips_.size()) {
    chips_.resize(chip + 1u);
  }
  Rows& rows = chips_[chip][table];
  if (lookup.row >= rows.size()) {
    rows.resize(std::max<std::size_t>(lookup.row + std::size_t{1}, 2 * rows.size()));
  }
  ++rows[lookup.row];
}

void RowHits::addTo(const Session& session, Hits& hits) const {
  for (std::size_t chip = 0; chip < chips_.size(); ++chip) {
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      const Rows& rows = chips_[chip][table.tcamType];
      for (uint32_t row = 0; row < rows.size(); ++row) {
        if (rows[row] != 0) {
          hits.hit(session.agent().rowOwner(static_cast<uint8_t>(chip), table.tcamType, row), rows[row]);
        }
      }
    }
  }
}

Json lookupJson(const sim::LookupResult& lookup, const agent::RowOwner* owner) {
  Json json;
  json["table"] = stringValue(tcamType(lookup.table)).charPtr();
  json["role"] = lookup.role == sim::Role::routed ? "routed" : "port";
  json["aclId"] = lookup.aclId;
  json["row"] = isHit(lookup) ? Json(lookup.row) : Json(nullptr);
  json["result"] = permitWord(lookup.forward);
  json["acl"] = owner == nullptr ? Json(nullptr) : Json(owner->acl->source.name);
  json["line"] = owner == nullptr || owner->rule() == nullptr ? Json(nullptr) : Json(owner->rule()->loc.line);
  json["rule"] = owner != nullptr ? owner->acl->textOf(owner->origin)
                 : isHit(lookup)  ? "(default row) deny"
                                  : "(no row) deny";
  return json;
}

Json linesJson(const std::vector<Hits::Line>& lines) {
  Json json = Json::array();
  for (const Hits::Line& line : lines) {
    json.push_back({{"acl", line.acl},
                    {"line", line.line ? Json(*line.line) : Json(nullptr)},
                    {"rule", line.rule},
                    {"hits", line.hits},
                    {"family", familyName(line.family)},
                    {"direction", directionName(line.direction)}});
  }
  return json;
}

std::string linesText(const std::vector<Hits::Line>& lines) {
  std::string text;
  std::size_t at = 0;
  while (at < lines.size()) {
    const Hits::Line& first = lines[at];
    text += bold(first.acl) + " (" + familyName(first.family) + ", " + directionName(first.direction) + ")\n";
    std::vector<std::vector<std::string>> rows{{"HITS", "LINE", "RULE"}};
    // A list ends with its implicit deny.
    for (bool last = false; at < lines.size() && !last; ++at) {
      const Hits::Line& line = lines[at];
      rows.push_back({std::to_string(line.hits), line.line ? std::to_string(*line.line) : "", line.rule});
      last = !line.line && (at + 1 == lines.size() || lines[at + 1].line || lines[at + 1].acl != line.acl);
    }
    text += columns(rows, "  ");
  }
  return text;
}

} // namespace tool
