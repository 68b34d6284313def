#pragma once

#include "agent/config/PortSet.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The configuration as read: what the operator wrote, with every name resolved and every line
// still knowing where it stands. Readers (configuration text, ClassBench filter sets) make it;
// aggregation turns it into rows; the line evaluator judges packets by it alone.
//
// Plain records: no function of this file changes the meaning of a line.

namespace agent {

struct SourceLoc { // a place in the input
  std::string file;
  unsigned line = 0;        // 1-based; 0: the file as a whole
  unsigned column = 0;      // 1-based, octets
  std::string text() const; // "file:line:column", or "file" alone without a line
  bool operator==(const SourceLoc&) const = default;
};

enum class Severity { error, warning }; // whether it keeps a list from being loaded

struct Diagnostic { // one finding, for people
  Severity severity = Severity::error;
  SourceLoc loc;
  std::string message;      // what, why and what to write instead
  std::string list;         // the list it concerns, empty for the file as a whole
  std::string text() const; // "file:line:column: error: message"
};

enum class Family : uint8_t { ipv4 = 0, ipv6 = 1, mac = 2 }; // what a list judges
enum class Direction : uint8_t { in = 0, out = 1 };          // seen from the switch

// Host byte order; a wildcard bit of 1 is ignored (so a /24 is 0.0.0.255).
struct V4Match {
  uint32_t address = 0;
  uint32_t wildcard = 0xFFFFFFFF;
  bool operator==(const V4Match&) const = default;
};

struct V6Match {                     // the leading bits are compared
  std::array<uint8_t, 16> address{}; // as on the wire
  uint8_t prefixLength = 0;          // 0: any
  bool operator==(const V6Match&) const = default;
};

struct MacMatch {                   // a wildcard bit of 1 is ignored
  std::array<uint8_t, 6> address{}; // as on the wire
  std::array<uint8_t, 6> wildcard{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  bool operator==(const MacMatch&) const = default;
};

// One conjunction of conditions. A packet without an L4 header reads as ports 0, ICMP type 0 and
// code 0, as the chip does.
struct Criteria {
  std::optional<uint8_t> protocol; // 1..255
  V4Match srcV4, dstV4;            // IPv4 lists
  V6Match srcV6, dstV6;            // IPv6 lists
  PortSet srcPorts = anyPort();    // TCP, UDP, SCTP
  PortSet dstPorts = anyPort();
  std::optional<uint8_t> icmpType;
  std::optional<uint8_t> icmpCode; // only with a type
  bool established = false;        // TCP with ACK or RST
  bool fragments = false;          // non-initial fragments only; ports are then not compared
  std::optional<uint8_t> ttl;      // equal to
  MacMatch srcMac, dstMac;         // MAC lists
  std::optional<uint16_t> etherType;
  std::optional<uint16_t> vlan; // 1..4094
  bool operator==(const Criteria&) const = default;
};

// One configured entry. Object groups, port groups and EtherType masks make several alternatives
// of one line; the line matches when any of them does.
struct Rule {
  SourceLoc loc;
  uint32_t sequence = 0;
  bool permit = false;
  bool log = false;
  std::string text; // the entry as written, without sequence number, blanks folded
  std::vector<Criteria> alternatives;
};

// The entries of a list. A change holds its configuration several times over, so copies share the entries
// until one of them is edited.
class Rules {
public:
  using value_type = Rule;
  using const_iterator = std::vector<Rule>::const_iterator;

  Rules() = default;
  Rules(std::vector<Rule> rules) : rules_(std::make_shared<std::vector<Rule>>(std::move(rules))) {}

  std::size_t size() const { return rules_ ? rules_->size() : 0; }
  bool empty() const { return size() == 0; }
  const Rule& operator[](std::size_t index) const { return (*rules_)[index]; }
  const Rule& front() const { return rules_->front(); }
  const Rule& back() const { return rules_->back(); }
  const_iterator begin() const { return rules_ ? rules_->cbegin() : const_iterator(); }
  const_iterator end() const { return rules_ ? rules_->cend() : const_iterator(); }
  // Whether these are the very same entries, not only equal ones.
  bool sharedWith(const Rules& other) const { return rules_ == other.rules_; }

  // The entries, as these alone have them. Until the next copy.
  std::vector<Rule>& edit() {
    if (!rules_) {
      rules_ = std::make_shared<std::vector<Rule>>();
    } else if (rules_.use_count() != 1) {
      rules_ = std::make_shared<std::vector<Rule>>(*rules_);
    }
    return *rules_;
  }

private:
  std::shared_ptr<std::vector<Rule>> rules_; // null: none
};

// What a row cannot express, or what could not be read: the line stands in the list's errors and
// the list is not loadable.
struct AccessList {
  std::string name;
  Family family = Family::ipv4;
  bool standard = false;  // source address only
  SourceLoc loc;          // where it was first opened
  Rules rules;            // in sequence order
  bool hasErrors = false; // some line of it is not expressible
};

// A list applied to an interface.
struct Binding {
  std::string list;
  Family family = Family::ipv4;
  Direction direction = Direction::in;
  SourceLoc loc;
  bool operator==(const Binding&) const = default;
};

enum class InterfaceKind : uint8_t { ethernet, vlan, portChannel, unsupported }; // what its name says

struct Interface {      // a port or VLAN interface, with its lists
  std::string name;     // as first configured, abbreviations expanded: "GigabitEthernet1/0/1", "Vlan10"
  std::string portName; // Ethernet ports only: the system's name, "Ethernet<n>", n from 1
  InterfaceKind kind = InterfaceKind::ethernet;
  SourceLoc loc;
  // Expressible and resolved ones, at most one a (family, direction). A list without entries is no list
  // and is not here; what is applied to a port-channel stands at each of its member ports instead.
  std::vector<Binding> bindings;
  // Those that were refused, because the list has errors or the place cannot have it. With --keep-going
  // the interface keeps what it had in these families and directions.
  std::vector<Binding> refusedBindings;
  std::optional<uint16_t> accessVlan;   // switchport access vlan
  bool trunk = false;                   // switchport trunk allowed vlan, switchport mode trunk
  std::vector<PortRange> allowedVlans;  // of a trunk, sorted; empty: not a trunk, or one with none
  uint16_t vlan = 0;                    // of a VLAN interface
  std::optional<uint32_t> channelGroup; // member of Port-Channel<n>
  uint8_t chip = 0;
};

// The five tables by their names in `hardware tcam TABLE ROWS`.
enum class Table : uint8_t { ingressV4 = 0, ingressV6 = 1, egressV4 = 2, egressV6 = 3, ingressMac = 4 };
constexpr uint32_t defaultTableRows = 4096;                  // of a table that is not configured
constexpr uint32_t maxTableRows = 32768;                     // counter indexes have 16 bits, two per row
const char* tableName(Table table);                          // "ingressV4" and so on
std::optional<Table> tableFromName(const std::string& name); // nothing for other names

struct Config {                       // all that was read
  bool readable = true;               // false: the input as a whole could not be read, all below is empty
  std::vector<AccessList> lists;      // in the order of their first line
  std::vector<Interface> interfaces;  // in the order of the file
  std::vector<uint16_t> vlans;        // `vlan N` lines, sorted
  std::map<Table, uint32_t> tcamRows; // only what was configured
  unsigned numChips = 1;
  std::vector<Diagnostic> diagnostics; // sorted by place

  bool hasErrors() const;
  const AccessList* list(Family family, const std::string& name) const; // null when unknown
  // By configured name, system name or abbreviation; null when unknown.
  const Interface* interface(const std::string& name) const;
};

} // namespace agent
