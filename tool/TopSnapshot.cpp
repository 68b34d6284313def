#include "tool/TopSnapshot.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <map>

namespace tool {

namespace {

constexpr const char* rateFormat = "%10.1f"; // as wide as its heading, so that the points stand in a line

std::string fixed(double value, const char* format = "%.1f") {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

// One name a line of a list, also where several lines of a list stand in one line of the file.
std::string keyOf(const Hits::Line& line, std::size_t position) {
  return line.acl + " " + familyName(line.family) + " " + directionName(line.direction) + " " +
         std::to_string(position);
}

std::string bar(uint32_t used, uint32_t rows) {
  constexpr std::size_t width = 30;
  const std::size_t full = rows == 0 ? 0 : (static_cast<std::size_t>(used) * width + rows - 1) / rows;
  return "[" + std::string(full, '#') + std::string(width - full, '.') + "]";
}

std::string cut(const std::string& line, std::size_t width) {
  if (width == 0) {
    return line;
  }
  std::string kept;
  std::size_t shown = 0;
  for (const char c : line) {
    // A continuation octet of UTF-8 belongs to the character before it.
    const bool begins = (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    if (begins && shown++ == width) {
      break;
    }
    kept += c;
  }
  return kept;
}

std::string place(const Hits::Line& line) {
  return line.line ? std::to_string(*line.line) : "";
}

} // namespace

TopSnapshot TopSampler::sample(double seconds, bool ended) {
  TopSnapshot snapshot;
  snapshot.seconds = seconds;
  snapshot.ended = ended;
  snapshot.counts = feed_.counts();
  const double passed = seconds - lastSeconds_;
  const auto rate = [passed](uint64_t now, uint64_t before) {
    return passed <= 0 ? 0 : static_cast<double>(now - before) / passed;
  };
  snapshot.permitRate = rate(snapshot.counts.permit, lastCounts_.permit);
  snapshot.denyRate = rate(snapshot.counts.deny(), lastCounts_.deny());
  snapshot.tables = tables();
  const std::map<std::string, uint64_t> before(lastHits_.begin(), lastHits_.end());
  lastHits_.clear();
  const std::vector<Hits::Line> lines = feed_.hits().lines({}, {});
  for (std::size_t i = 0, position = 0; i < lines.size(); ++i, ++position) {
    const bool otherList =
        i > 0 && (lines[i].acl != lines[i - 1].acl || lines[i].family != lines[i - 1].family ||
                  lines[i].direction != lines[i - 1].direction);
    position = otherList ? 0 : position;
    if (lines[i].hits == 0) {
      continue;
    }
    const std::string key = keyOf(lines[i], position);
    const auto found = before.find(key);
    snapshot.lines.push_back({lines[i], rate(lines[i].hits, found == before.end() ? 0 : found->second)});
    lastHits_.emplace_back(key, lines[i].hits);
  }
  std::stable_sort(snapshot.lines.begin(), snapshot.lines.end(), [](const TopLine& a, const TopLine& b) {
    return a.rate != b.rate ? a.rate > b.rate : a.line.hits > b.line.hits;
  });
  lastSeconds_ = seconds;
  lastCounts_ = snapshot.counts;
  return snapshot;
}

std::vector<TopTable> TopSampler::tables() {
  std::vector<TopTable> tables;
  for (const auto& [number, device] : session_.system().devices()) {
    for (const XpAcl::TcamTableInfo& info : XpAcl::tcamTables) {
      const sim::TcamTable& table = *device->tcam(info.table);
      if (table.numRows() != 0) {
        tables.push_back(
            {number, stringValue(info.tcamType).charPtr(), table.numRows() - 1, usedRows(table)});
      }
    }
  }
  return tables;
}

Json topJson(const TopSnapshot& snapshot, std::size_t maxLines) {
  Json tables = Json::array();
  for (const TopTable& table : snapshot.tables) {
    tables.push_back(
        {{"chip", table.chip}, {"table", table.table}, {"rows", table.rows}, {"used", table.used}});
  }
  Json lines = Json::array();
  for (std::size_t i = 0; i < snapshot.lines.size() && (maxLines == 0 || i < maxLines); ++i) {
    const Hits::Line& line = snapshot.lines[i].line;
    lines.push_back({{"acl", line.acl},
                     {"family", familyName(line.family)},
                     {"direction", directionName(line.direction)},
                     {"line", line.line ? Json(*line.line) : Json(nullptr)},
                     {"rule", line.rule},
                     {"hits", line.hits},
                     {"hitsPerSecond", snapshot.lines[i].rate}});
  }
  return {{"seconds", snapshot.seconds},
          {"ended", snapshot.ended},
          {"packets", snapshot.counts.packets},
          {"permit", snapshot.counts.permit},
          {"deny", snapshot.counts.deny()},
          {"permitPerSecond", snapshot.permitRate},
          {"denyPerSecond", snapshot.denyRate},
          {"tables", tables},
          {"lines", lines}};
}

std::string topText(const TopSnapshot& snapshot, const std::string& title, std::size_t width,
                    std::size_t height) {
  std::string text = title + "  " + fixed(snapshot.seconds) + " s" + (snapshot.ended ? ", ended" : "") + "\n";
  const FeedCounts& counts = snapshot.counts;
  text += columns(
      {{"VERDICT", "PACKETS", "PER SECOND"},
       {"permit", std::to_string(counts.permit), fixed(snapshot.permitRate, rateFormat)},
       {"deny", std::to_string(counts.deny()), fixed(snapshot.denyRate, rateFormat)},
       {"all", std::to_string(counts.packets), fixed(snapshot.permitRate + snapshot.denyRate, rateFormat)}});
  std::vector<std::vector<std::string>> rows{{"CHIP", "TABLE", "USED", "ROWS", ""}};
  for (const TopTable& table : snapshot.tables) {
    rows.push_back({std::to_string(table.chip), table.table, std::to_string(table.used),
                    std::to_string(table.rows), bar(table.used, table.rows)});
  }
  text += "\n" + columns(rows);
  rows.assign(1, {"PER SECOND", "HITS", "LIST", "DIRECTION", "LINE", "RULE"});
  for (const TopLine& line : snapshot.lines) {
    rows.push_back({fixed(line.rate, rateFormat), std::to_string(line.line.hits), line.line.acl,
                    directionName(line.line.direction), place(line.line), line.line.rule});
  }
  text += "\n" + (snapshot.lines.empty() ? std::string("No line was hit.\n") : columns(rows));
  std::string shown;
  std::size_t at = 0;
  for (std::size_t number = 0; at < text.size() && (height == 0 || number < height); ++number) {
    const std::size_t end = text.find('\n', at);
    shown += cut(text.substr(at, end - at), width) + "\n";
    at = end + 1;
  }
  return shown;
}

} // namespace tool
