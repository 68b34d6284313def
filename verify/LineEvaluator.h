#pragma once

#include "agent/config/ConfigModel.h"
#include "packet/Packet.h"

#include <cstddef>
#include <cstdint>
#include <optional>

// What a list says about a packet, line by line from the top, the first line that matches decides. This is
// the twin that the chip is tested against: it looks at what was configured and at what the packet says, and
// knows nothing of rows, keys or masks. It is meant to be obviously right rather than fast.

namespace verify {

// What decided.
enum class Decider : uint8_t {
  line,               // rule `index` of the list
  neighbourDiscovery, // the permit for neighbour solicitation and advertisement behind the lines of an IPv6
                      // list
  implicitDeny,       // the end of the list
  noList,             // the list has no lines, and a list without lines is no list
  otherFamily         // an IPv4 list does not see IPv6 packets, and so on
};

struct Judgement {
  bool permit = false;
  Decider decider = Decider::implicitDeny;
  size_t index = 0; // of the rule in AccessList::rules, when a line decided
  bool operator==(const Judgement&) const = default;
};

// `effectiveVlan` is the VLAN that the frame belongs to: that of its tag, or what an untagged frame gets
// where it came in (1..4094).
Judgement evaluate(const agent::AccessList& list, const packet::Packet& packet, uint16_t effectiveVlan);

// Whether the line matches: any of its alternatives does.
bool matches(const agent::Rule& rule, agent::Family family, const packet::Packet& packet,
             uint16_t effectiveVlan);
bool matches(const agent::Criteria& criteria, agent::Family family, const packet::Packet& packet,
             uint16_t effectiveVlan);

} // namespace verify
