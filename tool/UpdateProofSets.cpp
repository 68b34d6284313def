#include "tool/UpdateProofSets.h"

#include "sim/Key.h"

#include <algorithm>
#include <unordered_set>

namespace tool {

using verify::Diagram;
using verify::PacketSet;

namespace {

uint64_t mixed(uint64_t number) {
  number += 0x9E3779B97F4A7C15u;
  number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9u;
  number = (number ^ number >> 27) * 0x94D049BB133111EBu;
  return number ^ number >> 31;
}

} // namespace

FirstMatch::FirstMatch(verify::PacketSpace& space) : space_(space), items_(1), nodes_(1) {}

// The mixing is a bijection, so no two items have the same priority.
uint64_t FirstMatch::priority(Item item) {
  return mixed(item);
}

std::size_t FirstMatch::NodeHash::operator()(const Node& node) const {
  return mixed(mixed(uint64_t{node.left} << 32 | node.right) ^ node.item);
}

FirstMatch::Item FirstMatch::item(const Diagram& matches) {
  if (matches.root() == verify::emptyLeaf) {
    return 0;
  }
  const auto [at, added] = itemOf_.try_emplace(matches.root(), static_cast<Item>(items_.size()));
  if (added) {
    items_.push_back(matches);
  }
  return at->second;
}

const PacketSet& FirstMatch::permitted(const std::vector<Item>& items) {
  const uint32_t root = treeOf(items);
  const auto found = permitted_.find(root);
  if (found != permitted_.end()) {
    return found->second;
  }
  const Diagram verdicts = space_.diagrams().relabelled(
      nodes_[root], [](uint32_t number) { return number == permitLeaf ? 1u : 0u; });
  return permitted_.emplace(root, space_.set(verdicts)).first->second;
}

uint32_t FirstMatch::treeOf(const std::vector<Item>& items) {
  // An item hides its later appearances.
  std::vector<Item> row;
  std::unordered_set<Item> seen{0};
  for (const Item item : items) {
    if (seen.insert(item).second) {
      row.push_back(item);
    }
  }
  // The right border of the tree of what was taken in so far, priorities falling; each with its left branch.
  std::vector<Node> border;
  const auto close = [&](uint32_t right) {
    Node last = border.back();
    border.pop_back();
    last.right = right;
    return node(last);
  };
  for (const Item item : row) {
    uint32_t left = 0;
    while (!border.empty() && priority(border.back().item) < priority(item)) {
      left = close(left);
    }
    border.push_back({left, item, 0});
  }
  uint32_t root = 0;
  while (!border.empty()) {
    root = close(root);
  }
  return root;
}

uint32_t FirstMatch::node(const Node& node) {
  const auto found = nodeOf_.find(node);
  if (found != nodeOf_.end()) {
    return found->second;
  }
  verify::Diagrams& diagrams = space_.diagrams();
  const Diagram front = diagrams.combine(nodes_[node.left], items_[node.item], verify::FirstOf());
  const auto number = static_cast<uint32_t>(nodes_.size());
  nodes_.push_back(diagrams.combine(front, nodes_[node.right], verify::FirstOf()));
  nodeOf_.emplace(node, number);
  return number;
}

TableSets::TableSets(const sim::TcamTable& table, XpXdk::xpIaclType_e number, FirstMatch& sets)
    : table_(table), number_(number), sets_(sets) {
  for (uint32_t row = table.nextValid(0); row != sim::TcamTable::noRow; row = table.nextValid(row + 1)) {
    rows_[idOf(table, number, row)].insert(row);
  }
}

int TableSets::idOf(const sim::TcamTable& table, XpXdk::xpIaclType_e number, uint32_t row) {
  if (!table.valid(row)) {
    return noId;
  }
  const sim::TcamRow content = table.row(row);
  const XpXdk::IaclKeyLayout& layout = sim::layoutOf(number);
  const uint8_t at = layout
                         .fields[number == XpXdk::TACL_MAC_ACL ? uint8_t{XpXdk::IACL_MAC_ACL_ID}
                                                               : uint8_t{XpXdk::IACL_IP_ACL_ID}]
                         .offset;
  // The chip's ids have 8 bits; the key's field has 16.
  if ((content.value[at + 1u] & ~content.mask[at + 1u]) != 0) {
    return noId;
  }
  return content.mask[at] == 0 ? content.value[at] : anyId;
}

void TableSets::forget(int id) {
  for (auto at = current_.begin(); at != current_.end();) {
    at = id == anyId || std::get<0>(at->first) == id ? current_.erase(at) : std::next(at);
  }
}

int TableSets::rowLeaves(uint32_t row) {
  const int id = idOf(table_, number_, row);
  if (id != noId) {
    rows_[id].erase(row);
    forget(id);
  }
  items_.erase(items_.lower_bound({row, anyId, sim::Role::port, 0}),
               items_.lower_bound({row + 1, anyId, sim::Role::port, 0}));
  return id;
}

int TableSets::rowEnters(uint32_t row) {
  const int id = idOf(table_, number_, row);
  if (id != noId) {
    rows_[id].insert(row);
    forget(id);
  }
  return id;
}

FirstMatch::Item TableSets::itemOf(uint32_t row, const ChipLookup& lookup, unsigned copy) {
  const auto [at, added] = items_.try_emplace({row, lookup.aclId, lookup.role, copy});
  if (added) {
    const auto data = XpXdk::xpIaclData_t::fromWord(table_.data(row, copy));
    at->second = sets_.item(
        rowMatches(sets_.space(), lookup, table_.row(row), data.result() == 1 ? permitLeaf : denyLeaf));
  }
  return at->second;
}

const PacketSet& TableSets::permitted(const ChipLookup& lookup, const verify::Tick& tick) {
  const unsigned copy = lookup.ingressPort % table_.numCopies();
  const PacketSet*& current = current_[{lookup.aclId, lookup.role, copy}];
  if (current != nullptr) {
    return *current;
  }
  const std::set<uint32_t>& own = rows_[lookup.aclId];
  const std::set<uint32_t>& shared = rows_[anyId];
  std::vector<uint32_t> rows;
  std::merge(own.begin(), own.end(), shared.begin(), shared.end(), std::back_inserter(rows));
  std::vector<FirstMatch::Item> items;
  for (const uint32_t row : rows) {
    if (tick) {
      tick();
    }
    items.push_back(itemOf(row, lookup, copy));
  }
  current = &sets_.permitted(items);
  return *current;
}

const PacketSet& listPermitted(FirstMatch& sets, const agent::AccessList* list, const verify::Tick& tick) {
  verify::PacketSpace& space = sets.space();
  const verify::ListLeaves leaves(list);
  std::vector<FirstMatch::Item> items;
  for (std::size_t i = 0; list != nullptr && i < list->rules.size(); ++i) {
    if (tick) {
      tick();
    }
    const agent::Rule& rule = list->rules[i];
    items.push_back(sets.item(verify::matching(space, rule, rule.permit ? permitLeaf : denyLeaf)));
  }
  items.push_back(
      sets.item(space.diagrams().relabelled(verify::implicitDecisions(space, list), [&](uint32_t leaf) {
        return leaves.permit(leaf) ? permitLeaf : denyLeaf;
      })));
  return sets.permitted(items);
}

} // namespace tool
