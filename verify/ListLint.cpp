#include "verify/ListLint.h"

#include "verify/Successors.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

namespace verify {

namespace {

constexpr unsigned portBits = 16;

std::size_t alternativeRows(const agent::Criteria& criteria) {
  return criteria.fragments ? 1 : blocksOf(criteria.srcPorts) * blocksOf(criteria.dstPorts);
}

bool contains(const agent::PortSet& ports, std::size_t port) {
  return std::any_of(ports.begin(), ports.end(), [port](const agent::PortRange& range) {
    return port >= range.low && port <= range.high;
  });
}

class ListLint {
public:
  ListLint(PacketSpace& space, const agent::AccessList& list, const Tick& tick)
      : space_(space), diagrams_(space.diagrams()), list_(list), successors_(space, list, tick), tick_(tick),
        deciders_(diagrams_.relabelled(successors_.diagram(), [this](uint32_t number) {
          return number == 0 ? 0 : successors_.pair(number).first;
        })) {}

  ListFindings find() {
    for (const uint32_t number : diagrams_.leaves(successors_.diagram())) {
      const Successors::Pair& pair = successors_.pair(number);
      if (number != 0) {
        reached_.insert(pair.first);
        if (pair.second != Successors::sameEffect) {
          needed_.insert(pair.first);
        }
      }
    }
    for (std::size_t line = 0; line < list_.rules.size(); ++line) {
      if (reached_.count(ListLeaves::line(line)) == 0) {
        findings_.unreachable.push_back(unreachable(line));
      }
      findRemovable(line);
      findRanges(line);
      if (tick_) {
        tick_();
      }
    }
    findContradictions();
    return std::move(findings_);
  }

private:
  static std::size_t indexOf(uint32_t leaf) { return leaf - 1; }
  bool isReached(std::size_t line) const { return reached_.count(ListLeaves::line(line)) != 0; }
  Effect effectOf(std::size_t line) const { return successors_.effect(ListLeaves::line(line)); }

  Unreachable unreachable(std::size_t line) {
    Unreachable found{line, {}, true};
    std::set<std::size_t> hiding;
    const Diagram matched = matching(space_, list_.rules[line]);
    for (const uint32_t decider : diagrams_.leavesWithin(deciders_, matched)) {
      if (decider != 0) {
        hiding.insert(indexOf(decider));
      }
    }
    for (const std::size_t other : hiding) {
      found.hiddenBy.push_back(other);
      found.sameAction = found.sameAction && list_.rules[other].permit == list_.rules[line].permit;
    }
    return found;
  }

  void findRemovable(std::size_t line) {
    bool removable = needed_.count(ListLeaves::line(line)) == 0;
    if (list_.rules.size() == 1) {
      // Without lines there is no list, and everything is permitted.
      removable = std::all_of(reached_.begin(), reached_.end(), [this](uint32_t leaf) {
        return successors_.effect(leaf) == Effect{true, false};
      });
    }
    if (removable) {
      findings_.removable.push_back({line, isReached(line)});
    }
  }

  // ------------------------------------------------------------------------------ contradictions

  const PacketSet& matched(std::size_t line) {
    const auto found = matched_.find(line);
    return found != matched_.end()
               ? found->second
               : matched_.emplace(line, space_.set(matching(space_, list_.rules[line]))).first->second;
  }

  void findContradictions() {
    for (const auto& [number, packet] : space_.packetsAt(successors_.diagram())) {
      if (number == 0) {
        continue;
      }
      const Successors::Pair& pair = successors_.pair(number);
      if (pair.second == Successors::sameEffect || successors_.leaves().rule(pair.first) == nullptr ||
          successors_.leaves().rule(pair.second) == nullptr ||
          successors_.effect(pair.first).permit == successors_.effect(pair.second).permit) {
        continue;
      }
      const std::size_t first = indexOf(pair.first);
      const std::size_t second = indexOf(pair.second);
      if (!(matched(first) - matched(second)).isEmpty() && !(matched(second) - matched(first)).isEmpty()) {
        findings_.contradictions.push_back({first, second, packet});
      }
    }
    std::sort(findings_.contradictions.begin(), findings_.contradictions.end(),
              [](const Contradiction& a, const Contradiction& b) {
                return std::pair(a.first, a.second) < std::pair(b.first, b.second);
              });
  }

  // -------------------------------------------------------------------------------------- ranges

