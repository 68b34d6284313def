#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "sim/System.h"

#include <benchmark/benchmark.h>

#include <memory>
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
BENCHMARK(parse)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

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
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(stageAndCommit, counted, true)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

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
BENCHMARK(retire)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// Text to chip and back out: read, aggregate, stage, commit, publish, retire the version before.
void endToEnd(benchmark::State& state) {
  sim::System system;
  sim::DeviceConfig device;
  device.tcamRows[0] = 32768;
  system.deviceAdd(0, device);
  const auto installed = system.install();
  agent::AgentSetup setup;
  setup.tcamRows[agent::Table::ingressV4] = 32768;
  agent::Agent agent(setup);
  int64_t variant = 0;
  for (auto _ : state) {
    const agent::Config config = agent::readConfigText(listOf(state.range(0), ++variant), "bench");
    if (!agent.apply(config).ok) {
      state.SkipWithError("does not fit");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(endToEnd)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
