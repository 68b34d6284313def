#include "test/RunUnderTest.h"

#include <filesystem>
#include <string>
#include <vector>

// Captures that enter at several ports at once, and changes to configurations with more ports.

namespace {

using nlohmann::json;
using test::Outcome;

class MergeTest : public test::RunUnderTest {
protected:
  std::string config() { return file("a.conf", smallSwitch); }

  // "Ethernet1 2 permit" for each packet: where it came in, the line it hit, what became of it.
  static std::string story(const std::string& out) {
    std::string text;
    for (const json& answer : lines(out)) {
      if (answer.contains("packet")) {
        const json& lookups = answer["lookups"];
        text += answer["in"].get<std::string>() + " " + (lookups.empty() ? "-" : lookups[0]["line"].dump()) +
                " " + answer["verdict"].get<std::string>() + "\n";
      }
    }
    return text;
  }

  // Time and octets of every frame.
  static std::string framesText(const std::string& fileName) {
    std::string text;
    packet::CaptureReader reader(fileName);
    packet::Frame frame;
    while (reader.next(frame)) {
      text += std::to_string(frame.timeNs) + " ";
      for (uint32_t i = 0; i < frame.capLen; ++i) {
        text += std::to_string(frame.bytes[i]) + ",";
      }
      text += "\n";
    }
    return text;
  }
};

TEST_F(MergeTest, CapturesAreMergedByTime) {
  const std::string one = capture("one.pcap", {{1000, 1}, {3000, 9}, {3001, 1}, {9000, 9}});
  const std::string two = capture("two.pcap", {{2000, 1}, {3000, 2}, {8000, 3}});
  const Outcome replay =
      run("replay --json " + config() + " --in Ethernet1=" + one + " --in Ethernet2=" + two);
  ASSERT_EQ(replay.status, 0) << replay.err;
  EXPECT_EQ(story(replay.out), "Ethernet1 4 permit\n"
                               "Ethernet2 - permit\n"
                               "Ethernet1 5 deny\n"
                               "Ethernet2 - permit\n"
                               "Ethernet1 4 permit\n"
                               "Ethernet2 - permit\n"
                               "Ethernet1 5 deny\n");
  const json summary = lines(replay.out).back()["summary"];
  EXPECT_EQ(summary["packets"], 7);
  EXPECT_EQ(summary["deny"], 2);
}

// Of equal times the first --in goes first, packet by packet.
TEST_F(MergeTest, TiesGoByTheOrderOfTheOptions) {
  const std::string one = capture("one.pcap", {{5, 1}, {5, 9}});
  const std::string two = capture("two.pcap", {{5, 1}, {6, 1}});
  const Outcome replay =
      run("replay --json " + config() + " --in Ethernet2=" + two + " --in Ethernet1=" + one);
  EXPECT_EQ(story(replay.out), "Ethernet2 - permit\n"
                               "Ethernet1 4 permit\n"
                               "Ethernet1 5 deny\n"
                               "Ethernet2 - permit\n");
}

// A capture that is not in order itself stays as it is.
TEST_F(MergeTest, EachCaptureKeepsItsOrder) {
  const std::string one = capture("one.pcap", {{7, 1}, {2, 9}});
  const std::string two = capture("two.pcap", {{5, 1}, {6, 1}});
  const Outcome replay =
      run("replay --json " + config() + " --in Ethernet1=" + one + " --in Ethernet2=" + two);
  EXPECT_EQ(story(replay.out), "Ethernet2 - permit\n"
                               "Ethernet2 - permit\n"
                               "Ethernet1 4 permit\n"
                               "Ethernet1 5 deny\n");
}

TEST_F(MergeTest, OnePairIsLikeOnePortAndItsCapture) {
  const std::string five = fivePorts();
  const Outcome pair = run("replay --json " + config() + " --in Ethernet1=" + five);
  EXPECT_EQ(pair.status, 0) << pair.err;
  EXPECT_EQ(pair.out, run("replay --json " + config() + " --in Ethernet1 --pcap " + five).out);
  EXPECT_EQ(lines(pair.out).size(), 6u);
}

TEST_F(MergeTest, TheReportNamesEveryPortAndEveryListOnce) {
  const std::string five = fivePorts();
  const std::string config =
      file("c.conf", std::string(smallSwitch) + "interface Ethernet3\n ip access-group A in\n");
  const Outcome replay = run("replay " + config + " --in Ethernet1=" + five + " --in Ethernet3=" + five +
                             " --in Ethernet2=" + capture("none.pcap", {}));
  EXPECT_EQ(replay.status, 0);
  EXPECT_EQ(replay.out, "10 packets, in Ethernet1 and Ethernet3 and Ethernet2: 6 permitted, 4 denied\n"
                        "\n"
                        "A (ipv4, in)\n"
                        "  HITS  LINE  RULE\n"
                        "     6     4  permit tcp any any range 1 3\n"
                        "     4     5  deny ip any any log\n"
                        "     0        (implicit) deny ip any any\n");
}

// With --json packets are judged and printed one by one, else many at a time. Two captures of more packets
// than are judged at once, and one that breaks off, say the same either way.
TEST_F(MergeTest, ManyAtATimeAreJudgedAsOneByOne) {
  std::vector<Sent> packets[2];
  for (unsigned i = 0; i < 1500; ++i) {
    packets[i % 7 < 4 ? 0 : 1].push_back({1000 + i, static_cast<uint16_t>(i % 5 + 1)});
  }
  const std::string one = capture("one.pcap", packets[0]);
  const std::string two = capture("two.pcap", packets[1]);
  const std::string config =
      file("c.conf", std::string(smallSwitch) + "interface Ethernet3\n ip access-group A in\n");
  const std::string kept = (folder_ / "kept.pcap").string();
  const std::string keptToo = (folder_ / "kept-too.pcap").string();
  for (const bool broken : {false, true}) {
    if (broken) {
      std::filesystem::resize_file(two, std::filesystem::file_size(two) - 5);
    }
    const std::string command = "replay " + config + " --in Ethernet1=" + one + " --in Ethernet3=" + two;
    const Outcome many = run(command + " --write " + kept);
    const Outcome each = run(command + " --json --write " + keptToo);
    EXPECT_EQ(many.status, broken ? 2 : 0) << many.err;
    EXPECT_EQ(each.err, many.err);
    uint64_t permitted = 0;
    for (const json& answer : lines(each.out)) {
      permitted += answer.contains("packet") && answer["verdict"] == "permit" ? 1 : 0;
    }
    if (!broken) {
      EXPECT_EQ(many.out.substr(0, many.out.find('\n')),
                "1500 packets, in Ethernet1 and Ethernet3: " + std::to_string(permitted) + " permitted, " +
                    std::to_string(1500 - permitted) + " denied");
    }
    EXPECT_EQ(permitted, broken ? 899u : 900u);
    EXPECT_EQ(framesText(kept), framesText(keptToo));
  }
}

TEST_F(MergeTest, PermittedPacketsOfAllAreKeptInOrder) {
  const std::string one = capture("one.pcap", {{1000, 1}, {3000, 9}});
  const std::string two = capture("two.pcap", {{2000, 7}});
  const std::string kept = (folder_ / "kept.pcap").string();
  ASSERT_EQ(
      run("replay " + config() + " --in Ethernet1=" + one + " --in Ethernet2=" + two + " --write " + kept)
          .status,
      0);
  std::string times;
  packet::CaptureReader reader(kept);
  packet::Frame frame;
  while (reader.next(frame)) {
    times += std::to_string(frame.timeNs) + " ";
  }
  EXPECT_EQ(times, "1000 2000 ");
}

TEST_F(MergeTest, OptionsThatContradictEachOther) {
  const std::string five = fivePorts();
  const std::string packets = "give the packets: either --pcap FILE (a capture) or --headers FILE (a header "
                              "trace) or --in PORT=FILE for each capture\n";
  const std::string pairs = "give each --in as PORT=FILE, the port and its capture\n";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"--in Ethernet1", packets},
      {"--in Ethernet1=" + five + " --pcap " + five, packets},
      {"--pcap " + five + " --headers x", packets},
      {"--in Ethernet1 --in Ethernet2 --pcap " + five,
       "several --in: give each as PORT=FILE, the port and its capture\n"},
      {"--in Ethernet1=" + five + " --in Ethernet2", "--in Ethernet2: " + pairs},
      {"--in =x", "--in =x: " + pairs},
      {"--in Ethernet1=", "--in Ethernet1=: " + pairs},
      {"--in Ethernet9=" + five,
       "--in Ethernet9: there is no such interface; there are Ethernet1, Ethernet2, Vlan10, Ethernet3\n"},
      {"--in Port-Channel5=" + five,
       "--in Port-Channel5: this kind of interface is no port of the switch; name a port\n"},
      {"--in Ethernet1=" + five + " --in Ethernet2=" + example("campus.pcap") + " --write x",
       "--write makes one capture, but five.pcap and " + example("campus.pcap") +
           " are of different link types; replay them one by one\n"}};
  for (const auto& [options, message] : cases) {
    const Outcome replay = run("replay " + config() + " " + options);
    EXPECT_EQ(replay.status, 2) << options;
    EXPECT_EQ(withoutFolder(replay.err), "xpacl: " + message);
  }
}

