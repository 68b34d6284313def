#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "sim/System.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <optional>
#include <string>

// What a change costs: reading the lines, staging their rows, committing them, retiring them. Figures are
// rows (or lines) a second; the sink is an SDK that accepts everything at once, or the simulated chip.

namespace {

using XpXdk::XP_STATUS;

// Accepts everything and keeps nothing: what is left is the library's own cost.
class NullSdk : public XpXdk::xpIaclMgr,
                public XpXdk::xpAcmMgr,
                public XpXdk::xpAclPl,
                public XpXdk::xpDeviceMgr,
                public XpXdk::xpDevice {
public:
  NullSdk() : aclBefore_(xpAclPl::install(this)), deviceBefore_(xpDeviceMgr::install(this)) {}
  ~NullSdk() override {
    xpAclPl::install(aclBefore_);
    xpDeviceMgr::install(deviceBefore_);
  }

  XP_STATUS writeKeyMask(uint8_t, XpXdk::xpIaclType_e, uint32_t, uint32_t,
                         const XpXdk::xpIaclkeyFieldList*) override {
    return 0;
  }
  XP_STATUS writeData(uint8_t, XpXdk::xpIaclType_e, uint8_t, uint32_t, const XpXdk::xpIaclData_t*) override {
    return 0;
  }
  XP_STATUS setEntryValid(uint8_t, XpXdk::xpIaclType_e, uint32_t, uint8_t) override { return 0; }
  XP_STATUS readEntry(uint8_t, XpXdk::xpIaclType_e, uint32_t, uint32_t&, XpXdk::xpIaclkeyFieldList*,
                      XpXdk::xpIaclData_t*, uint8_t) override {
    return 0;
  }
  XP_STATUS getNumOfEntry(uint8_t, XpXdk::xpIaclType_e, uint32_t& count) override {
    count = 0;
    return 0;
  }
  XP_STATUS readCounter(uint8_t, XpXdk::xpAcmClient_e, uint32_t, uint64_t& count) override {
    count = 0;
    return 0;
  }
  XpXdk::xpIaclMgr* iaclMgr(uint32_t) override { return this; }
  XpXdk::xpAcmMgr* acmMgr() override { return this; }
  XpXdk::xpDevice* device(uint8_t) override { return this; }
  const XpXdk::xpTableProfile* tableProfile() const override { return &profile_; }

private:
  XpXdk::xpAclPl* aclBefore_;
  XpXdk::xpDeviceMgr* deviceBefore_;
  XpXdk::xpTableProfile profile_;
};

std::string listOf(int64_t lines, int64_t variant) {
  std::string text = "ip access-list extended BENCH\n";
  for (int64_t i = 0; i < lines; ++i) {
    const int64_t n = i + variant;
    text += " permit tcp 10." + std::to_string(n / 65536 % 256) + "." + std::to_string(n / 256 % 256) + "." +
            std::to_string(n % 256) + " 0.0.0.0 any eq " + std::to_string(1024 + n % 50000) + "\n";
  }
  return text + "interface Ethernet1\n ip access-group BENCH in\n";
}

void parse(benchmark::State& state) {
  const std::string text = listOf(state.range(0), 0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(agent::readConfigText(text, "bench"));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(parse)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

struct Helper {
  explicit Helper(int64_t lines, bool counters) {
    agent::AgentSetup setup;
    setup.counters = counters;
    setup.tcamRows[agent::Table::ingressV4] = static_cast<uint32_t>(2 * lines + 16);
    agent = std::make_unique<agent::Agent>(setup);
    const agent::Config config = agent::readConfigText(listOf(lines, 0), "bench");
    acl = agent::aggregate(config.lists.front(), true);
    for (std::size_t i = 0; i < acl->source.rules.size() + 3; ++i) {
      uniqueIds.push_back(i + 1);
    }
    data = Plex::aclDataFactory(version.aclKey());
    data->countersEnabledIs(counters);
  }
  NullSdk sdk;
  std::unique_ptr<agent::Agent> agent;
  std::shared_ptr<agent::AggregatedAcl> acl;
  agent::UniqueIds uniqueIds;
  XpAcl::AclKeyInfo version{Plex::AclKey(Vane::String("BENCH"), Acl::ingress, Acl::ipv4, 1), 1, 0};
  Vane::Ptr<Plex::AclData> data;
};

void stageAndCommit(benchmark::State& state, bool counters) {
  Helper helper(state.range(0), counters);
  auto& library = *helper.agent->helper(0);
  for (auto _ : state) {
    agent::stageAcl(library, helper.version, helper.data, *helper.acl, helper.uniqueIds);
    library.commitPendingPlatform(helper.version.aclKey());
    state.PauseTiming();
    library.freeResource(helper.version);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(helper.acl->rows.size()));
}
BENCHMARK_CAPTURE(stageAndCommit, plain, false)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(stageAndCommit, counted, true)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond);

void retire(benchmark::State& state) {
  Helper helper(state.range(0), false);
  auto& library = *helper.agent->helper(0);
  for (auto _ : state) {
    state.PauseTiming();
    agent::stageAcl(library, helper.version, helper.data, *helper.acl, helper.uniqueIds);
    library.commitPendingPlatform(helper.version.aclKey());
    state.ResumeTiming();
    library.freeResource(helper.version);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(helper.acl->rows.size()));
}
BENCHMARK(retire)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// A chip with room for two versions of the largest list here, and an agent on it.
class Switch {
public:
  Switch() {
    sim::DeviceConfig device;
    device.tcamRows[0] = rows;
    system_.deviceAdd(0, device);
    installed_.emplace(system_.install());
    agent::AgentSetup setup;
    setup.tcamRows[agent::Table::ingressV4] = rows;
    agent_ = std::make_unique<agent::Agent>(setup);
  }
  agent::Agent& agent() { return *agent_; }

private:
  static constexpr uint32_t rows = 32768;
  sim::System system_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
};

// The bare calls that bring one row to the chip and take it away again: what a change cannot cost less than.
void sdkCalls(benchmark::State& state) {
  Switch empty;
  XpXdk::xpIaclMgr& chip = *XpXdk::xpAclPl::instance()->iaclMgr(0);
  const auto rows = static_cast<uint32_t>(state.range(0));
  XpXdk::xpIaclData_t data;
  XpAcl::clearIaclData(data);
  for (auto _ : state) {
    for (uint32_t row = 0; row < rows; ++row) {
      XpAcl::OvIaclKey key(XpXdk::IACL_V4_KEY_TYPE);
      const uint8_t address[4] = {10, 0, static_cast<uint8_t>(row >> 8), static_cast<uint8_t>(row)};
      const uint8_t exact[XpXdk::maxIaclFieldBytes] = {};
      XpAcl::addIaclKeyField(XpXdk::IACL_V4_KEY_TYPE, XpXdk::IACL_IP_SRC_ADDR, address, exact, 4, key);
      XpAcl::addIaclKeyField(XpXdk::IACL_V4_KEY_TYPE, XpXdk::IACL_IP_PROTO, exact, exact, 1, key);
      key.finalize();
      chip.writeData(0, XpXdk::TACL_V4_IACL, 0, row, &data);
      chip.writeKeyMask(0, XpXdk::TACL_V4_IACL, row, 1, &key.sdkKey);
      chip.setEntryValid(0, XpXdk::TACL_V4_IACL, row, 1);
    }
    for (uint32_t row = 0; row < rows; ++row) {
      chip.setEntryValid(0, XpXdk::TACL_V4_IACL, row, 0);
    }
  }
  state.SetItemsProcessed(state.iterations() * rows);
}
BENCHMARK(sdkCalls)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// One line of the list differs: the new version is staged and committed, the interface moves, the old one
// is retired.
void editOneLine(benchmark::State& state) {
  Switch chip;
  const std::string text = listOf(state.range(0), 0);
  const agent::Config variants[] = {
      agent::readConfigText(text, "bench"),
      agent::readConfigText(std::string(text).replace(text.find("permit"), 6, "deny"), "bench")};
  std::size_t next = 0;
  for (auto _ : state) {
    if (!chip.agent().apply(variants[next]).ok) {
      state.SkipWithError("does not fit");
      break;
    }
    next = 1 - next;
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(editOneLine)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// Text to chip and back out: read, aggregate, stage, commit, publish, retire the version before. What makes
// up the text is not part of it.
void endToEnd(benchmark::State& state) {
  Switch chip;
  agent::Agent& agent = chip.agent();
  int64_t variant = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string text = listOf(state.range(0), ++variant);
    state.ResumeTiming();
    const agent::Config config = agent::readConfigText(text, "bench");
    if (!agent.apply(config).ok) {
      state.SkipWithError("does not fit");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(endToEnd)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
