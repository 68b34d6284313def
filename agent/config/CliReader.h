#pragma once

#include "agent/config/ConfigReader.h"
#include "agent/config/Diagnostics.h"
#include "agent/config/InterfaceDrafts.h"
#include "agent/config/ListDrafts.h"
#include "agent/config/ObjectGroups.h"
#include "agent/config/VlanSets.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace agent {

// Reads router and switch configuration text. Stanzas are told apart by their first words and by
// indentation, and by the words alone where a file is not indented. What is of no interest here is skipped,
// but never a line that could be an entry: such a line at a place where it belongs to nothing is found.
class CliReader {
public:
  CliReader(std::string_view text, const ReadOptions& options, Diagnostics& diagnostics)
      : lines_(text), options_(options), diagnostics_(diagnostics), budget_(maxFileAlternatives),
        groups_(budget_), interfaces_(diagnostics) {}

  void read(Config& config);

private:
  enum class Stanza : uint8_t { none, list, group, interface, other };

  void readLine(std::string_view text);
  void topLevel();
  bool takeStanzaLine(std::string_view text);
  bool takeListLine(std::string_view text);
  bool takeGroupLine(std::string_view text);
  bool takeInterfaceLine();
  void open(Stanza stanza);
  unsigned indent() const { return tokens_[0].column - 1; }
  bool isBody() const { return indent() > headerIndent_; }

  // Commands; each takes the words of the line in tokens_.
  bool command();
  bool negation();
  bool accessListCommand(size_t first);
  bool numberedList(size_t first);
  bool namedList(Family family, size_t first);
  bool listHeader(Family family, std::optional<bool> standard, const Token& name, size_t next);
  bool resequence(Family family, size_t first);
  bool removeList(Family family, size_t first);
  bool vlanCommand(bool no);
  bool hardwareCommand();
  bool chipCommand();
  bool tcamCommand();
  bool bannerCommand();
  bool strayLine();
  void refuse(const Token& token, const std::string& why);
  void refuseInList(ListDraft* list, const Token& token, const std::string& why);

  LineReader lines_;
  const ReadOptions& options_;
  Diagnostics& diagnostics_;
  ExpansionBudget budget_;
  GroupTable groups_;
  ListTable lists_;
  InterfaceTable interfaces_;

  std::vector<Token> tokens_; // of the line at hand
  std::string_view text_;     // the line at hand
  unsigned line_ = 0;
  Stanza stanza_ = Stanza::none;
  unsigned headerIndent_ = 0;
  bool bodyIndented_ = false; // the stanza has had an indented line
  bool separated_ = false;    // a comment line stood at the left since the stanza began
  ListDraft* list_ = nullptr; // of a list stanza; null: its lines are of no use, because its header is wrong
  GroupKind groupKind_ = GroupKind::unsupported;

  std::unordered_set<std::string> openEndedBanners_; // delimiters that do not come again
  VlanSet vlans_;
  std::map<Table, uint32_t> tcamRows_;
  unsigned numChips_ = 1;
};

} // namespace agent