// The switch has the ports of both configurations from the start, and the port that stands for a VLAN without
// ports is there until the last packet.
TEST_F(MergeTest, UpdatesMayBringPortsAndChips) {
  const std::string tail = " --pcap " + fivePorts();
  const Outcome ports =
      run("update --json " + config() + " " + file("b.conf", nextSwitch) + tail + " --in Ethernet1");
  EXPECT_EQ(ports.status, 0) << ports.err;
  const json summary = lines(ports.out).back()["summary"];
  EXPECT_EQ(summary["findings"].dump(), "[]");
  EXPECT_LT(summary["rowsPeak"], 20);
  const std::string vlan = "ip access-list extended A\n permit tcp any any eq 1\ninterface Vlan10\n"
                           " ip access-group A in\n";
  std::string next = vlan;
  next.replace(next.find("eq 1"), 4, "eq 2");
  const Outcome routed = run("update " + file("v.conf", vlan) + " " + file("w.conf", next) + tail);
  EXPECT_EQ(routed.status, 0) << routed.out << routed.err;
}

TEST_F(MergeTest, PacketsCannotFollowAPortThatLeavesDuringAnUpdate) {
  const std::string moved = std::string(smallSwitch) + "hardware chip 1 interface Ethernet2\n";
  const std::string command = "update " + config() + " " + file("b.conf", moved) + " --pcap " + fivePorts();
  EXPECT_EQ(run(command + " --in Ethernet1").status, 0);
  const std::string message = "xpacl: Ethernet2 is no port of chip 0 in b.conf, so packets cannot use it all "
                              "the time; name another port\n";
  const Outcome in = run(command + " --in Ethernet2");
  EXPECT_EQ(in.status, 2);
  EXPECT_EQ(withoutFolder(in.err), message);
  const Outcome out = run(command + " --in Ethernet1 --out Ethernet2");
  EXPECT_EQ(out.status, 2);
  EXPECT_EQ(withoutFolder(out.err), message);
}

} // namespace
