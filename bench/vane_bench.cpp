#include "Vane/Vane.h"

#include <benchmark/benchmark.h>

#include <cstdint>

// What the framework costs: the paths that every staged rule and every notification take.

namespace Demo {

class Table : public Vane::PtrInterface {
public:
  VANE_ENTITY(Demo, Table, Vane::PtrInterface, SCALAR(Vane::U32, level, Level, 0),
              MAP(Vane::U32, Vane::U32, row, Row), ORDERED_MAP(Vane::U32, bool, free, Free))
};
VANE_FACTORY(Table, tableFactory)

class Reader : public Vane::PtrInterface {
public:
  VANE_STATE_MACHINE(Demo, Reader, Vane::PtrInterface)
  VANE_REACTOR(Reader, Table, table, Table, ON_KEYED(Row, Vane::U32))
  VANE_REACTORS(table)
  void handleRow(Vane::U32 row) { sum += row; }
  void handleRow() {}
  Vane::U64 sum = 0;
};
VANE_FACTORY(Reader, readerFactory)

class RuleId {
public:
  VANE_VALUE(Demo, RuleId, (Vane::U32, ruleNum, 0), (Vane::U32, subRuleNum, 0))
};

} // namespace Demo

namespace {

using Vane::U32;

void noChangeWrite(benchmark::State& state) {
  const auto table = Demo::tableFactory();
  table->rowIs(7, 1);
  for (auto _ : state) {
    table->rowIs(7, 1);
  }
}
BENCHMARK(noChangeWrite);

void writeWithoutNotifiee(benchmark::State& state) {
  const auto table = Demo::tableFactory();
  U32 value = 0;
  for (auto _ : state) {
    table->rowIs(7, ++value);
  }
}
BENCHMARK(writeWithoutNotifiee);

void notifyOneReactor(benchmark::State& state) {
  const auto table = Demo::tableFactory();
  const auto reader = Demo::readerFactory();
  reader->tableIs(table);
  U32 row = 0;
  for (auto _ : state) {
    table->rowNotify(++row);
  }
  benchmark::DoNotOptimize(reader->sum);
}
BENCHMARK(notifyOneReactor);

void hashFind(benchmark::State& state) {
  Vane::HashMap2018<U32, U32> map;
  const auto count = static_cast<U32>(state.range(0));
  for (U32 key = 0; key < count; ++key) {
    map.insert(key, key);
  }
  U32 key = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(key));
    key = key + 7919 < count ? key + 7919 : key + 7919 - count;
  }
}
BENCHMARK(hashFind)->Arg(8000)->Arg(32768);

void hashInsertErase(benchmark::State& state) {
  Vane::HashMap2018<Demo::RuleId, U32> map;
  for (U32 key = 0; key < 1000; ++key) {
    map.insert(Demo::RuleId(key, 0), key);
  }
  U32 key = 1000;
  for (auto _ : state) {
    map.insert(Demo::RuleId(key, 0), key);
    map.erase(Demo::RuleId(key - 1000, 0));
    ++key;
  }
}
BENCHMARK(hashInsertErase);

// A pool of free rows: the lowest row leaves, a row comes back at the end.
void treePopFirstAppend(benchmark::State& state) {
  Vane::RbTreeMap<U32, bool> pool;
  const auto count = static_cast<U32>(state.range(0));
  for (U32 row = 0; row < count; ++row) {
    pool.insert(row, true);
  }
  U32 row = count;
  for (auto _ : state) {
    pool.erase(pool.first().key());
    pool.insert(row++, true);
  }
}
BENCHMARK(treePopFirstAppend)->Arg(4096)->Arg(32768);

void treeWalk(benchmark::State& state) {
  Vane::RbTreeMap<U32, bool> pool;
  for (U32 row = 0; row < 4096; ++row) {
    pool.insert(row, true);
  }
  for (auto _ : state) {
    U32 sum = 0;
    for (const auto& member : pool) {
      sum += member.key();
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * 4096);
}
BENCHMARK(treeWalk);

void traceToRing(benchmark::State& state) {
  const Vane::TraceHandle handle("bench");
  U32 row = 0;
  for (auto _ : state) {
    VANE_TRACE(handle, 7, "bench",
               "Bench::"
                   << "traceToRing"
                   << " row " << ++row << " of " << 4096 << " on " << true);
  }
}
BENCHMARK(traceToRing);

void traceOff(benchmark::State& state) {
  const Vane::TraceHandle handle("bench");
  Ringlog::defaultRinglogHandle.levelIs(8, false);
  U32 row = 0;
  for (auto _ : state) {
    VANE_TRACE(handle, 8, "bench", "row " << row);
    benchmark::DoNotOptimize(++row);
  }
  Ringlog::defaultRinglogHandle.levelIs(8, true);
}
BENCHMARK(traceOff);

void newObject(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(Demo::tableFactory());
  }
}
BENCHMARK(newObject);

} // namespace

BENCHMARK_MAIN();
