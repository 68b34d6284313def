#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/ConfigReader.h"
#include "agent/config/Diagnostics.h"
#include "agent/config/OpenConfigNames.h"
#include "agent/config/OpenConfigSets.h"
#include "agent/config/OpenConfigTree.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// The acl-sets of a document.

namespace agent::openconfig {

constexpr const char* setsPath = "acl/acl-sets";

using SetKey = std::pair<SetType, std::string>;

// The families of lists that a set of this type becomes; a mixed one becomes two of the same name.
std::vector<Family> familiesOf(SetType type);

class SetTable {
public:
  SetTable(const TextLines& lines, Diagnostics& diagnostics) : lines_(lines), diagnostics_(diagnostics) {}

  // One entry of the list acl-set.
  void read(const JsonValue& set);
  bool has(const SetKey& key) const { return index_.contains(key); }
  bool isEmpty() const { return drafts_.empty(); }
  void offerNames(SetType type, NearestWord& nearest) const;
  // The lists, sets in their order. What is wrong in the entries of a set that is applied nowhere is a
  // warning.
  void build(const std::set<SetKey>& applied, DefinedSets& definedSets, std::vector<AccessList>& lists);

private:
  struct Draft {
    SetKey key;
    const JsonValue* value;
    std::unique_ptr<Place> place;
    std::unique_ptr<Container> container;
    std::vector<Finding> findings; // of the set as a whole
  };
  struct Entry {
    const JsonValue* value;
    Place place;
  };
  using Entries = std::map<uint32_t, Entry>;

  std::optional<SetKey> keyOf(const JsonValue& set, Problems& problems) const;
  void add(Draft draft);
  bool checkFamilies(const Draft& draft, Problems& problems) const;
  void checkMixed(const Draft& draft, const Entries& entries, Problems& problems);
  Entries entriesOf(const Draft& draft, const Place& above, Problems& problems);
  void report(const Draft& draft, bool applied, bool structural, std::vector<Finding> findings,
              bool& hasErrors);
  std::vector<Rule> rulesOf(const Draft& draft, Family family, const Entries& entries,
                            DefinedSets& definedSets, Problems& problems);

  const TextLines& lines_;
  Diagnostics& diagnostics_;
  ExpansionBudget budget_{maxFileAlternatives};
  std::vector<Draft> drafts_;
  std::map<SetKey, size_t> index_;
};

} // namespace agent::openconfig
