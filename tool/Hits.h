#pragma once

#include "agent/Agent.h"
#include "packet/Packet.h"
#include "sim/Pipeline.h"
#include "tool/Common.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Hits of configured lines, counted lookup by lookup.

namespace tool {

class Session;
struct PortRef;

class Hits {
public:
  // Hits of the row's owner; null: the default row, or no row at all.
  void hit(const agent::RowOwner* owner, uint64_t hits = 1);

  struct Line {
    std::string acl;
    agent::Family family = agent::Family::ipv4;
    agent::Direction direction = agent::Direction::in;
    std::optional<unsigned> line; // empty for the implicit rules
    std::string file;
    std::string rule;
    uint64_t hits = 0;
  };
  // Every entry of every list of `lists` and of every list that was hit, in list order.
  std::vector<Line> lines(const std::vector<std::shared_ptr<agent::AggregatedAcl>>& lists,
                          const std::vector<agent::Direction>& directions) const;

private:
  struct Key {
    const agent::AggregatedAcl* acl;
    agent::Direction direction;
    auto operator<=>(const Key&) const = default;
  };
  struct Counts {
    std::shared_ptr<agent::AggregatedAcl> acl;
    std::vector<uint64_t> entries; // then solicitation, advertisement, final
  };
  std::map<Key, Counts> counts_;
  Key lastKey_{nullptr, agent::Direction::in};
  Counts* last_ = nullptr;
};

// Hits of rows, which cost less to count than those of lines: for many packets while nothing changes.
class RowHits {
public:
  // `in` and `out` (null: none) are where the frame enters and leaves.
  void hit(const sim::LookupResult& lookup, const PortRef& in, const PortRef* out);
  // As hits of the rows' owners, who are what they were when the rows were hit.
  void addTo(const Session& session, Hits& hits) const;

private:
  using Rows = std::vector<uint64_t>;
  std::vector<std::array<Rows, XpAcl::tcamTables.size()>> chips_;
};

Json lookupJson(const sim::LookupResult& lookup, const agent::RowOwner* owner);
Json linesJson(const std::vector<Hits::Line>& lines);
std::string linesText(const std::vector<Hits::Line>& lines);

} // namespace tool
