#include "agent/Agent.h"
#include "agent/config/ConfigReader.h"
#include "sim/System.h"
#include "test/ChipPicture.h"
#include "test/LongRuns.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

// Memory that runs out in the middle of a change. This program has its own operator new, which fails when it
// is told to; the chips are hardware and have memory of their own. A change for which memory runs out before
// its first write leaves everything as it was; one that has begun to write is finished on the memory that it
// has set aside.

namespace {

// How allocations fail. Sizes are those asked for.
struct Shortage {
  enum Kind {
    none,
    once, // allocation number `at` alone
    dry   // from number `at` on there is no memory but what is given back
  };
  Kind kind = none;
  uint64_t at = 0;
  uint64_t calls = 0;
  uint64_t failures = 0;
  bool inChip = false;      // the chip is at work
  std::size_t live = 0;     // bytes
  std::size_t capacity = 0; // bytes, once dry
  std::size_t most = 0;     // bytes, the peak of `live`
};
Shortage shortage;

struct alignas(std::max_align_t) Header {
  std::size_t bytes;
  bool ofChip;
};

bool refused(std::size_t bytes) {
  if (shortage.inChip || shortage.kind == Shortage::none) {
    return false;
  }
  ++shortage.calls;
  if (shortage.kind == Shortage::once) {
    return shortage.calls == shortage.at;
  }
  if (shortage.calls == shortage.at) {
    shortage.capacity = shortage.live;
  }
  return shortage.calls >= shortage.at && shortage.live + bytes > shortage.capacity;
}

void* allocate(std::size_t bytes) {
  for (;;) {
    if (!refused(bytes)) {
      if (auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + bytes))) {
        header->bytes = bytes;
        header->ofChip = shortage.inChip;
        if (!header->ofChip) {
          shortage.live += bytes;
          shortage.most = std::max(shortage.most, shortage.live);
        }
        return header + 1;
      }
    }
    ++shortage.failures;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) {
      throw std::bad_alloc();
    }
    handler();
  }
}

void* allocateOrNull(std::size_t bytes) {
  try {
    return allocate(bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void release(void* memory) {
  if (memory != nullptr) {
    Header* const header = static_cast<Header*>(memory) - 1;
    if (!header->ofChip) {
      shortage.live -= header->bytes;
    }
    std::free(header);
  }
}

} // namespace

void* operator new(std::size_t bytes) {
  return allocate(bytes);
}
void* operator new[](std::size_t bytes) {
  return allocate(bytes);
}
// The standard library's own would come here too; the sanitizer's would not.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  return allocateOrNull(bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  return allocateOrNull(bytes);
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  release(memory);
}

namespace {

constexpr uint32_t tableRows = 64;

const std::string ports = R"(interface Ethernet1
 switchport trunk allowed vlan 10,20
 ip access-group A in
 mac access-group M in
interface Ethernet2
 switchport trunk allowed vlan 10,20
 ip access-group A out
 ipv6 traffic-filter S in
interface Vlan10
 ip access-group A in
 ipv6 traffic-filter S out
)";
const std::string before = R"(ip access-list extended A
 permit tcp any any eq 80
 deny tcp any any
 permit udp any any
ipv6 access-list S
 permit tcp any any eq 443
mac access-list M
 permit any any
)" + ports;
// One edit of a list that is applied five times over.
const std::string edited = R"(ip access-list extended A
 permit tcp any any eq 80
 permit tcp any any range 1000 2000
 deny tcp any any
 permit udp any any
ipv6 access-list S
 permit tcp any any eq 443
mac access-list M
 permit any any
)" + ports;
// Lists and interfaces come and go, pairs join and leave, a port joins a port-channel.
const std::string rebuilt = R"(ip access-list extended B
 permit tcp any any eq 22
ipv6 access-list S
 permit tcp any any eq 443
 permit udp any any
interface Ethernet1
 switchport trunk allowed vlan 10,30
 channel-group 3
