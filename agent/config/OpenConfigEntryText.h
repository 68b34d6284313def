#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/OpenConfigJson.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Lines of lists as entries of acl-sets.

namespace agent::openconfig {

// Values to write.
JsonValue objectOf(std::string name, std::vector<JsonValue> members = {});
JsonValue arrayOf(std::string name, std::vector<JsonValue> elements = {});
JsonValue textOf(std::string name, std::string text);
JsonValue numberOf(std::string name, uint64_t number);

// What one entry can say: every source with every destination.
struct EntryDraft {
  Criteria base; // all but the IP addresses
  std::vector<V4Match> v4Sources, v4Destinations;
  std::vector<V6Match> v6Sources, v6Destinations;
};

// Entries that together match what the alternatives of the line match; few, where sets can say it.
std::vector<EntryDraft> entriesOf(const Rule& rule, Family family);

// The prefixes of an address with a wildcard; nothing when there are more than a set should hold.
std::vector<V4Match> prefixesOf(const V4Match& match);
constexpr size_t maxSetPrefixes = 4096;

// Sets that entries refer to, each content once.
class WrittenSets {
public:
  std::string prefixes(bool v6, const std::vector<std::string>& prefixes);
  std::string ports(const PortSet& ports);
  // The container `defined-sets`; empty when no entry needs one.
  std::vector<JsonValue> written() const;

private:
  struct Set {
    std::string name;
    std::vector<JsonValue> values;
  };
  std::string nameOf(size_t kind, const std::vector<JsonValue>& values);

  std::vector<Set> sets_[3];
  std::map<std::string, std::string> names_[3]; // by content
};

// The containers l2, ipv4, ipv6 and transport of an entry. `why` is set where the models have no words for
// it.
std::vector<JsonValue> matchOf(const EntryDraft& draft, Family family, WrittenSets& sets, std::string& why);

} // namespace agent::openconfig
