#include "agent/config/OpenConfigEntryText.h"

#include "agent/config/Addresses.h"
#include "agent/config/ConfigReader.h"
#include "agent/config/Names.h"
#include "agent/config/OpenConfigNames.h"
#include "agent/config/PortSets.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <set>

namespace agent::openconfig {

JsonValue objectOf(std::string name, std::vector<JsonValue> members) {
  return {JsonKind::object, 0, 0, std::move(name), {}, std::move(members)};
}
JsonValue arrayOf(std::string name, std::vector<JsonValue> elements) {
  return {JsonKind::array, 0, 0, std::move(name), {}, std::move(elements)};
}
JsonValue textOf(std::string name, std::string text) {
  return {JsonKind::string, 0, 0, std::move(name), std::move(text), {}};
}
JsonValue numberOf(std::string name, uint64_t number) {
  return {JsonKind::number, 0, 0, std::move(name), std::to_string(number), {}};
}

namespace {

std::string prefixText(const V4Match& match) {
  return v4Text(match.address) + "/" + std::to_string(*prefixLengthOf(match.wildcard));
}
std::string prefixText(const V6Match& match) {
  return v6Text(match.address) + "/" + std::to_string(match.prefixLength);
}
bool isAny(const V4Match& match) {
  return match.wildcard == 0xFFFFFFFF;
}
bool isAny(const V6Match& match) {
  return match.prefixLength == 0;
}

std::string macColons(const MacAddress& address) {
  std::array<char, 20> text{};
  std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", address[0], address[1], address[2],
                address[3], address[4], address[5]);
  return text.data();
}

std::string identity(const char* module, const char* name) {
  return std::string(module) + ":" + name;
}

// A port or a range as a leaf has it.
JsonValue portLeaf(std::string name, const PortRange& range) {
  return range.low == range.high
             ? numberOf(std::move(name), range.low)
             : textOf(std::move(name), std::to_string(range.low) + ".." + std::to_string(range.high));
}

// The content of a container as the models have it.
JsonValue container(std::string name, std::vector<JsonValue> leaves) {
  return objectOf(std::move(name), {objectOf("config", std::move(leaves))});
}

// Alternatives of one service: what they compare but for the addresses.
struct Service {
  Criteria base;
  std::vector<std::pair<size_t, size_t>> pairs; // positions among the addresses
};

// Different values in the order in which they came.
template <typename Match>
class Positions {
public:
  size_t of(const Match& match) {
    const auto [at, isNew] = index_.try_emplace(keyOf(match), all_.size());
    if (isNew)
      all_.push_back(match);
    return at->second;
  }
  const std::vector<Match>& all() const { return all_; }

private:
  static std::string keyOf(const V4Match& match) {
    return std::to_string(match.address) + "/" + std::to_string(match.wildcard);
  }
  static std::string keyOf(const V6Match& match) { return prefixText(match); }

  std::vector<Match> all_;
  std::map<std::string, size_t> index_;
};

template <typename Match>
std::vector<Match> chosen(const std::vector<Match>& all, const std::set<size_t>& positions) {
  std::vector<Match> result;
  result.reserve(positions.size());
  for (const size_t position : positions)
    result.push_back(all[position]);
  return result;
}

// Cuts what a rule matches into drafts.
class Cutter {
public:
  explicit Cutter(Family family) : v6_(family == Family::ipv6) {}

  std::vector<EntryDraft> cut(const Rule& rule) {
    for (const Criteria& criteria : rule.alternatives)
      add(criteria);
    for (const Service& service : services_)
      cut(service);
    merge(&Criteria::dstPorts);
    merge(&Criteria::srcPorts);
    return std::move(drafts_);
  }

private:
  void add(const Criteria& criteria);
  void cut(const Service& service);
  void merge(PortSet Criteria::*ports);
  void addDraft(const Criteria& base, const std::set<size_t>& sources, const std::set<size_t>& destinations);

