#include "agent/config/OpenConfigTree.h"

#include "agent/config/OpenConfigNames.h"

#include <algorithm>

namespace agent::openconfig {

std::string Place::path() const {
  return (above_ == nullptr ? std::string{} : above_->path()) + "/" + segment_;
}

std::string cleaned(std::string_view name) {
  const std::string quoted = quotedWord(name);
  return quoted.substr(1, quoted.size() - 2);
}

std::string listSegment(std::string_view list,
                        const std::vector<std::pair<std::string_view, std::string>>& keys) {
  std::string text(list);
  for (const auto& [key, value] : keys)
    text.append("[").append(key).append("=").append(cleaned(value)).append("]");
  return text;
}

bool Problems::refuse(const JsonValue& value, const Place& place, const std::string& why) {
  add(Severity::error, value, place, why);
  return false;
}

void Problems::warn(const JsonValue& value, const Place& place, const std::string& why) {
  add(Severity::warning, value, place, why);
}

void Problems::add(Severity severity, const JsonValue& value, const Place& place, const std::string& why) {
  errors_ += severity == Severity::error ? 1 : 0;
  all_.push_back(
      {severity, lines_.line(value.offset), lines_.column(value.offset), place.path() + ": " + why});
}

std::vector<Finding> Problems::takeAll() {
  errors_ = 0;
  return std::move(all_);
}

Container::Container(const JsonValue& object, const Place& place, Problems& problems)
    : value_(&object), place_(place), configPlace_(place, "config"), problems_(problems) {
  if (!object.is(JsonKind::object)) {
    problems.refuse(object, place, describe(object) + " stands where an object is needed; write { and }");
    return;
  }
  for (const JsonValue& child : object.children) {
    const std::string_view name = withoutModule(child.name);
    if (name == "state" || child.name.starts_with('@'))
      continue;
    if (name != "config") {
      add(child, place);
    } else if (!child.is(JsonKind::object)) {
      problems.refuse(child, configPlace_,
                      describe(child) + " stands where an object is needed; write { and }");
    } else {
      for (const JsonValue& leaf : child.children)
        if (!leaf.name.starts_with('@'))
          add(leaf, configPlace_);
    }
  }
}

namespace {

bool sameValue(const JsonValue& a, const JsonValue& b) {
  return a.kind == b.kind && withoutModule(a.text) == withoutModule(b.text) &&
         std::equal(a.children.begin(), a.children.end(), b.children.begin(), b.children.end(), sameValue);
}

} // namespace

// One by one while there are few, as in every container of the models.
const Member* Container::find(std::string_view name) {
  constexpr size_t few = 32;
  if (members_.size() <= few) {
    const auto at = std::find_if(members_.begin(), members_.end(),
                                 [name](const Member& member) { return member.name == name; });
    return at == members_.end() ? nullptr : &*at;
  }
  if (index_.empty())
    for (const Member& member : members_)
      index_.emplace(member.name, &member);
  const auto at = index_.find(name);
  return at == index_.end() ? nullptr : at->second;
}

void Container::add(const JsonValue& child, const Place& above) {
  const std::string_view name = withoutModule(child.name);
  Member made{name, &child, Place(above, cleaned(child.name))};
  const Member* const other = find(name);
  if (other == nullptr) {
    members_.push_back(std::move(made));
    if (!index_.empty())
      index_.emplace(name, &members_.back());
  } else if (!sameValue(*other->value, child)) {
    problems_.refuse(child, made.place,
                     describe(child) + " stands here and " + describe(*other->value) + " at " +
                         other->place.path() + "; only one can be meant, make them equal");
  }
}

const Member* Container::take(std::string_view name) {
  known_.emplace_back(name);
  for (Member& member : members_)
    if (member.name == name) {
      member.taken = true;
      return &member;
    }
  return nullptr;
}

void Container::pass(std::initializer_list<std::string_view> names) {
  for (const std::string_view name : names)
    take(name);
}

void Container::refuseRest(const std::string& why) {
  for (const Member& member : members_) {
    if (member.taken)
      continue;
    NearestWord nearest(member.name);
    for (const std::string& known : known_)
      nearest.offer(known);
    problems_.refuse(*member.value, member.place, why + nearest.suggestion());
  }
}

bool saysSomething(const JsonValue& value) {
  if (!value.is(JsonKind::object) && !value.is(JsonKind::array))
    return true;
  return std::any_of(value.children.begin(), value.children.end(), [](const JsonValue& child) {
    return withoutModule(child.name) != "state" && !child.name.starts_with('@') && saysSomething(child);
  });
}

std::vector<const JsonValue*> listEntries(const Member* member, std::string_view list, Problems& problems) {
  if (member == nullptr)
    return {};
  std::vector<const JsonValue*> entries;
  Container container(*member->value, member->place, problems);
  const Member* const found = container.take(list);
  if (container.isObject())
    container.refuseRest("this is not known here; the list " + quotedWord(list) + " belongs here");
  if (found == nullptr)
    return entries;
  if (!found->value->is(JsonKind::array)) {
    problems.refuse(*found->value, found->place,
                    describe(*found->value) +
                        " stands where a list is needed; write [ and ] around its entries");
    return entries;
  }
  for (const JsonValue& entry : found->value->children)
    entries.push_back(&entry);
  return entries;
}

std::optional<std::string> takeText(const Member& leaf, const std::string& what, Problems& problems) {
  if (leaf.value->is(JsonKind::string) && !leaf.value->text.empty())
    return leaf.value->text;
  if (leaf.value->is(JsonKind::string))
    problems.refuse(*leaf.value, leaf.place, "the string is empty, and " + what + " is needed here");
  else
    problems.refuse(*leaf.value, leaf.place,
                    describe(*leaf.value) + " stands where " + what +
                        " is needed; write it in double quotes");
  return std::nullopt;
}

std::optional<uint32_t> plainNumber(const JsonValue& value, uint32_t max) {
  if (!value.is(JsonKind::number) && !value.is(JsonKind::string))
    return std::nullopt;
  return decimal(value.text, max);
}

std::optional<uint32_t> takeNumber(const Member& leaf, const std::string& what, uint32_t low, uint32_t high,
                                   Problems& problems) {
  const auto number = plainNumber(*leaf.value, high);
  if (number && *number >= low)
    return number;
  problems.refuse(*leaf.value, leaf.place,
                  describe(*leaf.value) + " stands where " + what + " is needed, a whole number from " +
                      std::to_string(low) + " to " + std::to_string(high));
  return std::nullopt;
}

} // namespace agent::openconfig
