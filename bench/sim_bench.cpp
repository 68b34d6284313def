#include <cstdint>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "packet/Packet.h"
#include "sim/Device.h"
#include "sim/Pipeline.h"
#include "sim/System.h"

// Speed of the simulated chip: TCAM lookups on rule sets that look like published ones (prefix pairs, few
// protocols, some ports), row writes, and whole packets through the pipeline.

namespace {

using namespace XpXdk;

struct Rules {
  std::vector<sim::TcamRow> rows;
  std::vector<packet::Packet> packets;
};

void put32(uint8_t* at, uint32_t v) {
  for (int i = 0; i < 4; ++i) {
    at[i] = static_cast<uint8_t>(v >> (24 - 8 * i));
  }
}

// `count` IPv4 rows of ACL id 1 and packets drawn from them, nine in ten of which hit a rule.
Rules makeRules(uint32_t count) {
  std::mt19937 random(1);
  Rules rules;
  const IaclKeyLayout& layout = *iaclKeyLayout(IACL_V4_KEY_TYPE);
  const auto at = [&](IaclIpField field) { return layout.fields[field].offset; };
  const auto prefixMask = [&] {
    const unsigned lengths[] = {32, 32, 32, 24, 24, 27, 20, 16};
    return ~uint32_t{0} >> (lengths[random() % 8] - 1) >> 1;
  };
  std::vector<packet::Packet> drawn;
  for (uint32_t i = 0; i < count; ++i) {
    sim::TcamRow row;
    packet::Packet p;
    p.l3 = packet::L3::ipv4;
    p.ttl = 64;
    p.hasL4 = true;
    p.protocol = random() % 4 == 0 ? packet::protoUdp : packet::protoTcp;
    p.srcPort = static_cast<uint16_t>(random());
    p.dstPort = static_cast<uint16_t>(random() % 1024);
    // Sources and destinations cluster, as they do in real lists.
    p.srcV4Is(0x0A000000 | (random() % 16) << 16 | (random() & 0xFFFF));
    p.dstV4Is(0xC0A80000 | (random() & 0xFFFF));
    const sim::TcamKeyBytes key = sim::buildKey(TACL_V4_IACL, p, 1, sim::Role::port, 0);
    row.value = key;
    row.mask[at(IACL_IP_ACL_ID)] = row.mask[at(IACL_IP_ACL_ID) + 1] = 0;
    row.mask[at(IACL_IP_FLAGS)] = 0xFE;
    put32(&row.mask[at(IACL_IP_SRC_ADDR)], prefixMask());
    put32(&row.mask[at(IACL_IP_DST_ADDR)], prefixMask());
    if (random() % 8 != 0) {
      row.mask[at(IACL_IP_PROTO)] = 0;
    }
    if (random() % 3 != 0) {
      row.mask[at(IACL_IP_DST_L4)] = row.mask[at(IACL_IP_DST_L4) + 1] = 0;
    }
    rules.rows.push_back(row);
    drawn.push_back(p);
  }
  for (uint32_t i = 0; i < 16384; ++i) {
    packet::Packet p = drawn[random() % drawn.size()];
    if (i % 10 == 0) {
      p.dstV4Is(static_cast<uint32_t>(random()));
    }
    rules.packets.push_back(p);
  }
  return rules;
}

sim::TcamTable makeTable(const Rules& rules, uint32_t numRows) {
  sim::TcamTable table(numRows, iaclKeyLayout(IACL_V4_KEY_TYPE)->length, 1);
  for (uint32_t i = 0; i < rules.rows.size(); ++i) {
    table.keyMaskIs(i, rules.rows[i].value, rules.rows[i].mask);
    table.dataIs(i, 0, 6);
    table.validIs(i, true);
  }
  return table;
}

std::vector<sim::TcamKeyBytes> makeKeys(const Rules& rules) {
  std::vector<sim::TcamKeyBytes> keys;
  for (const packet::Packet& p : rules.packets) {
    keys.push_back(sim::buildKey(TACL_V4_IACL, p, 1, sim::Role::port, 0));
  }
  return keys;
}

void BM_Lookup(benchmark::State& state) {
  const auto count = static_cast<uint32_t>(state.range(0));
  const Rules rules = makeRules(count);
  const sim::TcamTable table = makeTable(rules, count + 1);
  const std::vector<sim::TcamKeyBytes> keys = makeKeys(rules);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.lookup(keys[i]));
    i = (i + 1) % keys.size();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Lookup)->Arg(100)->Arg(1000)->Arg(10000)->Arg(30000);

void BM_LookupBatch(benchmark::State& state) {
  const auto count = static_cast<uint32_t>(state.range(0));
  const Rules rules = makeRules(count);
  const sim::TcamTable table = makeTable(rules, count + 1);
  const std::vector<sim::TcamKeyBytes> keys = makeKeys(rules);
  std::vector<uint32_t> rows(keys.size());
  for (auto _ : state) {
    table.lookup(keys, rows);
    benchmark::DoNotOptimize(rows.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(keys.size()));
}
BENCHMARK(BM_LookupBatch)->Arg(1000)->Arg(10000);

void BM_LinearLookup(benchmark::State& state) {
  const auto count = static_cast<uint32_t>(state.range(0));
  const Rules rules = makeRules(count);
  const sim::TcamTable table = makeTable(rules, count + 1);
  const std::vector<sim::TcamKeyBytes> keys = makeKeys(rules);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.linearLookup(keys[i]));
    i = (i + 1) % keys.size();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LinearLookup)->Arg(1000);

// A row taken out and written anew, into a table that is otherwise full.
void BM_RowWrite(benchmark::State& state) {
  const auto count = static_cast<uint32_t>(state.range(0));
  const Rules rules = makeRules(count);
  sim::TcamTable table = makeTable(rules, count + 1);
  uint32_t i = 0;
  for (auto _ : state) {
    table.validIs(i, false);
    table.keyMaskIs(i, rules.rows[(i + 7) % count].value, rules.rows[(i + 7) % count].mask);
    table.dataIs(i, 0, 6);
    table.validIs(i, true);
    i = (i + 1) % count;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RowWrite)->Arg(1000)->Arg(10000);

// Packets through port lookup, key, search, data and counter.
void BM_Judge(benchmark::State& state) {
  const auto count = static_cast<uint32_t>(state.range(0));
  const Rules rules = makeRules(count);
  sim::DeviceConfig config;
  config.rows(TACL_V4_IACL) = count + 1;
  sim::System system(config);
  *system.device(0)->tcam(TACL_V4_IACL) = makeTable(rules, count + 1);
  system.device(0)->portConfig()[1] = {1, 1, 0};
  sim::Ingress ingress;
  ingress.in.port = 1;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(sim::judge(system, rules.packets[i], ingress));
    i = (i + 1) % rules.packets.size();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Judge)->Arg(1000)->Arg(10000);

} // namespace

BENCHMARK_MAIN();
