#include "agent/config/OpenConfigInterfaces.h"

#include <algorithm>

namespace agent::openconfig {

namespace {

// More than any chassis has; bounds what a hostile file can make of members.
constexpr size_t maxInterfaces = 16384;
constexpr size_t maxCandidates = 32;

constexpr const char* tooMany =
    "the interface has too many sets already; apply one of a type in each direction";

constexpr const char* aclPath = "acl/interfaces";

} // namespace

InterfaceReader::Draft* InterfaceReader::draftOf(const std::string& name, const JsonValue& value,
                                                 const Place& place, Problems& problems) {
  auto parsed = InterfaceName::fromText(name);
  if (!parsed)
    parsed = InterfaceName::unreadable(name, "a name starts with the kind of the interface, like Ethernet1");
  const auto [at, isNew] = index_.try_emplace(parsed->identity(), drafts_.size());
  if (!isNew)
    return &drafts_[at->second];
  if (drafts_.size() == maxInterfaces) {
    index_.erase(at);
    problems.refuse(value, place,
                    "the document has more than " + std::to_string(maxInterfaces) +
                        " interfaces; no system has as many");
    return nullptr;
  }
  if (parsed->isImpossibleVlan())
    problems.refuse(value, place, quotedWord(name) + ": VLANs are numbered from 1 to 4094");
  drafts_.emplace_back(std::move(*parsed)).value = &value;
  return &drafts_.back();
}

void InterfaceReader::readAcl(const JsonValue& value) {
  Problems problems(lines_);
  const Place above(aclPath);
  std::string id;
  {
    Problems ignored(lines_);
    const Place unnamed(above, "interface");
    Container keys(value, unnamed, ignored);
    const Member* const leaf = keys.take("id");
    if (leaf != nullptr && leaf->value->is(JsonKind::string))
      id = leaf->value->text;
  }
  const Place place(above, id.empty() ? "interface" : listSegment("interface", {{"id", id}}));
  Container interface(value, place, problems);
  interface.take("id");
  const auto name = nameOf(interface, id, problems);
  std::vector<Candidate> candidates;
  readSets(interface, "ingress-acl-sets", Direction::in, candidates, problems);
  readSets(interface, "egress-acl-sets", Direction::out, candidates, problems);
  if (interface.isObject())
    interface.refuseRest(
        "this is not known here, and without it the sets may judge other packets; leave it out");
  Draft* const draft = name ? draftOf(*name, value, place, problems) : nullptr;
  if (draft != nullptr)
    for (Candidate& candidate : candidates) {
      candidate.refused = problems.errors() != 0;
      if (draft->candidates.size() < maxCandidates)
        draft->candidates.push_back(std::move(candidate));
      else
        problems.refuse(*candidate.value, place, tooMany);
    }
  diagnostics_.addAll(problems.takeAll());
}

// The interface of the system that interface-ref names; without one, the id is its name.
std::optional<std::string> InterfaceReader::nameOf(Container& interface, const std::string& id,
                                                   Problems& problems) {
  const Member* const reference = interface.take("interface-ref");
  const Member* leaf = nullptr;
  if (reference != nullptr) {
    Container container(*reference->value, reference->place, problems);
    leaf = container.take("interface");
    const Member* const subinterface = container.take("subinterface");
    if (container.isObject())
      container.refuseRest("only interface and subinterface say where sets apply; leave this out");
    if (subinterface != nullptr && plainNumber(*subinterface->value, 0) != 0u)
      problems.refuse(
          *subinterface->value, subinterface->place,
          "the system has no subinterfaces but 0, which is the interface itself; apply the set to "
          "the interface, or to the VLAN interface of the packets that are meant");
    if (leaf != nullptr)
      return takeText(*leaf, "the name of an interface", problems);
  }
  if (!id.empty())
    return id;
  if (interface.isObject())
    problems.refuse(interface.value(), interface.place(),
                    "the interface has no id and no interface-ref, so that nobody can tell which one it is; "
                    "write \"id\" with its name");
  return std::nullopt;
}

void InterfaceReader::readSets(Container& interface, const char* container, Direction direction,
                               std::vector<Candidate>& candidates, Problems& problems) {
  const char* const list = direction == Direction::in ? "ingress-acl-set" : "egress-acl-set";
  const Member* const member = interface.take(container);
  for (const JsonValue* const value : listEntries(member, list, problems)) {
    const Place above(member->place, list);
    Container entry(*value, above, problems);
    entry.pass({"acl-entries"}); // counters of the entries at this interface
    const auto key = keyOf(entry, problems);
    if (entry.isObject())
      entry.refuseRest(
          "this is not known here, and without it the set may judge other packets; leave it out");
    if (!key)
      continue;
    Candidate candidate;
    candidate.set = *key;
    candidate.direction = direction;
    candidate.value = value;
    candidate.path = Place(member->place,
                           listSegment(list, {{"set-name", key->second}, {"type", setTypeName(key->first)}}))
                         .path();
    const auto same = [&candidate](const Candidate& other) {
      return other.set == candidate.set && other.direction == candidate.direction;
    };
    if (std::any_of(candidates.begin(), candidates.end(), same))
      continue; // twice is once
    if (candidates.size() == maxCandidates) {
      problems.refuse(*value, member->place, tooMany);
      return;
    }
    candidates.push_back(std::move(candidate));
  }
}

std::optional<SetKey> InterfaceReader::keyOf(Container& entry, Problems& problems) {
  if (!entry.isObject())
    return std::nullopt;
  const Member* const name = entry.take("set-name");
  const Member* const type = entry.take("type");
  if (name == nullptr || type == nullptr) {
    problems.refuse(entry.value(), entry.place(),
                    std::string("the ") + (name == nullptr ? "set-name" : "type") +
                        " is missing, so that nobody can tell which set is meant; write it");
    return std::nullopt;
  }
  const auto text = takeText(*name, "the name of a set", problems);
  const auto setType = setTypeFromName(type->value->text);
  if (!setType)
    problems.refuse(*type->value, type->place,
                    describe(*type->value) +
                        " is no type of a set; write ACL_IPV4, ACL_IPV6, ACL_L2 or ACL_MIXED");
  return text && setType ? std::optional(SetKey{*setType, *text}) : std::nullopt;
}

std::set<SetKey> InterfaceReader::applied() const {
  std::set<SetKey> applied;
  for (const Draft& draft : drafts_)
    for (const Candidate& candidate : draft.candidates)
      applied.insert(candidate.set);
  return applied;
}

} // namespace agent::openconfig
