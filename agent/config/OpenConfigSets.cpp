#include "agent/config/OpenConfigSets.h"

#include "agent/config/Addresses.h"
#include "agent/config/OpenConfigNames.h"
#include "agent/config/PortSets.h"

#include <array>

namespace agent::openconfig {

namespace {

struct Kind {
  const char* container;
  const char* list;
  const char* leaf;
  const char* what;
};
constexpr std::array kinds = {
    Kind{"ipv4-prefix-sets", "ipv4-prefix-set", "prefix", "an IPv4 prefix"},
    Kind{"ipv6-prefix-sets", "ipv6-prefix-set", "prefix", "an IPv6 prefix"},
    Kind{"port-sets", "port-set", "port", "a port or a range of ports"},
};

const Kind& kindOf(SetKind kind) {
  return kinds[static_cast<size_t>(kind)];
}

// The address and the length around the slash.
std::pair<std::string_view, std::optional<uint32_t>> prefixParts(std::string_view text, uint32_t longest) {
  const size_t slash = text.find('/');
  return {text.substr(0, slash),
          slash == std::string_view::npos ? std::nullopt : decimal(text.substr(slash + 1), longest)};
}

} // namespace

std::optional<V4Match> v4Prefix(std::string_view text) {
  const auto [address, length] = prefixParts(text, 32);
  const auto number = v4FromText(address);
  return number && length ? std::optional(v4Match(*number, v4Wildcard(*length))) : std::nullopt;
}

std::optional<V6Match> v6Prefix(std::string_view text) {
  const auto [address, length] = prefixParts(text, 128);
  const auto octets = v6FromText(address);
  return octets && length ? std::optional(v6Match(*octets, static_cast<uint8_t>(*length))) : std::nullopt;
}

std::optional<PortSet> takePorts(const JsonValue& value, const Place& place, Problems& problems) {
  if (const auto port = plainNumber(value, 65535))
    return portRange(*port, *port);
  if (value.is(JsonKind::string) && value.text == "ANY")
    return anyPort();
  const size_t dots = value.is(JsonKind::string) ? value.text.find("..") : std::string::npos;
  const auto low =
      dots == std::string::npos ? std::nullopt : decimal(std::string_view(value.text).substr(0, dots), 65535);
  const auto high = dots == std::string::npos ? std::nullopt
                                              : decimal(std::string_view(value.text).substr(dots + 2), 65535);
  if (!low || !high) {
    problems.refuse(value, place,
                    describe(value) +
                        " is no port; write a number from 0 to 65535, a range like \"100..200\" "
                        "or \"ANY\"");
    return std::nullopt;
  }
  if (*low > *high) {
    problems.refuse(value, place,
                    "the range " + quotedWord(value.text) + " runs backwards; write the lower port first");
    return std::nullopt;
  }
  return portRange(*low, *high);
}

void DefinedSets::read(const Member& definedSets, Problems& problems) {
  Container container(*definedSets.value, definedSets.place, problems);
  for (size_t i = 0; i < kinds.size(); ++i) {
    const Member* const sets = container.take(kinds[i].container);
    for (const JsonValue* const value : listEntries(sets, kinds[i].list, problems)) {
      Container entry(*value, sets->place, problems);
      const Member* const name = entry.take("name");
      if (name == nullptr || !name->value->is(JsonKind::string)) {
        problems.refuse(*value, sets->place, "a set without a name can be used by no entry; write \"name\"");
        continue;
      }
      const auto [at, isNew] =
          entries_.try_emplace({static_cast<SetKind>(i), name->value->text}, Entry{value, false, false, {}});
      at->second.ambiguous = at->second.ambiguous || !isNew;
    }
  }
}

const DefinedSet* DefinedSets::find(SetKind kind, const Member& leaf, Problems& problems) {
  const auto name = takeText(leaf, "the name of a set", problems);
  if (!name)
    return nullptr;
  const auto at = entries_.find({kind, *name});
  if (at == entries_.end()) {
    NearestWord nearest(*name);
    constexpr size_t mostOffered = 256;
    size_t offered = 0;
    for (auto each = entries_.lower_bound({kind, ""});
         each != entries_.end() && each->first.first == kind && offered < mostOffered; ++each, ++offered)
      nearest.offer(each->first.second);
    problems.refuse(*leaf.value, leaf.place,
                    std::string("/defined-sets/") + kindOf(kind).container + " of the document has no set " +
                        quotedWord(*name) + "; define it there, or write the values into the entry" +
                        nearest.suggestion());
    return nullptr;
  }
  Entry& entry = at->second;
  if (!entry.parsed)
    parse(kind, *name, entry, problems);
  if (entry.content.usable)
    return &entry.content;
  problems.refuse(*leaf.value, leaf.place,
                  "the set " + quotedWord(*name) +
                      " cannot be used, because something is wrong in it; mend it");
  return nullptr;
}

void DefinedSets::parse(SetKind kind, const std::string& name, Entry& entry, Problems& problems) {
  const Place above(std::string("defined-sets/") + kindOf(kind).container);
  const Place place(above, listSegment(kindOf(kind).list, {{"name", name}}));
  const size_t errors = problems.errors();
  entry.parsed = true;
  Container container(*entry.value, place, problems);
  container.pass({"name", "description"});
  const Member* const leaf = container.take(kindOf(kind).leaf);
  container.refuseRest(
      "this is not known here, and without it the set may mean something else; leave it out");
  if (entry.ambiguous)
    problems.refuse(*entry.value, place,
                    "another set has this name too, and only one can be meant; rename one");
  if (leaf == nullptr || !leaf->value->is(JsonKind::array) || leaf->value->children.empty())
    problems.refuse(*entry.value, place,
                    std::string("the set is empty, and what no packet meets cannot be compared; give it ") +
                        kindOf(kind).what + " in a list " + quotedWord(kindOf(kind).leaf));
  else
    for (const JsonValue& value : leaf->value->children) {
      if (kind == SetKind::ports) {
        if (const auto ports = takePorts(value, leaf->place, problems))
          entry.content.ports.append(*ports);
        continue;
      }
      const auto v4 = kind == SetKind::v4Prefixes ? v4Prefix(value.text) : std::nullopt;
      const auto v6 = kind == SetKind::v6Prefixes ? v6Prefix(value.text) : std::nullopt;
      if (v4)
        entry.content.v4.push_back(*v4);
      else if (v6)
        entry.content.v6.push_back(*v6);
      else
        problems.refuse(
            value, leaf->place,
            describe(value) + " is no prefix; write " + kindOf(kind).what +
                (kind == SetKind::v4Prefixes ? ", like \"10.0.0.0/8\"" : ", like \"2001:db8::/32\""));
    }
  entry.content.ports = normalized(std::move(entry.content.ports));
  entry.content.usable = problems.errors() == errors;
}

} // namespace agent::openconfig
