#include "test/RunUnderTest.h"

#include <string>

// Scenarios that cannot be run, steps that cannot be carried out, expectations that are not met: what is
// said, and that nothing else happens.

namespace {

using test::Outcome;

class RunRefuseTest : public test::RunUnderTest {
protected:
  void SetUp() override {
    RunUnderTest::SetUp();
    file("a.conf", smallSwitch);
    file("b.conf", nextSwitch);
    fivePorts();
  }

  // What is said of a line behind a load and a replay. Nothing may have been done.
  std::string refused(const std::string& line) {
    const std::string before = "load a.conf\nreplay --pcap five.pcap --in Ethernet1 --write kept.pcap\n";
    const Outcome outcome = scenario(before + line + "\n");
    EXPECT_EQ(outcome.status, 2) << line;
    EXPECT_EQ(outcome.out, "") << line;
    EXPECT_FALSE(std::filesystem::exists(folder_ / "kept.pcap")) << line;
    const std::string end = "xpacl: s cannot be run; nothing was done\n";
    EXPECT_TRUE(outcome.err.ends_with(end)) << outcome.err;
    return outcome.err.substr(0, outcome.err.size() - end.size());
  }

  // What is said of a step behind a load; the run goes on.
  std::string failing(const std::string& line) {
    const Outcome outcome =
        scenario("load a.conf\nreplay --pcap five.pcap --in Ethernet1 --brief\n" + line + "\necho went on\n");
    EXPECT_EQ(outcome.status, 1) << line;
    EXPECT_NE(outcome.out.find("\nwent on\n"), std::string::npos) << outcome.out;
    return outcome.err;
  }
};

TEST_F(RunRefuseTest, LinesThatCannotBeRead) {
  const std::string expectUsage =
      "; write expect permit N deny N, expect blocked N, expect hits ACL LINE N or "
      "expect rows TABLE N [chip N]\n";
  const std::string replayUsage =
      "; write replay --pcap FILE [--in PORT] (or --headers FILE, or --in PORT=FILE for each capture) [--out "
      "PORT] [--vlan VLAN] [--write FILE] [--brief] [--json]\n";
  const std::string pairUsage = "; write pair add IF VLAN or pair delete IF VLAN\n";
  const std::string faultUsage = "; write fault call N status S\n";
  EXPECT_EQ(refused("frobnicate"),
            "s:3:1: error: there is no step 'frobnicate'; the steps are load, update, replay, trace, show, "
            "block, unblock, chip, pair, fault, expect, echo\n");
  EXPECT_EQ(refused("  load"), "s:3:7: error: here the configuration is missing; write load FILE\n");
  EXPECT_EQ(refused("load a.conf b.conf"), "s:3:13: error: 'b.conf' is one word too many; write load FILE\n");
  EXPECT_EQ(refused("load \"a.conf"), "s:3:6: error: the double quote is not closed; write a second one\n");
  EXPECT_EQ(refused("replay --foo"),
            "s:3:8: error: The following argument was not expected: --foo" + replayUsage);
  EXPECT_EQ(refused("replay --pcap five.pcap --vlan 5000"),
            "s:3:25: error: --vlan: Value 5000 not in range 1 to 4094" + replayUsage);
  EXPECT_EQ(refused("replay --in A --in B"),
            "s:3:1: error: several --in: give each as PORT=FILE, the port and its capture\n");
  EXPECT_EQ(refused("replay --pcap nosuch.pcap"),
            "s:3:15: error: nosuch.pcap: cannot be opened: No such file or directory\n");
  EXPECT_EQ(refused("replay --in Ethernet1=nosuch.pcap"),
            "s:3:13: error: nosuch.pcap: cannot be opened: No such file or directory\n");
  EXPECT_EQ(refused("replay --headers nosuch"),
            "s:3:18: error: nosuch: cannot be opened: No such file or directory\n");
  EXPECT_EQ(refused("trace tcp nonsense --in Ethernet1").substr(0, 48),
            "s:3:7: error: the packet text 'tcp nonsense', co");
  EXPECT_EQ(refused("trace"),
            "s:3:1: error: give the packet, e.g. 'tcp 10.1.2.3:1234 > 10.9.8.7:80 ack', or --pcap FILE "
            "--packet N\n");
  EXPECT_EQ(refused("show"),
            "s:3:1: error: WHAT is required; write show WHAT, as behind xpacl show CONFIG\n");
  EXPECT_EQ(refused("update b.conf"),
            "s:3:1: error: --pcap is required; write update FILE --pcap FILE [--in PORT] [--out PORT] "
            "[--vlan VLAN] [--every] [--json]\n");
  EXPECT_EQ(refused("block"), "s:3:6: error: here an interface is missing; write block IF\n");
  EXPECT_EQ(refused("unblock A B"), "s:3:11: error: 'B' is one word too many; write unblock IF\n");
  EXPECT_EQ(refused("chip add x"),
            "s:3:10: error: 'x' is not the number of a chip; write chip add N or chip remove N\n");
  EXPECT_EQ(refused("pair drop"), "s:3:6: error: 'drop' is not add or delete" + pairUsage);
  EXPECT_EQ(refused("pair add Ethernet1"), "s:3:19: error: here the number of a VLAN is missing" + pairUsage);
  EXPECT_EQ(refused("fault call 0 status 1"), "s:3:12: error: calls are counted from 1" + faultUsage);
  EXPECT_EQ(refused("fault call 1 status -1"), "s:3:21: error: '-1' is not a status" + faultUsage);
  EXPECT_EQ(refused("fault 3"), "s:3:7: error: '3' is not call" + faultUsage);
  EXPECT_EQ(refused("expect"),
            "s:3:7: error: here permit, deny, blocked, hits or rows is missing" + expectUsage);
  EXPECT_EQ(refused("expect permit many"), "s:3:15: error: 'many' is not a number of packets" + expectUsage);
  EXPECT_EQ(refused("expect permit 3 permit 4"), "s:3:17: error: 'permit' is not deny" + expectUsage);
  EXPECT_EQ(refused("expect hits A x 3"), "s:3:15: error: 'x' is not the number of a line" + expectUsage);
  EXPECT_EQ(refused("expect hits A 3 3 up"), "s:3:19: error: 'up' is not in or out" + expectUsage);
  EXPECT_EQ(refused("expect rows ingress 3"),
            "s:3:13: error: 'ingress' is not ingressV4, ingressV6, egressV4, egressV6 or ingressMac" +
                expectUsage);
}

TEST_F(RunRefuseTest, ConfigurationsThatCannotBeUsed) {
  EXPECT_EQ(refused("load nosuch.conf"),
            "nosuch.conf: error: cannot be opened: No such file or directory\n"
            "s:3:6: error: nosuch.conf cannot be used; see what is said of it above\n");
  file("sizes.conf", "hardware tcam ingressV4 8\nhardware tcam egressV6 8\ninterface Ethernet1\n");
  EXPECT_EQ(
      refused("update --pcap five.pcap sizes.conf"),
      "s:3:25: error: sizes.conf wants other sizes of tables than a.conf (ingressV4, egressV6); they are "
      "fixed when a chip starts: give --tcam, or the same hardware lines\n");
}

TEST_F(RunRefuseTest, EverythingWrongIsSaidAtOnceAndNothingIsDone) {
  const Outcome outcome = scenario("expect permit 3\n"
                                   "block Ethernet1\n"
                                   "load a.conf\n"
                                   "expect blocked 3\n"
                                   "expect rows ingressV4 7\n"
                                   "frobnicate\n"
                                   "replay --write kept.pcap --pcap five.pcap\n");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "s:1:1: error: nothing is loaded yet; write load FILE before it\n"
            "s:2:1: error: nothing is loaded yet; write load FILE before it\n"
            "s:4:1: error: no packet was judged yet; write a replay step before it\n"
            "s:6:1: error: there is no step 'frobnicate'; the steps are load, update, replay, trace, show, "
            "block, unblock, chip, pair, fault, expect, echo\n"
            "xpacl: s cannot be run; nothing was done\n");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "kept.pcap"));
}

