#include "verify/Diagrams.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace verify {

DiagramsFull::DiagramsFull(std::size_t limit)
    : std::runtime_error("the sets of packets need more than " + std::to_string(limit >> 20) +
                         " MiB; allow them more with --memory") {}

// ------------------------------------------------------------------------------------- handles

Diagram::Diagram(Diagrams& diagrams, NodeRef root)
    : diagrams_(&diagrams), root_(root), slot_(diagrams.hold(root)) {}

Diagram::Diagram(const Diagram& other) : diagrams_(other.diagrams_), root_(other.root_) {
  if (diagrams_ != nullptr) {
    slot_ = diagrams_->hold(root_);
  }
}

Diagram::Diagram(Diagram&& other) noexcept
    : diagrams_(std::exchange(other.diagrams_, nullptr)), root_(other.root_), slot_(other.slot_) {}

Diagram& Diagram::operator=(Diagram other) noexcept {
  std::swap(diagrams_, other.diagrams_);
  std::swap(root_, other.root_);
  std::swap(slot_, other.slot_);
  return *this;
}

Diagram::~Diagram() {
  if (diagrams_ != nullptr) {
    diagrams_->release(slot_);
  }
}

std::size_t Diagrams::hold(NodeRef root) {
  if (freeSlots_.empty()) {
    roots_.push_back(root);
    return roots_.size() - 1;
  }
  const std::size_t slot = freeSlots_.back();
  freeSlots_.pop_back();
  roots_[slot] = root;
  return slot;
}

void Diagrams::release(std::size_t slot) {
  roots_[slot] = emptyLeaf;
  freeSlots_.push_back(slot);
}

// --------------------------------------------------------------------------------------- nodes

Diagrams::Diagrams(unsigned numVariables, std::size_t limit)
    : numVariables_(numVariables), limit_(limit), buckets_(std::size_t{1} << 12, none),
      answers_(std::size_t{1} << 12) {}

uint32_t Diagrams::newNode(unsigned variable, NodeRef lo, NodeRef hi) {
  uint32_t at = freeNodes_;
  if (at != none) {
    freeNodes_ = nodes_[at].next;
    --numFree_;
  } else {
    if (nodes_.size() == buckets_.size()) {
      grow();
    }
    at = static_cast<uint32_t>(nodes_.size());
    nodes_.push_back({});
  }
  uint32_t& first = buckets_[bucket(variable, lo, hi)];
  nodes_[at] = {lo, hi, first, static_cast<uint16_t>(variable)};
  first = at;
  return at;
}

// A bucket for each node that the table can hold, and half as many remembered answers.
void Diagrams::grow() {
  const std::size_t size = buckets_.size() * 2;
  if (size * (sizeof(Node) + sizeof(uint32_t)) + size / 2 * sizeof(Answer) > limit_ || size > leafFlag / 2) {
    throw DiagramsFull(limit_);
  }
  nodes_.reserve(size);
  answers_.assign(size / 2, {});
  buckets_.assign(size, none);
  for (uint32_t at = 0; at < nodes_.size(); ++at) {
    Node& node = nodes_[at];
    if (node.variable != freeVariable) {
      uint32_t& first = buckets_[bucket(node.variable, node.lo, node.hi)];
      node.next = first;
      first = at;
    }
  }
  peak_ = std::max(peak_, memory());
}

NodeRef Diagrams::node(unsigned variable, NodeRef lo, NodeRef hi) {
  if (lo == hi) {
    return lo;
  }
  for (uint32_t at = buckets_[bucket(variable, lo, hi)]; at != none; at = nodes_[at].next) {
    const Node& node = nodes_[at];
    if (node.lo == lo && node.hi == hi && node.variable == variable) {
      return at;
    }
  }
  return newNode(variable, lo, hi);
}

