#include "agent/config/ConfigReader.h"

#include "agent/config/Addresses.h"
#include "agent/config/Names.h"
#include "agent/config/PortSets.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <unordered_set>

namespace agent {

namespace {

std::string hexText(uint32_t value) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%04X", value);
  return text.data();
}

std::string addressText(const V4Match& match) {
  if (match.wildcard == 0xFFFFFFFF)
    return "any";
  if (match.wildcard == 0)
    return "host " + v4Text(match.address);
  return v4Text(match.address) + " " + v4Text(match.wildcard);
}

std::string addressText(const V6Match& match) {
  if (match.prefixLength == 0)
    return "any";
  if (match.prefixLength == 128)
    return "host " + v6Text(match.address);
  return v6Text(match.address) + "/" + std::to_string(match.prefixLength);
}

std::string addressText(const MacMatch& match) {
  if (match.wildcard == MacMatch{}.wildcard)
    return "any";
  if (match.wildcard == MacAddress{})
    return "host " + macText(match.address);
  return macText(match.address) + " " + macText(match.wildcard);
}

// The ports one by one, each with a blank before it; nothing when there are too many to list.
std::string listedPorts(const PortSet& ports) {
  constexpr uint32_t mostListed = 32;
  uint32_t left = mostListed;
  std::string text;
  for (const PortRange& range : ports)
    for (uint32_t port = range.low; port <= range.high; ++port) {
      if (left-- == 0)
        return {};
      text += ' ';
      text += std::to_string(port);
    }
  return text;
}

// An expression for the ports with a blank before it; empty for any. A set that no single expression says is
// written in braces, which is no configuration text.
std::string portText(const PortSet& ports) {
  if (isAnyPort(ports))
    return {};
  if (ports.empty())
    return " lt 0";
  if (ports.size() == 1 && ports[0].low != ports[0].high)
    return " range " + std::to_string(ports[0].low) + " " + std::to_string(ports[0].high);
  if (const std::string listed = listedPorts(ports); !listed.empty())
    return " eq" + listed;
  if (const std::string listed = listedPorts(complementOf(ports)); !listed.empty())
    return " neq" + listed;
  std::string text = " {";
  for (const PortRange& range : ports) {
    if (text.size() > 2)
      text += ',';
    text.append(std::to_string(range.low)).append("-").append(std::to_string(range.high));
  }
  return text + "}";
}

bool needsGroup(const PortSet& ports) {
  return portText(ports).starts_with(" {");
}

std::string protocolText(const Criteria& criteria, Family family) {
  if (!criteria.protocol)
    return family == Family::ipv6 ? "ipv6" : "ip";
  switch (*criteria.protocol) {
  case 6:
    return "tcp";
  case 17:
    return "udp";
  case 132:
    return "sctp";
  case 1:
    return family == Family::ipv4 ? "icmp" : "1";
  case 58:
    return family == Family::ipv6 ? "icmp" : "58";
  default:
    return std::to_string(*criteria.protocol);
  }
}

std::string icmpText(const Criteria& criteria) {
  std::string text;
  if (criteria.icmpType)
    text += " " + std::to_string(*criteria.icmpType);
  if (criteria.icmpCode)
    text += " " + std::to_string(*criteria.icmpCode);
  return text;
}

std::string optionText(const Criteria& criteria) {
  std::string text;
  if (criteria.established)
    text += " established";
  if (criteria.fragments)
    text += " fragments";
  if (criteria.ttl)
    text += " ttl eq " + std::to_string(*criteria.ttl);
  return text;
}

std::string describeMac(const Criteria& criteria) {
  std::string text = addressText(criteria.srcMac) + " " + addressText(criteria.dstMac);
  if (criteria.etherType)
    text += " " + hexText(*criteria.etherType);
  if (criteria.vlan)
    text += " vlan " + std::to_string(*criteria.vlan);
  return text;
}

std::string sourceText(const Criteria& criteria, Family family) {
  return family == Family::ipv6 ? addressText(criteria.srcV6) : addressText(criteria.srcV4);
}

std::string destinationText(const Criteria& criteria, Family family) {
  return family == Family::ipv6 ? addressText(criteria.dstV6) : addressText(criteria.dstV4);
}

// The member of a service group: protocol, ports, ICMP type.
std::string serviceText(const Criteria& criteria, Family family) {
  std::string text = protocolText(criteria, family);
  if (!isAnyPort(criteria.srcPorts))
    text += " source" + portText(criteria.srcPorts);
  return text + portText(criteria.dstPorts) + icmpText(criteria);
}

// Members that together say what the service says: one, unless no single expression has its ports.
std::vector<std::string> serviceMembers(const Criteria& criteria, Family family) {
  const auto pieces = [](const PortSet& ports) {
    std::vector<PortSet> result;
    if (!needsGroup(ports))
      result.push_back(ports);
    else
      for (const PortRange& range : ports)
        result.push_back({range});
    return result;
  };
  std::vector<std::string> members;
  for (const PortSet& src : pieces(criteria.srcPorts))
    for (const PortSet& dst : pieces(criteria.dstPorts)) {
      Criteria one = criteria;
      one.srcPorts = src;
      one.dstPorts = dst;
      members.push_back(serviceText(one, family));
    }
  return members;
}

// Different texts in the order in which they came.
class Texts {
public:
  bool add(const std::string& text) {
    const bool isNew = seen_.insert(text).second;
    if (isNew)
      all_.push_back(text);
    return isNew;
  }
  const std::vector<std::string>& all() const { return all_; }
  size_t size() const { return all_.size(); }

private:
  std::vector<std::string> all_;
  std::unordered_set<std::string> seen_;
};

// Whether a line can say it: ports are compared only of protocols that have them.
bool hasWords(const Criteria& criteria) {
  const bool ports = !isAnyPort(criteria.srcPorts) || !isAnyPort(criteria.dstPorts);
  return !ports || (criteria.protocol && portProtocolOf(*criteria.protocol) != 0);
}

bool sameOptions(const Rule& rule) {
  return std::all_of(rule.alternatives.begin(), rule.alternatives.end(), [&rule](const Criteria& criteria) {
    return optionText(criteria) == optionText(rule.alternatives[0]);
  });
}

bool allDifferent(const Rule& rule, Family family) {
  Texts texts;
  return rule.alternatives.size() == 1 ||
         std::all_of(rule.alternatives.begin(), rule.alternatives.end(),
                     [&](const Criteria& criteria) { return texts.add(describe(criteria, family)); });
}

// Writes one configuration.
class TextWriter {
public:
  TextWriter(const Config& config, std::vector<std::string>* losses) : config_(config), losses_(losses) {}