TEST_F(RunRefuseTest, FilesThatAreNoScripts) {
  EXPECT_EQ(scenario("# nothing\n\n").err, "s: error: the script has no steps; begin with load FILE\n"
                                           "xpacl: s cannot be run; nothing was done\n");
  EXPECT_EQ(run("run /nonexistent").err, "/nonexistent: error: No such file or directory\n"
                                         "xpacl: /nonexistent cannot be run; nothing was done\n");
  EXPECT_EQ(run("run /tmp").err, "/tmp: error: is a directory; give a script\n"
                                 "xpacl: /tmp cannot be run; nothing was done\n");
  EXPECT_EQ(run("run").status, 2);
}

TEST_F(RunRefuseTest, StepsThatCannotBeCarriedOut) {
  const std::string known = "there is no such interface; there are Ethernet1, Ethernet2, Vlan10, Ethernet3\n";
  EXPECT_EQ(failing("block Ethernet9"), "s:3:1: Ethernet9: " + known);
  EXPECT_EQ(failing("unblock nonsense"), "s:3:1: nonsense: " + known);
  EXPECT_EQ(failing("block Loopback0"),
            "s:3:1: Loopback0: this kind of interface has no access lists; name a port or a VLAN\n");
  EXPECT_EQ(failing("chip add 64"), "s:3:1: chip 64: chips are numbered from 0 to 63\n");
  EXPECT_EQ(failing("chip add 0"), "s:3:1: chip 0 is active already\n");
  EXPECT_EQ(failing("chip remove 64"), "s:3:1: chip 64: chips are numbered from 0 to 63\n");
  EXPECT_EQ(failing("chip remove 0\nchip remove 0"), "s:4:1: chip 0 is not active\n");
  EXPECT_EQ(failing("pair add Ethernet9 10"), "s:3:1: Ethernet9: " + known);
  EXPECT_EQ(failing("pair add Ethernet2 0"), "s:3:1: VLAN 0: VLANs are numbered from 1 to 4094\n");
  EXPECT_EQ(failing("pair delete Ethernet2 4095"), "s:3:1: VLAN 4095: VLANs are numbered from 1 to 4094\n");
  EXPECT_EQ(failing("pair add Ethernet2 10"), "s:3:1: Ethernet2 is paired with VLAN 10 already\n");
  EXPECT_EQ(failing("pair delete Ethernet2 20"), "s:3:1: Ethernet2 is not paired with VLAN 20\n");
  EXPECT_EQ(failing("pair add Vlan10 20"),
            "s:3:1: Vlan10: only Ethernet ports are paired with VLANs; name a port\n");
  EXPECT_EQ(failing("chip remove 0\npair add Ethernet2 20"), "s:4:1: Ethernet2: its chip 0 is not active\n");
  EXPECT_EQ(failing("replay --in Ethernet9 --pcap five.pcap\nexpect permit 3"),
            "s:3:1: --in Ethernet9: " + known +
                "s:4:1: the packets before it were not judged, because that step failed\n");
  EXPECT_EQ(failing("chip remove 0\nreplay --in Ethernet1 --pcap five.pcap"),
            "s:4:1: --in Ethernet1: its chip 0 is not active\n");
  EXPECT_EQ(failing("chip remove 0\nreplay --in Vlan20 --pcap five.pcap"), "s:4:1: --in Vlan20: " + known);
  EXPECT_EQ(failing("replay --pcap five.pcap --write no/such/folder").substr(0, 31),
            "s:3:1: no/such/folder: cannot b");
  EXPECT_EQ(failing("show tcam mac out"),
            "s:3:1: show tcam mac out: MAC lists stand at ingress only; ask for mac in\n");
  EXPECT_EQ(failing("show ids --chip 9"), "s:3:1: there is no chip 9; chips are numbered from 0\n");
}

