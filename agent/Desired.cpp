#include "agent/Desired.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <functional>
#include <iterator>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace agent {

Plex::AclKey aclKey(const AclName& name, uint32_t generation) {
  return Plex::AclKey(Vane::String(name.name.c_str()), aclDirection(name.direction), aclType(name.family),
                      generation);
}

AclName aclName(const Plex::AclKey& key) {
  return {key.name().charPtr(), static_cast<Family>(key.aclType()), static_cast<Direction>(key.direction())};
}

const AclGeneration* AclRegistry::current(const AclName& name) const {
  const auto found = current_.find(name);
  return found == current_.end() ? nullptr : &found->second;
}

// Neighbour solicitation, neighbour advertisement, and the final rule: ids behind those of the lines.
static constexpr std::size_t implicitRules = 3;

namespace {

// Lines `from` to `to` of a list by their text: slots of a hash table, one for each text, and behind each
// slot the lines that have it, in order.
class LinesByText {
public:
  LinesByText(const Rules& rules, std::size_t from, std::size_t to)
      : rules_(rules), slots_(std::bit_ceil(2 * (to - from) + 1)), lines_(to), expected_(from) {
    for (std::size_t line = to; line-- > from;) {
      Slot& slot = slotOf(rules[line].text);
      slot.line = line;
      lines_[line] = {&slot, std::exchange(slot.first, line)};
    }
  }

  // The first line with this text that nobody took yet: as a rule the one behind the line that was taken
  // last.
  std::optional<std::size_t> take(std::string_view text) {
    const bool follows = expected_ < lines_.size() && lines_[expected_].slot->first == expected_ &&
                         rules_[expected_].text == text;
    Slot& slot = follows ? *lines_[expected_].slot : slotOf(text);
    if (slot.first == none) {
      return std::nullopt;
    }
    expected_ = slot.first + 1;
    return std::exchange(slot.first, lines_[slot.first].next);
  }

private:
  static constexpr std::size_t none = ~std::size_t{0};
  struct Slot {
    std::size_t line = none;  // one that has the text; none: the slot is free
    std::size_t first = none; // the first that nobody took
  };

  struct Line {
    Slot* slot = nullptr;
    std::size_t next = none; // line with its text
  };

  Slot& slotOf(std::string_view text) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = std::hash<std::string_view>()(text) & mask;
    while (slots_[at].line != none && rules_[slots_[at].line].text != text) {
      at = (at + 1) & mask;
    }
    return slots_[at];
  }

  const Rules& rules_;
  std::vector<Slot> slots_;
  std::vector<Line> lines_;
  std::size_t expected_; // behind the line that was taken last
};

} // namespace

namespace {

// The number of lines that are equal in both lists, one by one from their first ones on. The texts stand
// anywhere in memory: those that come soon are fetched meanwhile.
template <class Iterator>
std::size_t equalTexts(Iterator a, Iterator b, std::size_t most) {
  constexpr std::size_t ahead = 8;
  for (std::size_t i = 0; i < most; ++i, ++a, ++b) {
    if (i + ahead < most) {
      __builtin_prefetch(a[ahead].text.data());
      __builtin_prefetch(b[ahead].text.data());
    }
    if (a->text != b->text) {
      return i;
    }
  }
  return most;
}

} // namespace

