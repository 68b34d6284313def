#include "test/ToolUnderTest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <map>
#include <string>
#include <vector>

// OpenConfig documents as people meet them: every command reads them, convert and show write them.

namespace {

using test::Outcome;

class OpenConfigTool : public test::ToolUnderTest {
protected:
  const std::string text_ = example("campus.conf");
  const std::string document_ = example("campus.openconfig.json");

  // What stands in a document for each entry: "SET SEQUENCE" and the packets that it matched.
  static std::map<std::string, std::string> matched(const std::string& document) {
    std::map<std::string, std::string> packets;
    const nlohmann::json root = nlohmann::json::parse(document);
    for (const nlohmann::json& set : root["openconfig-acl:acl"]["acl-sets"]["acl-set"]) {
      for (const nlohmann::json& entry : set["acl-entries"]["acl-entry"]) {
        packets[set["name"].get<std::string>() + " " + entry["sequence-id"].dump()] =
            entry["state"].value("matched-packets", "unknown");
      }
    }
    return packets;
  }
};

TEST_F(OpenConfigTool, convertGoesBothWays) {
  const std::string json = (folder_ / "campus.json").string();
  const std::string conf = (folder_ / "campus.conf").string();
  const Outcome there = run("convert " + text_ + " --to openconfig -o " + json);
  EXPECT_EQ(0, there.status);
  EXPECT_EQ("", there.out + there.err);
  EXPECT_EQ(slurp(document_), slurp(json)); // the example is what convert makes
  const Outcome back = run("convert " + json + " --to cli");
  EXPECT_EQ(0, back.status);
  std::ofstream(conf, std::ios::binary) << back.out;
  for (const std::string& one : {json, conf}) {
    const Outcome diff = run("diff " + text_ + " " + one);
    EXPECT_EQ(0, diff.status) << diff.out << diff.err;
  }
}

TEST_F(OpenConfigTool, everyCommandReadsDocuments) {
  const std::string pcap = example("campus.pcap");
  // CONFIG stands for the configuration.
  const std::vector<std::string> commands{
      "plan CONFIG",
      "lint CONFIG",
      "show CONFIG ids",
      "show CONFIG counters",
      "verify CONFIG",
      "replay CONFIG --pcap " + pcap,
      "update " + text_ + " CONFIG --pcap " + pcap,
      "audit CONFIG",
      "diff CONFIG " + text_,
      "trace CONFIG 'tcp 10.20.10.5:40000 > 10.20.40.16:443 syn' --in Gi1/0/1"};
  for (const std::string& command : commands) {
    const auto outcome = [&](const std::string& config, const std::string& options) {
      std::string line = command + options;
      return run(line.replace(line.find("CONFIG"), 6, config));
    };
    const Outcome text = outcome(text_, "");
    const Outcome automatic = outcome(document_, "");
    EXPECT_EQ(text.status, automatic.status) << command << automatic.err;
    EXPECT_NE("", automatic.out) << command << automatic.err;
    if (command.find(text_) == std::string::npos) {
      const Outcome document = outcome(document_, " --format openconfig");
      EXPECT_EQ(document.out, automatic.out) << command;
      EXPECT_EQ(document.err, automatic.err) << command;
      EXPECT_EQ(2, outcome(text_, " --format openconfig").status) << command;
    }
  }
  // The rows of the chip are the same, whichever form they came from.
  EXPECT_EQ(run("show " + text_ + " tcam").out, run("show " + document_ + " tcam").out);
}

TEST_F(OpenConfigTool, errorsNamePathAndPlace) {
  const std::string wrong = file("wrong.json", R"([{"name":"A","type":"ACL_IPV4","acl-entries":{"acl-entry":[
  {"sequence-id":10,"ipv4":{"config":{"dscp":46}},
   "actions":{"config":{"forwarding-action":"ACCEPT"}}}]}}]
)");
  const Outcome strict = run("plan --strict " + wrong);
  EXPECT_EQ(2, strict.status);
  EXPECT_EQ(
      wrong +
          ":2:46: error: /acl/acl-sets/acl-set[name=A][type=ACL_IPV4]/acl-entries/acl-entry[sequence-id=10]"
          "/ipv4/config/dscp: a row does not compare the DSCP bits; leave the leaf out, or match by "
          "addresses, protocol and ports\n",
      strict.err.substr(0, strict.err.find('\n') + 1));
  const std::string cut = file("cut.json", "{\"openconfig-acl:acl\": {\n");
  const Outcome half = run("plan " + cut);
  EXPECT_EQ(2, half.status);
  EXPECT_EQ(
      cut + ":2:1: error: this is no JSON: the text ends too early: a name in double quotes is needed here, "
            "then a colon and a value\n",
      half.err.substr(0, half.err.find('\n') + 1));
}

