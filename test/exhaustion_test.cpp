#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "sim/System.h"
#include "test/Random.h"
#include "test/RandomLists.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

// Tables that are too small: a change fits, or is refused before the first write and leaves no trace.

namespace {

using test::Random;
using test::RandomLists;

// One chip whose five tables have `rows` rows.
class SmallSwitch {
public:
  explicit SmallSwitch(uint32_t rows) {
    sim::DeviceConfig device;
    device.tcamRows.fill(rows);
    device.egressCapacity = device.portVlanCapacity = 16384;
    system_.deviceAdd(0, device);
    installed_.emplace(system_.install());
    agent::AgentSetup setup;
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = rows;
    }
    agent_ = std::make_unique<agent::Agent>(setup);
  }
  agent::Agent& agent() { return *agent_; }
  sim::Device& chip() { return *system_.device(0); }
  uint64_t writes() const { return system_.numWrites(); }
  std::string tables() { return chip().tablesText(); }
  std::string free() const {
    std::string text;
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      text += std::to_string(agent_->helper(0)->tcamIdxAllocator(table.tcamType)->freeTcamIdxCount()) + " ";
    }
    return text;
  }

private:
  sim::System system_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
};

// A list of `lines` lines, a row each; `variant` makes others of the same size.
agent::Config listOf(unsigned lines, unsigned variant) {
  std::string text = "ip access-list extended A\n";
  for (unsigned i = 0; i < lines; ++i) {
    text += " permit tcp any host 10." + std::to_string(variant) + ".0." + std::to_string(i + 1) + "\n";
  }
  return agent::readConfigText(text + "interface Ethernet1\n ip access-group A in\n", "c");
}

// What a list of that many lines takes: its rows and the final rule. A list without lines is none.
unsigned rowsOf(unsigned lines) {
  return lines == 0 ? 0 : lines + 1;
}

TEST(Exhaustion, EverySizeAndEveryEditFitsOrIsRefused) {
  unsigned fitted = 0;
  unsigned refused = 0;
  for (const uint32_t rows : {2u, 3u, 8u, 64u}) {
    const unsigned step = rows == 64 ? 7 : 1;
    for (unsigned before = 0; before <= rows + 1; before += step) {
      for (unsigned after = 0; after <= rows + 1; after += step) {
        SmallSwitch box(rows);
        const std::string where = std::to_string(rows) + " rows, " + std::to_string(before) + " to " +
                                  std::to_string(after) + " lines";
        const bool first = rowsOf(before) <= rows - 1;
        ASSERT_EQ(box.agent().check(listOf(before, 1)).ok, first) << where;
        ASSERT_EQ(box.agent().apply(listOf(before, 1)).ok, first) << where;
        const unsigned held = first ? rowsOf(before) : 0;
        const bool fits = held + rowsOf(after) <= rows - 1;
        const std::string tables = box.tables();
        const std::string free = box.free();
        const uint64_t writes = box.writes();
        const agent::Config next = listOf(after, 2);
        ASSERT_EQ(box.agent().check(next).ok, fits) << where;
        const agent::ApplyResult result = box.agent().apply(next);
        ASSERT_EQ(result.ok, fits) << where;
        ASSERT_EQ(box.agent().audit(), std::vector<std::string>()) << where;
        if (fits) {
          ++fitted;
          ASSERT_EQ(box.agent().unitError(), "") << where;
          continue;
        }
        ++refused;
        ASSERT_EQ(box.writes(), writes) << where;
        ASSERT_EQ(box.tables(), tables) << where;
        ASSERT_EQ(box.free(), free) << where;
        ASSERT_NE(box.agent().unitError(), "") << where;
        // The next smaller edit that has room succeeds, and clears the error.
        const unsigned room = rows - 1 - held;
        ASSERT_TRUE(box.agent().apply(listOf(room == 0 ? 0 : room - 1, 3)).ok) << where;
        ASSERT_EQ(box.agent().unitError(), "") << where;
      }
    }
  }
  std::cout << fitted << " fitted, " << refused << " refused\n";
}