  bool v6_;
  Positions<V4Match> v4_;
  Positions<V6Match> v6Addresses_;
  std::vector<Service> services_;
  std::map<std::string, size_t> serviceIndex_;
  std::vector<EntryDraft> drafts_;
};

void Cutter::add(const Criteria& criteria) {
  Criteria base = criteria;
  base.srcV4 = base.dstV4 = V4Match{};
  base.srcV6 = base.dstV6 = V6Match{};
  const auto [at, isNew] =
      serviceIndex_.try_emplace(agent::describe(base, v6_ ? Family::ipv6 : Family::ipv4), services_.size());
  if (isNew)
    services_.push_back({base, {}});
  services_[at->second].pairs.emplace_back(v6_ ? v6Addresses_.of(criteria.srcV6) : v4_.of(criteria.srcV4),
                                           v6_ ? v6Addresses_.of(criteria.dstV6) : v4_.of(criteria.dstV4));
}

// Sources with the same destinations go together.
void Cutter::cut(const Service& service) {
  std::map<size_t, std::set<size_t>> destinations;
  for (const auto& [source, destination] : service.pairs)
    destinations[source].insert(destination);
  std::map<std::set<size_t>, std::set<size_t>> sources;
  for (const auto& [source, all] : destinations)
    sources[all].insert(source);
  for (const auto& [all, from] : sources)
    addDraft(service.base, from, all);
}

void Cutter::addDraft(const Criteria& base, const std::set<size_t>& sources,
                      const std::set<size_t>& destinations) {
  EntryDraft& draft = drafts_.emplace_back();
  draft.base = base;
  if (v6_) {
    draft.v6Sources = chosen(v6Addresses_.all(), sources);
    draft.v6Destinations = chosen(v6Addresses_.all(), destinations);
  } else {
    draft.v4Sources = chosen(v4_.all(), sources);
    draft.v4Destinations = chosen(v4_.all(), destinations);
  }
}

// Drafts that differ in these ports alone become one with the ports of all.
void Cutter::merge(PortSet Criteria::*ports) {
  std::vector<EntryDraft> merged;
  std::map<std::string, size_t> index;
  for (EntryDraft& draft : drafts_) {
    Criteria base = draft.base;
    base.*ports = anyPort();
    std::string key = agent::describe(base, v6_ ? Family::ipv6 : Family::ipv4);
    for (const auto* const side : {&draft.v4Sources, &draft.v4Destinations}) {
      key += '|';
      for (const V4Match& match : *side)
        key += ' ' + std::to_string(match.address) + '/' + std::to_string(match.wildcard);
    }
    for (const auto* const side : {&draft.v6Sources, &draft.v6Destinations}) {
      key += '|';
      for (const V6Match& match : *side)
        key += ' ' + prefixText(match);
    }
    const auto [at, isNew] = index.try_emplace(key, merged.size());
    if (isNew)
      merged.push_back(std::move(draft));
    else
      merged[at->second].base.*ports = unionOf(merged[at->second].base.*ports, draft.base.*ports);
  }
  drafts_ = std::move(merged);
}

} // namespace

std::vector<EntryDraft> entriesOf(const Rule& rule, Family family) {
  if (family != Family::mac)
    return Cutter(family).cut(rule);
  std::vector<EntryDraft> drafts;
  std::set<std::string> seen;
  for (const Criteria& criteria : rule.alternatives)
    if (seen.insert(agent::describe(criteria, family)).second) {
      drafts.emplace_back();
      drafts.back().base = criteria;
    }
  return drafts;
}

std::vector<V4Match> prefixesOf(const V4Match& match) {
  const unsigned tail = static_cast<unsigned>(std::countr_one(match.wildcard));
  const uint32_t low = tail == 32 ? 0xFFFFFFFF : (uint32_t{1} << tail) - 1;
  const uint32_t scattered = match.wildcard & ~low;
  if (size_t{1} << std::popcount(scattered) > maxSetPrefixes)
    return {};
  std::vector<V4Match> prefixes;
  uint32_t bits = 0;
  do {
    prefixes.push_back({match.address | bits, low});
    bits = (bits - scattered) & scattered; // the next subset of the scattered bits
  } while (bits != 0);
  return prefixes;
}

std::string WrittenSets::nameOf(size_t kind, const std::vector<JsonValue>& values) {
  std::string content;
  for (const JsonValue& value : values)
    content += value.text + " ";
  constexpr std::array names = {"prefixes-v4-", "prefixes-v6-", "ports-"};
  const auto [at, isNew] =
      names_[kind].try_emplace(content, names[kind] + std::to_string(sets_[kind].size() + 1));
  if (isNew)
    sets_[kind].push_back({at->second, values});
  return at->second;
}

