#include "verify/Successors.h"

namespace verify {

namespace {
// The second one is not known yet.
constexpr uint32_t open = 0;
} // namespace

// One part of a list in front of another: where nothing in front decides, the other part does; where a line
// in front decides without a known successor, the decider of the other part is it.
struct Successors::Follow {
  Successors& successors;

  bool known(NodeRef a, NodeRef b, NodeRef& out) const {
    if (b == emptyLeaf) {
      out = a;
      return true;
    }
    if (!isLeaf(a)) {
      return false;
    }
    if (a == emptyLeaf) {
      out = b;
      return true;
    }
    const Pair front = successors.pairs_[leafNumber(a)];
    if (front.second != open) {
      out = a;
      return true;
    }
    if (!isLeaf(b)) {
      return false;
    }
    const uint32_t next = successors.pairs_[leafNumber(b)].first;
    const bool same = successors.effect(front.first) == successors.effect(next);
    out = leaf(successors.numberOf({front.first, same ? sameEffect : next}));
    return true;
  }
};

Successors::Successors(PacketSpace& space, const agent::AccessList& list, const Tick& tick)
    : leaves_(&list), pairs_(1) {
  Diagrams& diagrams = space.diagrams();
  const uint32_t operation = diagrams.newOperation();
  const auto follow = [&](const Diagram& a, const Diagram& b) {
    return diagrams.combine(a, b, Follow{*this}, operation);
  };
  const Diagram lines = joined(
      0, list.rules.size(),
      [&](std::size_t i) {
        if (tick) {
          tick();
        }
        return matching(space, list.rules[i], numberOf({ListLeaves::line(i), open}));
      },
      follow);
  const Diagram implicit = diagrams.relabelled(implicitDecisions(space, &list), [&](uint32_t number) {
    return numberOf({number, open});
  });
  diagram_ = diagrams.combine(space.universe(), follow(lines, implicit), Within());
}

Effect Successors::effect(uint32_t leaf) const {
  const agent::Rule* const rule = leaves_.rule(leaf);
  return rule != nullptr ? Effect{rule->permit, rule->log} : Effect{leaves_.permit(leaf), false};
}

uint32_t Successors::numberOf(const Pair& pair) {
  const auto [found, fresh] = numbers_.try_emplace(pair, static_cast<uint32_t>(pairs_.size()));
  if (fresh) {
    pairs_.push_back(pair);
  }
  return found->second;
}

} // namespace verify