  std::string write() {
    writeSystem();
    for (const AccessList& list : config_.lists)
      writeList(list);
    for (const Interface& interface : config_.interfaces)
      writeInterface(interface);
    return std::move(text_);
  }

private:
  using Strings = std::vector<std::string>;

  void line(const std::string& text) { text_ += text + "\n"; }
  void writeSystem();
  void writeList(const AccessList& list);
  std::string entryText(const AccessList& list, const Rule& rule);
  std::string addressesText(const Texts& texts, Family family);
  std::string portsText(const PortSet& ports);
  std::string ipText(const Rule& rule, Family family);
  std::string maskedText(const Rule& rule) const;
  std::string groupOf(const char* kind, const Strings& members);
  void writeInterface(const Interface& interface);
  void writeBindings(const Interface& interface);

  const Config& config_;
  std::vector<std::string>* losses_;
  std::string text_;
  size_t groups_ = 0;
};

void TextWriter::writeSystem() {
  for (const auto& [table, rows] : config_.tcamRows)
    line(std::string("hardware tcam ") + tableName(table) + " " + std::to_string(rows));
  for (const uint16_t vlan : config_.vlans)
    line("vlan " + std::to_string(vlan));
}

// Object groups stand before the list that uses them; a name that the file cannot have had keeps them apart.
std::string TextWriter::groupOf(const char* kind, const Strings& members) {
  const std::string name = "group-" + std::to_string(++groups_);
  line(std::string("object-group ") + kind + " " + name);
  for (const std::string& member : members)
    line(" " + member);
  return name;
}

std::string TextWriter::addressesText(const Texts& texts, Family family) {
  if (texts.size() == 1)
    return texts.all()[0];
  return "object-group " + groupOf(family == Family::ipv6 ? "ipv6 address" : "ip address", texts.all());
}

// The ports of one side of a line, with a blank before them.
std::string TextWriter::portsText(const PortSet& ports) {
  if (!needsGroup(ports))
    return portText(ports);
  Strings members;
  for (const PortRange& range : ports)
    members.push_back("range " + std::to_string(range.low) + " " + std::to_string(range.high));
  return " portgroup " + groupOf("ip port", members);
}

// A line whose alternatives are every combination of its services, sources and destinations.
std::string TextWriter::ipText(const Rule& rule, Family family) {
  Texts services;
  Texts sources;
  Texts destinations;
  Strings members;
  for (const Criteria& criteria : rule.alternatives) {
    if (services.add(serviceText(criteria, family)))
      for (std::string& member : serviceMembers(criteria, family))
        members.push_back(std::move(member));
    sources.add(sourceText(criteria, family));
    destinations.add(destinationText(criteria, family));
  }
  if (services.size() * sources.size() * destinations.size() != rule.alternatives.size() ||
      !sameOptions(rule) || !allDifferent(rule, family))
    return {};
  const Criteria& first = rule.alternatives[0];
  if (services.size() > 1)
    return "object-group " + groupOf("service", members) + " " + addressesText(sources, family) + " " +
           addressesText(destinations, family) + optionText(first);
  // One piece after the other, because the groups are written in the order of the calls.
  std::string text = protocolText(first, family) + " " + addressesText(sources, family);
  text += portsText(first.srcPorts);
  text += " " + addressesText(destinations, family);
  text += portsText(first.dstPorts);
  return text + icmpText(first) + optionText(first);
}

// A MAC line whose alternatives are the values of one masked EtherType.
std::string TextWriter::maskedText(const Rule& rule) const {
  uint32_t all = 0xFFFF;
  uint32_t some = 0;
  for (const Criteria& criteria : rule.alternatives) {
    all &= criteria.etherType.value_or(0);
    some |= criteria.etherType.value_or(0);
  }
  Criteria base = rule.alternatives[0];
  base.etherType.reset();
  for (Criteria each : rule.alternatives) {
    const bool hasType = each.etherType.has_value();
    each.etherType.reset();
    if (!hasType || each != base)
      return {};
  }
  if (rule.alternatives.size() != size_t{1} << std::popcount(some & ~all) || !allDifferent(rule, Family::mac))
    return {};
  std::string text = addressText(base.srcMac) + " " + addressText(base.dstMac) + " " + hexText(all) + " " +
                     hexText(some & ~all);
  return base.vlan ? text + " vlan " + std::to_string(*base.vlan) : text;
}

std::string TextWriter::entryText(const AccessList& list, const Rule& rule) {
  const Criteria& first = rule.alternatives[0];
  if (list.standard && list.family == Family::mac)
    return addressText(first.srcMac);
  if (list.standard) {
    Texts sources;
    for (const Criteria& criteria : rule.alternatives)
      sources.add(sourceText(criteria, list.family));
    return addressesText(sources, list.family);
  }
  if (list.family == Family::mac)
    return rule.alternatives.size() == 1 ? describeMac(first) : maskedText(rule);
  if (!std::all_of(rule.alternatives.begin(), rule.alternatives.end(), hasWords))
    return {};
  return ipText(rule, list.family);
}

void TextWriter::writeList(const AccessList& list) {
  // The groups of the entries go first, so that the entries stand together.
  std::string entries;
  for (const Rule& rule : list.rules) {
    std::string number(1, ' ');
    number.append(std::to_string(rule.sequence)).append(" ");
    const std::string text = rule.alternatives.empty() ? std::string{} : entryText(list, rule);
    if (!text.empty()) {
      entries.append(number).append(rule.permit ? "permit " : "deny ").append(text);
      entries.append(rule.log ? " log\n" : "\n");
      continue;
    }
    entries += number + "remark left out: " + rule.text + "\n";
    if (losses_ != nullptr)
      losses_->push_back(rule.loc.text() + ": " + rule.text);
  }
  if (list.hasErrors) {
    entries += " remark left out: the lines with errors\n";
    if (losses_ != nullptr)
      losses_->push_back(list.loc.text() + ": lines with errors of " + list.name);
  }
  const char* family = list.family == Family::mac ? "mac" : list.family == Family::ipv6 ? "ipv6" : "ip";
  line(std::string(family) + " access-list " + (list.standard ? "standard " : "extended ") + list.name);
  text_ += entries;
}

void TextWriter::writeBindings(const Interface& interface) {
  for (const Binding& binding : interface.bindings) {
    const char* words = binding.family == Family::mac    ? " mac access-group "
                        : binding.family == Family::ipv6 ? " ipv6 traffic-filter "
                                                         : " ip access-group ";
    line(words + binding.list + (binding.direction == Direction::in ? " in" : " out"));
  }
}

void TextWriter::writeInterface(const Interface& interface) {
  if (interface.kind == InterfaceKind::unsupported)
    return; // nothing of it was read
  line("interface " + interface.name);
  if (interface.accessVlan)
    line(" switchport access vlan " + std::to_string(*interface.accessVlan));
  if (interface.trunk) {
    std::string ranges;
    for (const PortRange& range : interface.allowedVlans) {
      if (!ranges.empty())
        ranges += ',';
      ranges += std::to_string(range.low);
      if (range.high != range.low)
        ranges.append("-").append(std::to_string(range.high));
    }
    line(" switchport trunk allowed vlan " + (ranges.empty() ? "none" : ranges));
  }
  if (interface.channelGroup)
    line(" channel-group " + std::to_string(*interface.channelGroup) + " mode on");
  writeBindings(interface);
  if (interface.chip != 0 || (config_.numChips > 1 && interface.kind == InterfaceKind::ethernet))
    line("hardware chip " + std::to_string(interface.chip) + " interface " + interface.name);
}

} // namespace

std::string describe(const Criteria& criteria, Family family) {
  if (family == Family::mac)
    return describeMac(criteria);
  return protocolText(criteria, family) + " " + sourceText(criteria, family) + portText(criteria.srcPorts) +
         " " + destinationText(criteria, family) + portText(criteria.dstPorts) + icmpText(criteria) +
         optionText(criteria);
}

std::string toText(const Config& config, std::vector<std::string>* losses) {
  return TextWriter(config, losses).write();
}

} // namespace agent