// Most edits concern few lines: what stands before and behind them keeps its ids in place. Behind them only
// when no text that comes or goes stands there too, as it would then be another one of its equals that stays.
void AclRegistry::idsOfLines(const AclGeneration& old, const Rules& rules, UniqueIds& ids) const {
  const Rules& before = old.acl->source.rules;
  const std::size_t most = std::min(before.size(), rules.size());
  const std::size_t head = equalTexts(before.begin(), rules.begin(), most);
  std::size_t tail =
      equalTexts(std::reverse_iterator(before.end()), std::reverse_iterator(rules.end()), most - head);
  if (tail != 0) {
    std::unordered_set<std::string_view> edited;
    for (std::size_t i = head; i < before.size() - tail; ++i) {
      edited.insert(before[i].text);
    }
    for (std::size_t i = head; i < rules.size() - tail; ++i) {
      edited.insert(rules[i].text);
    }
    constexpr std::size_t few = 8; // texts that are compared one by one
    const auto isEdited = [&](const Rule& rule) {
      const auto isThis = [&](std::string_view text) { return text == rule.text; };
      return edited.size() > few ? edited.count(rule.text) != 0
                                 : std::any_of(edited.begin(), edited.end(), isThis);
    };
    tail = std::any_of(rules.end() - static_cast<std::ptrdiff_t>(tail), rules.end(), isEdited) ? 0 : tail;
  }
  ids.insert(ids.end(), old.uniqueIds.begin(), old.uniqueIds.begin() + static_cast<std::ptrdiff_t>(head));
  LinesByText lines(before, head, before.size() - tail);
  for (std::size_t i = head; i < rules.size() - tail; ++i) {
    const std::optional<std::size_t> same = lines.take(rules[i].text);
    ids.push_back(same ? old.uniqueIds[*same] : ++lastUniqueId_);
  }
  const auto end = old.uniqueIds.begin() + static_cast<std::ptrdiff_t>(before.size());
  ids.insert(ids.end(), end - static_cast<std::ptrdiff_t>(tail), end);
}

// An entry keeps its unique id while its text is unchanged; of equal texts the n-th keeps the n-th id.
AclGeneration AclRegistry::next(const AccessList& list, Direction direction, bool neighborDiscovery) const {
  const AclGeneration* const old = current({list.name, list.family, direction});
  AclGeneration made;
  made.acl = aggregate(list, neighborDiscovery);
  const bool unchanged = old != nullptr && sameRules(old->acl->source, list);
  made.generation = old == nullptr ? 1 : unchanged ? old->generation : old->generation + 1;
  if (unchanged) {
    // The same rows under the same key: whatever was counted stays with them, also where only the
    // spelling of an entry changed.
    made.uniqueIds = old->uniqueIds;
    return made;
  }
  made.uniqueIds.reserve(list.rules.size() + implicitRules);
  const std::size_t oldLines = old == nullptr ? 0 : old->acl->source.rules.size();
  if (old == nullptr) {
    for (std::size_t i = 0; i < list.rules.size(); ++i) {
      made.uniqueIds.push_back(++lastUniqueId_);
    }
  } else {
    idsOfLines(*old, list.rules, made.uniqueIds);
  }
  // What follows the lines is the same in every list of the family.
  for (std::size_t i = 0; i < implicitRules; ++i) {
    made.uniqueIds.push_back(old == nullptr ? ++lastUniqueId_ : old->uniqueIds[oldLines + i]);
  }
  return made;
}

const Wanted* Desired::find(const XpAcl::HwAclIndexKey& key) const {
  const auto found = std::find_if(indexKeys.begin(), indexKeys.end(),
                                  [&](const Wanted& wanted) { return wanted.indexKey == key; });
  return found == indexKeys.end() ? nullptr : &*found;
}

Ovnet::IntfId intfId(const Interface& intf) {
  return intf.kind == InterfaceKind::vlan ? Ovnet::IntfId(Ovnet::IntfId::vlan, intf.vlan)
                                          : Ovnet::IntfId(Vane::String(intf.portName.c_str()));
}

unsigned slotOf(Family family, bool routed) {
  if (family == Family::mac) {
    return XpAcl::slotPortMac;
  }
  const unsigned v4 = routed ? XpAcl::slotRoutedV4 : XpAcl::slotPortV4;
  return family == Family::ipv4 ? v4 : v4 + 1;
}

XpAcl::AclIntfTypeAndDir idKind(bool routed, Acl::AclDirection direction) {
  if (routed) {
    return direction == Acl::ingress ? XpAcl::routedIngress : XpAcl::routedEgress;
  }
  return direction == Acl::ingress ? XpAcl::portIngress : XpAcl::portEgress;
}

std::vector<Plex::AclKey> members(const XpAcl::HwAclIndexKey& key) {
  const Plex::AclKey none;
  std::vector<Plex::AclKey> keys;
  for (unsigned slot = 0; slot < XpAcl::HwAclIndexKey::numSlots; ++slot) {
    if (!(key.slot(slot) == none)) {
      keys.push_back(key.slot(slot));
    }
  }
  return keys;
}

