#include "packet/Capture.h"
#include "tool/JsonDocument.h"
#include "tool/Show.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>

namespace tool {

void sendCapture(Session& session, const ShowOptions& options) {
  const PortRef in = options.in.empty() ? session.onlyIngressPort() : session.port(options.in, "--in");
  std::optional<PortRef> out;
  if (!options.out.empty()) {
    out = session.port(options.out, "--out");
  }
  std::optional<uint16_t> vlan;
  if (options.vlan != 0) {
    vlan = static_cast<uint16_t>(options.vlan);
  }
  packet::CaptureReader capture(options.pcap);
  packet::Frame frame;
  Progress progress("packets judged:");
  for (uint64_t packets = 1; capture.next(frame); ++packets) {
    session.judge(capture.dissect(frame), in, out ? &*out : nullptr, vlan);
    progress.at(packets);
  }
}

namespace {

std::string lineNumber(const agent::ListCounters& list, const agent::LineCounter& line) {
  return line.origin < 0
             ? ""
             : std::to_string(list.acl->source.rules[static_cast<std::size_t>(line.origin)].loc.line);
}

std::vector<agent::LineCounter> sorted(const agent::ListCounters& list, bool byHits) {
  std::vector<agent::LineCounter> lines = list.lines;
  if (byHits) {
    std::stable_sort(
        lines.begin(), lines.end(),
        [](const agent::LineCounter& a, const agent::LineCounter& b) { return a.hits > b.hits; });
  }
  return lines;
}

void printCounters(const agent::Counters& counters, bool byHits) {
  Json lists = Json::array();
  for (const agent::ListCounters& list : counters.lists) {
    Json lines = Json::array();
    for (const agent::LineCounter& line : sorted(list, byHits)) {
      const std::string number = lineNumber(list, line);
      lines.push_back({{"line", number.empty() ? Json(nullptr) : Json(std::stoul(number))},
                       {"rule", list.acl->textOf(line.origin)},
                       {"hits", line.hits},
                       {"counted", line.counted}});
    }
    lists.push_back({{"acl", list.name.name},
                     {"family", familyName(list.name.family)},
                     {"direction", directionName(list.name.direction)},
                     {"applied", list.applied},
                     {"lines", lines},
                     {"removed", list.removed}});
  }
  printJson("show",
            {{"what", "counters"},
             {"lists", lists},
             {"implicitDeny", {{"in", counters.implicitDeny[0]}, {"out", counters.implicitDeny[1]}}}});
}

void printText(const agent::Counters& counters, bool byHits) {
  bool uncounted = false;
  for (const agent::ListCounters& list : counters.lists) {
    std::cout << bold(list.name.name) << " (" << familyName(list.name.family) << ", "
              << directionName(list.name.direction) << (list.applied ? ")" : "), not applied any more")
              << "\n";
    std::vector<std::vector<std::string>> rows{{"HITS", "LINE", "RULE"}};
    for (const agent::LineCounter& line : sorted(list, byHits)) {
      uncounted = uncounted || !line.counted;
      rows.push_back({std::to_string(line.hits) + (line.counted ? "" : "*"), lineNumber(list, line),
                      list.acl->textOf(line.origin)});
    }
    if (list.removed != 0) {
      rows.push_back({std::to_string(list.removed), "", "(lines that are not in the list any more)"});
    }
    std::cout << columns(rows, "  ");
  }
  if (counters.lists.empty()) {
    std::cout << "No list is applied, so nothing is counted.\n";
    return;
  }
  if (uncounted) {
    std::cout << "* some row of the line has no counter of its own: its table is too full\n";
  }
  std::cout << "The implicit denies of all lists count together: " << counters.implicitDeny[0] << " in, "
            << counters.implicitDeny[1] << " out\n";
}

} // namespace

void showCounters(Session& session, const ShowOptions& options) {
  if (!options.pcap.empty()) {
    sendCapture(session, options);
  }
  session.agent().pollCounters();
  const agent::Counters counters = session.agent().counters();
  if (options.json) {
    printCounters(counters, options.byHits);
  } else {
    printText(counters, options.byHits);
  }
}

} // namespace tool
