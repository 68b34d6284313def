#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/ClassBenchSets.h"
#include "packet/Dissect.h"
#include "sim/Pipeline.h"
#include "sim/System.h"
#include "sim/TcamTable.h"

// Speed of the search in a TCAM table and of writes to it, on filter sets in the style of published ones,
// made here, and on published ones where they are (publishedPath). Names:
//
//   lookup/STYLE/TRACE/one-by-one/FILTERS   a lookup for each key
//   lookup/STYLE/TRACE/batch/FILTERS        lookups of 1024 keys at a time
//   rowWrite/KIND/ROWS                      a row of a table of firewall rows
//   replay/...                              a frame of 64 bytes: dissected and judged, in bursts
//   replay/.../one-by-one                   the same, each frame by itself
//
// TRACE is `trace` (headers drawn from the filters, which come in bursts, as the published generator makes
// them) or `shuffled` (the same columns in other orders: few headers come twice). Before anything is timed
// the answers for some keys are compared with those of a search row by row.

namespace {

using bench::Style;

constexpr std::size_t batchSize = 1024;
constexpr std::size_t burstSize = 256; // frames

struct Set {
  sim::TcamTable table;
  std::vector<sim::TcamKeyBytes> trace;
  std::vector<sim::TcamKeyBytes> shuffled;
  std::size_t numRows;
};

sim::TcamTable makeTable(const std::vector<sim::TcamRow>& rows, unsigned keyLength) {
  sim::TcamTable table(static_cast<uint32_t>(rows.size()), keyLength, 1);
  for (uint32_t i = 0; i < rows.size(); ++i) {
    table.keyMaskIs(i, rows[i].value, rows[i].mask);
    table.validIs(i, true);
  }
  return table;
}

Set makeSet(const bench::Filters& filters, const bench::Headers& headers, bool ipv6) {
  const bench::Headers mixed = bench::shuffled(headers, 3);
  const std::vector<sim::TcamRow> rows = ipv6 ? bench::makeRows6(filters) : bench::makeRows(filters);
  return {makeTable(rows, ipv6 ? 41 : 17), ipv6 ? bench::makeKeys6(headers) : bench::makeKeys(headers),
          ipv6 ? bench::makeKeys6(mixed) : bench::makeKeys(mixed), rows.size()};
}

// Sets are made when first asked for, and kept.
const Set& set(const std::string& name, const std::function<Set()>& make) {
  static std::map<std::string, std::unique_ptr<Set>> sets;
  std::unique_ptr<Set>& entry = sets[name];
  if (!entry) {
    entry = std::make_unique<Set>(make());
  }
  return *entry;
}

// Whether the table answers for some keys as a search row by row does.
bool agrees(const sim::TcamTable& table, const std::vector<sim::TcamKeyBytes>& keys) {
  std::vector<uint32_t> rows(keys.size());
  table.lookup(keys, rows);
  const std::size_t step = std::max<std::size_t>(keys.size() / 300, 1);
  for (std::size_t i = 0; i < keys.size(); i += step) {
    const uint32_t expected = table.linearLookup(keys[i]);
    if (rows[i] != expected || table.lookup(keys[i]) != expected) {
      return false;
    }
  }
  return true;
}

void describe(benchmark::State& state, const Set& set) {
  const sim::LookupTree::Figures figures = set.table.lookupFigures();
  state.counters["rows"] = static_cast<double>(set.numRows);
  state.counters["bytes"] = static_cast<double>(figures.bytes);
  state.counters["trees"] = figures.trees;
  state.counters["copies"] = static_cast<double>(figures.copies) / static_cast<double>(figures.rows);
}

void oneByOne(benchmark::State& state, const Set& set, const std::vector<sim::TcamKeyBytes>& keys) {
  if (!agrees(set.table, keys)) {
    state.SkipWithError("a lookup differs from the search row by row");
    return;
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(set.table.lookup(keys[i]));
    i = i + 1 == keys.size() ? 0 : i + 1;
  }
  state.SetItemsProcessed(state.iterations());
  describe(state, set);
}

void batches(benchmark::State& state, const Set& set, const std::vector<sim::TcamKeyBytes>& keys) {
  if (!agrees(set.table, keys)) {
    state.SkipWithError("a lookup differs from the search row by row");
    return;
  }
  std::vector<uint32_t> rows(batchSize);
  const std::size_t numBatches = keys.size() / batchSize;
  std::size_t i = 0;
  for (auto _ : state) {
    set.table.lookup({&keys[i * batchSize], batchSize}, rows);
    benchmark::DoNotOptimize(rows.data());
    i = i + 1 == numBatches ? 0 : i + 1;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(batchSize));
  describe(state, set);
}

void addLookups(const std::string& style, const std::string& size, const std::function<Set()>& make) {
  const std::string name = style + "/" + size;
  for (const bool isShuffled : {false, true}) {
    const auto keys = [isShuffled](const Set& s) -> const std::vector<sim::TcamKeyBytes>& {
      return isShuffled ? s.shuffled : s.trace;
    };
    const std::string prefix = "lookup/" + style + (isShuffled ? "/shuffled/" : "/trace/");
    benchmark::RegisterBenchmark((prefix + "one-by-one/" + size).c_str(), [=](benchmark::State& state) {
      const Set& s = set(name, make);
      oneByOne(state, s, keys(s));
    });
    benchmark::RegisterBenchmark((prefix + "batch/" + size).c_str(), [=](benchmark::State& state) {
      const Set& s = set(name, make);
      batches(state, s, keys(s));
    });
  }
}

// Rows of firewall filters, which hold the most ranges, and a table of the first `count` of them.
struct Writes {
  std::vector<sim::TcamRow> rows;
  std::vector<sim::TcamRow> others; // of the same style
  sim::TcamTable table;
  std::vector<uint32_t> order; // of rows, at random

