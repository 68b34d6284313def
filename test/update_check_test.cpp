#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "test/Shared.h"
#include "tool/UpdateCheck.h"
#include "verify/LineEvaluator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

// Changes while packets flow: whatever list an interface had and whatever it gets, no packet may meet
// anything but the old list, the new list, or the drop of a blocked interface.

namespace {

using agent::AccessList;
using agent::Direction;
using agent::Family;
using test::Random;
using test::RandomLists;
using tool::UpdateCheck;

#ifdef __SANITIZE_ADDRESS__
constexpr unsigned randomPairs = 150;
#else
constexpr unsigned randomPairs = 1000;
#endif

// Two ports, in VLANs 1 to 4 or, without limit, in every one.
agent::Config switchWith(const std::vector<std::pair<AccessList, Direction>>& lists, bool everyVlan = false) {
  agent::Config config;
  for (unsigned port = 1; port <= 2; ++port) {
    agent::Interface intf;
    intf.name = intf.portName = "Ethernet" + std::to_string(port);
    intf.trunk = !everyVlan;
    intf.allowedVlans.push_back({1, 4});
    config.interfaces.push_back(intf);
  }
  for (const auto& [list, direction] : lists) {
    config.lists.push_back(list);
    agent::Interface& intf = config.interfaces[direction == Direction::in ? 0 : 1];
    intf.bindings.push_back({list.name, list.family, direction, {}});
  }
  return config;
}

// What the lines say, without any chip.
bool permitted(const packet::Packet& packet, const agent::Config& config) {
  for (const agent::Interface& intf : config.interfaces) {
    for (const agent::Binding& binding : intf.bindings) {
      const verify::Judgement judgement = verify::evaluate(*config.list(binding.family, binding.list), packet,
                                                           packet.vlan == 0 ? 1 : packet.vlan);
      if (!judgement.permit && judgement.decider != verify::Decider::otherFamily &&
          judgement.decider != verify::Decider::noList) {
        return false;
      }
    }
  }
  return true;
}

tool::Verdicts verdicts(const std::vector<packet::Packet>& packets, const agent::Config& old,
                        const agent::Config& fresh) {
  tool::Verdicts verdicts;
  for (const packet::Packet& packet : packets) {
    verdicts.old.push_back(permitted(packet, old));
    verdicts.fresh.push_back(permitted(packet, fresh));
  }
  return verdicts;
}

tool::Path path(tool::Session& session) {
  return {session.port("Ethernet1", "in"), session.port("Ethernet2", "out"), std::nullopt};
}

std::string text(const UpdateCheck& check, const std::vector<packet::Packet>& packets) {
  std::string text;
  for (const UpdateCheck::Finding& finding : check.findings()) {
    text += findingText(finding) + ": " + packet::toText(packets[finding.packet - 1]) + "\n";
  }
  return text;
}

TEST(UpdateCheck, RandomPairsOfListsShowNothingElse) {
  Random random(Random::seed("update"));
  RandomLists lists(random);
  uint64_t judged = 0;
  uint64_t writes = 0;
  for (unsigned pair = 0; pair < randomPairs; ++pair) {
    std::vector<std::pair<AccessList, Direction>> before;
    std::vector<std::pair<AccessList, Direction>> after;
    for (const auto& [name, family, direction] :
         {std::tuple("A", Family::ipv4, Direction::in), std::tuple("B", Family::ipv6, Direction::in),
          std::tuple("C", Family::mac, Direction::in), std::tuple("D", Family::ipv4, Direction::out),
          std::tuple("E", Family::ipv6, Direction::out)}) {
      const AccessList old = lists.list(name, family, 6);
      if (!random.oneIn(3)) {
        before.push_back({old, direction});
      }
      if (!random.oneIn(3)) {
        after.push_back({random.oneIn(3) ? old : lists.list(name, family, 6), direction});
      }
    }
    const bool everyVlan = random.oneIn(200);
    agent::Config old = switchWith(before, everyVlan);
    agent::Config fresh = switchWith(after, everyVlan);
    for (const auto table : {agent::Table::ingressV4, agent::Table::ingressV6, agent::Table::egressV4,
                             agent::Table::egressV6, agent::Table::ingressMac}) {
      old.tcamRows[table] = fresh.tcamRows[table] = 2000;
    }
    std::vector<packet::Packet> packets;
    for (const agent::Config* config : {&old, &fresh}) {
      for (const AccessList& list : config->lists) {
        for (unsigned i = 0; i < 6; ++i) {
          packets.push_back(lists.packet(list));
        }
      }
    }
    tool::Session session(old, tool::CommonOptions());
    UpdateCheck check(session, path(session), packets, verdicts(packets, old, fresh));
    check.everyIs(true);
    const agent::ApplyResult result = check.run(fresh);
    ASSERT_TRUE(result.ok || check.writes() == 0) << result.errors.front();
    ASSERT_EQ(text(check, packets), "") << "pair " << pair;
    judged += packets.size() * (check.writes() + 1);
    writes += check.writes();
  }
  std::cout << randomPairs << " pairs, " << writes << " writes, " << judged << " verdicts\n";
}

// Every list of the shared configurations that stands at an interface, changed into every other one of its
// family.
TEST(UpdateCheck, SharedListsChangeIntoEachOther) {
  const auto data = test::sharedData();
  if (!data) {
    GTEST_SKIP() << test::noSharedData;
  }
  std::map<Family, std::vector<AccessList>> applied;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(*data / "configs")) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  for (const std::filesystem::path& file : files) {
    const agent::Config config =
        agent::readConfig(file.string(), {agent::InputFormat::automatic, false, true, {}});
    std::set<std::pair<Family, std::string>> seen;
    for (const agent::Interface& intf : config.interfaces) {
      for (const agent::Binding& binding : intf.bindings) {
        const AccessList* list = config.list(binding.family, binding.list);
        if (seen.insert({binding.family, binding.list}).second) {
          applied[binding.family].push_back(*list);
        }
      }
    }
  }
  Random random(Random::seed("shared"));
  RandomLists lists(random);
  uint64_t pairs = 0;
  uint64_t writes = 0;
  const auto change = [&](tool::Session& session, const AccessList& from, const AccessList& to) {
    std::vector<packet::Packet> packets;
    for (unsigned i = 0; i < 120; ++i) {
      packets.push_back(lists.packet(i % 2 == 0 ? from : to));
    }
    const agent::Config old = switchWith({{from, Direction::in}});
    const agent::Config fresh = switchWith({{to, Direction::in}});
    UpdateCheck check(session, path(session), packets, verdicts(packets, old, fresh));
    const agent::ApplyResult result = check.run(fresh);
    ASSERT_TRUE(result.ok) << result.errors.front();
    ASSERT_EQ(text(check, packets), "") << from.name << " -> " << to.name;
    ++pairs;
    writes += check.writes();
  };
  for (auto& [family, all] : applied) {
    tool::Session session(switchWith({{all.front(), Direction::in}}), tool::CommonOptions());
    for (std::size_t i = 0; i + 1 < all.size(); ++i) {
      for (std::size_t j = i + 1; j < all.size(); ++j) {
        ASSERT_NO_FATAL_FAILURE(change(session, all[i], all[j]));
        ASSERT_NO_FATAL_FAILURE(change(session, all[j], all[i]));
      }
      ASSERT_NO_FATAL_FAILURE(change(session, all[i], all[i + 1]));
    }
  }
  std::cout << pairs << " changes, " << writes << " writes\n";
}

