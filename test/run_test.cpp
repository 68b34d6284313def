#include "test/RunUnderTest.h"

#include <string>
#include <vector>

// Scenarios that do what they say: every step, every expectation.

namespace {

using nlohmann::json;
using test::Outcome;

class RunTest : public test::RunUnderTest {
protected:
  void SetUp() override {
    RunUnderTest::SetUp();
    file("a.conf", smallSwitch);
    file("b.conf", nextSwitch);
    fivePorts();
  }
};

TEST_F(RunTest, StepsPrintWhatTheyDo) {
  const Outcome outcome = scenario("# A comment, and an empty line\n"
                                   "\n"
                                   "echo It's \"on\"  # this, too\n"
                                   "load a.conf\n"
                                   "  replay --in Ethernet1   --pcap five.pcap # a comment\n"
                                   "expect permit 3 deny 2\n"
                                   "expect deny 2\n"
                                   "expect hits A 4 3\n"
                                   "expect hits A 5 2 in\n"
                                   "expect hits A 5 0 out\n"
                                   "expect hits G 7 0\n"
                                   "expect blocked 0\n"
                                   "expect rows ingressV4 4\n"
                                   "expect rows egressV4 2 chip 0\n"
                                   "echo\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "\n"
                         "It's \"on\"  # this, too\n"
                         "> load a.conf\n"
                         "  started with 1 chip and 6 rows\n"
                         "> replay --in Ethernet1   --pcap five.pcap\n"
                         "5 packets, in Ethernet1: 3 permitted, 2 denied\n"
                         "\n"
                         "A (ipv4, in)\n"
                         "  HITS  LINE  RULE\n"
                         "     3     4  permit tcp any any range 1 3\n"
                         "     2     5  deny ip any any log\n"
                         "     0        (implicit) deny ip any any\n"
                         "> expect permit 3 deny 2\n"
                         "  as expected\n"
                         "> expect deny 2\n"
                         "  as expected\n"
                         "> expect hits A 4 3\n"
                         "  as expected\n"
                         "> expect hits A 5 2 in\n"
                         "  as expected\n"
                         "> expect hits A 5 0 out\n"
                         "  as expected\n"
                         "> expect hits G 7 0\n"
                         "  as expected\n"
                         "> expect blocked 0\n"
                         "  as expected\n"
                         "> expect rows ingressV4 4\n"
                         "  as expected\n"
                         "> expect rows egressV4 2 chip 0\n"
                         "  as expected\n"
                         "\n"
                         "\n"
                         "\n"
                         "13 steps, 9 expectations: all well\n");
}

TEST_F(RunTest, LoadChangesTheRunningSwitch) {
  const Outcome outcome = scenario("load a.conf\n"
                                   "load b.conf\n"
                                   "replay --in Ethernet300 --pcap five.pcap --brief\n"
                                   "expect permit 4 deny 1\n"
                                   "expect rows ingressV4 5\n"
                                   "expect rows ingressV4 5 chip 1\n"
                                   "load a.conf\n"
                                   "replay --in Ethernet1 --pcap five.pcap --brief\n"
                                   "expect permit 3 deny 2\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "> load a.conf\n"
                         "  started with 1 chip and 6 rows\n"
                         "> load b.conf\n"
                         "  10 rows staged, 6 retired, 10 in use on 2 chips\n"
                         "> replay --in Ethernet300 --pcap five.pcap --brief\n"
                         "5 packets, in Ethernet300: 4 permitted, 1 denied\n"
                         "> expect permit 4 deny 1\n"
                         "  as expected\n"
                         "> expect rows ingressV4 5\n"
                         "  as expected\n"
                         "> expect rows ingressV4 5 chip 1\n"
                         "  as expected\n"
                         "> load a.conf\n"
                         "  6 rows staged, 10 retired, 6 in use on 1 chip\n"
                         "> replay --in Ethernet1 --pcap five.pcap --brief\n"
                         "5 packets, in Ethernet1: 3 permitted, 2 denied\n"
                         "> expect permit 3 deny 2\n"
                         "  as expected\n"
                         "\n"
                         "9 steps, 4 expectations: all well\n");
}

TEST_F(RunTest, UpdateWatchesTheChange) {
  const Outcome outcome = scenario("load a.conf\n"
                                   "update b.conf --in Ethernet1 --pcap five.pcap\n"
                                   "expect permit 3 deny 2\n"
                                   "expect hits A 5 2\n"
                                   "expect blocked 0\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "> load a.conf\n"
            "  started with 1 chip and 6 rows\n"
            "> update b.conf --in Ethernet1 --pcap five.pcap\n"
            "the running configuration -> b.conf\n"
            "  16496 writes to the chip; 10 rows staged, 6 retired, at most 16 in use\n"
            "  5 packets, one between any two writes: 3 permitted, 2 denied, 0 met a blocked interface\n"
            "  every verdict was the old one, the new one, or the drop of a blocked interface\n"
            "> expect permit 3 deny 2\n"
            "  as expected\n"
            "> expect hits A 5 2\n"
            "  as expected\n"
            "> expect blocked 0\n"
            "  as expected\n"
            "\n"
            "5 steps, 3 expectations: all well\n");
}

TEST_F(RunTest, BlocksChipsAndPairs) {
  const Outcome outcome = scenario("load a.conf\n"
                                   "block Ethernet1\n"
                                   "load a.conf\n"
                                   "replay --in Ethernet1 --pcap five.pcap --brief\n"
                                   "expect permit 0 deny 5\n"
                                   "expect blocked 5\n"
                                   "unblock Ethernet1\n"
                                   "block Port-Channel5\n"
                                   "unblock Port-Channel5\n"
                                   "chip add 1\n"
                                   "expect rows egressV4 2 chip 1\n"
                                   "chip remove 1\n"
                                   "expect rows egressV4 0 chip 1\n"
                                   "replay --in Ethernet1 --out Ethernet2 --pcap five.pcap --brief\n"
                                   "expect hits G 7 5\n"
                                   "pair delete Ethernet2 10\n"
                                   "replay --in Ethernet1 --out Ethernet2 --pcap five.pcap --brief\n"
                                   "expect hits G 7 0\n"
                                   "pair add Ethernet2 10\n"
                                   "replay --in Ethernet1 --out Ethernet2 --pcap five.pcap --brief\n"
                                   "expect hits G 7 5\n"
                                   "chip remove 0\n"
                                   "expect rows ingressV4 0\n"
                                   "chip add 0\n"
                                   "replay --in Ethernet1 --pcap five.pcap --brief\n"
                                   "expect permit 3 deny 2\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "> load a.conf\n"
                         "  started with 1 chip and 6 rows\n"
                         "> block Ethernet1\n"
                         "> load a.conf\n"
                         "  0 rows staged, 0 retired, 6 in use on 1 chip\n"
                         "> replay --in Ethernet1 --pcap five.pcap --brief\n"
                         "5 packets, in Ethernet1: 0 permitted, 5 denied\n"
                         "5 of them met a blocked interface\n"
                         "> expect permit 0 deny 5\n"
                         "  as expected\n"
                         "> expect blocked 5\n"
                         "  as expected\n"
                         "> unblock Ethernet1\n"
                         "> block Port-Channel5\n"
                         "> unblock Port-Channel5\n"
                         "> chip add 1\n"
                         "  2 rows staged, 0 retired, 8 in use on 2 chips\n"
                         "> expect rows egressV4 2 chip 1\n"
                         "  as expected\n"
                         "> chip remove 1\n"
                         "  0 rows staged, 2 retired, 6 in use on 1 chip\n"
                         "> expect rows egressV4 0 chip 1\n"
                         "  as expected\n"
                         "> replay --in Ethernet1 --out Ethernet2 --pcap five.pcap --brief\n"
                         "5 packets, in Ethernet1, out Ethernet2: 3 permitted, 2 denied\n"
                         "> expect hits G 7 5\n"
                         "  as expected\n"
                         "> pair delete Ethernet2 10\n"
                         "> replay --in Ethernet1 --out Ethernet2 --pcap five.pcap --brief\n"
                         "5 packets, in Ethernet1, out Ethernet2: 0 permitted, 5 denied\n"
                         "3 of them were in a VLAN that the port does not carry\n"
                         "> expect hits G 7 0\n"
                         "  as expected\n"
                         "> pair add Ethernet2 10\n"
                         "> replay --in Ethernet1 --out Ethernet2 --pcap five.pcap --brief\n"
                         "5 packets, in Ethernet1, out Ethernet2: 3 permitted, 2 denied\n"
                         "> expect hits G 7 5\n"
                         "  as expected\n"
                         "> chip remove 0\n"
                         "  0 rows staged, 6 retired, 0 in use on 0 chips\n"
                         "> expect rows ingressV4 0\n"
                         "  as expected\n"
                         "> chip add 0\n"
                         "  6 rows staged, 0 retired, 6 in use on 1 chip\n"
                         "> replay --in Ethernet1 --pcap five.pcap --brief\n"
                         "5 packets, in Ethernet1: 3 permitted, 2 denied\n"
                         "> expect permit 3 deny 2\n"
                         "  as expected\n"
                         "\n"
                         "26 steps, 9 expectations: all well\n");
}

// What the commands print about a configuration, the steps print about the running switch.
TEST_F(RunTest, ShowAndTraceStepsPrintWhatTheCommandsPrint) {
  const std::string config = (folder_ / "a.conf").string();
  for (const std::string what :
       {"tcam ipv4 in", "tcam ipv6 out", "tcam mac", "ports", "vlans --chip 0", "egress", "ids", "state"}) {
    const Outcome command = run("show " + config + " " + what);
    ASSERT_EQ(command.status, 0) << what;
    const Outcome outcome = scenario("load a.conf\nshow " + what + "\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "> load a.conf\n  started with 1 chip and 6 rows\n> show " + what + "\n" +
                               command.out + "\n2 steps, 0 expectations: all well\n");
  }
  for (const std::string packet :
       {"tcp 10.0.0.1:7 > 10.0.0.2:2 --in Ethernet1", "--pcap five.pcap --packet 5 --in Ethernet1"}) {
    const Outcome command = run("trace --json " + config + " '" + packet.substr(0, packet.find(" --in")) +
                                "'" + " --in Ethernet1");
    const Outcome outcome = scenario("load a.conf\ntrace --json " + packet + "\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    if (packet.front() == 't') {
      EXPECT_EQ(outcome.out, withoutFolder(command.out));
    } else {
      EXPECT_EQ(json::parse(outcome.out)["verdict"], "deny");
    }
  }
}

// Standard output is one for machines then: nothing but what the steps print.
TEST_F(RunTest, JsonStepsPrintTheirSummaryAlone) {
  const Outcome command =
      run("replay --json " + (folder_ / "a.conf").string() + " --pcap " + (folder_ / "five.pcap").string());
  const Outcome outcome = scenario("load a.conf\n"
                                   "replay --json --pcap five.pcap\n"
                                   "expect permit 3 deny 2\n"
                                   "block Ethernet1\n"
                                   "replay --json --pcap five.pcap\n"
                                   "unblock Ethernet1\n"
                                   "update b.conf --json --pcap five.pcap --in Ethernet1\n"
                                   "show ids --json\n");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const std::vector<json> found = lines(outcome.out);
  ASSERT_EQ(found.size(), 4u) << outcome.out;
  EXPECT_EQ(found[0], lines(command.out).back());
  EXPECT_EQ(found[1]["summary"]["blocked"], 5);
  EXPECT_EQ(found[1]["summary"]["deny"], 5);
  EXPECT_EQ(found[2]["summary"]["findings"].dump(), "[]");
  EXPECT_EQ(found[3]["ids"].size(), 1u);
}

TEST_F(RunTest, WhatAReplayWritesALaterStepReads) {
  const Outcome outcome = scenario("load a.conf\n"
                                   "replay --in Ethernet1 --pcap five.pcap --write kept.pcap --brief\n"
                                   "replay --in Ethernet1 --pcap kept.pcap --brief\n"
                                   "expect permit 3 deny 0\n");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(RunTest, FileNamesAreThoseOfTheScriptsFolder) {
  std::filesystem::create_directory(folder_ / "sub folder");
  file("sub folder/s", "load ../a.conf\nload \"../a.conf\"\nreplay --in Ethernet1=../five.pcap --brief\n");
  const Outcome outcome = run("run '" + (folder_ / "sub folder" / "s").string() + "'");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  file("a b.conf", smallSwitch);
  EXPECT_EQ(scenario("load \"a b.conf\"\n").status, 0);
}

// A status that the driver accepts lets it go on: here, with a port that is not blocked in its chip.
TEST_F(RunTest, AnAcceptedFaultIsACallThatIsNotCarriedOut) {
  const Outcome outcome = scenario("load a.conf\n"
                                   "fault call 1 status 9\n"
                                   "block Ethernet1\n"
                                   "replay --in Ethernet1 --pcap five.pcap --brief\n"
                                   "expect permit 3\n"
                                   "fault call 1000 status 42\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "> load a.conf\n"
            "  started with 1 chip and 6 rows\n"
            "> fault call 1 status 9\n"
            "  SDK call 1 from here answers status 9, which the driver accepts, and is not carried out\n"
            "> block Ethernet1\n"
            "> replay --in Ethernet1 --pcap five.pcap --brief\n"
            "5 packets, in Ethernet1: 3 permitted, 2 denied\n"
            "> expect permit 3\n"
            "  as expected\n"
            "> fault call 1000 status 42\n"
            "  SDK call 1000 from here answers status 42, which the driver accepts, and is not carried out\n"
            "The fault of line 6 did not come: there were 0 calls since.\n"
            "\n"
            "6 steps, 1 expectation: all well\n");
}

TEST_F(RunTest, AFatalFaultStopsTheProcessAndIsAnnounced) {
  const Outcome outcome = scenario("load a.conf\n"
                                   "fault call 1 status 7\n"
                                   "block Ethernet1\n"
                                   "echo never\n");
  EXPECT_TRUE(outcome.status == -1 || outcome.status == 134) << outcome.status; // with or without a shell
  EXPECT_EQ(outcome.out, "> load a.conf\n"
                         "  started with 1 chip and 6 rows\n"
                         "> fault call 1 status 7\n"
                         "  SDK call 1 from here answers status 7; the process stops there, because what the "
                         "chip holds is unknown then\n"
                         "> block Ethernet1\n");
  EXPECT_NE(outcome.err.find(" API ERROR 7\n"), std::string::npos) << outcome.err;
}

TEST_F(RunTest, TheExampleIsTrue) {
  const Outcome outcome = run("run " + example("campus.scenario"));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out.substr(outcome.out.rfind("\n\n")), "\n\n42 steps, 17 expectations: all well\n");
}

} // namespace
