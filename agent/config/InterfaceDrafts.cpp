#include "agent/config/InterfaceDrafts.h"

#include <algorithm>

namespace agent {

namespace {

// More than any chassis has; bounds what a hostile file can make of ranges.
constexpr size_t maxInterfaces = 16384;
constexpr size_t maxCandidates = 32;

std::optional<Direction> directionOf(std::string_view word) {
  if (sameWord(word, "in"))
    return Direction::in;
  if (sameWord(word, "out"))
    return Direction::out;
  return std::nullopt;
}

std::optional<Family> familyOf(std::string_view word) {
  if (sameWord(word, "ip"))
    return Family::ipv4;
  if (sameWord(word, "ipv6"))
    return Family::ipv6;
  if (sameWord(word, "mac"))
    return Family::mac;
  return std::nullopt;
}

bool isAccessGroup(const Cursor& cursor) {
  const auto family = familyOf(cursor.peek().text);
  return family &&
         (cursor.at("access-group", 1) || (family == Family::ipv6 && cursor.at("traffic-filter", 1)));
}

std::string joined(const std::vector<Token>& tokens, size_t first) {
  std::string text;
  for (size_t i = first; i < tokens.size(); ++i)
    text += tokens[i].text;
  return text;
}

// Words that say how an interface is used, behind its name.
void dropUsage(std::vector<Token>& tokens) {
  for (const char* word : {"point-to-point", "multipoint", "l2transport"})
    if (tokens.size() > 1 && sameWord(tokens.back().text, word))
      tokens.pop_back();
}

} // namespace

std::optional<size_t> InterfaceTable::draftOf(const InterfaceName& name, unsigned line, unsigned column) {
  const auto [at, isNew] = index_.try_emplace(name.identity(), drafts_.size());
  if (!isNew)
    return at->second;
  if (drafts_.size() == maxInterfaces) {
    index_.erase(at);
    diagnostics_->error(line, column,
                        quotedWord(name.text()) + ": the file has more than " +
                            std::to_string(maxInterfaces) + " interfaces; no system has as many");
    return std::nullopt;
  }
  Draft& draft = drafts_.emplace_back(name);
  draft.line = line;
  draft.column = column;
  if (name.isImpossibleVlan())
    diagnostics_->error(line, column, quotedWord(name.text()) + ": VLANs are numbered from 1 to 4094");
  return drafts_.size() - 1;
}

void InterfaceTable::open(const std::vector<Token>& words, size_t first, unsigned line) {
  open_.clear();
  std::vector<Token> tokens = words;
  dropUsage(tokens);
  if (tokens.size() > first && sameWord(tokens[first].text, "range"))
    ++first;
  if (tokens.size() <= first)
    return;
  const unsigned column = tokens[first].column;
  InterfaceRange range = interfaceRange(tokens, first);
  if (!range.error.empty()) {
    // An error only when a list is applied to it: stanzas of no interest are skipped, however they look.
    range.names.assign(1, InterfaceName::unreadable(joined(tokens, first), range.error));
  }
  for (const InterfaceName& name : range.names)
    if (const auto index = draftOf(name, line, column))
      open_.push_back(*index);
}

void InterfaceTable::reset(const std::vector<Token>& tokens, size_t first) {
  for (const InterfaceName& name : interfaceRange(tokens, first).names) {
    const auto at = index_.find(name.identity());
    if (at == index_.end())
      continue;
    Draft& draft = drafts_[at->second];
    draft.candidates.clear();
    draft.accessVlan.reset();
    draft.trunkVlans.reset();
    draft.channelGroup.reset();
    draft.accessMode = false;
  }
}

void InterfaceTable::chipIs(uint8_t chip, const std::vector<Token>& tokens, size_t first, unsigned line) {
  const Token token = tokens[first];
  const InterfaceRange range = interfaceRange(tokens, first);
  if (!range.error.empty()) {
    diagnostics_->error(line, token.column, range.error + "; write interfaces like Ethernet1-4");
    return;
  }
  for (const InterfaceName& name : range.names) {
    if (name.kind() != InterfaceKind::ethernet) {
      const std::string why =
          name.kind() == InterfaceKind::unsupported ? name.reason() : "it is on every chip";
      diagnostics_->error(line, token.column,
                          quotedWord(name.text()) + ": only Ethernet ports have a chip, and " + why +
                              "; name Ethernet ports here");
      return;
    }
    if (const auto index = draftOf(name, line, token.column))
      drafts_[*index].chip = chip;
  }
}

bool InterfaceTable::takeLine(const std::vector<Token>& tokens, unsigned line) {
  Cursor cursor(tokens, 0);
  const bool no = cursor.takeWord("no");
  if (isAccessGroup(cursor)) {
    takeAccessGroup(tokens, no, line);
    return true;
  }
  if (cursor.takeWord("switchport")) {
    takeSwitchport(tokens, cursor.position(), no, line);
    return true;
  }
  if (cursor.takeWord("channel-group")) {
    const auto group = decimal(cursor.peek().text, 999999999);
    for (const size_t index : open_)
      drafts_[index].channelGroup = no ? std::nullopt : group;
    return true;
  }
  for (const char* word : {"ipv4", "ip", "mac", "access-group"})
    if (!no && cursor.at(word) &&
        (cursor.at("access-group") || cursor.at("access-group", 1) ||
         (cursor.at("port", 1) && cursor.at("access-group", 2)))) {
      diagnostics_->warn(
          line, tokens[0].column,
          quotedWord(foldedText(tokens, 0, std::min<size_t>(tokens.size(), 3))) +
              ": this form of applying a list is not read and the list is not applied; write ip "
              "access-group NAME in or out");
      return true;
    }
  return false;
}

void InterfaceTable::takeAccessGroup(const std::vector<Token>& tokens, bool no, unsigned line) {
  Cursor cursor(tokens, no ? 1 : 0);
  Candidate candidate;
  candidate.family = *familyOf(cursor.take().text);
  cursor.skip(1);
  const Token name = cursor.take();
  const Token directionToken = cursor.peek();
  candidate.list = name.text;
  candidate.line = line;
  candidate.column = name.column;
  candidate.direction = directionOf(cursor.take().text);
  if (no) {
    for (const size_t index : open_)
      std::erase_if(drafts_[index].candidates, [&](const Candidate& each) {
        return each.family == candidate.family && (candidate.list.empty() || each.list == candidate.list) &&
               (!candidate.direction || each.direction == candidate.direction);
      });
    return;
  }
  if (name.text.empty()) {
    diagnostics_->error(line, name.column,
                        "the line ends too early: the name of the list is missing; write it, then "
                        "in or out");
    return;
  }
  if (candidate.direction && !cursor.atEnd())
    diagnostics_->error(line, cursor.peek().column,
                        quotedWord(cursor.peek().text) +
                            ": nothing may stand behind the direction; leave it out");
  else if (!candidate.direction && !directionToken.text.empty()) {
    candidate.column = directionToken.column;
    candidate.wrongDirection = directionToken.text;
  }
  for (const size_t index : open_)
    addCandidate(drafts_[index], candidate);
}

void InterfaceTable::addCandidate(Draft& draft, const Candidate& candidate) {
  auto& all = draft.candidates;
  if (std::find(all.begin(), all.end(), candidate) != all.end())
    return; // applying a list twice is applying it once
  if (all.size() == maxCandidates)
    diagnostics_->error(candidate.line, candidate.column,
                        quotedWord(candidate.list) +
                            ": the interface has too many lists already; apply one list of a "
                            "family in each direction");
  else
    all.push_back(candidate);
}

void InterfaceTable::takeSwitchport(const std::vector<Token>& tokens, size_t first, bool no, unsigned line) {
  Cursor cursor(tokens, first);
  if (cursor.at("trunk") && cursor.at("allowed", 1) && cursor.at("vlan", 2)) {
    if (!no)
      takeTrunkVlans(tokens, first + 3, line);
    for (const size_t index : open_)
      if (no)
        drafts_[index].trunkVlans.reset();
  } else if (cursor.at("access") && cursor.at("vlan", 1)) {
    const Token token = cursor.peek(2);
    const auto vlan = decimal(token.text, maxVlan);
    if (!no && (!vlan || *vlan == 0) && (token.text.empty() || isDigit(token.text[0]))) {
      Findings findings(line);
      findings.refuse(token, "an access VLAN is a number from 1 to 4094");
      diagnostics_->addAll(findings.takeAll());
      return;
    }
    for (const size_t index : open_)
      if (vlan || no)
        drafts_[index].accessVlan = no ? std::nullopt : std::optional(static_cast<uint16_t>(*vlan));
  } else if (cursor.at("mode")) {
    for (const size_t index : open_) {
      drafts_[index].accessMode = !no && cursor.at("access", 1);
      if (!no && cursor.at("trunk", 1) && !drafts_[index].trunkVlans)
        drafts_[index].trunkVlans.emplace().set(); // a trunk carries every VLAN until it is told otherwise
    }
  }
}

void InterfaceTable::takeTrunkVlans(const std::vector<Token>& tokens, size_t first, unsigned line) {
  Cursor cursor(tokens, first);
  const bool add = cursor.takeWord("add");
  const bool remove = !add && cursor.takeWord("remove");
  const bool except = !add && !remove && cursor.takeWord("except");
  VlanSet named;
  if (cursor.at("all")) {
    named.set();
  } else if (!cursor.at("none")) {
    const Token token = cursor.peek();
    const VlanRange range = vlanRange(joined(tokens, cursor.position()));
    if (!range.error.empty()) {
      diagnostics_->error(line, token.column, quotedWord(range.culprit) + ": " + range.error);
      return;
    }
    named = vlansOf(range.ranges);
  }
  for (const size_t index : open_) {
    auto& vlans = drafts_[index].trunkVlans;
    if (!vlans)
      vlans = remove ? VlanSet().set() : VlanSet();
    vlans = add ? *vlans | named : remove ? *vlans & ~named : except ? ~named : named;
  }
}

std::set<ListKey> InterfaceTable::appliedLists() const {
  std::set<ListKey> applied;
  for (const Draft& draft : drafts_)
    for (const Candidate& candidate : draft.candidates)
      applied.emplace(candidate.family, candidate.list);
  return applied;
}

void InterfaceTable::spreadPortChannels() {
  const auto members = channelMembers(drafts_);
  for (Draft& channel : drafts_) {
    if (channel.name.kind() != InterfaceKind::portChannel)
      continue;
    const uint32_t number = *channel.name.plainNumber();
    const auto at = members.find(number);
    if (at == members.end()) {
      for (const Candidate& candidate : channel.candidates)
        diagnostics_->error(candidate.line, candidate.column,
                            quotedWord(candidate.list) + ": " + channel.name.text() +
                                " has no member ports to apply the list to; write channel-group " +
                                std::to_string(number) + " on them");
      continue;
    }
    for (Draft* member : at->second) {
      for (const Candidate& candidate : channel.candidates)
        addCandidate(*member, candidate);
      if (!member->accessVlan)
        member->accessVlan = channel.accessVlan;
      if (!member->trunkVlans && !channel.accessMode)
        member->trunkVlans = channel.trunkVlans;
    }
  }
}

void InterfaceTable::warnOfName(const Draft& draft) const {
  if (draft.name.isMisspelt() && draft.candidates.empty())
    diagnostics_->warn(draft.line, draft.column,
                       draft.name.reason() + "; the stanza " + quotedWord(draft.name.text()) + " is skipped");
}

Interface InterfaceTable::made(const Draft& draft) const {
  PortDraft port = draft;
  if (draft.accessMode)
    port.trunkVlans.reset();
  return interfaceOf(port, {diagnostics_->file(), draft.line, draft.column});
}

} // namespace agent