TEST_F(RunRefuseTest, ExpectationsThatAreNotMet) {
  EXPECT_EQ(failing("expect permit 2 deny 3"),
            "s:3:1: expected 2 permitted and 3 denied, found 3 permitted and 2 denied\n");
  EXPECT_EQ(failing("expect deny 3"), "s:3:1: expected 3 denied, found 2 denied\n");
  EXPECT_EQ(failing("expect blocked 1"), "s:3:1: expected 1 packet that met a blocked interface, found 0\n");
  EXPECT_EQ(failing("expect hits A 4 1"),
            "s:3:1: expected 1 hit of A line 4 (permit tcp any any range 1 3), found 3\n");
  EXPECT_EQ(failing("expect hits G 7 2"),
            "s:3:1: expected 2 hits of G line 7 (permit ip any any), found 0\n");
  EXPECT_EQ(failing("expect hits A 10 3"),
            "s:3:1: A has no line 10; by their place in the configuration file, its lines are 4, 5\n");
  EXPECT_EQ(failing("expect hits B 4 3"), "s:3:1: there is no access list B with lines; there are A, G\n");
  EXPECT_EQ(failing("expect rows ingressV4 5"),
            "s:3:1: expected 5 rows in use in ingressV4 of chip 0, found 4\n");
  EXPECT_EQ(failing("expect rows ingressV4 5 chip 7"),
            "s:3:1: there is no chip 7; chips are numbered from 0\n");
  EXPECT_EQ(failing("expect rows ingressV4 5 chip 300"),
            "s:3:1: there is no chip 300; chips are numbered from 0\n");
}

