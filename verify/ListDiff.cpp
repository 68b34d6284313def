#include "verify/ListDiff.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace verify {

namespace {

// The pairs of leaves that meet, numbered from 1.
class LeafPairs {
public:
  using Pair = std::pair<uint32_t, uint32_t>;

  uint32_t numberOf(const Pair& pair) {
    const auto [found, fresh] = numbers_.try_emplace(pair, static_cast<uint32_t>(pairs_.size()));
    if (fresh) {
      pairs_.push_back(pair);
    }
    return found->second;
  }
  const Pair& pair(uint32_t number) const { return pairs_[number]; }

private:
  std::vector<Pair> pairs_ = std::vector<Pair>(1); // 0 is no pair
  std::map<Pair, uint32_t> numbers_;
};

// Both diagrams are 0 outside the same set.
struct PairUp {
  LeafPairs& pairs;

  bool known(NodeRef a, NodeRef b, NodeRef& out) const {
    out = emptyLeaf;
    if (a == emptyLeaf || b == emptyLeaf) {
      return true;
    }
    if (!isLeaf(a) || !isLeaf(b)) {
      return false;
    }
    out = leaf(pairs.numberOf({leafNumber(a), leafNumber(b)}));
    return true;
  }
};

// What decides the packets of a set, which is usually small beside the list: lines are cut down to it before
// they meet each other.
Diagram decisionsWithin(PacketSpace& space, const Diagram& within, const agent::AccessList* list,
                        const Tick& tick) {
  Diagrams& diagrams = space.diagrams();
  Diagram decided = diagrams.combine(within, implicitDecisions(space, list), Within());
  if (list == nullptr || list->rules.empty()) {
    return decided;
  }
  const Diagram lines = joined(
      0, list->rules.size(),
      [&](std::size_t i) {
        if (tick) {
          tick();
        }
        return diagrams.combine(within, matching(space, list->rules[i], ListLeaves::line(i)), Within());
      },
      [&](const Diagram& a, const Diagram& b) { return diagrams.combine(a, b, FirstOf()); });
  return diagrams.combine(lines, decided, FirstOf());
}

class ListDiffer {
public:
  ListDiffer(PacketSpace& space, const agent::AccessList* before, const agent::AccessList* after,
             const PacketSet& preferred, const Tick& tick)
      : space_(space), before_(before), after_(after), preferred_(preferred), tick_(tick) {}

  VerdictChange change(const PacketSet& changed) {
    if (changed.isEmpty()) {
      return {changed, {}, {}};
    }
    const PacketSet met = changed & preferred_;
    return {changed, met.isEmpty() ? changed.witness() : met.witness(), lines(changed)};
  }

private:
  std::vector<LineChange> lines(const PacketSet& changed) {
    Diagrams& diagrams = space_.diagrams();
    LeafPairs pairs;
    const Diagram met = diagrams.combine(decisionsWithin(space_, changed.diagram(), before_, tick_),
                                         decisionsWithin(space_, changed.diagram(), after_, tick_),
                                         PairUp{pairs}, diagrams.newOperation());
    const ListLeaves before(before_);
    const ListLeaves after(after_);
    const std::map<uint32_t, double> counts = diagrams.counts(met);
    std::map<uint32_t, packet::Packet> witnesses =
        space_.packetsAt(diagrams.combine(preferred_.diagram(), met, Within()));
    witnesses.merge(space_.packetsAt(met));
    std::vector<LineChange> changes;
    for (const auto& [number, witness] : witnesses) {
      if (number != 0) {
        const auto& [beforeLeaf, afterLeaf] = pairs.pair(number);
        changes.push_back(
            {before.judgement(beforeLeaf), after.judgement(afterLeaf), counts.at(number), witness});
      }
    }
    const auto place = [](const LineChange& change) {
      return std::tuple(-change.packets, change.before.decider, change.before.index, change.after.decider,
                        change.after.index);
    };
    std::sort(changes.begin(), changes.end(),
              [&](const LineChange& a, const LineChange& b) { return place(a) < place(b); });
    return changes;
  }

  PacketSpace& space_;
  const agent::AccessList* before_;
  const agent::AccessList* after_;
  const PacketSet& preferred_;
  const Tick& tick_;
};

} // namespace

ListDiff diff(PacketSpace& space, const agent::AccessList* before, const agent::AccessList* after,
              const PacketSet& preferred, const Tick& tick) {
  const PacketSet was = permitted(space, before, tick);
  const PacketSet is = permitted(space, after, tick);
  ListDiffer differ(space, before, after, preferred, tick);
  return {differ.change(was - is), differ.change(is - was)};
}

} // namespace verify