  void findRanges(std::size_t line) {
    const agent::Rule& rule = list_.rules[line];
    // What could go altogether needs no cheaper form.
    if (needed_.count(ListLeaves::line(line)) == 0 || portRows(rule) < manyRows) {
      return;
    }
    std::optional<CostlyRange> best;
    for (const bool source : {false, true}) {
      std::vector<agent::PortSet> tried;
      for (const agent::Criteria& criteria : rule.alternatives) {
        const agent::PortSet& ports = source ? criteria.srcPorts : criteria.dstPorts;
        if (criteria.fragments || blocksOf(ports) < 2 ||
            std::find(tried.begin(), tried.end(), ports) != tried.end()) {
          continue;
        }
        tried.push_back(ports);
        const auto found = cheaperPorts(line, source, ports);
        if (found && (!best || found->cheaperRows < best->cheaperRows)) {
          best = found;
        }
      }
    }
    if (best) {
      findings_.ranges.push_back(*best);
    }
  }

  // Other ports in place of `ports`, wherever the line has them on that side.
  std::optional<CostlyRange> cheaperPorts(std::size_t line, bool source, const agent::PortSet& ports) {
    const agent::Rule& rule = list_.rules[line];
    Diagram anyPorts(diagrams_, emptyLeaf);
    std::size_t otherBlocks = 0;
    for (const agent::Criteria& criteria : rule.alternatives) {
      if (!criteria.fragments && (source ? criteria.srcPorts : criteria.dstPorts) == ports) {
        const Diagram opened = matchingPorts(space_, criteria, source, agent::anyPort());
        anyPorts = diagrams_.combine(anyPorts, opened, FirstOf());
        otherBlocks += blocksOf(source ? criteria.dstPorts : criteria.srcPorts);
      }
    }
    const PortForm form = cheapestForm(needsOf(line, source, ports, anyPorts));
    const std::size_t before = blocksOf(ports);
    const std::size_t after = blocksOf(form.ports) + blocksOf(form.excluded);
    if (after >= before || form.ports.empty()) {
      return std::nullopt;
    }
    const std::size_t rows = portRows(rule);
    return CostlyRange{
        line, source, ports, rows, form.ports, form.excluded, rows - otherBlocks * (before - after)};
  }

  PortNeeds needsOf(std::size_t line, bool source, const agent::PortSet& ports, const Diagram& anyPorts) {
    const uint32_t self = ListLeaves::line(line);
    const Effect effect = effectOf(line);
    const Effect opposite{!effect.permit, false};
    const FieldPlace& place = space_.layout().place(source ? Field::l4Src : Field::l4Dst);
    const auto portsWhere = [&](const std::function<bool(const Successors::Pair&)>& holds) {
      const Diagram found = diagrams_.selected(anyPorts, successors_.diagram(), [&](uint32_t number) {
        return number != 0 && holds(successors_.pair(number));
      });
      return diagrams_.values(found, place.first, portBits);
    };
    PortNeeds needs;
    needs.needed = portsWhere([&](const Successors::Pair& pair) {
      return pair.first == self && pair.second != Successors::sameEffect;
    });
    // Other alternatives of the line may match other ports of some of these packets, and go on doing so.
    for (std::size_t port = 0; port < numPorts; ++port) {
      needs.needed[port] = needs.needed[port] && contains(ports, port);
    }
    // Lines before this one decide as ever, whatever it matches.
    needs.harmful = portsWhere([&](const Successors::Pair& pair) {
      return pair.first > self && !(successors_.effect(pair.first) == effect);
    });
    needs.excludable = portsWhere([&](const Successors::Pair& pair) {
      return pair.first >= self && !(successors_.effect(pair.first) == opposite);
    });
    needs.excludable.flip();
    return needs;
  }

  PacketSpace& space_;
  Diagrams& diagrams_;
  const agent::AccessList& list_;
  Successors successors_;
  Tick tick_;
  Diagram deciders_; // by packet the leaf of what decides, 0 for packets that cannot be
  ListFindings findings_;
  std::set<uint32_t> reached_; // leaves of what decides some packet
  std::set<uint32_t> needed_;  // of what decides some packet that would else fare differently
  std::map<std::size_t, PacketSet> matched_;
};

} // namespace

std::size_t portRows(const agent::Rule& rule) {
  std::size_t rows = 0;
  for (const agent::Criteria& criteria : rule.alternatives) {
    rows += alternativeRows(criteria);
  }
  return rows;
}

ListFindings lint(PacketSpace& space, const agent::AccessList& list, const Tick& tick) {
  return list.rules.empty() ? ListFindings() : ListLint(space, list, tick).find();
}

} // namespace verify