interface Ethernet2
 switchport trunk allowed vlan 1-200
 ip access-group B out
 ipv6 traffic-filter S in
interface Ethernet3
 ip access-group B in
interface Vlan30
 ip access-group B out
)";

// Pairs by the thousand join, and get entries of both tables.
const std::string trunked = R"(ip access-list extended A
 permit tcp any any eq 80
 deny tcp any any
 permit udp any any
interface Ethernet1
 switchport trunk allowed vlan 1-1500
 ip access-group A out
interface Ethernet2
 switchport trunk allowed vlan 1-4000
interface Vlan10
 ip access-group A in
 ip access-group A out
interface Vlan20
 ip access-group A in
)";

agent::Config read(const std::string& text) {
  return agent::readConfigText(text, "c");
}

// A switch whose chips have their own memory.
class Switch {
public:
  explicit Switch(const std::string& config) {
    sim::DeviceConfig device;
    device.tcamRows.fill(tableRows);
    device.numPorts = 8;
    device.portVlanCapacity = device.egressCapacity = 8192;
    agent::AgentSetup setup;
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      setup.tcamRows[static_cast<agent::Table>(table.tcamType)] = tableRows;
    }
    system_.deviceAdd(0, device);
    system_.deviceAdd(1, device);
    installed_.emplace(system_.install());
    system_.beforeWriteIs([this](const sim::Call& call) {
      shortage.inChip = true;
      writes_ += agent_ && agent_->activeChips().count(call.device()) != 0 ? 1 : 0;
    });
    system_.afterWriteIs([](const sim::Call&) { shortage.inChip = false; });
    agent_ = std::make_unique<agent::Agent>(setup);
    EXPECT_TRUE(agent_->apply(read(config)).ok);
  }
  ~Switch() { shortage = {.live = shortage.live}; }
  agent::Agent& agent() { return *agent_; }
  // Writes to chips that have packets to judge; one that is to join is emptied before.
  uint64_t writes() const { return writes_; }
  // Rows, ids and VIFs by number, of these chips.
  std::string tables() {
    std::string text;
    for (const uint8_t chip : agent_->activeChips()) {
      text += system_.device(chip)->tablesText();
    }
    return text;
  }
  // What the chips do, whatever the way there.
  std::string picture() {
    std::string text;
    for (const auto& [number, device] : system_.devices()) {
      text += test::chipPicture(*device, [&](uint16_t vif) {
        for (unsigned port = 1; port <= 3; ++port) {
          if (agent_->vifOf(Ovnet::IntfId(Ovnet::IntfId::ethernet, port)) == vif) {
            return "Ethernet" + std::to_string(port);
          }
        }
        return std::string("nobody's");
      });
    }
    return text;
  }
  std::string free() const {
    std::string text;
    for (const XpAcl::TcamTableInfo& table : XpAcl::tcamTables) {
      text += std::to_string(agent_->helper(0)->tcamIdxAllocator(table.tcamType)->freeTcamIdxCount()) + " ";
    }
    for (const auto kind :
         {XpAcl::portIngress, XpAcl::portEgress, XpAcl::routedIngress, XpAcl::routedEgress}) {
      text += std::to_string(agent_->helper(0)->hwAclIdAllocator(kind)->numFree()) + " ";
    }
    return text;
  }
  std::vector<std::string> audit() {
    std::vector<std::string> broken = agent_->audit();
    for (const auto& [number, device] : system_.devices()) {
      for (const std::string& finding : device->audit()) {
        broken.push_back(finding);
      }
    }
    return broken;
  }

private:
  sim::System system_;
  std::optional<sim::System::Installation> installed_;
  std::unique_ptr<agent::Agent> agent_;
  uint64_t writes_ = 0;
};

using Step = std::function<bool(agent::Agent&)>;

std::string pictureAfter(const std::string& config, const Step& step) {
  Switch box(config);
  EXPECT_TRUE(step(box.agent()));
  return box.picture();
}