TEST(Exhaustion, TheSameInputGivesTheSameRows) {
  Random random(Random::seed("rows"));
  RandomLists lists(random);
  agent::Config config;
  for (unsigned port = 1; port <= 3; ++port) {
    agent::Interface intf;
    intf.name = intf.portName = "Ethernet" + std::to_string(port);
    for (const auto family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
      const std::string name = "L" + std::to_string(port);
      config.lists.push_back(lists.list(name, family, 10));
      intf.bindings.push_back({name, family, agent::Direction::in, {}});
    }
    intf.trunk = true;
    intf.allowedVlans.push_back({1, 3});
    config.interfaces.push_back(intf);
  }
  std::string tables;
  {
    SmallSwitch box(2000);
    ASSERT_TRUE(box.agent().apply(config).ok);
    tables = box.tables();
  }
  SmallSwitch box(2000);
  ASSERT_TRUE(box.agent().apply(config).ok);
  EXPECT_EQ(box.tables(), tables);
}

// What check() says of a change is what the change does, exactly full tables and one row over included.
TEST(Exhaustion, ThePlanAndTheChangeAgree) {
  const uint64_t seed = Random::seed("plan");
  Random random(seed);
  RandomLists lists(random);
#ifdef __SANITIZE_ADDRESS__
  constexpr unsigned cases = 1000;
#else
  constexpr unsigned cases = 10000;
#endif
  unsigned agreed[2] = {0, 0};
  unsigned full = 0;
  unsigned oneOver = 0;
  std::unique_ptr<SmallSwitch> box;
  agent::Config config;
  for (unsigned i = 0; i < cases; ++i) {
    if (i % 40 == 0) {
      box.reset();
      box = std::make_unique<SmallSwitch>(8 + random.below(60));
      config = agent::Config();
      for (unsigned port = 1; port <= 2; ++port) {
        agent::Interface intf;
        intf.name = intf.portName = "Ethernet" + std::to_string(port);
        intf.trunk = true;
        intf.allowedVlans.push_back({1, 1});
        config.interfaces.push_back(intf);
      }
    }
    agent::Config next = config;
    const auto family = static_cast<agent::Family>(random.below(3));
    const std::string name = random.oneIn(2) ? "A" : "B";
    std::erase_if(next.lists,
                  [&](const agent::AccessList& list) { return list.name == name && list.family == family; });
    next.lists.push_back(lists.list(name, family, 1 + random.below(6)));
    agent::Interface& intf = next.interfaces[random.below(2)];
    std::erase_if(intf.bindings, [&](const agent::Binding& binding) { return binding.family == family; });
    if (!random.oneIn(4)) {
      intf.bindings.push_back({name, family, agent::Direction::in, {}});
    }
    const agent::ApplyResult plan = box->agent().check(next);
    const uint64_t writes = box->writes();
    const std::string tables = i % 16 == 0 ? box->tables() : "";
    const agent::ApplyResult change = box->agent().apply(next);
    ASSERT_EQ(plan.ok, change.ok) << "seed " << seed << ", case " << i;
    ASSERT_EQ(plan.errors, change.errors) << "seed " << seed << ", case " << i;
    ++agreed[change.ok ? 1 : 0];
    if (change.ok) {
      ASSERT_EQ(plan.rowsStaged, change.rowsStaged) << "seed " << seed << ", case " << i;
      config = next;
    } else {
      ASSERT_EQ(box->writes(), writes) << "seed " << seed << ", case " << i;
      if (i % 16 == 0) {
        ASSERT_EQ(box->tables(), tables) << "seed " << seed << ", case " << i;
      }
      for (const agent::Shortage& shortage : plan.shortages) {
        oneOver += shortage.needed == shortage.free + 1 ? 1 : 0;
      }
    }
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      full += box->agent().helper(0)->tcamIdxAllocator(table.tcamType)->freeTcamIdxCount() == 0 ? 1 : 0;
    }
  }
  std::cout << agreed[1] << " fitted, " << agreed[0] << " refused; a table exactly full " << full
            << " times, one row over " << oneOver << " times\n";
}

} // namespace