  explicit Writes(uint32_t count)
      : rows(bench::makeRows(bench::makeFilters(Style::fw, count, 1))),
        others(bench::makeRows(bench::makeFilters(Style::fw, count, 99))), table(count, 17, 1), order(count) {
    rows.resize(count);
    others.resize(count);
    for (uint32_t i = 0; i < count; ++i) {
      table.keyMaskIs(i, rows[i].value, rows[i].mask);
      table.validIs(i, true);
    }
    std::iota(order.begin(), order.end(), 0u);
    std::shuffle(order.begin(), order.end(), std::mt19937_64(7));
  }
};

Writes& writes(uint32_t count) {
  static std::map<uint32_t, std::unique_ptr<Writes>> all;
  std::unique_ptr<Writes>& entry = all[count];
  if (!entry) {
    entry = std::make_unique<Writes>(count);
  }
  return *entry;
}

constexpr uint32_t stretch = 512; // rows written before the table is put back, untimed

// A valid row becomes another of the same list, or one of a list whose addresses are all others.
void rewrite(benchmark::State& state, bool foreign) {
  Writes& w = writes(static_cast<uint32_t>(state.range(0)));
  std::size_t i = 0;
  bool other = true;
  for (auto _ : state) {
    const uint32_t row = w.order[i];
    const sim::TcamRow& now =
        foreign ? (other ? w.others : w.rows)[row] : w.rows[(row + (other ? 1 : 0)) % w.rows.size()];
    w.table.keyMaskIs(row, now.value, now.mask);
    if (++i == w.order.size()) {
      i = 0;
      other = !other;
    }
  }
  for (uint32_t row = 0; row < w.rows.size(); ++row) {
    w.table.keyMaskIs(row, w.rows[row].value, w.rows[row].mask);
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["bytes/row"] =
      static_cast<double>(w.table.lookupFigures().bytes) / static_cast<double>(w.order.size());
}

// Rows go, or come into rows that are not valid.
void validity(benchmark::State& state, bool comes) {
  Writes& w = writes(static_cast<uint32_t>(state.range(0)));
  const uint32_t step = std::min<uint32_t>(stretch, static_cast<uint32_t>(w.order.size()) / 2);
  std::size_t begin = 0;
  const auto put = [&](bool valid) {
    for (uint32_t i = 0; i < step; ++i) {
      w.table.validIs(w.order[begin + i], valid);
    }
  };
  while (state.KeepRunningBatch(step)) {
    if (comes) {
      state.PauseTiming();
      put(false);
      state.ResumeTiming();
      put(true);
    } else {
      put(false);
      state.PauseTiming();
      put(true);
      state.ResumeTiming();
    }
    begin = begin + 2 * step <= w.order.size() ? begin + step : 0;
  }
  state.SetItemsProcessed(state.iterations());
}

// The row at the end of a gap moves over it, as rows do that make place for others: two writes.
void move(benchmark::State& state) {
  Writes& w = writes(static_cast<uint32_t>(state.range(0)));
  const auto count = static_cast<uint32_t>(w.order.size());
  uint32_t gap = count / 2;
  w.table.validIs(gap, false);
  for (auto _ : state) {
    const uint32_t from = gap == 0 ? count - 1 : gap - 1;
    const sim::TcamRow row = w.table.row(from);
    w.table.keyMaskIs(gap, row.value, row.mask);
    w.table.validIs(gap, true);
    w.table.validIs(from, false);
    gap = from;
  }
  w.table.validIs(gap, true);
  state.SetItemsProcessed(state.iterations());
}

// An empty table takes all rows, in order: a row.
void fill(benchmark::State& state) {
  const Writes& w = writes(static_cast<uint32_t>(state.range(0)));
  const auto count = static_cast<int64_t>(w.rows.size());
  while (state.KeepRunningBatch(count)) {
    benchmark::DoNotOptimize(makeTable(w.rows, 17).numValid());
  }
  state.SetItemsProcessed(state.iterations());
}

// Ethernet, IPv4 and TCP or UDP in 64 bytes, the last four of them the check sequence's place.
std::array<uint8_t, 64> frame(const bench::Header& h) {
  std::array<uint8_t, 64> f{};
  const auto put16 = [&](std::size_t at, uint32_t v) {
    f[at] = static_cast<uint8_t>(v >> 8);
    f[at + 1] = static_cast<uint8_t>(v);
  };
  f[0] = f[6] = 2;
  put16(12, 0x0800);
  f[14] = 0x45;
  put16(16, 46);
  f[22] = 64;
  f[23] = h.protocol;
  put16(26, h.src >> 16);
  put16(28, h.src);
  put16(30, h.dst >> 16);
  put16(32, h.dst);
  put16(34, h.srcPort);
  put16(36, h.dstPort);
  f[46] = 0x50;
  return f;
}

// Frames through dissection, port lookup, key, search, data word and counter.
void replay(benchmark::State& state, Style style, bool isShuffled, bool inBursts) {
  const auto count = static_cast<unsigned>(state.range(0));
  const bench::Filters filters = bench::makeFilters(style, count, 1);
  bench::Headers headers = bench::makeTrace(filters, 100000, 2);
  headers = isShuffled ? bench::shuffled(headers, 3) : headers;
  const std::vector<sim::TcamRow> rows = bench::makeRows(filters);
  sim::DeviceConfig config;
  config.rows(XpXdk::TACL_V4_IACL) = static_cast<uint32_t>(rows.size());
  sim::System system(config);
  *system.device(0)->tcam(XpXdk::TACL_V4_IACL) = makeTable(rows, 17);
  system.device(0)->portConfig()[1] = {1, 1, 0};
  sim::Ingress ingress;
  ingress.in.port = 1;
  std::vector<std::array<uint8_t, 64>> frames;
  for (const bench::Header& header : headers) {
    frames.push_back(frame(header));
  }
  const auto dissected = [&frames](std::size_t i) {
    return packet::dissect(packet::LinkType::ethernet, frames[i].data(), 64, 64);
  };
  const packet::Packet first = dissected(0);
  if (first.l3 != packet::L3::ipv4 || !sim::judge(system, first, ingress).numLookups) {
    state.SkipWithError("the frames are not looked up");
    return;
  }
  std::size_t i = 0;
  const auto next = [&] { i = i + 1 == frames.size() ? 0 : i + 1; };
  if (!inBursts) {
    for (auto _ : state) {
      benchmark::DoNotOptimize(sim::judge(system, dissected(i), ingress));
      next();
    }
    state.SetItemsProcessed(state.iterations());
    return;
  }
  sim::Burst burst(system);
  std::vector<sim::Verdict> verdicts(burstSize);
  for (auto _ : state) {
    for (sim::Verdict& verdict : verdicts) {
      burst.add(dissected(i), ingress, verdict);
      next();
    }
    burst.finish();
    benchmark::DoNotOptimize(verdicts.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(burstSize));
}

// What dissection alone takes.
void dissectOnly(benchmark::State& state) {
  const bench::Headers headers = bench::makeTrace(bench::makeFilters(Style::acl, 1000, 1), 1000, 2);
  std::vector<std::array<uint8_t, 64>> frames;
  for (const bench::Header& header : headers) {
    frames.push_back(frame(header));
  }
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(packet::dissect(packet::LinkType::ethernet, frames[i].data(), 64, 64));
    i = i + 1 == frames.size() ? 0 : i + 1;
  }
  state.SetItemsProcessed(state.iterations());
}

void addPublished() {
  for (const char* const name : {"acl1_1k", "fw1_1k", "ipc1_1k"}) {
    const std::string path = bench::publishedPath(name);
    const bench::Filters filters = bench::readFilters(path);
    const bench::Headers headers = bench::readTrace(path + "_trace");
    if (!filters.empty() && headers.size() >= batchSize) {
      addLookups(std::string("published-") + std::string(name, name[0] == 'f' ? 2 : 3),
                 std::to_string(filters.size()), [=] { return makeSet(filters, headers, false); });
    }
  }
}

void addAll() {
  addPublished();
  const std::pair<const char*, Style> styles[] = {
      {"acl", Style::acl}, {"fw", Style::fw}, {"ipc", Style::ipc}};
  for (const auto& [name, style] : styles) {
    for (const bool ipv6 : {false, true}) {
      for (const unsigned count : {100u, 1000u, 10000u}) {
        addLookups(std::string(name) + (ipv6 ? "6" : ""), std::to_string(count), [=, style = style] {
          const bench::Filters filters = bench::makeFilters(style, count, 1);
          return makeSet(filters, bench::makeTrace(filters, std::max(10 * count, 10240u), 2), ipv6);
        });
      }
    }
  }
  const auto sizes = [](benchmark::internal::Benchmark* b) { b->Arg(1000)->Arg(10000)->Arg(54000); };
  sizes(benchmark::RegisterBenchmark("rowWrite/rewrite", rewrite, false));
  sizes(benchmark::RegisterBenchmark("rowWrite/replace", rewrite, true));
  sizes(benchmark::RegisterBenchmark("rowWrite/invalidate", validity, false));
  sizes(benchmark::RegisterBenchmark("rowWrite/insert", validity, true));
  sizes(benchmark::RegisterBenchmark("rowWrite/move", move));
  sizes(benchmark::RegisterBenchmark("rowWrite/fill", fill));
  benchmark::RegisterBenchmark("replay/dissect", dissectOnly);
  for (const auto& [styleName, style] : styles) {
    const std::string prefix = std::string("replay/") + styleName;
    for (const bool isShuffled : {false, true}) {
      for (const bool inBursts : {true, false}) {
        const std::string name =
            prefix + (isShuffled ? "/shuffled" : "/trace") + (inBursts ? "" : "/one-by-one");
        benchmark::RegisterBenchmark(name.c_str(), replay, style, isShuffled, inBursts)
            ->Arg(100)
            ->Arg(1000)
            ->Arg(10000);
      }
    }
  }
}

} // namespace

int main(int argc, char** argv) {
  addAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
}
