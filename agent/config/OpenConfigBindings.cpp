#include "agent/config/InterfaceDrafts.h"
#include "agent/config/OpenConfigInterfaces.h"

#include <algorithm>

// Decides for each set that is applied to an interface whether it stands.

namespace agent::openconfig {

void InterfaceReader::refuse(const Candidate& candidate, const std::string& why) {
  diagnostics_.error(lines_.line(candidate.value->offset), lines_.column(candidate.value->offset),
                     candidate.path + ": " + why, candidate.set.second);
}

void InterfaceReader::refuseUndefined(const SetTable& sets, const Candidate& candidate) {
  for (const SetType other : {SetType::ipv4, SetType::ipv6, SetType::l2, SetType::mixed})
    if (other != candidate.set.first && sets.has({other, candidate.set.second})) {
      refuse(candidate, std::string("the set ") + quotedWord(candidate.set.second) + " is of type " +
                            setTypeName(other) + "; write this type here, or define a set of type " +
                            setTypeName(candidate.set.first));
      return;
    }
  NearestWord nearest(candidate.set.second);
  sets.offerNames(candidate.set.first, nearest);
  refuse(candidate, "there is no set of this name and type in /acl/acl-sets; define it, or take it out here" +
                        nearest.suggestion());
}

bool InterfaceReader::placeAllows(const Draft& draft, const Candidate& candidate) {
  if (draft.name.kind() == InterfaceKind::unsupported) {
    refuse(candidate, "the set cannot be applied to " + quotedWord(draft.name.text()) + ", because " +
                          draft.name.reason() +
                          "; apply it to an Ethernet port, a port-channel or a VLAN interface");
    return false;
  }
  if (candidate.set.first == SetType::l2 && candidate.direction == Direction::out) {
    refuse(candidate, "the chip has no rows for sets of type ACL_L2 on the way out; apply the set in "
                      "ingress-acl-sets, on the ports where the frames come from");
    return false;
  }
  if (candidate.set.first == SetType::l2 && draft.name.kind() == InterfaceKind::vlan) {
    refuse(candidate,
           "a VLAN interface sees IP packets only; apply the set to the Ethernet ports of the VLAN");
    return false;
  }
  return true;
}

// One list of a family in each direction; which one of several is meant, nobody can tell.
bool InterfaceReader::refuseSecond(const Draft& draft, size_t position, Family family) {
  const Candidate* first = nullptr;
  bool alone = true;
  for (size_t i = 0; i < draft.candidates.size(); ++i) {
    const Candidate& other = draft.candidates[i];
    const std::vector<Family> families = familiesOf(other.set.first);
    if (other.direction != draft.candidates[position].direction ||
        std::find(families.begin(), families.end(), family) == families.end())
      continue;
    first = first == nullptr ? &other : first;
    alone = alone && i == position;
  }
  if (first != &draft.candidates[position])
    refuse(
        draft.candidates[position],
        "line " + std::to_string(lines_.line(first->value->offset)) + " applies the set " +
            quotedWord(first->set.second) +
            " for the same packets at this place already; keep one of the two, or write their entries into "
            "one set");
  return !alone;
}

void InterfaceReader::apply(const SetTable& sets, bool keepGoing, const Draft& draft, const Config& config,
                            Interface& interface) {
  for (size_t i = 0; i < draft.candidates.size(); ++i) {
    const Candidate& candidate = draft.candidates[i];
    const bool defined = sets.has(candidate.set);
    const bool stands = placeAllows(draft, candidate) && !candidate.refused && defined;
    if (!defined && draft.name.kind() != InterfaceKind::unsupported)
      refuseUndefined(sets, candidate);
    for (const Family family : familiesOf(candidate.set.first)) {
      const Binding binding{candidate.set.second,
                            family,
                            candidate.direction,
                            {diagnostics_.file(), lines_.line(candidate.value->offset),
                             lines_.column(candidate.value->offset)}};
      const AccessList* const list = stands ? config.list(family, candidate.set.second) : nullptr;
      const auto warn = [&](const std::string& why) {
        diagnostics_.warn(binding.loc.line, binding.loc.column, candidate.path + ": " + why, binding.list);
      };
      if (list != nullptr && list->hasErrors && keepGoing)
        warn("the set has errors and is not loaded; what the interface had in its place stays");
      const bool second = refuseSecond(draft, i, family);
      if (list == nullptr || list->hasErrors || second)
        interface.refusedBindings.push_back(binding);
      else if (list->rules.empty())
        warn(
            "the set has no entries, so that it is no list and everything is permitted; give it an entry, or "
            "take it out here");
      else
        interface.bindings.push_back(binding);
    }
  }
}

void InterfaceReader::spreadPortChannels() {
  const auto members = channelMembers(drafts_);
  for (Draft& channel : drafts_) {
    if (channel.name.kind() != InterfaceKind::portChannel)
      continue;
    const auto at = members.find(*channel.name.plainNumber());
    if (at == members.end()) {
      for (const Candidate& candidate : channel.candidates)
        refuse(candidate,
               channel.name.text() +
                   " has no member ports to apply the set to; write its name as the aggregate-id of "
                   "the ports in /interfaces/interface/ethernet/config");
      continue;
    }
    for (Draft* const member : at->second) {
      for (const Candidate& candidate : channel.candidates) {
        const auto same = [&candidate](const Candidate& other) {
          return other.set == candidate.set && other.direction == candidate.direction;
        };
        if (std::none_of(member->candidates.begin(), member->candidates.end(), same))
          member->candidates.push_back(candidate);
      }
      if (!member->accessVlan)
        member->accessVlan = channel.accessVlan;
      if (!member->trunkVlans)
        member->trunkVlans = channel.trunkVlans;
    }
  }
}

void InterfaceReader::build(const SetTable& sets, bool keepGoing, Config& config) {
  spreadPortChannels();
  config.interfaces.reserve(drafts_.size());
  for (const Draft& draft : drafts_) {
    Interface interface = interfaceOf(
        draft, {diagnostics_.file(), lines_.line(draft.value->offset), lines_.column(draft.value->offset)});
    if (interface.kind != InterfaceKind::portChannel)
      apply(sets, keepGoing, draft, config, interface);
    config.interfaces.push_back(std::move(interface));
  }
  refuseUnequalMembers(diagnostics_, config.interfaces);
  namePorts(config.interfaces);
}

} // namespace agent::openconfig