std::string WrittenSets::prefixes(bool v6, const std::vector<std::string>& prefixes) {
  std::vector<JsonValue> values;
  values.reserve(prefixes.size());
  for (const std::string& prefix : prefixes)
    values.push_back(textOf({}, prefix));
  return nameOf(v6 ? 1 : 0, values);
}

std::string WrittenSets::ports(const PortSet& ports) {
  std::vector<JsonValue> values;
  for (const PortRange& range : ports)
    values.push_back(portLeaf({}, range));
  return nameOf(2, values);
}

std::vector<JsonValue> WrittenSets::written() const {
  struct Words {
    const char* container;
    const char* list;
    const char* leaf;
  };
  constexpr std::array words = {Words{"ipv4-prefix-sets", "ipv4-prefix-set", "prefix"},
                                Words{"ipv6-prefix-sets", "ipv6-prefix-set", "prefix"},
                                Words{"port-sets", "port-set", "port"}};
  std::vector<JsonValue> containers;
  for (size_t kind = 0; kind < words.size(); ++kind) {
    std::vector<JsonValue> list;
    for (const Set& set : sets_[kind])
      list.push_back(objectOf(
          {}, {textOf("name", set.name),
               objectOf("config", {textOf("name", set.name), arrayOf(words[kind].leaf, set.values)})}));
    if (!list.empty())
      containers.push_back(objectOf(words[kind].container, {arrayOf(words[kind].list, std::move(list))}));
  }
  return containers;
}

namespace {

// Writes what one entry matches.
class MatchWriter {
public:
  MatchWriter(const EntryDraft& draft, Family family, WrittenSets& sets, std::string& why)
      : draft_(draft), base_(draft.base), v6_(family == Family::ipv6), sets_(sets), why_(why) {}

  std::vector<JsonValue> l2();
  std::vector<JsonValue> ip();

private:
  void lose(const char* why) {
    if (why_.empty())
      why_ = why;
  }
  void mac(const std::string& side, const MacMatch& match, std::vector<JsonValue>& leaves);
  template <typename Match>
  size_t addresses(const std::string& side, const std::vector<Match>& matches,
                   std::vector<JsonValue>& leaves);
  void ports(const std::string& side, const PortSet& ports, std::vector<JsonValue>& leaves);
  JsonValue protocol() const;
  JsonValue icmp() const;
  std::vector<JsonValue> transport();

