#include "agent/config/InterfaceDrafts.h"

#include <algorithm>
#include <map>
#include <utility>

namespace agent {

namespace {

const char* familyWord(Family family) {
  return family == Family::ipv4 ? "IPv4" : family == Family::ipv6 ? "IPv6" : "MAC";
}

const char* applyingWords(Family family) {
  return family == Family::ipv4   ? "ip access-group"
         : family == Family::ipv6 ? "ipv6 traffic-filter"
                                  : "mac access-group";
}

} // namespace

// Decides for each line that applies a list whether it stands.
struct InterfaceTable::Resolver {
  const ListTable& lists;
  const ListIndex& index;
  Diagnostics& diagnostics;
  bool keepGoing;

  void refuse(const Candidate& candidate, const std::string& what, const std::string& why) {
    diagnostics.error(candidate.line, candidate.column, quotedWord(what) + ": " + why, candidate.list);
  }

  bool refuseUndefined(const Candidate& candidate) {
    for (const Family other : {Family::ipv4, Family::ipv6, Family::mac})
      if (other != candidate.family && lists.has(other, candidate.list)) {
        refuse(candidate, candidate.list,
               std::string("this list is of family ") + familyWord(other) + "; apply it with " +
                   applyingWords(other) + ", or define a list of family " + familyWord(candidate.family));
        return false;
      }
    NearestWord nearest(candidate.list);
    lists.offerNames(candidate.family, nearest);
    refuse(candidate, candidate.list,
           std::string("there is no ") + familyWord(candidate.family) +
               " list of this name; define it, or take the line "
               "out" +
               nearest.suggestion());
    return false;
  }

  // Whether the place can have the list at all.
  bool placeAllows(const Draft& draft, const Candidate& candidate) {
    if (draft.name.kind() == InterfaceKind::unsupported) {
      refuse(candidate, candidate.list,
             "the list cannot be applied to " + draft.name.text() + ", because " + draft.name.reason() +
                 "; apply it to an Ethernet port, a port-channel or a VLAN interface");
      return false;
    }
    if (!candidate.direction) {
      if (candidate.wrongDirection.empty())
        refuse(candidate, candidate.list,
               "the list is applied without a direction; write in or out behind its name");
      else
        refuse(candidate, candidate.wrongDirection,
               "the direction of a list is in or out; write one of the two");
      return false;
    }
    if (candidate.family == Family::mac && candidate.direction == Direction::out) {
      refuse(candidate, candidate.list,
             "the chip has no rows for MAC lists on the way out; apply the list inbound, on the ports where "
             "the frames "
             "come from");
      return false;
    }
    if (candidate.family == Family::mac && draft.name.kind() == InterfaceKind::vlan) {
      refuse(candidate, candidate.list,
             "a VLAN interface sees IP packets only; apply the MAC list to the Ethernet ports of the VLAN");
      return false;
    }
    return true;
  }

  // Answers the list when the line stands.
  const AccessList* resolve(const Draft& draft, const Candidate& candidate) {
    if (!placeAllows(draft, candidate))
      return nullptr;
    const auto at = index.find({candidate.family, candidate.list});
    if (at == index.end()) {
      refuseUndefined(candidate);
      return nullptr;
    }
    const AccessList* list = at->second;
    if (list->hasErrors && keepGoing)
      diagnostics.warn(candidate.line, candidate.column,
                       quotedWord(candidate.list) +
                           ": the list has errors and is not loaded; what the interface had in "
                           "its place stays",
                       candidate.list);
    return list->hasErrors ? nullptr : list;
  }

