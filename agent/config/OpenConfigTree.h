#pragma once

#include "agent/config/Findings.h"
#include "agent/config/OpenConfigJson.h"

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// Walking over a document of the OpenConfig models: where things stand, in the words of the model, and which
// of them nobody has read. What nobody has read of an entry would make it match more than was written, so
// that it is refused.

namespace agent::openconfig {

// A place by its path: "/acl/acl-sets/acl-set[name=EDGE][type=ACL_IPV4]". Places above it outlive it.
class Place {
public:
  explicit Place(std::string segment) : segment_(std::move(segment)) {}
  Place(const Place& above, std::string segment) : above_(&above), segment_(std::move(segment)) {}
  std::string path() const;

private:
  const Place* above_ = nullptr;
  std::string segment_; // without the slash before it
};

// A name as it stands in messages: cut when it is long, unprintable octets as "\xNN".
std::string cleaned(std::string_view name);

// "acl-set[name=EDGE][type=ACL_IPV4]"; values are cut and cleaned as in messages.
std::string listSegment(std::string_view list,
                        const std::vector<std::pair<std::string_view, std::string>>& keys);

// What is wrong in one part of a document.
class Problems {
public:
  explicit Problems(const TextLines& lines) : lines_(lines) {}
  // Answer false, so that a reader can refuse and give up in one statement. `why` says what is wrong, why,
  // and what to write instead.
  bool refuse(const JsonValue& value, const Place& place, const std::string& why);
  void warn(const JsonValue& value, const Place& place, const std::string& why);
  size_t errors() const { return errors_; }
  std::vector<Finding> takeAll();
  const TextLines& lines() const { return lines_; }

private:
  void add(Severity severity, const JsonValue& value, const Place& place, const std::string& why);

  const TextLines& lines_;
  std::vector<Finding> all_;
  size_t errors_ = 0;
};

// A member of a container.
struct Member {
  std::string_view name; // without its module
  const JsonValue* value;
  Place place;
  bool taken = false;
};

// A container or an entry of a list. Leaves stand in `config`, bare, or in both with the same value, as the
// keys of lists do. `state` and metadata (RFC 7952) say nothing that is configured, and are passed over.
class Container {
public:
  Container(const JsonValue& object, const Place& place, Problems& problems);
  Container(const Container&) = delete;
  Container& operator=(const Container&) = delete;

  const JsonValue& value() const { return *value_; }
  const Place& place() const { return place_; }
  // The member of this name, taken; null when there is none.
  const Member* take(std::string_view name);
  // The names that may stand there and mean nothing for packets.
  void pass(std::initializer_list<std::string_view> names);
  // Refuses every member that was not taken; a slip in a name that was asked for is suggested.
  void refuseRest(const std::string& why);
  bool isObject() const { return value_->is(JsonKind::object); }

private:
  void add(const JsonValue& child, const Place& above);
  const Member* find(std::string_view name);

  const JsonValue* value_;
  const Place& place_;
  Place configPlace_;
  Problems& problems_;
  std::deque<Member> members_;                                // which stay where they are
  std::unordered_map<std::string_view, const Member*> index_; // when there are many
  std::vector<std::string> known_;                            // names that were asked for
};

// Whether anything is configured in there: some leaf outside of `state`.
bool saysSomething(const JsonValue& value);

// The entries of the list `list` in the container `member`; none, with a problem, when it is no such thing.
// Null for the member: none.
std::vector<const JsonValue*> listEntries(const Member* member, std::string_view list, Problems& problems);

// Leaves; nothing, with a problem, when the value is of another type. `what` names it: "a time to live".
std::optional<std::string> takeText(const Member& leaf, const std::string& what, Problems& problems);
// A whole number within the range, as a number or as a string of digits.
std::optional<uint32_t> takeNumber(const Member& leaf, const std::string& what, uint32_t low, uint32_t high,
                                   Problems& problems);
// A whole number without sign, fraction and exponent, as a number or as a string of digits.
std::optional<uint32_t> plainNumber(const JsonValue& value, uint32_t max);

} // namespace agent::openconfig