// The port is given its new id before the rows of that id are written: what the two phases are there to
// prevent. The check finds the packet that drops, and says at which write.
TEST(UpdateCheck, AReorderedWriteIsFoundAndNamed) {
  constexpr const char* oldText = R"(ip access-list extended WEB
 10 permit tcp any any eq 80
 20 permit tcp any any eq 443
interface Ethernet1
 ip access-group WEB in
)";
  constexpr const char* newText = R"(ip access-list extended WEB
 10 permit tcp any any eq 80
 20 permit udp any any eq 443
interface Ethernet1
 ip access-group WEB in
)";
  const agent::Config old = agent::readConfigText(oldText, "old.conf");
  const agent::Config fresh = agent::readConfigText(newText, "new.conf");
  std::vector<packet::Packet> packets;
  for (const char* const packet :
       {"tcp 10.0.0.1:1024 > 10.0.0.2:80 syn", "tcp 10.0.0.1:1024 > 10.0.0.2:80 syn",
        "tcp 10.0.0.1:1024 > 10.0.0.2:80 syn"}) {
    packets.push_back(packet::fromText(packet));
  }
  tool::Session session(old, tool::CommonOptions());
  UpdateCheck check(session, {session.port("Ethernet1", "in"), std::nullopt, std::nullopt}, packets,
                    verdicts(packets, old, fresh));
  bool moved = false;
  session.system().beforeWriteIs([&](const sim::Call& call) {
    if (call.op() == sim::Op::writeKeyMask && !moved) {
      moved = true;
      session.system().device(0)->portConfig()[1].portAclId = 2;
    }
  });
  ASSERT_TRUE(check.run(fresh).ok);
  EXPECT_EQ(
      text(check, packets),
      "write 2 (writeKeyMask d0 TACL_V4_IACL 3 aclId=0002/0200 flags=00/fe dstL4=0050/0000 proto=06/00): "
      "packet 2: deny, old permit, new permit, ingressV4 row none: tcp 10.0.0.1:1024 > 10.0.0.2:80 syn ttl "
      "64\n");
}

} // namespace
