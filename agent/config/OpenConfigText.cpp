#include "agent/config/OpenConfigText.h"

#include "agent/config/Lexer.h"
#include "agent/config/ListDrafts.h"
#include "agent/config/OpenConfigEntryText.h"
#include "agent/config/OpenConfigJson.h"
#include "agent/config/OpenConfigNames.h"

#include <algorithm>

namespace agent {

namespace {

using namespace openconfig;

SetType typeOf(Family family) {
  return family == Family::ipv4 ? SetType::ipv4 : family == Family::ipv6 ? SetType::ipv6 : SetType::l2;
}

std::string typeIdentity(Family family) {
  return std::string("openconfig-acl:") + setTypeName(typeOf(family));
}

// Appends a value as text; every string in it is UTF-8.
void print(const JsonValue& value, const std::string& indent, std::string& text) {
  const bool isObject = value.is(JsonKind::object);
  if (!isObject && !value.is(JsonKind::array)) {
    text += value.is(JsonKind::string) ? jsonString(value.text).value_or("\"\"") : value.text;
    return;
  }
  if (value.children.empty()) {
    text += isObject ? "{}" : "[]";
    return;
  }
  const std::string inner = indent + "  ";
  text += isObject ? "{\n" : "[\n";
  for (const JsonValue& child : value.children) {
    text += inner;
    if (isObject)
      text += jsonString(child.name).value_or("\"\"") + ": ";
    print(child, inner, text);
    text += &child == &value.children.back() ? "\n" : ",\n";
  }
  text += indent + (isObject ? "}" : "]");
}

class DocumentWriter {
public:
  DocumentWriter(const Config& config, std::vector<std::string>& losses, std::vector<std::string>& notes,
                 const OpenConfigOptions& options)
      : config_(config), losses_(losses), notes_(notes), options_(options) {}

  std::string write();

private:
  using Values = std::vector<JsonValue>;

  // `config`, and `state` with the same and more when that is asked for.
  void addConfig(Values& members, Values leaves, Values onlyState = {}) const;
  JsonValue setOf(const AccessList& list);
  Values entriesOfList(const AccessList& list);
  JsonValue entryOf(const AccessList& list, const Rule& rule, const EntryDraft& draft, uint32_t sequence,
                    std::optional<uint64_t> matched);
  bool numbersFit(const AccessList& list, const std::vector<std::vector<EntryDraft>>& drafts) const;
  void checkName(const std::string& name, const SourceLoc& loc);
  Values aclInterfaces();
  JsonValue bindingOf(const Binding& binding) const;
  Values ports();
  JsonValue portOf(const Interface& interface);
  Values vlanConfigOf(const Interface& interface);
  Values hardware() const;

