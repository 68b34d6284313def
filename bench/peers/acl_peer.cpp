#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <time.h>

#include <rte_acl.h>
#include <rte_eal.h>
#include <rte_errno.h>

#include "bench/ClassBenchSets.h"
#include "sim/TcamTable.h"

// The search of the simulated TCAM beside that of the ACL library of Debian's libdpdk-dev, which builds
// tries from a whole list of filters: the same filters, the same headers, in one run, on one thread. Prints
// millions of headers a second of processor time and the ratio of the two. Both answers are compared with a
// search row by row for some headers; a difference ends the program with status 1.

namespace {

// The library has a function and an enumeration of one name.
using Way = enum rte_acl_classify_alg;

constexpr unsigned numFields = 5;
constexpr std::size_t batchSize = 1024;
constexpr int numPasses = 25; // the fastest counts

// What the library reads of a header, in network order.
struct [[gnu::packed]] Tuple {
  uint8_t protocol;
  uint32_t src;
  uint32_t dst;
  uint16_t srcPort;
  uint16_t dstPort;
};

RTE_ACL_RULE_DEF(Rule, numFields);

double seconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// The library's tries for a list of filters.
class Peer {
public:
  explicit Peer(const bench::Filters& filters);
  ~Peer() { rte_acl_free(context_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  bool built() const { return built_; }
  double secondsToBuild() const { return secondsToBuild_; }
  // For each header the number of its filter counted from 1, or 0.
  bool classify(Way how, const uint8_t** tuples, uint32_t* filters, std::size_t count) const {
    return rte_acl_classify_alg(context_, tuples, filters, static_cast<uint32_t>(count), 1, how) == 0;
  }

private:
  static Rule ruleOf(const bench::Filter& filter, std::size_t number, std::size_t count);
  static rte_acl_config configuration();

  rte_acl_ctx* context_ = nullptr;
  bool built_ = false;
  double secondsToBuild_ = 0;
};

Rule Peer::ruleOf(const bench::Filter& f, std::size_t number, std::size_t count) {
  Rule rule{};
  rule.data.category_mask = 1;
  rule.data.priority = static_cast<int32_t>(count - number);
  rule.data.userdata = static_cast<uint32_t>(number + 1);
  rule.field[0].value.u8 = f.protocol;
  rule.field[0].mask_range.u8 = f.protocolMask;
  rule.field[1].value.u32 = f.src;
  rule.field[1].mask_range.u32 = f.srcLength;
  rule.field[2].value.u32 = f.dst;
  rule.field[2].mask_range.u32 = f.dstLength;
  rule.field[3].value.u16 = f.srcLow;
  rule.field[3].mask_range.u16 = f.srcHigh;
  rule.field[4].value.u16 = f.dstLow;
  rule.field[4].mask_range.u16 = f.dstHigh;
  return rule;
}

rte_acl_config Peer::configuration() {
  rte_acl_config config{};
  config.num_categories = 1;
  config.num_fields = numFields;
  config.defs[0] = {RTE_ACL_FIELD_TYPE_BITMASK, 1, 0, 0, offsetof(Tuple, protocol)};
  config.defs[1] = {RTE_ACL_FIELD_TYPE_MASK, 4, 1, 1, offsetof(Tuple, src)};
  config.defs[2] = {RTE_ACL_FIELD_TYPE_MASK, 4, 2, 2, offsetof(Tuple, dst)};
  config.defs[3] = {RTE_ACL_FIELD_TYPE_RANGE, 2, 3, 3, offsetof(Tuple, srcPort)};
  config.defs[4] = {RTE_ACL_FIELD_TYPE_RANGE, 2, 4, 3, offsetof(Tuple, dstPort)};
  return config;
}

Peer::Peer(const bench::Filters& filters) {
  rte_acl_param param{};
  param.name = "peer";
  param.rule_size = RTE_ACL_RULE_SZ(numFields);
  param.max_rule_num = static_cast<uint32_t>(filters.size());
  context_ = rte_acl_create(&param);
  if (!context_) {
    return;
  }
  std::vector<Rule> rules;
  for (std::size_t i = 0; i < filters.size(); ++i) {
    rules.push_back(ruleOf(filters[i], i, filters.size()));
  }
  const rte_acl_config config = configuration();
  const double begin = seconds();
  built_ = rte_acl_add_rules(context_, reinterpret_cast<const rte_acl_rule*>(rules.data()),
                             static_cast<uint32_t>(rules.size())) == 0 &&
           rte_acl_build(context_, &config) == 0;
  secondsToBuild_ = seconds() - begin;
}

// Headers in the forms that the two searches take.
struct Trace {
  std::vector<sim::TcamKeyBytes> keys;
  std::vector<Tuple> tuples;
  std::vector<const uint8_t*> pointers;

  explicit Trace(const bench::Headers& headers) : keys(bench::makeKeys(headers)) {
    for (const bench::Header& h : headers) {
      tuples.push_back({h.protocol, htonl(h.src), htonl(h.dst), htons(h.srcPort), htons(h.dstPort)});
    }
    for (const Tuple& tuple : tuples) {
      pointers.push_back(reinterpret_cast<const uint8_t*>(&tuple));
    }
  }
};

// Calls search(begin, count) for all headers, `step` at a time. Millions of headers a second.
template <class Search>
double passRate(std::size_t size, std::size_t step, Search search) {
  const double begin = seconds();
  std::size_t searched = 0;
  do {
    for (std::size_t at = 0; at < size; at += step) {
      search(at, std::min(step, size - at));
    }
    searched += size;
  } while (seconds() - begin < 0.02);
  return static_cast<double>(searched) / (seconds() - begin) * 1e-6;
}

class Contest {
public:
  Contest(std::string name, const bench::Filters& filters);
  bool run(const char* traceName, const bench::Headers& headers);

private:
  bool agree(const Trace& trace, Way how, const char* traceName) const;
  // Trees and tries in turn, so that both meet the machine in the same state.
  std::pair<double, double> rates(Trace& trace, std::size_t step, const std::vector<Way>& ways) const;

  std::string name_;
  std::size_t numFilters_;
  sim::TcamTable table_{0, 17, 1};
  std::vector<uint32_t> filterOf_; // by row, counted from 1
  double secondsToFill_ = 0;
  Peer peer_;
  bool described_ = false;
};

Contest::Contest(std::string name, const bench::Filters& filters)
    : name_(std::move(name)), numFilters_(filters.size()), peer_(filters) {
  const std::vector<sim::TcamRow> rows = bench::makeRows(filters);
  for (std::size_t i = 0; i < filters.size(); ++i) {
    filterOf_.resize(filterOf_.size() + bench::makeRows({filters[i]}).size(), static_cast<uint32_t>(i + 1));
  }
  table_ = sim::TcamTable(static_cast<uint32_t>(rows.size()), 17, 1);
  const double begin = seconds();
  for (uint32_t i = 0; i < rows.size(); ++i) {
    table_.keyMaskIs(i, rows[i].value, rows[i].mask);
    table_.validIs(i, true);
  }
  secondsToFill_ = seconds() - begin;
}

bool Contest::agree(const Trace& trace, Way how, const char* traceName) const {
  const auto filter = [this](uint32_t row) { return row == sim::noTcamRow ? 0 : filterOf_[row]; };
  for (std::size_t i = 0; i < trace.keys.size(); i += std::max<std::size_t>(trace.keys.size() / 500, 1)) {
    const uint32_t expected = filter(table_.linearLookup(trace.keys[i]));
    const uint32_t trees = filter(table_.lookup(trace.keys[i]));
    uint32_t tries = 0;
    const uint8_t* pointer = trace.pointers[i];
    if (!peer_.classify(how, &pointer, &tries, 1) || trees != expected || tries != expected) {
      std::printf("%s, %s, header %zu: the first filter is %u; the trees say %u, the library says %u\n",
                  name_.c_str(), traceName, i, expected, trees, tries);
      return false;
    }
  }
  return true;
}

std::pair<double, double> Contest::rates(Trace& trace, std::size_t step, const std::vector<Way>& ways) const {
  std::vector<uint32_t> found(step);
  double trees = 0;
  double tries = 0;
  for (int pass = 0; pass < numPasses; ++pass) {
    trees = std::max(trees, passRate(trace.keys.size(), step, [&](std::size_t at, std::size_t count) {
                       if (count == 1) {
                         found[0] = table_.lookup(trace.keys[at]);
                       } else {
                         table_.lookup({&trace.keys[at], count}, found);
                       }
                     }));
    for (const Way how : ways) {
      tries = std::max(tries, passRate(trace.keys.size(), step, [&](std::size_t at, std::size_t count) {
                         peer_.classify(how, &trace.pointers[at], found.data(), count);
                       }));
    }
  }
  return {trees, tries};
}

bool Contest::run(const char* traceName, const bench::Headers& headers) {
  if (!peer_.built()) {
    std::printf("%s: the library cannot build its tries: %s\n", name_.c_str(), rte_strerror(rte_errno));
    return false;
  }
  Trace trace(headers);
  std::vector<Way> ways;
  uint32_t result;
  for (const Way how : {RTE_ACL_CLASSIFY_SSE, RTE_ACL_CLASSIFY_AVX2, RTE_ACL_CLASSIFY_AVX512X16,
                        RTE_ACL_CLASSIFY_AVX512X32}) {
    if (peer_.classify(how, trace.pointers.data(), &result, 1)) {
      ways.push_back(how);
    }
  }
  for (const Way how : ways) {
    if (!agree(trace, how, traceName)) {
      return false;
    }
  }
  const auto [trees, tries] = rates(trace, batchSize, ways);
  const auto [oneTree, oneTry] = rates(trace, 1, ways);
  std::printf("%-14s %6zu %6zu  %-8s  %7.1f %7.1f %6.2f  %7.1f %7.1f %6.2f\n", name_.c_str(), numFilters_,
              filterOf_.size(), traceName, trees, tries, trees / tries, oneTree, oneTry, oneTree / oneTry);
  if (!described_) {
    described_ = true;
    std::printf(
        "    all rows written: %.1f ms, %.2f us a row; the library builds its tries in %.1f ms, at every "
        "change\n",
        secondsToFill_ * 1e3, secondsToFill_ * 1e6 / static_cast<double>(filterOf_.size()),
        peer_.secondsToBuild() * 1e3);
  }
  return true;
}

bool contest(const std::string& name, const bench::Filters& filters, const bench::Headers& headers) {
  Contest contest(name, filters);
  return contest.run("trace", headers) && contest.run("shuffled", bench::shuffled(headers, 3));
}

bool contests() {
  std::printf(
      "Million headers a second, a thread; ratio above 1: the trees of the simulated TCAM are ahead.\n\n");
  std::printf("%-14s %6s %6s  %-8s  %23s  %23s\n", "", "", "", "", "batches of 1024    ", "one by one      ");
  std::printf("%-14s %6s %6s  %-8s  %7s %7s %6s  %7s %7s %6s\n", "set", "filters", "rows", "headers", "trees",
              "tries", "ratio", "trees", "tries", "ratio");
  bool agreed = true;
  for (const char* const name : {"acl1_1k", "fw1_1k", "ipc1_1k"}) {
    const std::string path = bench::publishedPath(name);
    const bench::Filters filters = bench::readFilters(path);
    const bench::Headers headers = bench::readTrace(path + "_trace");
    if (!filters.empty() && !headers.empty()) {
      agreed = contest(name, filters, headers) && agreed;
    }
  }
  const std::pair<const char*, bench::Style> styles[] = {
      {"acl", bench::Style::acl}, {"fw", bench::Style::fw}, {"ipc", bench::Style::ipc}};
  for (const unsigned count : {1000u, 10000u}) {
    for (const auto& [name, style] : styles) {
      const bench::Filters filters = bench::makeFilters(style, count, 1);
      agreed = contest(name, filters, bench::makeTrace(filters, std::max(10 * count, 10240u), 2)) && agreed;
    }
  }
  return agreed;
}

} // namespace

int main() {
  // The library wants its environment, of which the search uses nothing but memory.
  std::string words[] = {"acl_peer",    "--no-huge",   "--no-pci",      "--no-telemetry",
                         "--no-shconf", "-m",          "2048",          "--lcores",
                         "0@(0-1)",     "--log-level", "lib.eal:error", "--force-max-simd-bitwidth=512"};
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  if (rte_eal_init(static_cast<int>(arguments.size()), arguments.data()) < 0) {
    std::printf("the library's environment cannot be set up: %s\n", rte_strerror(rte_errno));
    return 1;
  }
  return contests() ? 0 : 1;
}
