#include "agent/config/ListDrafts.h"

#include <algorithm>

namespace agent {

namespace {

// Entries that say the same have the same key, however they are blanked and cased.
std::string deletionKey(const std::vector<Token>& tokens, size_t first) {
  size_t last = tokens.size();
  const size_t sequence = trailingSequence(tokens, first);
  if (sequence != 0 && sequence + 1 == last)
    last -= 2;
  return lowerCase(foldedText(tokens, first, last));
}

std::string suggestedAction(std::string_view word) {
  NearestWord nearest(word);
  for (const char* action : {"permit", "deny", "remark"})
    nearest.offer(action);
  return nearest.suggestion();
}

} // namespace

ListNumber listNumber(std::string_view name) {
  const auto number = decimal(name, 9999);
  if (!number)
    return ListNumber::none;
  const auto within = [number](uint32_t low, uint32_t high) { return *number >= low && *number <= high; };
  if (within(1, 99) || within(1300, 1999))
    return ListNumber::standard;
  if (within(100, 199) || within(2000, 2699))
    return ListNumber::extended;
  if (within(700, 799))
    return ListNumber::macStandard;
  return within(1100, 1199) ? ListNumber::macExtended : ListNumber::none;
}

void ListDraft::addLine(const std::vector<Token>& tokens, size_t first, std::string_view text,
                        unsigned line) {
  Cursor cursor(tokens, first);
  if (cursor.at("no")) {
    deleteLine(tokens, first + 1, line);
    return;
  }
  const bool keyword = cursor.takeWord("seq") || cursor.takeWord("sequence");
  std::optional<uint32_t> sequence;
  const Token number = cursor.peek();
  if (keyword || allDigits(number.text)) {
    cursor.skip(1);
    sequence = decimal(number.text, UINT32_MAX);
    if (cursor.at("remark"))
      return;
    if (!sequence || *sequence == 0) {
      Findings findings(line);
      findings.refuse(number, "a sequence number is needed here, from 1 to 4294967295");
      addFinding(findings.all().front());
      return;
    }
  }
  if (cursor.at("remark"))
    return;
  if (!sequence && !isAction(cursor.peek().text)) {
    Findings findings(line);
    if (cursor.at("evaluate") || cursor.at("dynamic"))
      findings.refuse(cursor.peek(),
                      "rows keep no state from one packet to the next; write the entries that are "
                      "meant, with established for TCP");
    else
      findings.refuse(cursor.peek(), "inside a list stand entries, which start with permit or deny, and "
                                     "remarks; end the list with exit before anything else" +
                                         suggestedAction(cursor.peek().text));
    addFinding(findings.all().front());
    return;
  }
  addEntry(tokens, cursor.position(), sequence, text, line);
}

void ListDraft::addEntry(const std::vector<Token>& tokens, size_t first, std::optional<uint32_t> sequence,
                         std::string_view text, unsigned line) {
  Findings findings(line);
  if (!sequence) {
    if (const size_t at = trailingSequence(tokens, first); at != 0) {
      sequence = decimal(tokens[at].text, UINT32_MAX);
      if (!sequence || *sequence == 0) {
        findings.refuse(tokens[at], "a sequence number is needed here, from 1 to 4294967295");
        addFinding(findings.all().front());
        return;
      }
    }
  }
  if (!sequence) {
    const uint32_t last = entries_.empty() ? 0 : entries_.rbegin()->first;
    if (last > UINT32_MAX - sequenceStep) {
      findings.refuse(tokens[first], "no sequence number is left behind " + std::to_string(last) +
                                         "; write one before the entry");
      addFinding(findings.all().front());
      return;
    }
    sequence = last + sequenceStep;
  }
  entries_.insert_or_assign(entries_.end(), *sequence, Entry{text, line, first});
  if (byText_ != nullptr)
    byText_->emplace(deletionKey(tokens, first), *sequence);
}

void ListDraft::deleteLine(const std::vector<Token>& tokens, size_t first, unsigned line) {
  Cursor cursor(tokens, first);
  if (cursor.at("remark"))
    return;
  if (cursor.at("seq") || cursor.at("sequence"))
    cursor.skip(1);
  const Token token = cursor.peek();
  if (!allDigits(token.text)) {
    deleteByText(tokens, cursor.position(), line);
    return;
  }
  const auto sequence = decimal(token.text, UINT32_MAX);
  const bool remark = cursor.at("remark", 1);
  if (!remark && (!sequence || entries_.erase(*sequence) == 0))
    addFinding(
        {Severity::warning, line, token.column,
         quotedWord(token.text) + ": the list has no entry of this number to delete; leave the line out"});
}

void ListDraft::deleteByText(const std::vector<Token>& tokens, size_t first, unsigned line) {
  std::vector<Token> words;
  if (byText_ == nullptr) {
    byText_ = std::make_unique<std::unordered_multimap<std::string, uint32_t>>();
    for (const auto& [sequence, entry] : entries_) {
      splitWords(entry.text, words);
      byText_->emplace(deletionKey(words, entry.first), sequence);
    }
  }
  const std::string key = deletionKey(tokens, first);
  auto at = byText_->find(key);
  while (at != byText_->end()) {
    const auto entry = entries_.find(at->second);
    byText_->erase(at);
    if (entry != entries_.end()) {
      splitWords(entry->second.text, words);
      if (deletionKey(words, entry->second.first) == key) {
        entries_.erase(entry);
        return;
      }
    }
    at = byText_->find(key);
  }
  Findings findings(line);
  findings.warn(Cursor(tokens, first).peek(), "the list has no such entry to delete; leave the line out");
  addFinding(findings.all().front());
}

void ListDraft::resequence(uint32_t start, uint32_t step) {
  std::pmr::map<uint32_t, Entry> renumbered(&memory_);
  uint64_t next = start;
  for (auto& [sequence, entry] : entries_) {
    if (next > UINT32_MAX)
      return; // the numbers do not fit, the old ones stay
    renumbered.emplace_hint(renumbered.end(), static_cast<uint32_t>(next), entry);
    next += step;
  }
  entries_ = std::move(renumbered);
  byText_.reset();
}

ListDraft* ListTable::open(Family family, bool standard, const Token& name, unsigned line) {
  const auto [at, isNew] = index_.try_emplace({family, std::string(name.text)}, drafts_.size());
  if (isNew) {
    drafts_.push_back(
        std::make_unique<ListDraft>(family, standard, std::string(name.text), line, name.column));
    if (name.text == reservedListName) {
      Findings findings(line);
      findings.refuse(name, "this name means no list at all; give the list another name");
      drafts_.back()->addStructuralFinding(findings.all().front());
    }
  }
  ListDraft& draft = *drafts_[at->second];
  if (draft.standard() == standard)
    return &draft;
  Findings findings(line);
  findings.refuse(name, std::string("line ") + std::to_string(draft.line()) + " opened this list as " +
                            (draft.standard() ? "standard" : "extended") + ", and here it is " +
                            (standard ? "standard" : "extended") +
                            "; rename one of them, or delete the first with a no line");
  draft.addStructuralFinding(findings.all().front());
  return nullptr;
}

ListDraft* ListTable::find(Family family, std::string_view name) {
  const auto at = index_.find({family, std::string(name)});
  return at == index_.end() ? nullptr : drafts_[at->second].get();
}

void ListTable::remove(Family family, std::string_view name) {
  const auto at = index_.find({family, std::string(name)});
  if (at == index_.end())
    return;
  drafts_[at->second].reset();
  index_.erase(at);
}

void ListTable::offerNames(Family family, NearestWord& nearest) const {
  // Only so many: a suggestion is not worth quadratic time in a file of nothing but mistakes.
  constexpr size_t mostOffered = 256;
  for (size_t i = 0; i < std::min(drafts_.size(), mostOffered); ++i)
    if (drafts_[i] != nullptr && drafts_[i]->family() == family)
      nearest.offer(drafts_[i]->name());
}

void ListTable::build(const std::set<ListKey>& applied, GroupTable& groups, ExpansionBudget& budget,
                      Diagnostics& diagnostics, std::vector<AccessList>& lists) const {
  for (const auto& draft : drafts_)
    if (draft != nullptr)
      lists.push_back(
          build(*draft, applied.contains({draft->family(), draft->name()}), groups, budget, diagnostics));
}

AccessList ListTable::build(const ListDraft& draft, bool applied, GroupTable& groups, ExpansionBudget& budget,
                            Diagnostics& diagnostics) const {
  AccessList list;
  list.name = draft.name();
  list.family = draft.family();
  list.standard = draft.standard();
  list.loc = {diagnostics.file(), draft.line(), draft.column()};
  const auto report = [&](Finding finding, bool structural) {
    if (finding.severity == Severity::error && !applied && !structural && !diagnostics.strict()) {
      finding.severity = Severity::warning;
      finding.message += " (no error, because the list is applied nowhere)";
      list.hasErrors = true;
    }
    list.hasErrors = list.hasErrors || finding.severity == Severity::error || diagnostics.strict();
    diagnostics.add(std::move(finding), list.name);
  };
  for (const Finding& finding : draft.structuralFindings_)
    report(finding, true);
  for (const Finding& finding : draft.findings_)
    report(finding, false);
  EntryContext context{draft.family(), draft.standard(), applied, &groups, &budget};
  std::vector<Token> tokens;
  std::vector<Rule>& rules = list.rules.edit();
  rules.reserve(draft.entries_.size());
  for (const auto& [sequence, entry] : draft.entries_) {
    splitWords(entry.text, tokens);
    Findings findings(entry.line);
    Rule& rule = rules.emplace_back();
    rule.loc = {diagnostics.file(), entry.line, 1};
    rule.sequence = sequence;
    parseEntry(tokens, entry.first, context, findings, rule);
    if (findings.hasErrors())
      rules.pop_back();
    for (Finding& finding : findings.takeAll())
      report(std::move(finding), false);
  }
  return list;
}

} // namespace agent