  const EntryDraft& draft_;
  const Criteria& base_;
  bool v6_;
  WrittenSets& sets_;
  std::string& why_;
};

void MatchWriter::mac(const std::string& side, const MacMatch& match, std::vector<JsonValue>& leaves) {
  if (match.wildcard == MacMatch{}.wildcard)
    return;
  leaves.push_back(textOf(side + "-mac", macColons(match.address)));
  if (match.wildcard == MacAddress{})
    return;
  MacAddress mask = match.wildcard;
  for (uint8_t& octet : mask)
    octet = static_cast<uint8_t>(~octet);
  leaves.push_back(textOf(side + "-mac-mask", macColons(mask)));
}

std::vector<JsonValue> MatchWriter::l2() {
  std::vector<JsonValue> leaves;
  mac("source", base_.srcMac, leaves);
  mac("destination", base_.dstMac, leaves);
  if (base_.etherType && *base_.etherType < lowestEtherType)
    lose(
        "the models have EtherTypes from 1536 only, because smaller numbers are lengths of frames; leave the "
        "line out");
  else if (base_.etherType) {
    const char* const name = etherTypeIdentity(*base_.etherType);
    leaves.push_back(name == nullptr ? numberOf("ethertype", *base_.etherType)
                                     : textOf("ethertype", identity("openconfig-packet-match-types", name)));
  }
  if (base_.vlan)
    lose("the models have no leaf for the VLAN of a frame; apply a list without it to the ports of the VLAN");
  if (leaves.empty())
    return {};
  return {container("l2", std::move(leaves))};
}

// Answers the number of prefixes that the side becomes.
template <typename Match>
size_t MatchWriter::addresses(const std::string& side, const std::vector<Match>& matches,
                              std::vector<JsonValue>& leaves) {
  std::vector<std::string> prefixes;
  std::set<std::string> seen;
  for (const Match& match : matches) {
    if (isAny(match))
      return 1;
    std::vector<Match> parts{match};
    if constexpr (std::is_same_v<Match, V4Match>)
      parts = prefixesOf(match);
    if (parts.empty() || prefixes.size() + parts.size() > maxSetPrefixes) {
      lose("the addresses stand for more than 4096 prefixes, because the bits of their wildcards are "
           "scattered; "
           "write narrower ones, or prefixes");
      return 1;
    }
    for (const Match& part : parts)
      if (seen.insert(prefixText(part)).second)
        prefixes.push_back(prefixText(part));
  }
  if (prefixes.size() == 1)
    leaves.push_back(textOf(side + "-address", prefixes.front()));
  else
    leaves.push_back(textOf(side + "-address-prefix-set", sets_.prefixes(v6_, prefixes)));
  return prefixes.size();
}

JsonValue MatchWriter::protocol() const {
  // IP_ICMP is the protocol of IPv4 alone.
  const char* const name = v6_ && base_.protocol == 1 ? nullptr : protocolIdentity(*base_.protocol);
  return name == nullptr ? numberOf("protocol", *base_.protocol)
                         : textOf("protocol", identity("openconfig-packet-match-types", name));
}

JsonValue MatchWriter::icmp() const {
  std::vector<JsonValue> leaves;
  const char* const name = icmpTypeIdentity(*base_.icmpType, v6_);
  leaves.push_back(
      name == nullptr
          ? numberOf("type", *base_.icmpType)
          : textOf("type", identity(v6_ ? "openconfig-icmpv6-types" : "openconfig-icmpv4-types", name)));
  if (base_.icmpCode)
    leaves.push_back(numberOf("code", *base_.icmpCode));
  return container(v6_ ? "icmpv6" : "icmpv4", std::move(leaves));
}

void MatchWriter::ports(const std::string& side, const PortSet& ports, std::vector<JsonValue>& leaves) {
  if (isAnyPort(ports))
    return;
  if (ports.empty())
    lose("the line matches no port, and the models have no words for nothing; leave the line out");
  else if (!base_.protocol || portProtocolOf(*base_.protocol) == 0)
    lose("the line compares ports and does not say of which protocol; write a line for TCP and one for UDP");
  else if (ports.size() == 1)
    leaves.push_back(portLeaf(side + "-port", ports.front()));
  else
    leaves.push_back(textOf(side + "-port-set", sets_.ports(ports)));
}

std::vector<JsonValue> MatchWriter::transport() {
  std::vector<JsonValue> leaves;
  ports("source", base_.srcPorts, leaves);
  ports("destination", base_.dstPorts, leaves);
  if (base_.established || base_.fragments) {
    leaves.push_back(textOf("detail-mode", "BUILTIN"));
    leaves.push_back(textOf("builtin-detail", base_.established ? "TCP_ESTABLISHED" : "FRAGMENT"));
  }
  if (leaves.empty())
    return {};
  return {container("transport", std::move(leaves))};
}

std::vector<JsonValue> MatchWriter::ip() {
  std::vector<JsonValue> leaves;
  const size_t sources =
      v6_ ? addresses("source", draft_.v6Sources, leaves) : addresses("source", draft_.v4Sources, leaves);
  const size_t destinations = v6_ ? addresses("destination", draft_.v6Destinations, leaves)
                                  : addresses("destination", draft_.v4Destinations, leaves);
  if (uint64_t{sources} * destinations > maxLineAlternatives)
    lose("the addresses stand for more combinations of prefixes than there are rows, because the bits of "
         "their "
         "wildcards are scattered; write narrower ones, or prefixes");
  if (base_.protocol)
    leaves.push_back(protocol());
  if (base_.ttl)
    leaves.push_back(numberOf("hop-limit", *base_.ttl));
  std::vector<JsonValue> match;
  if (!leaves.empty())
    match.push_back(container(v6_ ? "ipv6" : "ipv4", std::move(leaves)));
  if (base_.icmpType)
    match.front().children.push_back(icmp());
  for (JsonValue& each : transport())
    match.push_back(std::move(each));
  return match;
}

} // namespace

std::vector<JsonValue> matchOf(const EntryDraft& draft, Family family, WrittenSets& sets, std::string& why) {
  MatchWriter writer(draft, family, sets, why);
  return family == Family::mac ? writer.l2() : writer.ip();
}

} // namespace agent::openconfig