  const Config& config_;
  std::vector<std::string>& losses_;
  std::vector<std::string>& notes_;
  const OpenConfigOptions& options_;
  WrittenSets sets_;
};

void DocumentWriter::addConfig(Values& members, Values leaves, Values onlyState) const {
  if (options_.state) {
    Values state = leaves;
    state.insert(state.end(), onlyState.begin(), onlyState.end());
    members.push_back(objectOf("config", std::move(leaves)));
    members.push_back(objectOf("state", std::move(state)));
  } else {
    members.push_back(objectOf("config", std::move(leaves)));
  }
}

void DocumentWriter::checkName(const std::string& name, const SourceLoc& loc) {
  if (!jsonString(name))
    losses_.push_back(loc.text() + ": the name " + quotedWord(name) +
                      " is no UTF-8, which JSON texts are; give the list another name");
}

std::string DocumentWriter::write() {
  Values sets;
  for (const AccessList& list : config_.lists)
    sets.push_back(setOf(list));
  Values acl;
  if (options_.state)
    acl.push_back(objectOf("state", {textOf("counter-capability", "openconfig-acl:AGGREGATE_ONLY")}));
  acl.push_back(objectOf("acl-sets", {arrayOf("acl-set", std::move(sets))}));
  if (Values interfaces = aclInterfaces(); !interfaces.empty())
    acl.push_back(objectOf("interfaces", {arrayOf("interface", std::move(interfaces))}));
  Values root;
  root.push_back(objectOf("openconfig-acl:acl", std::move(acl)));
  if (Values defined = sets_.written(); !defined.empty())
    root.push_back(objectOf("openconfig-defined-sets:defined-sets", std::move(defined)));
  if (Values all = ports(); !all.empty())
    root.push_back(objectOf("openconfig-interfaces:interfaces", {arrayOf("interface", std::move(all))}));
  Values vlans;
  for (const uint16_t vlan : config_.vlans)
    vlans.push_back(
        objectOf({}, {numberOf("vlan-id", vlan), objectOf("config", {numberOf("vlan-id", vlan)})}));
  if (!vlans.empty())
    root.push_back(objectOf(
        "openconfig-network-instance:network-instances",
        {arrayOf("network-instance",
                 {objectOf({}, {textOf("name", "default"), objectOf("config", {textOf("name", "default")}),
                                objectOf("vlans", {arrayOf("vlan", std::move(vlans))})})})}));
  if (Values own = hardware(); !own.empty())
    root.push_back(objectOf(hardwareMember, std::move(own)));
  std::string text;
  print(objectOf({}, std::move(root)), "", text);
  return text + "\n";
}

JsonValue DocumentWriter::setOf(const AccessList& list) {
  checkName(list.name, list.loc);
  if (list.hasErrors)
    losses_.push_back(list.loc.text() + ": the list " + quotedWord(list.name) +
                      " has lines with errors, which no document can say; mend or delete them");
  Values set{textOf("name", list.name), textOf("type", typeIdentity(list.family))};
  addConfig(set, {textOf("name", list.name), textOf("type", typeIdentity(list.family))});
  set.push_back(objectOf("acl-entries", {arrayOf("acl-entry", entriesOfList(list))}));
  return objectOf({}, std::move(set));
}

// Whether the entries of each line find numbers before those of the next one.
bool DocumentWriter::numbersFit(const AccessList& list,
                                const std::vector<std::vector<EntryDraft>>& drafts) const {
  for (size_t i = 0; i < list.rules.size(); ++i) {
    const uint64_t behind = i + 1 < list.rules.size() ? list.rules[i + 1].sequence : uint64_t{1} << 32;
    if (list.rules[i].sequence == 0 || list.rules[i].sequence + drafts[i].size() > behind)
      return false;
  }
  return true;
}

DocumentWriter::Values DocumentWriter::entriesOfList(const AccessList& list) {
  std::vector<std::vector<EntryDraft>> drafts;
  for (const Rule& rule : list.rules) {
    drafts.push_back(openconfig::entriesOf(rule, list.family));
    if (drafts.back().empty())
      losses_.push_back(rule.loc.text() + ": '" + rule.text +
                        "': the line matches nothing, and the models have no words for that; leave it out");
    if (drafts.back().size() > 1 && options_.matchedPackets)
      notes_.push_back(rule.loc.text() + ": '" + rule.text + "' stands in " +
                       std::to_string(drafts.back().size()) +
                       " entries, and the first of them has the packets of all");
  }
  const bool keep = numbersFit(list, drafts);
  if (!keep)
    notes_.push_back(list.loc.text() + ": the entries of " + quotedWord(list.name) +
                     " are numbered anew, because some of its lines become several entries");
  Values entries;
  uint32_t next = sequenceStep;
  for (size_t i = 0; i < list.rules.size(); ++i) {
    const auto matched = options_.matchedPackets ? options_.matchedPackets(list, i) : std::nullopt;
    for (size_t j = 0; j < drafts[i].size(); ++j) {
      const uint32_t sequence = keep ? list.rules[i].sequence + static_cast<uint32_t>(j) : next;
      next += sequenceStep;
      entries.push_back(
          entryOf(list, list.rules[i], drafts[i][j], sequence, j == 0 ? matched : std::nullopt));
    }
  }
  return entries;
}

JsonValue DocumentWriter::entryOf(const AccessList& list, const Rule& rule, const EntryDraft& draft,
                                  uint32_t sequence, std::optional<uint64_t> matched) {
  std::string why;
  Values entry{numberOf("sequence-id", sequence)};
  // 64-bit numbers are strings in this encoding (RFC 7951 section 6.1).
  Values counted;
  if (matched)
    counted.push_back(textOf("matched-packets", std::to_string(*matched)));
  addConfig(entry, {numberOf("sequence-id", sequence)}, std::move(counted));
  for (JsonValue& container : matchOf(draft, list.family, sets_, why))
    entry.push_back(std::move(container));
  Values actions;
  addConfig(actions,
            {textOf("forwarding-action", rule.permit ? "openconfig-acl:ACCEPT" : "openconfig-acl:DROP"),
             textOf("log-action", rule.log ? "openconfig-acl:LOG_SYSLOG" : "openconfig-acl:LOG_NONE")});
  entry.push_back(objectOf("actions", std::move(actions)));
  if (!why.empty())
    losses_.push_back(rule.loc.text() + ": '" + rule.text + "': " + why);
  return objectOf({}, std::move(entry));
}

JsonValue DocumentWriter::bindingOf(const Binding& binding) const {
  Values set{textOf("set-name", binding.list), textOf("type", typeIdentity(binding.family))};
  addConfig(set, {textOf("set-name", binding.list), textOf("type", typeIdentity(binding.family))});
  return objectOf({}, std::move(set));
}

DocumentWriter::Values DocumentWriter::aclInterfaces() {
  Values interfaces;
  for (const Interface& interface : config_.interfaces) {
    for (const Binding& refused : interface.refusedBindings)
      losses_.push_back(refused.loc.text() + ": the list " + quotedWord(refused.list) + " was refused at " +
                        interface.name + "; mend that first");
    Values in;
    Values out;
    for (const Binding& binding : interface.bindings)
      (binding.direction == Direction::in ? in : out).push_back(bindingOf(binding));
    if (in.empty() && out.empty())
      continue;
    Values members{textOf("id", interface.name)};
    addConfig(members, {textOf("id", interface.name)});
    members.push_back(objectOf("interface-ref", {objectOf("config", {textOf("interface", interface.name),
                                                                     numberOf("subinterface", 0)})}));
    if (!in.empty())
      members.push_back(objectOf("ingress-acl-sets", {arrayOf("ingress-acl-set", std::move(in))}));
    if (!out.empty())
      members.push_back(objectOf("egress-acl-sets", {arrayOf("egress-acl-set", std::move(out))}));
    interfaces.push_back(objectOf({}, std::move(members)));
  }
  return interfaces;
}

DocumentWriter::Values DocumentWriter::ports() {
  Values all;
  for (const Interface& interface : config_.interfaces)
    if (interface.kind != InterfaceKind::unsupported) // nothing of those was read
      all.push_back(portOf(interface));
  return all;
}

// The content of switched-vlan; empty for a port that carries every VLAN.
DocumentWriter::Values DocumentWriter::vlanConfigOf(const Interface& interface) {
  if (interface.accessVlan)
    return {textOf("interface-mode", "ACCESS"), numberOf("access-vlan", *interface.accessVlan)};
  if (!interface.trunk)
    return {};
  Values vlans;
  for (const PortRange& range : interface.allowedVlans)
    vlans.push_back(range.low == range.high
                        ? numberOf({}, range.low)
                        : textOf({}, std::to_string(range.low) + ".." + std::to_string(range.high)));
  if (vlans.empty())
    losses_.push_back(
        interface.loc.text() + ": the trunk " + interface.name +
        " carries no VLAN, and in the models a trunk without VLANs carries them all; give it one");
  return {textOf("interface-mode", "TRUNK"), arrayOf("trunk-vlans", std::move(vlans))};
}

JsonValue DocumentWriter::portOf(const Interface& interface) {
  const bool channel = interface.kind == InterfaceKind::portChannel;
  const char* const type = interface.kind == InterfaceKind::vlan ? "iana-if-type:l3ipvlan"
                           : channel                             ? "iana-if-type:ieee8023adLag"
                                                                 : "iana-if-type:ethernetCsmacd";
  Values members{textOf("name", interface.name),
                 objectOf("config", {textOf("name", interface.name), textOf("type", type)})};
  if (interface.kind == InterfaceKind::vlan) {
    members.push_back(
        objectOf("openconfig-vlan:routed-vlan", {objectOf("config", {numberOf("vlan", interface.vlan)})}));
    return objectOf({}, std::move(members));
  }
  Values ethernet;
  if (interface.channelGroup)
    ethernet.push_back(
        objectOf("config", {textOf("openconfig-if-aggregate:aggregate-id",
                                   "Port-Channel" + std::to_string(*interface.channelGroup))}));
  if (Values vlans = vlanConfigOf(interface); !vlans.empty())
    ethernet.push_back(objectOf("openconfig-vlan:switched-vlan", {objectOf("config", std::move(vlans))}));
  if (!ethernet.empty())
    members.push_back(
        objectOf(channel ? "openconfig-if-aggregate:aggregation" : "openconfig-if-ethernet:ethernet",
                 std::move(ethernet)));
  return objectOf({}, std::move(members));
}

DocumentWriter::Values DocumentWriter::hardware() const {
  Values members;
  Values tables;
  for (const auto& [table, rows] : config_.tcamRows)
    tables.push_back(objectOf({}, {textOf("table", tableName(table)), numberOf("rows", rows)}));
  if (!tables.empty())
    members.push_back(arrayOf("tcam", std::move(tables)));
  Values chips;
  for (const Interface& interface : config_.interfaces)
    if (interface.kind == InterfaceKind::ethernet && (interface.chip != 0 || config_.numChips > 1))
      chips.push_back(objectOf({}, {textOf("name", interface.name), numberOf("chip", interface.chip)}));
  if (!chips.empty())
    members.push_back(arrayOf("interface", std::move(chips)));
  return members;
}

} // namespace

std::string toOpenConfig(const Config& config, std::vector<std::string>& losses,
                         std::vector<std::string>& notes, const OpenConfigOptions& options) {
  return DocumentWriter(config, losses, notes, options).write();
}

} // namespace agent