TEST_F(RunRefuseTest, TheEndTellsHowMuchWentWrong) {
  const std::string steps = "load a.conf\n"
                            "replay --in Ethernet1 --pcap five.pcap --brief\n"
                            "expect permit 5\n"
                            "block Ethernet9\n"
                            "expect permit 3\n";
  const std::string begin = "> load a.conf\n"
                            "  started with 1 chip and 6 rows\n"
                            "> replay --in Ethernet1 --pcap five.pcap --brief\n"
                            "5 packets, in Ethernet1: 3 permitted, 2 denied\n"
                            "> expect permit 5\n";
  const Outcome all = scenario(steps);
  EXPECT_EQ(all.status, 1);
  EXPECT_EQ(all.out, begin + "> block Ethernet9\n"
                             "> expect permit 3\n"
                             "  as expected\n"
                             "\n"
                             "5 steps, 2 expectations: 1 not met, 1 step failed\n");
  const Outcome first = scenario(steps, " --stop");
  EXPECT_EQ(first.status, 1);
  EXPECT_EQ(first.out, begin +
                           "\n"
                           "3 steps, 1 expectation: 1 not met, 0 steps failed; stopped before the other 2\n");
  EXPECT_EQ(first.err, "s:3:1: expected 5 permitted, found 3 permitted\n");
}

// What does not fit is refused whole: the first load ends the run, a later one leaves the switch as it was.
TEST_F(RunRefuseTest, WhatDoesNotFit) {
  const Outcome first = scenario("load a.conf\nblock Ethernet1\n", " --tcam ingressV4=3");
  EXPECT_EQ(first.status, 1);
  EXPECT_EQ(first.err, "s:1:1: the configuration does not fit; nothing was written\n"
                       "  table ingressV4 of chip 0 has 2 free rows, the new versions need 4: 2 rows lack\n");
  EXPECT_EQ(first.out, "> load a.conf\n"
                       "\n"
                       "1 step, 0 expectations: 0 not met, 1 step failed; stopped before the other 1\n");
  const Outcome later = scenario("load a.conf\n"
                                 "load b.conf\n"
                                 "replay --in Ethernet1 --pcap five.pcap --brief\n"
                                 "expect permit 3\n"
                                 "update b.conf --in Ethernet1 --pcap five.pcap\n"
                                 "expect permit 3\n",
                                 " --tcam ingressV4=6");
  EXPECT_EQ(later.status, 1);
  const std::string lack =
      "  table ingressV4 of chip 0 has 1 free rows, the new versions need 5: 4 rows lack\n";
  EXPECT_EQ(later.err,
            "s:2:1: the configuration does not fit; nothing was written\n" + lack +
                "s:5:1: b.conf does not fit beside the running configuration; nothing was written\n" + lack +
                "s:6:1: the packets before it were not judged, because that step failed\n");
}

} // namespace
