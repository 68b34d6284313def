#include "agent/config/OpenConfigLists.h"

#include "agent/config/ListDrafts.h"
#include "agent/config/OpenConfigEntry.h"

#include <algorithm>

namespace agent::openconfig {

std::vector<Family> familiesOf(SetType type) {
  switch (type) {
  case SetType::ipv4:
    return {Family::ipv4};
  case SetType::ipv6:
    return {Family::ipv6};
  case SetType::l2:
    return {Family::mac};
  default:
    return {Family::ipv4, Family::ipv6};
  }
}

void SetTable::offerNames(SetType type, NearestWord& nearest) const {
  // Only so many: a suggestion is not worth quadratic time in a file of nothing but mistakes.
  constexpr size_t mostOffered = 256;
  size_t offered = 0;
  for (auto at = index_.lower_bound({type, ""});
       at != index_.end() && at->first.first == type && offered < mostOffered; ++at, ++offered)
    nearest.offer(at->first.second);
}

// The place of a set is known only behind its keys, which are read again with everything else.
std::optional<SetKey> SetTable::keyOf(const JsonValue& set, Problems& problems) const {
  Problems ignored(lines_);
  const Place above(setsPath);
  const Place unnamed(above, "acl-set");
  Container keys(set, unnamed, ignored);
  const Member* const name = keys.take("name");
  const Member* const type = keys.take("type");
  const bool named = name != nullptr && name->value->is(JsonKind::string) && !name->value->text.empty();
  if (!named)
    problems.refuse(name == nullptr ? set : *name->value, unnamed,
                    "the set has no name, so that no interface can have it; write \"name\"");
  const bool printable = !named || std::none_of(name->value->text.begin(), name->value->text.end(),
                                                [](unsigned char c) { return c < ' ' || c == 0x7F; });
  if (!printable)
    problems.refuse(*name->value, unnamed,
                    describe(*name->value) +
                        ": a name with a control character cannot be shown; write another");
  const auto setType = type == nullptr ? std::nullopt : setTypeFromName(type->value->text);
  if (!setType)
    problems.refuse(
        type == nullptr ? set : *type->value, unnamed,
        (type == nullptr ? "the set has no type" : describe(*type->value) + " is no type of a set") +
            std::string("; write \"type\": ACL_IPV4, ACL_IPV6, ACL_L2 or ACL_MIXED"));
  return named && printable && setType ? std::optional(SetKey{*setType, name->value->text}) : std::nullopt;
}

void SetTable::read(const JsonValue& set) {
  Problems problems(lines_);
  const auto key = keyOf(set, problems);
  if (!key) {
    diagnostics_.addAll(problems.takeAll());
    return;
  }
  Draft draft;
  draft.key = *key;
  draft.value = &set;
  draft.place = std::make_unique<Place>(
      std::string(setsPath) + "/" +
      listSegment("acl-set", {{"name", key->second}, {"type", setTypeName(key->first)}}));
  draft.container = std::make_unique<Container>(set, *draft.place, problems);
  draft.container->pass({"name", "type", "description", "acl-entries"});
  draft.container->refuseRest("this is not known here, and without it the set may mean something else; leave "
                              "it out");
  if (key->second == reservedListName)
    problems.refuse(set, *draft.place, "this name means no list at all; give the set another name");
  const bool meetsOther = !checkFamilies(draft, problems);
  draft.findings = problems.takeAll();
  if (meetsOther) // which of the two an interface has, nobody could tell
    diagnostics_.addAll(std::move(draft.findings));
  else
    add(std::move(draft));
}

void SetTable::add(Draft draft) {
  const auto [at, isNew] = index_.try_emplace(draft.key, drafts_.size());
  if (isNew) {
    drafts_.push_back(std::move(draft));
    return;
  }
  bool hasErrors = false;
  report(draft, true, true, std::move(draft.findings), hasErrors);
  // Which of the two is meant, nobody can tell.
  Draft& first = drafts_[at->second];
  first.findings.push_back({Severity::error, lines_.line(first.value->offset),
                            lines_.column(first.value->offset),
                            first.place->path() + ": another set of this name and type stands further down; "
                                                  "keep one of the two"});
}

// A set and a mixed one of its name would become two lists of the same name and family.
bool SetTable::checkFamilies(const Draft& draft, Problems& problems) const {
  bool alone = true;
  for (const SetType other : {SetType::ipv4, SetType::ipv6, SetType::l2, SetType::mixed}) {
    const auto at = index_.find({other, draft.key.second});
    if (other == draft.key.first || at == index_.end())
      continue;
    const std::vector<Family> families = familiesOf(other);
    for (const Family family : familiesOf(draft.key.first))
      if (alone && std::find(families.begin(), families.end(), family) != families.end())
        alone =
            problems.refuse(*draft.value, *draft.place,
                            "line " + std::to_string(lines_.line(drafts_[at->second].value->offset)) +
                                " has a set of this name for the same packets already; rename one of them, "
                                "or write their entries into one set");
  }
  return alone;
}

SetTable::Entries SetTable::entriesOf(const Draft& draft, const Place& above, Problems& problems) {
  Entries entries;
  for (const JsonValue* const value :
       listEntries(draft.container->take("acl-entries"), "acl-entry", problems)) {
    Problems ignored(lines_);
    const Place unnamed(above, "acl-entry");
    Container keys(*value, unnamed, value->is(JsonKind::object) ? ignored : problems);
    if (!value->is(JsonKind::object))
      continue;
    const Member* const leaf = keys.take("sequence-id");
    const auto sequence = leaf == nullptr ? std::nullopt : plainNumber(*leaf->value, UINT32_MAX);
    if (!sequence || *sequence == 0) {
      problems.refuse(leaf == nullptr ? *value : *leaf->value, unnamed,
                      (leaf == nullptr
                           ? "the entry has no sequence-id, so that its place in the set is unknown"
                           : describe(*leaf->value) + " is no sequence-id") +
                          std::string("; write a number from 1 to 4294967295"));
      continue;
    }
    Entry entry{value, Place(above, listSegment("acl-entry", {{"sequence-id", std::to_string(*sequence)}}))};
    const auto [at, isNew] = entries.try_emplace(*sequence, std::move(entry));
    if (!isNew)
      problems.refuse(*leaf->value, at->second.place,
                      "line " + std::to_string(lines_.line(at->second.value->offset)) +
                          " has an entry of this sequence-id already; number one of them anew");
  }
  return entries;
}

// The two lists that a mixed set becomes say what it says only when both have entries.
void SetTable::checkMixed(const Draft& draft, const Entries& entries, Problems& problems) {
  bool v4 = entries.empty();
  bool v6 = entries.empty();
  for (const auto& [sequence, entry] : entries) {
    const EntryFamilies families = openconfig::familiesOf(*entry.value);
    v4 = v4 || families.v4;
    v6 = v6 || families.v6;
  }
  problems.warn(
      *draft.value, *draft.place,
      "a mixed set is read as an IPv4 list and an IPv6 list of this name, so that frames that carry "
      "neither pass; write a set of type ACL_L2 for those");
  if (!v4 || !v6)
    problems.refuse(*draft.value, *draft.place,
                    std::string("the set has no entry that could match ") + (v4 ? "IPv6" : "IPv4") +
                        " packets, so that it would drop them all, but a list without entries drops nothing; "
                        "write an entry for them, or make the type " +
                        (v4 ? "ACL_IPV4" : "ACL_IPV6"));
}

void SetTable::report(const Draft& draft, bool applied, bool structural, std::vector<Finding> findings,
                      bool& hasErrors) {
  for (Finding& finding : findings) {
    if (finding.severity == Severity::error && !applied && !structural && !diagnostics_.strict()) {
      finding.severity = Severity::warning;
      finding.message += " (no error, because the set is applied nowhere)";
      hasErrors = true;
    }
    hasErrors = hasErrors || finding.severity == Severity::error || diagnostics_.strict();
    diagnostics_.add(std::move(finding), draft.key.second);
  }
}

std::vector<Rule> SetTable::rulesOf(const Draft& draft, Family family, const Entries& entries,
                                    DefinedSets& definedSets, Problems& problems) {
  std::vector<Rule> rules;
  const EntryContext context{draft.key.first, family, definedSets, budget_};
  for (const auto& [sequence, entry] : entries) {
    if (draft.key.first == SetType::mixed) {
      // An entry of both is looked at once, where it is refused.
      const EntryFamilies families = openconfig::familiesOf(*entry.value);
      if (family == Family::ipv4 ? !families.v4 : !families.v6)
        continue;
    }
    Rule rule;
    rule.loc = {diagnostics_.file(), lines_.line(entry.value->offset), lines_.column(entry.value->offset)};
    rule.sequence = sequence;
    const size_t errors = problems.errors();
    parseEntry(*entry.value, entry.place, context, problems, rule);
    if (problems.errors() == errors)
      rules.push_back(std::move(rule));
  }
  return rules;
}

void SetTable::build(const std::set<SetKey>& applied, DefinedSets& definedSets,
                     std::vector<AccessList>& lists) {
  for (Draft& draft : drafts_) {
    const bool isApplied = applied.contains(draft.key);
    const Place above(*draft.place, "acl-entries");
    bool hasErrors = false;
    report(draft, isApplied, true, std::move(draft.findings), hasErrors);
    Problems problems(lines_);
    const Entries entries = entriesOf(draft, above, problems);
    if (draft.key.first == SetType::mixed)
      checkMixed(draft, entries, problems);
    const size_t first = lists.size();
    for (const Family family : familiesOf(draft.key.first)) {
      AccessList& list = lists.emplace_back();
      list.name = draft.key.second;
      list.family = family;
      list.loc = {diagnostics_.file(), lines_.line(draft.value->offset), lines_.column(draft.value->offset)};
      list.rules = rulesOf(draft, family, entries, definedSets, problems);
    }
    report(draft, isApplied, false, problems.takeAll(), hasErrors);
    for (size_t i = first; i < lists.size(); ++i)
      lists[i].hasErrors = hasErrors;
  }
}

} // namespace agent::openconfig
