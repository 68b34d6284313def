#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/Diagnostics.h"
#include "agent/config/EntryParser.h"

#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// The access lists while the text is walked: which entries stand, under which sequence numbers. What an
// entry means is looked at only when the walk is over.

namespace agent {

// The kinds that list numbers stand for.
enum class ListNumber : uint8_t { none, standard, extended, macStandard, macExtended };
ListNumber listNumber(std::string_view name); // none also for what is no number

// A default key of the agent has this name; a list of this name could not be told from no list.
constexpr std::string_view reservedListName = "aclGroupDefault";
constexpr uint32_t sequenceStep = 10; // from an entry to the next one that says no number

using ListKey = std::pair<Family, std::string>;

class ListDraft {
public:
  ListDraft(Family family, bool standard, std::string name, unsigned line, unsigned column)
      : family_(family), standard_(standard), name_(std::move(name)), line_(line), column_(column) {}

  Family family() const { return family_; }
  bool standard() const { return standard_; }
  const std::string& name() const { return name_; }
  unsigned line() const { return line_; }
  unsigned column() const { return column_; }

  // A line of the list, its words from `first` on: an entry, a remark or a deletion. `text` is the whole
  // line, which the words are part of, and outlives the draft.
  void addLine(const std::vector<Token>& tokens, size_t first, std::string_view text, unsigned line);
  // New numbers for all entries, in their order.
  void resequence(uint32_t start, uint32_t step);
  // Something is wrong with the list that no later line can mend. Of an inexpressible line it is a warning
  // when the list is applied nowhere; what concerns the list as a whole is an error always.
  void addFinding(Finding finding) { findings_.push_back(std::move(finding)); }
  void addStructuralFinding(Finding finding) { structuralFindings_.push_back(std::move(finding)); }

private:
  friend class ListTable;
  struct Entry {
    std::string_view text;
    unsigned line = 0;
    size_t first = 0; // position of the action among the words
  };

  void addEntry(const std::vector<Token>& tokens, size_t first, std::optional<uint32_t> sequence,
                std::string_view text, unsigned line);
  void deleteLine(const std::vector<Token>& tokens, size_t first, unsigned line);
  void deleteByText(const std::vector<Token>& tokens, size_t first, unsigned line);

  Family family_;
  bool standard_;
  std::string name_;
  unsigned line_;
  unsigned column_;
  // By sequence number; in memory that is given back with the list, as there are many.
  std::pmr::monotonic_buffer_resource memory_;
  std::pmr::map<uint32_t, Entry> entries_{&memory_};
  // Entries by their text, for deletion by text; made when first asked for, and may hold replaced ones.
  std::unique_ptr<std::unordered_multimap<std::string, uint32_t>> byText_;
  std::vector<Finding> findings_;
  std::vector<Finding> structuralFindings_;
};

class ListTable {
public:
  // The list of this name, made if there is none; null, with an error found, when it exists as another kind.
  ListDraft* open(Family family, bool standard, const Token& name, unsigned line);
  ListDraft* find(Family family, std::string_view name);
  void remove(Family family, std::string_view name);
  // Whether the file has this list, in the words that apply it, under another family.
  bool has(Family family, const std::string& name) const { return index_.contains({family, name}); }
  void offerNames(Family family, NearestWord& nearest) const;

  // Second pass: the lists with their rules.
  void build(const std::set<ListKey>& applied, GroupTable& groups, ExpansionBudget& budget,
             Diagnostics& diagnostics, std::vector<AccessList>& lists) const;

private:
  AccessList build(const ListDraft& draft, bool applied, GroupTable& groups, ExpansionBudget& budget,
                   Diagnostics& diagnostics) const;

  std::vector<std::unique_ptr<ListDraft>> drafts_; // in the order of their first line; removed ones are null
  std::map<ListKey, size_t> index_;
};

} // namespace agent
