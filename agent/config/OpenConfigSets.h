#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/OpenConfigTree.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Sets of prefixes and ports that entries refer to by name (openconfig-defined-sets), and the values that
// stand in them and in the entries themselves.

namespace agent::openconfig {

enum class SetKind : uint8_t { v4Prefixes, v6Prefixes, ports };

struct DefinedSet {
  bool usable = true; // false: something is wrong in it, and has been said
  std::vector<V4Match> v4;
  std::vector<V6Match> v6;
  PortSet ports;
};

class DefinedSets {
public:
  // The container `defined-sets`; several may be read, and their sets stand together.
  void read(const Member& definedSets, Problems& problems);
  // The set that the leaf names; null, with a problem, when there is none that can be used.
  const DefinedSet* find(SetKind kind, const Member& leaf, Problems& problems);

private:
  struct Entry {
    const JsonValue* value;
    bool ambiguous = false; // another one has the same name
    bool parsed = false;
    DefinedSet content;
  };
  void parse(SetKind kind, const std::string& name, Entry& entry, Problems& problems);

  std::map<std::pair<SetKind, std::string>, Entry> entries_;
};

// "10.0.0.0/8", "2001:db8::/32".
std::optional<V4Match> v4Prefix(std::string_view text);
std::optional<V6Match> v6Prefix(std::string_view text);
// A number, "100..200" or "ANY".
std::optional<PortSet> takePorts(const JsonValue& value, const Place& place, Problems& problems);

} // namespace agent::openconfig
