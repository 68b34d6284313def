#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// Ordered decision diagrams with numbered leaves: functions from bit vectors to small numbers, each
// represented exactly once, so that two functions are equal exactly when their roots are the same node.
//
// An inner node asks for one variable and leads on to `lo` (0) or `hi` (1); on every way down the variables
// ascend. No node has two equal branches and no two nodes are alike. A leaf is no node: its number stands in
// the reference itself. Sets are diagrams with the leaves 0 (outside) and 1 (inside).
//
// Memory. Nodes live in one table that only grows; the ones that no Diagram reaches any more are found and
// used again when the table has doubled since the last time. The table has a limit, behind which every
// operation throws DiagramsFull; the diagrams that exist stay good.
//
// Nothing here is thread-safe.

namespace verify {

class DiagramsFull : public std::runtime_error {
public:
  explicit DiagramsFull(std::size_t limit);
};

// A reference: the index of an inner node, or a leaf with its number.
using NodeRef = uint32_t;
constexpr NodeRef leafFlag = 0x80000000;
constexpr NodeRef leaf(uint32_t number) {
  return leafFlag | number;
}
constexpr bool isLeaf(NodeRef ref) {
  return (ref & leafFlag) != 0;
}
constexpr uint32_t leafNumber(NodeRef ref) {
  return ref & ~leafFlag;
}
constexpr NodeRef emptyLeaf = leaf(0);

class Diagrams;

// A root that keeps its nodes alive. Outlives nothing: the Diagrams must live longer.
class Diagram {
public:
  Diagram() = default;
  Diagram(Diagrams& diagrams, NodeRef root);
  Diagram(const Diagram& other);
  Diagram(Diagram&& other) noexcept;
  Diagram& operator=(Diagram other) noexcept;
  ~Diagram();

  NodeRef root() const { return root_; }
  // Equal functions of the same Diagrams.
  bool operator==(const Diagram& other) const { return root_ == other.root_; }

private:
  Diagrams* diagrams_ = nullptr;
  NodeRef root_ = emptyLeaf;
  std::size_t slot_ = 0;
};

// Combines two leaves into one. What it answers for a pair must not change while it is used under one
// `operation` number (of newOperation(), or one of the fixed ones), because answers are remembered by it.
//
//   bool known(NodeRef a, NodeRef b, NodeRef& out) const
//
// answers true and sets `out` for every pair of leaves, and for other pairs whose answer needs no descent.

// The first one where it is not 0, the second one elsewhere: what lists do line by line.
struct FirstOf {
  static constexpr uint32_t operation = 1;
  bool known(NodeRef a, NodeRef b, NodeRef& out) const {
    if (isLeaf(a)) {
      out = a == emptyLeaf ? b : a;
      return true;
    }
    out = a;
    return b == emptyLeaf || a == b;
  }
};

// The second one where the first one is not 0, else 0.
struct Within {
  static constexpr uint32_t operation = 2;
  bool known(NodeRef a, NodeRef b, NodeRef& out) const {
    if (isLeaf(a)) {
      out = a == emptyLeaf ? emptyLeaf : b;
      return true;
    }
    out = emptyLeaf;
    return b == emptyLeaf;
  }
};

// The first one where the second one is 0, else 0.
struct Without {
  static constexpr uint32_t operation = 3;
  bool known(NodeRef a, NodeRef b, NodeRef& out) const {
    if (isLeaf(b)) {
      out = b == emptyLeaf ? a : emptyLeaf;
      return true;
    }
    out = emptyLeaf;
    return a == emptyLeaf || a == b;
  }
};

class Diagrams {
public:
  static constexpr std::size_t defaultLimit = std::size_t{6} << 30; // bytes

  // Variables are numbered from 0; there are at most 65535. `limit`: bytes that nodes may take.
  explicit Diagrams(unsigned numVariables, std::size_t limit = defaultLimit);
  Diagrams(const Diagrams&) = delete;
  Diagrams& operator=(const Diagrams&) = delete;

  unsigned numVariables() const { return numVariables_; }

  // The node that asks for `variable`; its branches ask for later ones only. References that no Diagram
  // holds are good until the next operation that answers a Diagram.
  NodeRef node(unsigned variable, NodeRef lo, NodeRef hi);

  template <typename Combine>
  Diagram combine(const Diagram& a, const Diagram& b, const Combine& how) {
    return combine(a, b, how, Combine::operation);
  }
  template <typename Combine>
  Diagram combine(const Diagram& a, const Diagram& b, const Combine& how, uint32_t operation) {
    collectIfDue();
    return Diagram(*this, descend(a.root(), b.root(), how, operation));
  }
  // Each leaf replaced by what `number` answers for its number.
  Diagram relabelled(const Diagram& a, const std::function<uint32_t(uint32_t)>& number);
  // 1 where `mask` is not 0 and `inside` holds for the leaf of `a`, else 0.
  Diagram selected(const Diagram& mask, const Diagram& a, const std::function<bool(uint32_t)>& inside);
  // Which values of the field whose bits are the variables `first` to `first` + `width` - 1 some vector
  // outside leaf 0 has: 2^width flags.
  std::vector<bool> values(const Diagram& a, unsigned first, unsigned width);
  // A number for a way of combining that no other has.
  uint32_t newOperation() { return ++lastOperation_; }

  // The leaf that a bit vector comes to; bits are asked for by variable.
  template <typename Bits>
  uint32_t leafOf(const Diagram& a, const Bits& bit) const {
    NodeRef ref = a.root();
    while (!isLeaf(ref)) {
      const Node& node = nodes_[ref];
      ref = bit(unsigned{node.variable}) ? node.hi : node.lo;
    }
    return leafNumber(ref);
  }

