#include "verify/ListSets.h"

#include <algorithm>

namespace verify {

namespace {

constexpr unsigned ndSolicitation = 135; // RFC 4861
constexpr unsigned ndAdvertisement = 136;

void askAddresses(const agent::Criteria& criteria, agent::Family family, std::vector<Condition>& conditions) {
  if (family == agent::Family::ipv4) {
    const auto ask = [&](Field field, const agent::V4Match& match) {
      conditions.push_back(
          Condition::masked(field, bitsOf(match.address, 32), bitsOf(uint32_t(~match.wildcard), 32)));
    };
    ask(Field::src, criteria.srcV4);
    ask(Field::dst, criteria.dstV4);
    return;
  }
  const auto ask = [&](Field field, const agent::V6Match& match) {
    FieldBits compared;
    for (unsigned bit = 0; bit < match.prefixLength; ++bit) {
      compared.set(bit);
    }
    conditions.push_back(Condition::masked(field, bitsOf(match.address.data(), 16), compared));
  };
  ask(Field::src, criteria.srcV6);
  ask(Field::dst, criteria.dstV6);
}

void askL4(const agent::Criteria& criteria, std::vector<Condition>& conditions) {
  const auto ask = [&](Field field, agent::PortSet ports, const std::optional<uint8_t>& icmp) {
    if (icmp) {
      const bool inside = std::any_of(ports.begin(), ports.end(), [&](const agent::PortRange& range) {
        return *icmp >= range.low && *icmp <= range.high;
      });
      ports = inside ? agent::PortSet{{*icmp, *icmp}} : agent::PortSet{};
    }
    if (!agent::isAnyPort(ports)) {
      conditions.push_back(Condition::within(field, std::move(ports)));
    }
  };
  ask(Field::l4Dst, criteria.dstPorts, criteria.icmpType);
  ask(Field::l4Src, criteria.srcPorts, criteria.icmpCode);
}

std::vector<Condition> ipConditions(const agent::Criteria& criteria, agent::Family family) {
  std::vector<Condition> conditions;
  askAddresses(criteria, family, conditions);
  if (criteria.protocol) {
    conditions.push_back(Condition::equals(Field::protocol, *criteria.protocol, 8));
  }
  if (criteria.established) {
    conditions.push_back(Condition::equals(Field::established, 1, 1));
  }
  if (family == agent::Family::ipv4 && criteria.ttl) {
    conditions.push_back(Condition::equals(Field::ttl, *criteria.ttl, 8));
  }
  if (family == agent::Family::ipv4 && criteria.fragments) {
    conditions.push_back(Condition::equals(Field::fragment, 1, 1));
  }
  // A line for fragments asks for packets that have nothing at the place of the ports.
  if (!criteria.fragments) {
    askL4(criteria, conditions);
  }
  return conditions;
}

std::vector<Condition> macConditions(const agent::Criteria& criteria) {
  std::vector<Condition> conditions;
  const auto ask = [&](Field field, const agent::MacMatch& match) {
    conditions.push_back(
        Condition::masked(field, bitsOf(match.address.data(), 6), ~bitsOf(match.wildcard.data(), 6)));
  };
  ask(Field::srcMac, criteria.srcMac);
  ask(Field::dstMac, criteria.dstMac);
  if (criteria.etherType) {
    conditions.push_back(Condition::equals(Field::etherType, *criteria.etherType, 16));
  }
  if (criteria.vlan) {
    conditions.push_back(Condition::equals(Field::vlan, *criteria.vlan, 12));
  }
  return conditions;
}

Diagram firstOf(PacketSpace& space, const Diagram& a, const Diagram& b) {
  return space.diagrams().combine(a, b, FirstOf());
}

} // namespace

ListLeaves::ListLeaves(const agent::AccessList* list)
    : list_(list), lines_(list == nullptr ? 0 : static_cast<uint32_t>(list->rules.size())) {}

Judgement ListLeaves::judgement(uint32_t leaf) const {
  if (const agent::Rule* const decided = rule(leaf)) {
    return {decided->permit, Decider::line, leaf - 1};
  }
  if (leaf == implicitDeny()) {
    return {false, Decider::implicitDeny, 0};
  }
  return {true, leaf == noList() ? Decider::noList : Decider::neighbourDiscovery, 0};
}

const agent::Rule* ListLeaves::rule(uint32_t leaf) const {
  return leaf >= 1 && leaf <= lines_ ? &list_->rules[leaf - 1] : nullptr;
}

Diagram matching(PacketSpace& space, const agent::Criteria& criteria, uint32_t number) {
  return space.where(space.family() == agent::Family::mac ? macConditions(criteria)
                                                          : ipConditions(criteria, space.family()),
                     number);
}

Diagram matching(PacketSpace& space, const agent::Rule& rule, uint32_t number) {
  if (rule.alternatives.empty()) {
    return Diagram(space.diagrams(), emptyLeaf);
  }
  return joined(
      0, rule.alternatives.size(),
      [&](std::size_t i) { return matching(space, rule.alternatives[i], number); },
      [&](const Diagram& a, const Diagram& b) { return firstOf(space, a, b); });
}

Diagram matchingPorts(PacketSpace& space, agent::Criteria criteria, bool source,
                      const agent::PortSet& ports) {
  (source ? criteria.srcPorts : criteria.dstPorts) = ports;
  return matching(space, criteria);
}

Diagram implicitDecisions(PacketSpace& space, const agent::AccessList* list) {
  const ListLeaves leaves(list);
  if (list == nullptr || list->rules.empty()) {
    return Diagram(space.diagrams(), leaf(leaves.noList()));
  }
  const Diagram deny(space.diagrams(), leaf(leaves.implicitDeny()));
  if (list->family != agent::Family::ipv6) {
    return deny;
  }
  const Diagram discovery =
      space.where({Condition::equals(Field::protocol, packet::protoIcmpV6, 8),
                   Condition::within(Field::l4Dst, {{ndSolicitation, ndAdvertisement}})},
                  leaves.neighbourDiscovery());
  return firstOf(space, discovery, deny);
}

Diagram decisions(PacketSpace& space, const agent::AccessList* list, const Tick& tick) {
  Diagram decided = implicitDecisions(space, list);
  if (list != nullptr && !list->rules.empty()) {
    const Diagram lines = joined(
        0, list->rules.size(),
        [&](std::size_t i) {
          if (tick) {
            tick();
          }
          return matching(space, list->rules[i], ListLeaves::line(i));
        },
        [&](const Diagram& a, const Diagram& b) { return firstOf(space, a, b); });
    decided = firstOf(space, lines, decided);
  }
  return space.diagrams().combine(space.universe(), decided, Within());
}

PacketSet permitted(PacketSpace& space, const agent::AccessList* list, const Tick& tick) {
  // Only the verdict is kept, so that lines with the same one share their nodes from the start.
  constexpr uint32_t permit = 1;
  constexpr uint32_t deny = 2;
  const ListLeaves leaves(list);
  Diagram verdicts = space.diagrams().relabelled(
      implicitDecisions(space, list), [&](uint32_t leaf) { return leaves.permit(leaf) ? permit : deny; });
  if (list != nullptr && !list->rules.empty()) {
    const Diagram lines = joined(
        0, list->rules.size(),
        [&](std::size_t i) {
          if (tick) {
            tick();
          }
          return matching(space, list->rules[i], list->rules[i].permit ? permit : deny);
        },
        [&](const Diagram& a, const Diagram& b) { return firstOf(space, a, b); });
    verdicts = firstOf(space, lines, verdicts);
  }
  return space.set(
      space.diagrams().relabelled(verdicts, [](uint32_t number) { return number == permit ? 1u : 0u; }));
}

Traffic trafficOf(const agent::AccessList* list) {
  const auto asksPorts = [](const agent::Criteria& criteria) {
    return !agent::isAnyPort(criteria.srcPorts) || !agent::isAnyPort(criteria.dstPorts);
  };
  const auto hasPorts = [](const agent::Criteria& criteria) {
    return criteria.protocol &&
           (*criteria.protocol == packet::protoTcp || *criteria.protocol == packet::protoUdp ||
            *criteria.protocol == packet::protoSctp);
  };
  if (list != nullptr) {
    for (const agent::Rule& rule : list->rules) {
      for (const agent::Criteria& criteria : rule.alternatives) {
        if (asksPorts(criteria) && !hasPorts(criteria)) {
          return Traffic::headers;
        }
      }
    }
  }
  return Traffic::wire;
}

} // namespace verify
