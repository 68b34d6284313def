#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "sim/System.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <memory>
#include <string>

// What it costs to bring ids to ports and VLANs: the figure that counts is the time for each (port, VLAN)
// pair that a change touches, which must not grow with the pairs that the system holds.

namespace {

constexpr int64_t manyVlans = 4094;

// Large blocks, which the heap takes from the system one by one, are counted apart.
std::size_t heapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// A switch of `ports` trunks that carry VLANs 1 to `vlans`, an egress list on every trunk and a routed list
// in both directions of every tenth VLAN up to `routed`.
class Switch {
public:
  Switch(int64_t ports, int64_t vlans, unsigned chips = 1) : Switch(ports, vlans, chips, vlans) {}
  Switch(int64_t ports, int64_t vlans, unsigned chips, int64_t routed)
      : ports_(ports), vlans_(vlans), routed_(routed), chips_(chips) {
    sim::DeviceConfig device;
    device.portVlanCapacity = device.egressCapacity = static_cast<uint32_t>(ports * vlans + 16);
    device.numPorts = static_cast<uint32_t>(ports + 2);
    for (unsigned chip = 0; chip < chips; ++chip) {
      system_.deviceAdd(static_cast<uint8_t>(chip), device);
    }
    installed_.emplace(system_.install());
    agent::AgentSetup setup;
    setup.numChips = chips;
    const std::size_t before = heapBytes();
    agent_ = std::make_unique<agent::Agent>(setup);
    config_ = read(0);
    agent_->apply(config_);
    bytes_ = heapBytes() - before;
  }

  // `variant` changes the lists.
  agent::Config read(int variant) const {
    const std::string host = std::to_string(1 + variant);
    std::string text = "ip access-list extended PORT\n permit tcp any host 10.0.0." + host +
                       "\nip access-list extended ROUTED\n permit udp any host 10.0.1." + host + "\n";
    for (int64_t port = 1; port <= ports_; ++port) {
      text += "hardware chip " + std::to_string(port % chips_) + " interface Ethernet" +
              std::to_string(port) + "\ninterface Ethernet" + std::to_string(port) +
              "\n switchport mode trunk\n switchport trunk allowed vlan 1-" + std::to_string(vlans_) +
              "\n ip access-group PORT out\n";
    }
    for (int64_t vlan = 1; vlan <= routed_; vlan += 10) {
      text += "interface Vlan" + std::to_string(vlan) +
              "\n ip access-group ROUTED in\n ip access-group ROUTED out\n";
    }
    return agent::readConfigText(text, "bench");
  }

  agent::Agent& agent() { return *agent_; }
  agent::Config config() const { return config_; }
  int64_t pairs() const { return ports_ * vlans_; }
  std::size_t bytes() const { return bytes_; }
  Ovnet::IntfId port(int64_t number) const {
    return agent::intfId(config_.interfaces[static_cast<std::size_t>(number - 1)]);
  }

private:
  int64_t ports_;
  int64_t vlans_;
  int64_t routed_;
  unsigned chips_;
  sim::System system_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
  agent::Config config_;
  std::size_t bytes_ = 0;
};

void perPair(benchmark::State& state, int64_t touched) {
  state.SetItemsProcessed(state.iterations() * touched);
  state.counters["time/pair"] = benchmark::Counter(static_cast<double>(state.iterations() * touched),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// From nothing to every pair programmed.
void startUp(benchmark::State& state) {
  // What a switch takes whose ports carry one VLAN each, with as many routed lists, is not the pairs'.
  const Switch few(state.range(0), 1, 1, state.range(1));
  double bytes = 0;
  int64_t pairs = 0;
  for (auto _ : state) {
    Switch many(state.range(0), state.range(1));
    pairs = many.pairs();
    bytes = static_cast<double>(many.bytes()) - static_cast<double>(few.bytes());
  }
  perPair(state, pairs);
  state.counters["bytes/pair"] = bytes / static_cast<double>(pairs - few.pairs());
}
BENCHMARK(startUp)
    ->Args({1, 1000})
    ->Args({4, manyVlans})
    ->Args({64, manyVlans})
    ->Unit(benchmark::kMillisecond);

// One port's egress list is blocked and unblocked: its pairs, twice.
void blockAndUnblock(benchmark::State& state) {
  Switch many(state.range(0), state.range(1));
  for (auto _ : state) {
    many.agent().blockIntf(many.port(1), true);
    many.agent().blockIntf(many.port(1), false);
  }
  perPair(state, 2 * state.range(1));
}
BENCHMARK(blockAndUnblock)
    ->Args({1, 1000})
    ->Args({4, manyVlans})
    ->Args({64, manyVlans})
    ->Unit(benchmark::kMillisecond);

// A pair leaves and comes back, in a VLAN that has lists.
void pairMoves(benchmark::State& state) {
  Switch many(state.range(0), state.range(1));
  for (auto _ : state) {
    many.agent().pairDel(many.port(1), 11);
    many.agent().pairAdd(many.port(1), 11);
  }
  perPair(state, 2);
}
BENCHMARK(pairMoves)->Args({1, 1000})->Args({4, manyVlans})->Args({64, manyVlans});

// One list changes that stands at n ports: block, publish, unblock for each, all their pairs.
void changeOnPorts(benchmark::State& state) {
  Switch many(state.range(0), state.range(1));
  const agent::Config variants[] = {many.read(1), many.read(0)};
  std::size_t next = 0;
  for (auto _ : state) {
    many.agent().apply(variants[next]);
    next = 1 - next;
  }
  perPair(state, many.pairs());
}
BENCHMARK(changeOnPorts)
    ->Args({1, 1000})
    ->Args({4, manyVlans})
    ->Args({64, manyVlans})
    ->Unit(benchmark::kMillisecond);

// A chip with half of the ports leaves, and joins again.
void chipLeavesAndJoins(benchmark::State& state) {
  Switch many(state.range(0), state.range(1), 2);
  for (auto _ : state) {
    many.agent().chipRemove(1);
    many.agent().chipAdd(1);
  }
  perPair(state, many.pairs());
}
BENCHMARK(chipLeavesAndJoins)
    ->Args({2, 1000})
    ->Args({4, manyVlans})
    ->Args({64, manyVlans})
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