  // How many bit vectors come to each leaf.
  std::map<uint32_t, double> counts(const Diagram& a) const;
  // The leaves' numbers, ascending.
  std::vector<uint32_t> leaves(const Diagram& a) const;
  // The leaves of `a` that `within` (0: outside) leads to, ascending, without building anything. Stops early
  // when `stop` answers true for a leaf, which is then the last one.
  std::vector<uint32_t> leavesWithin(const Diagram& a, const Diagram& within,
                                     const std::function<bool(uint32_t)>& stop = {}) const;

  // One bit vector that comes to a leaf: by variable, 0 or 1, or anyBit where the way does not ask.
  static constexpr uint8_t anyBit = 2;
  using Way = std::vector<uint8_t>;
  // One for each leaf, with as few bits that are not the wanted ones as there can be; `wanted` has a bit for
  // each variable, or none when all are alike.
  std::map<uint32_t, Way> ways(const Diagram& a, const std::vector<bool>& wanted = {}) const;
  // One to any leaf but 0, taking the wanted bit wherever that does not end at 0. Requires such a leaf.
  Way wayInside(const Diagram& a, const std::vector<bool>& wanted) const;

  // Inner nodes of one diagram.
  std::size_t size(const Diagram& a) const { return order(a.root()).size(); }
  // Nodes in the table that are in use or may be used again.
  std::size_t numNodes() const { return nodes_.size() - numFree_; }
  // Bytes of the tables, now and at most.
  std::size_t memory() const;
  std::size_t peakMemory() const;

  // Finds the nodes that no Diagram reaches.
  void collect();
  // The first broken invariant, or null: order of variables, no redundant and no equal nodes.
  const char* audit() const;

private:
  friend class Diagram;

  struct Node {
    NodeRef lo;
    NodeRef hi;
    uint32_t next; // in its bucket, or in the list of free ones
    uint16_t variable;
  };
  struct Answer {
    NodeRef a = 0;
    NodeRef b = 0;
    uint32_t operation = 0; // 0: none
    NodeRef out = 0;
  };
  static constexpr uint32_t none = 0xFFFFFFFF;
  static constexpr uint16_t freeVariable = 0xFFFF;
  static constexpr std::size_t firstCollection = std::size_t{1} << 20;

  unsigned variableOf(NodeRef ref) const { return isLeaf(ref) ? numVariables_ : nodes_[ref].variable; }
  static uint64_t mixed(uint64_t a, uint64_t b, uint64_t c) {
    uint64_t h = a * 0x9E3779B97F4A7C15u ^ b * 0xC2B2AE3D27D4EB4Fu ^ c * 0x165667B19E3779F9u;
    h ^= h >> 29;
    h *= 0xBF58476D1CE4E5B9u;
    return h ^ h >> 32;
  }

  template <typename Combine>
  NodeRef descend(NodeRef a, NodeRef b, const Combine& how, uint32_t operation) {
    NodeRef out = 0;
    if (how.known(a, b, out)) {
      return out;
    }
    const std::size_t at = mixed(a, b, operation) & (answers_.size() - 1);
    const Answer& remembered = answers_[at];
    if (remembered.operation == operation && remembered.a == a && remembered.b == b) {
      return remembered.out;
    }
    const unsigned aVariable = variableOf(a);
    const unsigned bVariable = variableOf(b);
    const unsigned variable = aVariable < bVariable ? aVariable : bVariable;
    const NodeRef aLo = aVariable == variable ? nodes_[a].lo : a;
    const NodeRef bLo = bVariable == variable ? nodes_[b].lo : b;
    const NodeRef lo = descend(aLo, bLo, how, operation);
    const NodeRef aHi = aVariable == variable ? nodes_[a].hi : a;
    const NodeRef bHi = bVariable == variable ? nodes_[b].hi : b;
    const NodeRef hi = descend(aHi, bHi, how, operation);
    out = node(variable, lo, hi);
    answers_[mixed(a, b, operation) & (answers_.size() - 1)] = {a, b, operation, out};
    return out;
  }

  void collectIfDue() {
    if (numNodes() >= nextCollection_) {
      collect();
    }
  }
  void grow();
  NodeRef onlyField(NodeRef root, unsigned first, unsigned width);
  void markValues(NodeRef ref, unsigned first, unsigned width, unsigned bit, std::size_t low,
                  std::vector<bool>& values) const;
  uint32_t newNode(unsigned variable, NodeRef lo, NodeRef hi);
  std::size_t bucket(unsigned variable, NodeRef lo, NodeRef hi) const {
    return mixed(lo, hi, variable) & (buckets_.size() - 1);
  }
  // The inner nodes below a root, branches before the nodes that lead to them.
  std::vector<NodeRef> order(NodeRef root) const;
  std::size_t hold(NodeRef root);
  void release(std::size_t slot);

  unsigned numVariables_;
  std::size_t limit_;
  std::vector<Node> nodes_;
  std::vector<uint32_t> buckets_;
  std::vector<Answer> answers_;
  uint32_t freeNodes_ = none;
  std::size_t numFree_ = 0;
  std::size_t nextCollection_ = firstCollection;
  uint32_t lastOperation_ = 16;
  std::vector<NodeRef> roots_; // of the Diagrams; a leaf where a slot is free
  std::vector<std::size_t> freeSlots_;
  mutable std::vector<uint64_t> visits_; // by node: number of the walk << 32 | its place in it
  mutable uint32_t lastWalk_ = 0;
  std::size_t peak_ = 0;
};

} // namespace verify