void Diagrams::collect() {
  std::vector<bool> reached(nodes_.size());
  std::vector<NodeRef> open;
  const auto reach = [&](NodeRef ref) {
    if (!isLeaf(ref) && !reached[ref]) {
      reached[ref] = true;
      open.push_back(ref);
    }
  };
  for (const NodeRef root : roots_) {
    reach(root);
    while (!open.empty()) {
      const Node& node = nodes_[open.back()];
      open.pop_back();
      reach(node.lo);
      reach(node.hi);
    }
  }
  std::fill(buckets_.begin(), buckets_.end(), none);
  std::fill(answers_.begin(), answers_.end(), Answer{});
  freeNodes_ = none;
  numFree_ = 0;
  for (uint32_t at = 0; at < nodes_.size(); ++at) {
    Node& node = nodes_[at];
    uint32_t& first = reached[at] ? buckets_[bucket(node.variable, node.lo, node.hi)] : freeNodes_;
    if (!reached[at]) {
      node.variable = freeVariable;
      ++numFree_;
    }
    node.next = first;
    first = at;
  }
  nextCollection_ = std::max(firstCollection, 2 * numNodes());
}

std::size_t Diagrams::memory() const {
  return nodes_.capacity() * sizeof(Node) + buckets_.capacity() * sizeof(uint32_t) +
         answers_.capacity() * sizeof(Answer) + visits_.capacity() * sizeof(uint64_t);
}

std::size_t Diagrams::peakMemory() const {
  return std::max(peak_, memory());
}

// --------------------------------------------------------------------------------------- walks

std::vector<NodeRef> Diagrams::order(NodeRef root) const {
  std::vector<NodeRef> sorted;
  visits_.resize(nodes_.size());
  const uint64_t walk = uint64_t{++lastWalk_} << 32;
  // A node goes in twice: to open its branches, then to take its place behind them.
  std::vector<std::pair<NodeRef, bool>> open{{root, false}};
  while (!open.empty()) {
    const auto [ref, opened] = open.back();
    open.pop_back();
    if (opened) {
      visits_[ref] = walk | sorted.size();
      sorted.push_back(ref);
    } else if (!isLeaf(ref) && visits_[ref] >> 32 != walk >> 32) {
      visits_[ref] = walk;
      open.emplace_back(ref, true);
      open.emplace_back(nodes_[ref].hi, false);
      open.emplace_back(nodes_[ref].lo, false);
    }
  }
  return sorted;
}

Diagram Diagrams::relabelled(const Diagram& a, const std::function<uint32_t(uint32_t)>& number) {
  collectIfDue();
  const std::vector<NodeRef> sorted = order(a.root());
  std::vector<NodeRef> fresh(sorted.size());
  const auto moved = [&](NodeRef ref) {
    return isLeaf(ref) ? leaf(number(leafNumber(ref))) : fresh[visits_[ref] & none];
  };
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    const Node old = nodes_[sorted[i]];
    fresh[i] = node(old.variable, moved(old.lo), moved(old.hi));
  }
  return Diagram(*this, moved(a.root()));
}

namespace {

// The mask's set, cut down to the leaves of the other diagram that count.
struct Select {
  const std::function<bool(uint32_t)>& inside;

  bool known(NodeRef mask, NodeRef a, NodeRef& out) const {
    if (mask == emptyLeaf) {
      out = emptyLeaf;
      return true;
    }
    if (!isLeaf(a)) {
      return false;
    }
    if (!inside(leafNumber(a))) {
      out = emptyLeaf;
      return true;
    }
    out = mask;
    return true;
  }
};

} // namespace

Diagram Diagrams::selected(const Diagram& mask, const Diagram& a,
                           const std::function<bool(uint32_t)>& inside) {
  return combine(mask, a, Select{inside}, newOperation());
}