struct Tally {
  unsigned kept = 0;     // memory ran out and the old policy stayed
  unsigned finished = 0; // memory ran out and the change was finished
};

// Lets memory run out at every allocation of `step`, or at every so manieth.
Tally runOut(const std::string& config, const Step& step, Shortage::Kind kind, unsigned stride) {
  Tally tally;
  const std::string wanted = pictureAfter(config, step);
  for (uint64_t at = 1;; at += stride) {
    Switch box(config);
    const std::string tables = box.tables();
    const std::string free = box.free();
    const uint64_t writes = box.writes();
    shortage.kind = kind;
    shortage.at = at;
    bool raised = false;
    try {
      EXPECT_TRUE(step(box.agent())) << "allocation " << at;
    } catch (const std::bad_alloc&) {
      raised = true;
    }
    const bool short_ = shortage.failures != 0;
    const bool behind = shortage.calls < at;
    shortage = {.live = shortage.live};
    EXPECT_EQ(box.audit(), std::vector<std::string>()) << "allocation " << at;
    if (raised) {
      ++tally.kept;
      EXPECT_EQ(box.writes(), writes) << "allocation " << at;
      EXPECT_EQ(box.tables(), tables) << "allocation " << at;
      EXPECT_EQ(box.free(), free) << "allocation " << at;
      EXPECT_TRUE(step(box.agent())) << "the next attempt, allocation " << at;
      EXPECT_EQ(box.audit(), std::vector<std::string>()) << "allocation " << at;
    } else if (short_) {
      ++tally.finished;
    }
    EXPECT_EQ(box.picture(), wanted) << "allocation " << at;
    if (behind || testing::Test::HasFailure()) {
      return tally;
    }
  }
}

Step applying(const std::string& text) {
  return [config = read(text)](agent::Agent& agent) { return agent.apply(config).ok; };
}

unsigned stride(unsigned inShortRuns) {
  return test::isLong() ? 1 : inShortRuns;
}

#ifdef __SANITIZE_ADDRESS__
constexpr unsigned some = 97;
constexpr unsigned few = 397;
constexpr unsigned chip = 31; // few of its allocations are behind the first write
#else
constexpr unsigned some = 1;
constexpr unsigned few = 17;
constexpr unsigned chip = 17;
#endif
constexpr unsigned hardlyAny = 97;

void expectSurvived(const char* what, const std::string& config, const Step& step, unsigned inShortRuns) {
  for (const auto kind : {Shortage::once, Shortage::dry}) {
    const Tally tally = runOut(config, step, kind, stride(inShortRuns));
    std::cout << what << ", " << (kind == Shortage::once ? "one allocation fails" : "no memory from there on")
              << ": " << tally.kept << " times the old policy stayed, " << tally.finished
              << " times the change was finished\n";
    EXPECT_GT(tally.kept, 0u);
    EXPECT_GT(tally.finished, 0u);
  }
}

TEST(Allocation, AnEditKeepsTheOldPolicyOrIsFinished) {
  expectSurvived("edit", before, applying(edited), some);
}

TEST(Allocation, SoDoesAChangeOfEverything) {
  expectSurvived("rebuild", before, applying(rebuilt), few);
}

TEST(Allocation, SoDoPortsThatCarryManyVlans) {
  const Tally tally = runOut(before, applying(trunked), Shortage::dry, hardlyAny);
  std::cout << "many pairs: " << tally.kept << " times the old policy stayed, " << tally.finished
            << " times the change was finished\n";
  EXPECT_GT(tally.finished, 0u);
}

TEST(Allocation, SoDoesAChipThatJoins) {
  expectSurvived(
      "chip joins", before, [](agent::Agent& agent) { return agent.chipAdd(1).ok; }, chip);
}

TEST(Allocation, SoDoesABlockedInterface) {
  expectSurvived(
      "block", before,
      [](agent::Agent& agent) {
        agent.blockIntf(Ovnet::IntfId(Ovnet::IntfId::ethernet, 2), true);
        return true;
      },
      1);
}

} // namespace
