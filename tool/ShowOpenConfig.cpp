#include "agent/config/OpenConfigText.h"
#include "tool/Show.h"

#include <iostream>

namespace tool {

namespace {

// What the chips counted for each line in the directions in which its list is applied.
class MatchedPackets {
public:
  explicit MatchedPackets(Session& session) : counters_(session.agent().counters()) {}

  // Nothing for a list that is applied nowhere, and for a line some of whose rows have no counter of their
  // own.
  std::optional<uint64_t> of(const agent::AccessList& list, std::size_t rule) const {
    std::optional<uint64_t> total;
    for (const agent::ListCounters& counted : counters_.lists) {
      if (!counted.applied || counted.name.name != list.name || counted.name.family != list.family) {
        continue;
      }
      for (const agent::LineCounter& line : counted.lines) {
        if (line.origin != static_cast<int32_t>(rule)) {
          continue;
        }
        if (!line.counted) {
          return std::nullopt;
        }
        total = total.value_or(0) + line.hits;
      }
    }
    return total;
  }

private:
  agent::Counters counters_;
};

} // namespace

void showOpenConfig(Session& session, const ShowOptions& options) {
  if (!options.pcap.empty()) {
    sendCapture(session, options);
  }
  session.agent().pollCounters();
  const MatchedPackets matched(session);
  agent::OpenConfigOptions written;
  written.state = true;
  written.matchedPackets = [&matched](const agent::AccessList& list, std::size_t rule) {
    return matched.of(list, rule);
  };
  std::vector<std::string> losses;
  std::vector<std::string> notes;
  const std::string text = agent::toOpenConfig(session.config(), losses, notes, written);
  if (!losses.empty()) {
    for (const std::string& loss : losses) {
      std::cerr << loss << '\n';
    }
    throw Exit(exitNo,
               "show openconfig: the running state cannot be said in the OpenConfig models without loss; "
               "show counters has the hits of every line");
  }
  for (const std::string& note : notes) {
    std::cerr << note << '\n';
  }
  std::cout << text;
}

} // namespace tool