  void apply(const Draft& draft, Interface& interface) {
    for (size_t i = 0; i < draft.candidates.size(); ++i) {
      const Candidate& candidate = draft.candidates[i];
      const Binding binding{candidate.list,
                            candidate.family,
                            candidate.direction.value_or(Direction::in),
                            {diagnostics.file(), candidate.line, candidate.column}};
      const AccessList* list = resolve(draft, candidate);
      if (list == nullptr || isSecond(draft, i)) {
        if (candidate.direction)
          interface.refusedBindings.push_back(binding);
        continue;
      }
      if (list->rules.empty()) {
        diagnostics.warn(candidate.line, candidate.column,
                         quotedWord(candidate.list) +
                             ": the list has no entries, so that it is no list and everything is "
                             "permitted; give it an entry, or take the line out",
                         candidate.list);
        continue;
      }
      interface.bindings.push_back(binding);
    }
  }

  // One list of a family in each direction; which one of several is meant, nobody can tell.
  bool isSecond(const Draft& draft, size_t position) {
    const Candidate& candidate = draft.candidates[position];
    const Candidate* first = nullptr;
    bool alone = true;
    for (size_t i = 0; i < draft.candidates.size(); ++i) {
      const Candidate& other = draft.candidates[i];
      if (other.family != candidate.family || other.direction != candidate.direction)
        continue;
      first = first == nullptr ? &other : first;
      alone = alone && i == position;
    }
    if (first != &candidate)
      refuse(candidate, candidate.list,
             "line " + std::to_string(first->line) + " applies the " + familyWord(candidate.family) +
                 " list " + quotedWord(first->list) +
                 " at this place already; keep one of the two, or write their entries into one list");
    return !alone;
  }
};

namespace {

std::string egressList(const Interface& interface, Family family) {
  for (const Binding& binding : interface.bindings)
    if (binding.family == family && binding.direction == Direction::out)
      return binding.list;
  return "";
}

std::string egressText(const Interface& interface, Family family) {
  const std::string list = egressList(interface, family);
  return interface.name + " has " + (list.empty() ? "none" : quotedWord(list));
}

void refuseEgress(Interface& interface, Family family) {
  for (const Binding& binding : interface.bindings)
    if (binding.family == family && binding.direction == Direction::out)
      interface.refusedBindings.push_back(binding);
  std::erase_if(interface.bindings, [&](const Binding& binding) {
    return binding.family == family && binding.direction == Direction::out;
  });
}

} // namespace

void refuseUnequalMembers(Diagnostics& diagnostics, std::vector<Interface>& interfaces) {
  std::map<std::pair<uint32_t, uint8_t>, std::vector<Interface*>> channels;
  for (Interface& interface : interfaces)
    if (interface.kind == InterfaceKind::ethernet && interface.channelGroup)
      channels[{*interface.channelGroup, interface.chip}].push_back(&interface);
  for (const auto& entry : channels) {
    const uint32_t channel = entry.first.first;
    const std::vector<Interface*>& members = entry.second;
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      const auto other = std::find_if(members.begin(), members.end(), [&](const Interface* member) {
        return egressList(*member, family) != egressList(*members.front(), family);
      });
      if (other == members.end())
        continue;
      diagnostics.error((*other)->loc.line, (*other)->loc.column,
                        "the ports of Port-Channel" + std::to_string(channel) +
                            " share one entry of the chip and must have the same egress " +
                            familyWord(family) + " list: " + egressText(*members.front(), family) + ", " +
                            egressText(**other, family) + "; apply the list to Port-Channel" +
                            std::to_string(channel));
      for (Interface* const member : members)
        refuseEgress(*member, family);
    }
  }
}

void InterfaceTable::build(const ListTable& lists, bool keepGoing, Config& config) {
  ListIndex index;
  for (const AccessList& list : config.lists)
    index.emplace(ListKey{list.family, list.name}, &list);
  Resolver resolver{lists, index, *diagnostics_, keepGoing};
  spreadPortChannels();
  config.interfaces.reserve(drafts_.size());
  for (const Draft& draft : drafts_) {
    warnOfName(draft);
    Interface interface = made(draft);
    if (interface.kind != InterfaceKind::portChannel)
      resolver.apply(draft, interface);
    config.interfaces.push_back(std::move(interface));
  }
  refuseUnequalMembers(*diagnostics_, config.interfaces);
  namePorts(config.interfaces);
}

} // namespace agent
