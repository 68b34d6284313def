#pragma once

#include "sim/TcamTable.h"
#include "tool/ChipSets.h"
#include "verify/ListSets.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <vector>

// First-match sequences as sets of packets, kept so that a sequence that differs little from an earlier one
// costs little, whichever id or row numbers it stands under.

namespace tool {

constexpr uint32_t permitLeaf = 1;
constexpr uint32_t denyLeaf = 2;

// Sequences of items; of the items that match a packet the first decides.
//
// A sequence is a tree whose shape depends on nothing but its items: the item of the highest priority is the
// root, those before it make the left branch and those behind it the right one. A priority is a fixed random
// number of the item. So two sequences that share a stretch share most of the subtrees of that stretch, and
// every subtree is combined once: one more, one less or another item costs as many combinations as the tree
// is deep, which is a few times the logarithm of its length.
//
// Invariants: an item is one diagram, whoever made it; a subtree is one (left, item, right). Both live as
// long as the FirstMatch, so that numbers are never used for another.
class FirstMatch {
public:
  using Item = uint32_t;

  explicit FirstMatch(verify::PacketSpace& space);

  verify::PacketSpace& space() { return space_; }
  // What a row or line matches: permitLeaf or denyLeaf for those packets, 0 for the others.
  Item item(const verify::Diagram& matches);
  // What the sequence permits. Packets that no item matches are denied.
  const verify::PacketSet& permitted(const std::vector<Item>& items);

  std::size_t numItems() const { return items_.size() - 1; }
  std::size_t numCombined() const { return nodes_.size() - 1; } // subtrees ever made

private:
  struct Node {
    uint32_t left = 0;
    Item item = 0;
    uint32_t right = 0;
    auto operator<=>(const Node&) const = default;
  };
  struct NodeHash {
    std::size_t operator()(const Node& node) const;
  };

  uint32_t treeOf(const std::vector<Item>& items);
  uint32_t node(const Node& node);
  static uint64_t priority(Item item);

  verify::PacketSpace& space_;
  std::vector<verify::Diagram> items_; // 0: matches nothing
  std::unordered_map<verify::NodeRef, Item> itemOf_;
  std::vector<verify::Diagram> nodes_; // 0: the empty sequence
  std::unordered_map<Node, uint32_t, NodeHash> nodeOf_;
  std::unordered_map<uint32_t, verify::PacketSet> permitted_; // by root
};

// Which packets the rows of one TCAM table permit, while rows change.
class TableSets {
public:
  // The id that a row is for; anyId: it can be hit in lookups of several ids.
  static constexpr int anyId = -1;
  static constexpr int noId = -2; // not valid, or for no id that there is
  static int idOf(const sim::TcamTable& table, XpXdk::xpIaclType_e number, uint32_t row);

  TableSets(const sim::TcamTable& table, XpXdk::xpIaclType_e number, FirstMatch& sets);

  // To be called before and after a row is written. Answers the id that it was, or is, for.
  int rowLeaves(uint32_t row);
  int rowEnters(uint32_t row);

  // The lookup is one of this table.
  const verify::PacketSet& permitted(const ChipLookup& lookup, const verify::Tick& tick);

private:
  using View = std::tuple<uint8_t, sim::Role, unsigned>; // id, role, copy of the data words

  void forget(int id);
  FirstMatch::Item itemOf(uint32_t row, const ChipLookup& lookup, unsigned copy);

  const sim::TcamTable& table_;
  XpXdk::xpIaclType_e number_;
  FirstMatch& sets_;
  std::map<int, std::set<uint32_t>> rows_; // valid ones, by the id that they are for
  // Of valid rows; those for one id are the same in each lookup of that id.
  std::map<std::tuple<uint32_t, int, sim::Role, unsigned>, FirstMatch::Item> items_;
  std::map<View, const verify::PacketSet*> current_;
};

// The packets that a list permits; the lines' side.
const verify::PacketSet& listPermitted(FirstMatch& sets, const agent::AccessList* list,
                                       const verify::Tick& tick);

} // namespace tool
