#pragma once

#include "agent/config/Addresses.h"
#include "agent/config/Findings.h"
#include "agent/config/PortParser.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// Object groups: named sets of addresses, protocols, services or ports that an entry names in place of one
// address, protocol or port expression. Members are parsed when the whole file has been walked, because a
// group may name groups that stand further down.

namespace agent {

enum class GroupKind : uint8_t {
  network,  // addresses with netmasks
  address,  // addresses with wildcards
  service,  // protocols with ports or ICMP types
  port,     // ports only
  protocol, // protocols only
  unsupported
};

// What stands in the place of the protocol, and the ports or the ICMP type that belong to it.
struct ServiceMatch {
  std::optional<uint8_t> protocol; // nothing: every IP packet
  PortSet srcPorts = anyPort();
  PortSet dstPorts = anyPort();
  std::optional<uint8_t> icmpType;
  std::optional<uint8_t> icmpCode;
  bool operator==(const ServiceMatch&) const = default;
};

// A group with its nested groups dissolved and duplicates removed.
struct GroupContent {
  std::vector<V4Match> v4;
  std::vector<V6Match> v6;
  std::vector<ServiceMatch> services; // of service and protocol groups
  PortSet ports;                      // of port groups
  bool emptyPorts = false;            // a port group whose members hold for no port, such as "lt 0"
  size_t members = 0;                 // before duplicates were removed
  bool readable = true;
  std::vector<Finding> findings; // of its own lines
};

class GroupTable {
public:
  explicit GroupTable(ExpansionBudget& budget) : budget_(&budget) {}

  // First pass. `tokens` is the line "object-group KIND NAME ...", from the kind on at `first`; what is wrong
  // with the line itself is kept with the group. Answers whether a group is open now.
  bool open(const std::vector<Token>& tokens, size_t first, unsigned line);
  GroupKind openKind() const { return open_ == nullptr ? GroupKind::unsupported : open_->kind; }
  // A line of the open group; `text` must outlive the table.
  void addLine(std::string_view text, unsigned line);
  void remove(std::string_view name);

  // Second pass.
  bool has(std::string_view name) const;
  GroupKind kind(std::string_view name) const; // of a group that exists
  unsigned line(std::string_view name) const;  // of its definition
  // ICMP means ICMPv6 for an IPv6 list, so a group has one content for each family. The reference holds
  // until the table changes. Notes that a list uses the group, and whether that list is applied.
  const GroupContent& content(std::string_view name, bool v6, bool applied);
  void offerNames(NearestWord& nearest) const;

  // The findings of all groups; errors are those of groups that applied lists use, all others are warnings.
  std::vector<Finding> takeFindings();

private:
  struct Line {
    std::string_view text;
    unsigned number;
  };
  struct Group {
    std::string name;
    GroupKind kind = GroupKind::unsupported;
    PortProtocols portProtocols = 0; // whose service names a port group uses; 0: any
    unsigned line = 0;
    std::vector<Line> lines;
    std::vector<Finding> findings;                         // of the lines that open it
    std::array<std::unique_ptr<GroupContent>, 2> contents; // for IPv4 and for IPv6 lists
    std::vector<Group*> nested;
    bool resolving = false;
    bool used = false;
    bool usedByApplied = false;
  };
  Group* find(std::string_view name);
  const Group* find(std::string_view name) const;
  const GroupContent& resolve(Group& group, bool v6, unsigned depth);
  void resolveLine(Group& group, const Line& line, bool v6, unsigned depth, GroupContent& content);
  bool resolveNested(Group& group, Cursor& cursor, bool v6, unsigned depth, Findings& findings,
                     GroupContent& content);
  void markUse(Group& first, bool applied);

  ExpansionBudget* budget_;
  std::unordered_map<std::string, std::unique_ptr<Group>> groups_;
  std::vector<Group*> order_; // of definition; the removed ones have no name
  std::vector<std::unique_ptr<Group>> removed_;
  Group* open_ = nullptr;
};

} // namespace agent
