#include "agent/config/ObjectGroups.h"

#include "agent/config/ConfigReader.h"
#include "agent/config/GroupMembers.h"

#include <algorithm>

namespace agent {

namespace {

// Deeper nesting is a mistake, and bounds the stack.
constexpr unsigned maxDepth = 64;

struct GroupHeader {
  GroupKind kind = GroupKind::unsupported;
  PortProtocols portProtocols = 0;
  Token name;
  size_t words = 0; // of the header up to and with the name
};

// "network NAME", "ip address NAME", "ip port NAME", "ipv6 address NAME", "service NAME [tcp|udp|tcp-udp]",
// "protocol NAME".
GroupHeader readHeader(const std::vector<Token>& tokens, size_t first) {
  GroupHeader header;
  const Cursor cursor(tokens, first);
  const bool ip = cursor.at("ip") || cursor.at("ipv6");
  header.words = ip ? 3 : 2;
  header.name = cursor.peek(header.words - 1);
  if (ip && cursor.at("address", 1))
    header.kind = GroupKind::address;
  else if (ip && cursor.at("port", 1))
    header.kind = GroupKind::port;
  else if (cursor.at("network") || cursor.at("v6-network"))
    header.kind = GroupKind::network;
  else if (cursor.at("protocol"))
    header.kind = GroupKind::protocol;
  else if (cursor.at("service") || cursor.at("v6-service"))
    header.kind = GroupKind::service;
  if (header.kind != GroupKind::service || cursor.peek(2).text.empty())
    return header;
  // With a protocol behind its name a service group holds ports only.
  if (cursor.at("tcp", 2))
    header.portProtocols = tcpPorts;
  else if (cursor.at("udp", 2))
    header.portProtocols = udpPorts;
  else if (cursor.at("tcp-udp", 2))
    header.portProtocols = tcpPorts | udpPorts;
  if (header.portProtocols != 0) {
    header.kind = GroupKind::port;
    header.words = 3;
  }
  return header;
}

} // namespace

bool GroupTable::open(const std::vector<Token>& tokens, size_t first, unsigned line) {
  const GroupHeader header = readHeader(tokens, first);
  open_ = nullptr;
  if (header.name.text.empty())
    return false;
  Findings findings(line);
  auto& slot = groups_[std::string(header.name.text)];
  const bool isNew = slot == nullptr;
  if (isNew) {
    slot = std::make_unique<Group>();
    slot->name = header.name.text;
    slot->kind = header.kind;
    slot->portProtocols = header.portProtocols;
    slot->line = line;
    order_.push_back(slot.get());
  }
  open_ = slot.get();
  if (header.kind == GroupKind::unsupported && isNew)
    findings.refuse(tokens[first],
                    "groups of this kind cannot be expanded into rows; use a group of kind network, "
                    "ip address, protocol, service or ip port");
  else if (slot->kind != header.kind || slot->portProtocols != header.portProtocols)
    findings.refuse(header.name, "line " + std::to_string(slot->line) +
                                     " opened a group of this name as another kind; rename one of the two");
  else if (tokens.size() > first + header.words)
    findings.refuse(tokens[first + header.words], "nothing may stand behind the name of the group");
  open_->findings.insert(open_->findings.end(), findings.all().begin(), findings.all().end());
  return true;
}

void GroupTable::addLine(std::string_view text, unsigned line) {
  if (open_ != nullptr)
    open_->lines.push_back({text, line});
}

void GroupTable::remove(std::string_view name) {
  const auto at = groups_.find(std::string(name));
  if (at == groups_.end())
    return;
  if (open_ == at->second.get())
    open_ = nullptr;
  // The place in the order stays: searching it for every deletion would take quadratic time.
  Group& group = *at->second;
  group.name.clear();
  removed_.push_back(std::move(at->second));
  groups_.erase(at);
}

GroupTable::Group* GroupTable::find(std::string_view name) {
  const auto at = groups_.find(std::string(name));
  return at == groups_.end() ? nullptr : at->second.get();
}

const GroupTable::Group* GroupTable::find(std::string_view name) const {
  const auto at = groups_.find(std::string(name));
  return at == groups_.end() ? nullptr : at->second.get();
}

bool GroupTable::has(std::string_view name) const {
  return find(name) != nullptr;
}
GroupKind GroupTable::kind(std::string_view name) const {
  return find(name)->kind;
}
unsigned GroupTable::line(std::string_view name) const {
  return find(name)->line;
}

const GroupContent& GroupTable::content(std::string_view name, bool v6, bool applied) {
  Group& group = *find(name);
  const GroupContent& content = resolve(group, v6, 0);
  markUse(group, applied);
  return content;
}

void GroupTable::offerNames(NearestWord& nearest) const {
  // Only so many: a suggestion is not worth quadratic time in a file of nothing but mistakes.
  constexpr size_t mostOffered = 256;
  for (size_t i = 0; i < std::min(order_.size(), mostOffered); ++i)
    nearest.offer(order_[i]->name);
}

const GroupContent& GroupTable::resolve(Group& group, bool v6, unsigned depth) {
  auto& content = group.contents[v6 ? 1 : 0];
  if (content != nullptr)
    return *content;
  content = std::make_unique<GroupContent>();
  content->readable = group.findings.empty();
  group.resolving = true;
  for (const Line& line : group.lines)
    resolveLine(group, line, v6, depth, *content);
  group.resolving = false;
  content->members =
      content->v4.size() + content->v6.size() + content->services.size() + content->ports.size();
  if (content->readable && content->members == 0 && !content->emptyPorts) {
    content->readable = false;
    content->findings.push_back({Severity::error, group.line, 1,
                                 quotedWord(group.name) + ": the object group is empty; give it a member"});
  }
  removeDuplicates(*content);
  return *content;
}

void GroupTable::resolveLine(Group& group, const Line& line, bool v6, unsigned depth, GroupContent& content) {
  std::vector<Token> tokens;
  splitWords(line.text, tokens);
  Cursor cursor(tokens, 0);
  if (cursor.atEnd() || cursor.at("description"))
    return;
  Findings findings(line.number);
  const size_t before =
      content.v4.size() + content.v6.size() + content.services.size() + content.ports.size();
  bool taken = false;
  if (cursor.at("group-object") || (cursor.at("group-object", 1) && allDigits(cursor.peek().text))) {
    cursor.skip(cursor.at("group-object") ? 1 : 2);
    taken = resolveNested(group, cursor, v6, depth, findings, content);
  } else {
    taken = takeGroupMember(group.kind, group.portProtocols, v6, cursor, findings, content);
  }
  const size_t after = content.v4.size() + content.v6.size() + content.services.size() + content.ports.size();
  content.emptyPorts = content.emptyPorts || (taken && group.kind == GroupKind::port);
  if (taken && (after > maxLineAlternatives || !budget_->take(after - before)))
    taken =
        findings.refuse(tokens[0], "the object groups of the file have more members than any table has rows");
  if (!taken)
    content.readable = false;
  content.findings.insert(content.findings.end(), findings.all().begin(), findings.all().end());
}

bool GroupTable::resolveNested(Group& group, Cursor& cursor, bool v6, unsigned depth, Findings& findings,
                               GroupContent& content) {
  const Token name = cursor.take();
  Group* nested = find(name.text);
  if (nested == nullptr) {
    NearestWord nearest(name.text);
    offerNames(nearest);
    return findings.refuse(name, "there is no object group of this name" + nearest.suggestion());
  }
  if (nested->resolving)
    return findings.refuse(name, "the object group contains itself; leave this line out");
  if (depth == maxDepth)
    return findings.refuse(name, "object groups are nested more than 64 deep; use fewer levels");
  const auto addressKind = [](GroupKind kind) {
    return kind == GroupKind::network || kind == GroupKind::address;
  };
  if (nested->kind != group.kind && !(addressKind(nested->kind) && addressKind(group.kind)))
    return findings.refuse(name, "a nested group must be of the same kind as the group around it");
  const GroupContent& inner = resolve(*nested, v6, depth + 1);
  group.nested.push_back(nested);
  if (!inner.readable)
    return findings.refuse(name, "this object group is empty or cannot be read; see line " +
                                     std::to_string(nested->line));
  addContent(inner, content);
  content.emptyPorts = content.emptyPorts || inner.emptyPorts;
  return true;
}

void GroupTable::markUse(Group& first, bool applied) {
  std::vector<Group*> work{&first};
  while (!work.empty()) {
    Group& group = *work.back();
    work.pop_back();
    if (group.used && (group.usedByApplied || !applied))
      continue;
    group.used = true;
    group.usedByApplied = group.usedByApplied || applied;
    work.insert(work.end(), group.nested.begin(), group.nested.end());
  }
}

std::vector<Finding> GroupTable::takeFindings() {
  std::vector<Finding> all;
  for (Group* group : order_) {
    if (group->name.empty())
      continue; // removed
    if (!group->used && !resolve(*group, false, 0).readable && resolve(*group, true, 0).readable)
      group->contents[0].reset(); // a group for IPv6 lists, which none of them uses
    std::vector<Finding> own = group->findings;
    for (const auto& content : group->contents)
      if (content != nullptr)
        own.insert(own.end(), content->findings.begin(), content->findings.end());
    for (Finding& finding : own)
      if (!group->usedByApplied)
        finding.severity = Severity::warning;
    all.insert(all.end(), own.begin(), own.end());
  }
  return all;
}

} // namespace agent