TEST_F(OpenConfigTool, convertSaysWhyItCannot) {
  const std::string vlan =
      file("vlan.conf", "mac access-list extended M\n 10 permit any any 0x0800 vlan 10\n");
  const std::string out = (folder_ / "out.json").string();
  const Outcome lost = run("convert " + vlan + " --to openconfig -o " + out);
  EXPECT_EQ(1, lost.status);
  EXPECT_EQ(
      vlan +
          ":2:5: 'permit any any 0x0800 vlan 10': the models have no leaf for the VLAN of a frame; apply a "
          "list without it to the ports of the VLAN\nxpacl: " +
          vlan + ": cannot be said as openconfig without loss; nothing was written\n",
      lost.err);
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(2, run("convert " + text_).status);
  EXPECT_EQ(2, run("convert " + text_ + " --to xml").status);
  EXPECT_EQ(2, run("convert " + (folder_ / "none.conf").string() + " --to cli").status);
  const Outcome nowhere = run("convert " + text_ + " --to cli -o " + (folder_ / "no" / "such").string());
  EXPECT_EQ(2, nowhere.status);
  EXPECT_EQ("xpacl: " + (folder_ / "no" / "such").string() +
                ": cannot be written: No such file or directory\n",
            nowhere.err);
}

TEST_F(OpenConfigTool, showWritesTheRunningStateWithItsCounters) {
  const std::string sends = " --pcap " + example("campus.pcap") + " --in Gi1/0/1";
  const Outcome shown = run("show " + text_ + " openconfig" + sends);
  ASSERT_EQ(0, shown.status) << shown.err;
  const std::map<std::string, std::string> packets = matched(shown.out);
  EXPECT_EQ("2", packets.at("WING-A-IN 10"));
  EXPECT_EQ("23", packets.at("WING-A-IN 130"));
  EXPECT_EQ("0", packets.at("SERVERS-OUT 10"));
  // Without packets everything is zero; what is written is a configuration again.
  const Outcome fresh = run("show " + document_ + " openconfig");
  ASSERT_EQ(0, fresh.status) << fresh.err;
  for (const auto& [entry, count] : matched(fresh.out)) {
    EXPECT_EQ("0", count) << entry;
  }
  const Outcome diff = run("diff " + text_ + " " + file("state.json", shown.out));
  EXPECT_EQ(0, diff.status) << diff.out << diff.err;
}

TEST_F(OpenConfigTool, showSaysWhatItCannot) {
  const std::string vlan =
      file("vlan.conf", "mac access-list extended M\n 10 permit any any 0x0800 vlan 10\n");
  const Outcome lost = run("show " + vlan + " openconfig");
  EXPECT_EQ(1, lost.status);
  EXPECT_EQ("", lost.out);
  EXPECT_NE(std::string::npos, lost.err.find("show counters has the hits of every line")) << lost.err;
  EXPECT_EQ("xpacl: show openconfig: --in, --out and --vlan say where packets go; give them with --pcap\n",
            run("show " + text_ + " openconfig --in Gi1/0/1").err);
  EXPECT_EQ("xpacl: --by-hits belongs to show counters\n",
            run("show " + text_ + " openconfig --by-hits").err);
}

} // namespace