// The function of one field alone: where it is 1, some vector with this value is not at 0.
NodeRef Diagrams::onlyField(NodeRef root, unsigned first, unsigned width) {
  const std::vector<NodeRef> sorted = order(root);
  std::vector<NodeRef> fresh(sorted.size());
  const auto moved = [&](NodeRef ref) {
    return isLeaf(ref) ? leaf(ref == emptyLeaf ? 0 : 1) : fresh[visits_[ref] & none];
  };
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    const Node old = nodes_[sorted[i]];
    if (old.variable >= first + width) {
      fresh[i] = leaf(1);
    } else if (old.variable >= first) {
      fresh[i] = node(old.variable, moved(old.lo), moved(old.hi));
    } else {
      fresh[i] = descend(moved(old.lo), moved(old.hi), FirstOf(), FirstOf::operation);
    }
  }
  return moved(root);
}

void Diagrams::markValues(NodeRef ref, unsigned first, unsigned width, unsigned bit, std::size_t low,
                          std::vector<bool>& values) const {
  if (ref == emptyLeaf) {
    return;
  }
  const std::size_t size = std::size_t{1} << (width - bit);
  if (isLeaf(ref)) {
    std::fill_n(values.begin() + static_cast<std::ptrdiff_t>(low), size, true);
    return;
  }
  const bool asked = nodes_[ref].variable == first + bit;
  markValues(asked ? nodes_[ref].lo : ref, first, width, bit + 1, low, values);
  markValues(asked ? nodes_[ref].hi : ref, first, width, bit + 1, low + size / 2, values);
}

std::vector<bool> Diagrams::values(const Diagram& a, unsigned first, unsigned width) {
  collectIfDue();
  std::vector<bool> values(std::size_t{1} << width);
  markValues(onlyField(a.root(), first, width), first, width, 0, 0, values);
  return values;
}

std::map<uint32_t, double> Diagrams::counts(const Diagram& a) const {
  // From the root down: how many vectors come to each node, counting the variables before it.
  const std::vector<NodeRef> sorted = order(a.root());
  std::vector<double> arriving(sorted.size(), 0);
  std::map<uint32_t, double> counts;
  const auto arrive = [&](NodeRef ref, double vectors) {
    (isLeaf(ref) ? counts[leafNumber(ref)] : arriving[visits_[ref] & none]) += vectors;
  };
  // Each node halves what arrives, whatever variables stand between.
  arrive(a.root(), std::ldexp(1.0, static_cast<int>(numVariables_)));
  for (std::size_t i = sorted.size(); i-- > 0;) {
    arrive(nodes_[sorted[i]].lo, arriving[i] / 2);
    arrive(nodes_[sorted[i]].hi, arriving[i] / 2);
  }
  return counts;
}

