#include "test/ToolUnderTest.h"

#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "sim/ChipFile.h"
#include "tool/Session.h"
#include "verify/LineEvaluator.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

// verify, lint and diff as people run them: what they print, and their exit statuses.

namespace {

using nlohmann::json;
using test::Outcome;

class SetsTool : public test::ToolUnderTest {
protected:
  // The text with the folder of this run taken out of it.
  std::string plain(std::string text) const {
    const std::string folder = folder_.string() + "/";
    for (std::size_t at = text.find(folder); at != std::string::npos; at = text.find(folder)) {
      text.erase(at, folder.size());
    }
    return text;
  }
};

const char* const webBefore = "ip access-list extended WEB\n"
                              " permit tcp any host 10.0.0.2 eq 80\n"
                              " deny udp any any\n"
                              " permit icmp any any\n"
                              "interface Ethernet1\n"
                              " ip access-group WEB in\n"
                              "interface Ethernet2\n"
                              " ip access-group WEB in\n";
const char* const webAfter = "ip access-list extended WEB\n"
                             " permit tcp any host 10.0.0.2 eq 443\n"
                             " permit icmp any any\n"
                             "interface Ethernet1\n"
                             " ip access-group WEB in\n"
                             "interface Vlan5\n"
                             " ip access-group WEB out\n";

TEST_F(SetsTool, VerifyProvesWhatIsProgrammed) {
  const Outcome verify = run("verify " + file("old.conf", webBefore));
  EXPECT_EQ(verify.status, 0);
  EXPECT_EQ(verify.err, "");
  EXPECT_EQ(verify.out, "INTERFACE  DIRECTION  FAMILY  LIST  CHIP  ID  ROWS  LINES  NODES  ANSWER\n"
                        "Ethernet1  in         ipv4    WEB      0   1     4      3    101  equal\n"
                        "Ethernet2  in         ipv4    WEB      0   1     4      3    101  equal\n"
                        "\n"
                        "the chips judge every packet as the lines do; 1 MiB of memory\n");
}

// A port bit of the first row is turned over in a dump of the chip.
TEST_F(SetsTool, VerifyFindsADamagedBitInADump) {
  const agent::Config config = agent::readConfigText(webBefore, "old.conf");
  tool::Session session(config, tool::CommonOptions());
  sim::TcamTable& table = *session.system().device(0)->tcam(XpXdk::TACL_V4_IACL);
  sim::TcamRow row = table.row(0);
  const XpXdk::IaclKeyLayout& layout = *XpXdk::iaclKeyLayout(XpXdk::IACL_V4_KEY_TYPE);
  row.value[layout.fields[XpXdk::IACL_IP_DST_L4].offset] ^= 1;
  table.keyMaskIs(0, row.value, row.mask);
  const std::string dump = (folder_ / "chips.bin").string();
  sim::saveChips(session.system(), dump);

  const std::string conf = file("old.conf", webBefore);
  const Outcome verify = run("verify --json " + conf + " --chip-dump " + dump);
  EXPECT_EQ(verify.status, 1) << verify.err;
  const json answer = json::parse(verify.out);
  EXPECT_EQ(answer["equal"], false);
  ASSERT_EQ(answer["differences"].size(), 2u);
  const json& difference = answer["differences"][0];
  EXPECT_EQ(difference["interface"], "Ethernet1");
  // The packet is one that the lines judge as is said, and that only port 80 or 81 tells apart.
  const packet::Packet witness = packet::fromText(difference["witness"].get<std::string>());
  const verify::Judgement judgement = verify::evaluate(config.lists[0], witness, 1);
  EXPECT_EQ(difference["lines"], judgement.permit ? "permit" : "deny");
  EXPECT_EQ(difference["chip"], judgement.permit ? "deny" : "permit");
  EXPECT_TRUE(witness.dstPort == 80 || witness.dstPort == 81);

  const Outcome text = run("verify " + conf + " --chip-dump " + dump);
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(text.out.find("2 of 2 places judge packets in another way than the lines"), std::string::npos)
      << text.out;
}

TEST_F(SetsTool, LintNamesLinesAndWhy) {
  const std::string conf = file("a.conf", "ip access-list extended A\n"
                                          " permit tcp any 10.0.0.0 0.0.0.255 eq 80\n"
                                          " deny tcp any host 10.0.0.8 eq 80\n"
                                          " permit tcp 10.1.0.0 0.0.255.255 any\n"
                                          " deny tcp any any eq 25\n"
                                          " permit tcp any any neq 99\n"
                                          " deny udp any any\n");
  const Outcome lint = run("lint " + conf);
  EXPECT_EQ(lint.status, 1);
  EXPECT_EQ(plain(lint.err), "");
  EXPECT_EQ(
      plain(lint.out),
      "A (ipv4, 6 lines)\n"
      "  unreachable lines\n"
      "    a.conf:3  deny tcp any host 10.0.0.8 eq 80\n"
      "        hidden by a.conf:2  permit tcp any 10.0.0.0 0.0.0.255 eq 80\n"
      "        with another action: it has never done what it says\n"
      "  lines that could go, one at a time\n"
      "    a.conf:7  deny udp any any\n"
      "        what follows does the same to every packet that reaches it\n"
      "  lines that contradict later ones: order alone decides\n"
      "    a.conf:4  permit tcp 10.1.0.0 0.0.255.255 any\n"
      "        wins over a.conf:5  deny tcp any any eq 25\n"
      "            for example for tcp 10.1.0.1:40000 > 10.2.0.1:25 syn ttl 64\n"
      "  costly port ranges\n"
      "    a.conf:6  permit tcp any any neq 99\n"
      "        destination ports 0-98,100-65535: 16 rows\n"
      "        the same with 2 rows: ports any, and in front of it the same line as deny without log, for "
      "ports 99\n"
      "\n"
      "4 findings in 1 list; 1 MiB of memory\n");
  EXPECT_EQ(
      run("lint --json " + conf).out,
      R"({"schema":"xpacl/lint/1","unreachable":[{"acl":"A","line":3,"hiddenBy":[2],"sameAction":false}],)"
      R"("removable":[{"acl":"A","line":3,"reached":false},{"acl":"A","line":7,"reached":true}],)"
      R"("contradictions":[{"acl":"A","line":4,"with":5,)"
      R"("witness":"tcp 10.1.0.1:40000 > 10.2.0.1:25 syn ttl 64"}],)"
      R"("ranges":[{"acl":"A","line":6,"side":"destination","ports":"0-98,100-65535","rows":16,)"
      R"("cheaper":"any","inFront":"99","cheaperRows":2}]})"
      "\n");
}

TEST_F(SetsTool, LintFindsNothingWhereNothingIs) {
  const std::string conf =
      file("a.conf", "ip access-list extended A\n permit tcp any any eq 80\n deny ip any any log\n");
  const Outcome lint = run("lint " + conf);
  EXPECT_EQ(lint.status, 0);
  EXPECT_EQ(lint.out, "nothing odd in 1 list; 1 MiB of memory\n");
  EXPECT_EQ(run("lint --json " + conf).out,
            R"({"schema":"xpacl/lint/1","unreachable":[],"removable":[],"contradictions":[],"ranges":[]})"
            "\n");
}

TEST_F(SetsTool, DiffTellsWhatChangesForWhom) {
  const Outcome diff = run("diff " + file("old.conf", webBefore) + " " + file("new.conf", webAfter));
  EXPECT_EQ(diff.status, 1);
  EXPECT_EQ(diff.err, "");
  EXPECT_EQ(plain(diff.out), "INTERFACE  DIRECTION  FAMILY  OLD LIST  NEW LIST  ANSWER\n"
                             "Ethernet1  in         ipv4    WEB       WEB       denies and permits more\n"
                             "Ethernet2  in         ipv4    WEB       none      permits more\n"
                             "Vlan5      out        ipv4    none      WEB       denies more\n"
                             "\n"
                             "Ethernet1 in ipv4, from permit to deny: 2^57 packets\n"
                             "  2^57, such as tcp 10.1.0.1:40000 > 10.0.0.2:80 syn ttl 64\n"
                             "    old  WEB old.conf:2 permit tcp any host 10.0.0.2 eq 80\n"
                             "    new  WEB (implicit) deny\n"
                             "\n"
                             "Ethernet1 in ipv4, from deny to permit: 2^57 packets\n"
                             "  2^57, such as tcp 10.1.0.1:40000 > 10.0.0.2:443 syn ttl 64\n"
                             "    old  WEB (implicit) deny\n"
                             "    new  WEB new.conf:2 permit tcp any host 10.0.0.2 eq 443\n"
                             "\n"
                             "Ethernet2 in ipv4, from deny to permit: about 2^106 packets\n"
                             "  about 2^105.6, such as tcp 10.1.0.1:40000 > 10.2.0.1:80 syn ttl 64\n"
                             "    old  WEB (implicit) deny\n"
                             "    new  no list\n"
                             "  about 2^104, such as udp 10.1.0.1:40000 > 10.2.0.1:80 ttl 64\n"
                             "    old  WEB old.conf:3 deny udp any any\n"
                             "    new  no list\n"
                             "\n"
                             "Vlan5 out ipv4, from permit to deny: about 2^106 packets\n"
                             "  about 2^106, such as tcp 10.1.0.1:40000 > 10.2.0.1:80 syn ttl 64\n"
                             "    old  no list\n"
                             "    new  WEB (implicit) deny\n"
                             "\n"
                             "3 of 3 places judge packets differently; 1 MiB of memory\n");
}

TEST_F(SetsTool, DiffProvesThatNothingChanges) {
  // Another order, another name, and one line where there were two.
  const std::string before = file("old.conf", "ip access-list extended A\n"
                                              " permit udp 10.0.0.0 0.0.0.255 any\n"
                                              " permit udp 10.0.1.0 0.0.0.255 any\n"
                                              " permit tcp any any\n"
                                              "interface Ethernet1\n"
                                              " ip access-group A in\n");
  const std::string after = file("new.conf", "ip access-list extended B\n"
                                             " permit tcp any any\n"
                                             " permit udp 10.0.0.0 0.0.1.255 any\n"
                                             "interface Ethernet1\n"
                                             " ip access-group B in\n");
  const Outcome diff = run("diff " + before + " " + after);
  EXPECT_EQ(diff.status, 0);
  EXPECT_EQ(diff.out,
            "INTERFACE  DIRECTION  FAMILY  OLD LIST  NEW LIST  ANSWER\n"
            "Ethernet1  in         ipv4    A         B         equal\n"
            "\n"
            "nothing changes: both configurations judge every packet alike at every interface; 1 MiB of "
            "memory\n");
  const json answer = json::parse(run("diff --json " + before + " " + after).out);
  EXPECT_EQ(answer["equal"], true);
  EXPECT_EQ(answer["changes"].dump(), "[]");
}

TEST_F(SetsTool, DiffCountsTheCapture) {
  std::string after = slurp(example("campus.conf"));
  const std::string web = "permit tcp 10.20.10.0 0.0.0.255 object-group WEB-SERVERS eq www 443 8443";
  after.replace(after.find(web), 6, "deny  ");
  const std::string command = "diff --json " + example("campus.conf") + " " + file("new.conf", after) +
                              " --pcap " + example("campus.pcap");
  const Outcome diff = run(command);
  EXPECT_EQ(diff.status, 1) << diff.err;
  const json answer = json::parse(diff.out);
  ASSERT_EQ(answer["changes"].size(), 1u);
  const json& capture = answer["capture"];
  EXPECT_EQ(capture["packets"], 212);
  // What replay counts for the two configurations.
  const auto permitted = [this](const std::string& conf) {
    const Outcome replay =
        run("replay --json " + conf + " --pcap " + example("campus.pcap") + " --in Gi1/0/1");
    return lines(replay.out).back()["summary"]["permit"].get<int>();
  };
  const json& place = capture["places"][0];
  EXPECT_EQ(place["interface"], "GigabitEthernet1/0/1");
  EXPECT_EQ(place["permitToDeny"]["packets"].get<int>(),
            permitted(example("campus.conf")) - permitted((folder_ / "new.conf").string()));
  EXPECT_GT(place["permitToDeny"]["flows"].get<int>(), 0);
  EXPECT_LE(place["permitToDeny"]["flows"], place["permitToDeny"]["packets"]);
  EXPECT_EQ(place["denyToPermit"].dump(), R"({"flows":0,"packets":0})");
}

TEST_F(SetsTool, WhatIsNotThereIsSaid) {
  const std::string conf = file("old.conf", webBefore);
  for (const std::string& command :
       {std::string("lint nosuch.conf"), "diff nosuch.conf " + conf, "diff " + conf + " nosuch.conf",
        "diff " + conf + " " + conf + " --pcap nosuch.pcap", "verify " + conf + " --chip-dump nosuch.bin"}) {
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.status, 2) << command;
    EXPECT_NE(outcome.err.find("nosuch"), std::string::npos) << outcome.err;
  }
}

TEST_F(SetsTool, TooLittleMemoryIsAnErrorAndNoCrash) {
  std::string text = "ip access-list extended A\n";
  unsigned state = 1;
  for (unsigned i = 0; i < 3000; ++i) {
    state = state * 1103515245 + 12345;
    const unsigned a = state >> 8 & 255;
    const unsigned b = state >> 16 & 255;
    text += std::string(state >> 24 & 1 ? " permit" : " deny") + " tcp 10." + std::to_string(a) +
            ".0.0 0.0.255.255 10.0." + std::to_string(b) + ".0 0.255.0.255 range " +
            std::to_string(state % 1000) + " " + std::to_string(1000 + state % 50000) + "\n";
  }
  const Outcome lint = run("lint --memory 16 " + file("big.conf", text));
  EXPECT_EQ(lint.status, 2);
  EXPECT_EQ(lint.err, "xpacl: the sets of packets need more than 16 MiB; allow them more with --memory\n");
}

} // namespace