Acl::AclDirection directionOf(const XpAcl::HwAclIndexKey& key) {
  const auto keys = members(key);
  return keys.empty() ? Acl::ingress : keys.front().direction();
}

namespace {

class DesiredBuilder {
public:
  DesiredBuilder(const Config& config, const std::set<uint8_t>& chips, const AclRegistry& registry,
                 bool neighborDiscovery, const std::map<Attachment, XpAcl::HwAclIndexKey>& keep)
      : config_(config), chips_(chips), registry_(registry), neighborDiscovery_(neighborDiscovery),
        keep_(keep) {}

  Desired build() {
    for (const Interface& intf : config_.interfaces) {
      const bool here = intf.kind == InterfaceKind::ethernet && chips_.count(intf.chip) != 0;
      if (here || intf.kind == InterfaceKind::vlan) {
        for (const Direction direction : {Direction::in, Direction::out}) {
          attach(intf, direction);
        }
      }
    }
    return std::move(desired_);
  }

private:
  void attach(const Interface& intf, Direction direction) {
    const bool routed = intf.kind == InterfaceKind::vlan;
    const Attachment attachment{intfId(intf), aclDirection(direction)};
    XpAcl::HwAclIndexKey key;
    for (const Binding& binding : intf.bindings) {
      if (binding.direction == direction) {
        bind(binding, routed, key);
      }
    }
    for (const Binding& refused : intf.refusedBindings) {
      const auto kept = keep_.find(attachment);
      if (refused.direction == direction && kept != keep_.end()) {
        keepSlot(slotOf(refused.family, routed), kept->second, key);
      }
    }
    if (!key.isDefault()) {
      desired_.attachments[attachment] = key;
      want(key, routed, intf.chip);
    }
  }

  void bind(const Binding& binding, bool routed, XpAcl::HwAclIndexKey& key) {
    const AccessList* const list = config_.list(binding.family, binding.list);
    // A list without entries is no list: it permits.
    if (list == nullptr || list->rules.empty()) {
      return;
    }
    const AclName name{binding.list, binding.family, binding.direction};
    auto made = desired_.lists.find(name);
    if (made == desired_.lists.end()) {
      made = desired_.lists.emplace(name, registry_.next(*list, binding.direction, neighborDiscovery_)).first;
    }
    key.slotIs(slotOf(binding.family, routed), aclKey(name, made->second.generation));
  }

  void keepSlot(unsigned slot, const XpAcl::HwAclIndexKey& kept, XpAcl::HwAclIndexKey& key) {
    const Plex::AclKey& held = kept.slot(slot);
    if (held == Plex::AclKey()) {
      return;
    }
    key.slotIs(slot, held);
    const AclName name = aclName(held);
    if (const AclGeneration* current = registry_.current(name)) {
      desired_.lists.emplace(name, *current);
    }
  }

  // Port lists stand on the chip of their port, routed lists on every chip.
  void want(const XpAcl::HwAclIndexKey& key, bool routed, uint8_t chip) {
    auto wanted = std::find_if(desired_.indexKeys.begin(), desired_.indexKeys.end(),
                               [&](const Wanted& w) { return w.indexKey == key; });
    if (wanted == desired_.indexKeys.end()) {
      desired_.indexKeys.push_back({key, routed, {}});
      wanted = std::prev(desired_.indexKeys.end());
    }
    if (routed) {
      wanted->chips = chips_;
    } else {
      wanted->chips.insert(chip);
    }
  }

  const Config& config_;
  const std::set<uint8_t>& chips_;
  const AclRegistry& registry_;
  bool neighborDiscovery_;
  const std::map<Attachment, XpAcl::HwAclIndexKey>& keep_;
  Desired desired_;
};

} // namespace

Desired desiredState(const Config& config, const std::set<uint8_t>& chips, const AclRegistry& registry,
                     bool neighborDiscovery, const std::map<Attachment, XpAcl::HwAclIndexKey>& keep) {
  return DesiredBuilder(config, chips, registry, neighborDiscovery, keep).build();
}

std::set<uint8_t> firstChips(unsigned n) {
  std::set<uint8_t> chips;
  for (unsigned chip = 0; chip < n; ++chip) {
    chips.insert(static_cast<uint8_t>(chip));
  }
  return chips;
}

} // namespace agent
