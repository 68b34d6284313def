#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/Diagnostics.h"
#include "agent/config/InterfaceNames.h"
#include "agent/config/ListDrafts.h"
#include "agent/config/PortDrafts.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

// The interfaces while the text is walked. What is applied to them is judged when the walk is over, because
// lists may be defined, and bindings deleted, further down.

namespace agent {

// The ports of a port-channel on one chip share their egress entries, so they need the same egress lists.
// Where they differ, that is an error, and none of them keeps a list of that family.
void refuseUnequalMembers(Diagnostics& diagnostics, std::vector<Interface>& interfaces);

class InterfaceTable {
public:
  explicit InterfaceTable(Diagnostics& diagnostics) : diagnostics_(&diagnostics) {}

  // The stanza "interface ..." opens the interfaces that the words from `first` on name.
  void open(const std::vector<Token>& words, size_t first, unsigned line);
  // A line of the open stanza. Answers whether it is one that the system knows; all others are skipped.
  bool takeLine(const std::vector<Token>& tokens, unsigned line);
  // "no interface X", "default interface X": forgets what was configured there so far.
  void reset(const std::vector<Token>& tokens, size_t first);
  // "hardware chip N interface RANGE", from the range on.
  void chipIs(uint8_t chip, const std::vector<Token>& tokens, size_t first, unsigned line);

  std::set<ListKey> appliedLists() const;
  // Second pass: the interfaces with what is applied to them; the lists of the configuration stand already.
  void build(const ListTable& lists, bool keepGoing, Config& config);

private:
  struct Candidate { // a line that applies a list
    std::string list;
    Family family = Family::ipv4;
    std::optional<Direction> direction; // nothing: the line has none, or this word instead
    std::string wrongDirection;
    unsigned line = 0;
    unsigned column = 0;
    bool operator==(const Candidate& other) const {
      return list == other.list && family == other.family && direction == other.direction &&
             wrongDirection == other.wrongDirection;
    }
  };
  struct Draft : PortDraft {
    using PortDraft::PortDraft;
    unsigned line = 0;
    unsigned column = 0;
    std::vector<Candidate> candidates;
    bool accessMode = false; // whatever VLANs a trunk would carry
  };
  using ListIndex = std::map<ListKey, const AccessList*>;
  struct Resolver; // judges bindings in the second pass

  std::optional<size_t> draftOf(const InterfaceName& name, unsigned line, unsigned column);
  void takeAccessGroup(const std::vector<Token>& tokens, bool no, unsigned line);
  void takeSwitchport(const std::vector<Token>& tokens, size_t first, bool no, unsigned line);
  void takeTrunkVlans(const std::vector<Token>& tokens, size_t first, unsigned line);
  void addCandidate(Draft& draft, const Candidate& candidate);
  void spreadPortChannels();
  Interface made(const Draft& draft) const;
  void warnOfName(const Draft& draft) const;

  Diagnostics* diagnostics_;
  std::vector<Draft> drafts_;
  std::unordered_map<std::string, size_t> index_; // by identity
  std::vector<size_t> open_;
};

} // namespace agent