std::vector<uint32_t> Diagrams::leaves(const Diagram& a) const {
  std::vector<uint32_t> found;
  if (isLeaf(a.root())) {
    return {leafNumber(a.root())};
  }
  for (const NodeRef ref : order(a.root())) {
    for (const NodeRef branch : {nodes_[ref].lo, nodes_[ref].hi}) {
      if (isLeaf(branch)) {
        found.push_back(leafNumber(branch));
      }
    }
  }
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

std::vector<uint32_t> Diagrams::leavesWithin(const Diagram& a, const Diagram& within,
                                             const std::function<bool(uint32_t)>& stop) const {
  std::set<uint32_t> found;
  std::unordered_set<uint64_t> seen;
  // Behind the last thing that the set asks for, nodes of `a` alone are left, by far the most.
  visits_.resize(nodes_.size());
  const uint64_t walk = uint64_t{++lastWalk_} << 32;
  const auto isFresh = [&](NodeRef ref, NodeRef mask) {
    if (isLeaf(ref) || !isLeaf(mask)) {
      return seen.insert(uint64_t{ref} << 32 | mask).second;
    }
    return std::exchange(visits_[ref], walk) != walk;
  };
  std::vector<std::pair<NodeRef, NodeRef>> open{{a.root(), within.root()}};
  bool stopped = false;
  while (!open.empty() && !stopped) {
    const auto [ref, mask] = open.back();
    open.pop_back();
    if (mask == emptyLeaf || !isFresh(ref, mask)) {
      continue;
    }
    if (isLeaf(ref)) {
      // Every set but the empty one has something inside, so that some way leads here.
      stopped = found.insert(leafNumber(ref)).second && stop && stop(leafNumber(ref));
      continue;
    }
    const unsigned variable = std::min(variableOf(ref), variableOf(mask));
    const bool asksRef = variableOf(ref) == variable;
    const bool asksMask = variableOf(mask) == variable;
    open.emplace_back(asksRef ? nodes_[ref].hi : ref, asksMask ? nodes_[mask].hi : mask);
    open.emplace_back(asksRef ? nodes_[ref].lo : ref, asksMask ? nodes_[mask].lo : mask);
  }
  return {found.begin(), found.end()};
}

std::map<uint32_t, Diagrams::Way> Diagrams::ways(const Diagram& a, const std::vector<bool>& wanted) const {
  if (isLeaf(a.root())) {
    return {{leafNumber(a.root()), Way(numVariables_, anyBit)}};
  }
  // For each node and each leaf, the node that leads to it best, and how many bits are then not as wanted.
  struct From {
    std::size_t place = ~std::size_t{0};
    uint8_t bit = 0;
    unsigned unwanted = ~0u;
  };
  const std::vector<NodeRef> sorted = order(a.root());
  std::vector<From> from(sorted.size());
  std::map<uint32_t, From> ends;
  from.back().unwanted = 0;
  for (std::size_t i = sorted.size(); i-- > 0;) {
    const Node& node = nodes_[sorted[i]];
    for (const uint8_t bit : {uint8_t{0}, uint8_t{1}}) {
      const NodeRef branch = bit != 0 ? node.hi : node.lo;
      const bool asWanted = wanted.empty() || wanted[node.variable] == (bit != 0);
      const unsigned unwanted = from[i].unwanted + (asWanted ? 0 : 1);
      From& best = isLeaf(branch) ? ends[leafNumber(branch)] : from[visits_[branch] & none];
      if (unwanted < best.unwanted) {
        best = {i, bit, unwanted};
      }
    }
  }
  std::map<uint32_t, Way> ways;
  for (const auto& [number, end] : ends) {
    Way way(numVariables_, anyBit);
    for (From step = end; step.place != ~std::size_t{0}; step = from[step.place]) {
      way[nodes_[sorted[step.place]].variable] = step.bit;
    }
    ways.emplace(number, std::move(way));
  }
  return ways;
}

Diagrams::Way Diagrams::wayInside(const Diagram& a, const std::vector<bool>& wanted) const {
  Way way(numVariables_, anyBit);
  NodeRef ref = a.root();
  while (!isLeaf(ref)) {
    const Node& node = nodes_[ref];
    bool bit = wanted[node.variable];
    if ((bit ? node.hi : node.lo) == emptyLeaf) {
      bit = !bit;
    }
    way[node.variable] = bit ? 1 : 0;
    ref = bit ? node.hi : node.lo;
  }
  return way;
}

const char* Diagrams::audit() const {
  std::unordered_map<uint64_t, std::vector<uint32_t>> byBranches;
  for (uint32_t at = 0; at < nodes_.size(); ++at) {
    const Node& node = nodes_[at];
    if (node.variable == freeVariable) {
      continue;
    }
    if (node.lo == node.hi) {
      return "a node has two equal branches";
    }
    if (variableOf(node.lo) <= node.variable || variableOf(node.hi) <= node.variable) {
      return "variables do not ascend";
    }
    for (const uint32_t other : byBranches[uint64_t{node.lo} << 32 | node.hi]) {
      if (nodes_[other].variable == node.variable) {
        return "two nodes are alike";
      }
    }
    byBranches[uint64_t{node.lo} << 32 | node.hi].push_back(at);
  }
  return nullptr;
}

} // namespace verify
