#include "test/Shared.h"
#include "test/ToolUnderTest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// xpacl as people meet it: what it answers, what it refuses, and with which exit status.

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

using test::Outcome;

class Tool : public test::ToolUnderTest {};

const char* const small = "ip access-list extended A\n"
                          " permit tcp any any range 1 3\n"
                          " deny ip any any log\n"
                          "interface Ethernet1\n"
                          " ip access-group A in\n";

TEST_F(Tool, PlanSaysWhatFitsAsText) {
  const Outcome plan = run("plan " + file("a.conf", small) + " --tcam ingressV4=8");
  EXPECT_EQ(plan.status, 0);
  EXPECT_EQ(plan.err, "");
  EXPECT_EQ(plan.out, "Fits. " + (folder_ / "a.conf").string() +
                          "\n\n"
                          "TCAM rows (one row of each table holds the default entry)\n"
                          "  TABLE       ROWS  USED  FREE  PEAK  LACK\n"
                          "  ingressV4      8     4     3     4     0\n"
                          "  ingressV6   4096     0  4095     0     0\n"
                          "  egressV4    4096     0  4095     0     0\n"
                          "  egressV6    4096     0  4095     0     0\n"
                          "  ingressMac  4096     0  4095     0     0\n"
                          "\n"
                          "Lists (rows of one version, the implicit rows included)\n"
                          "  LIST  FAMILY  DIRECTION  ROLE  LINES  ROWS  VERSIONS\n"
                          "  A     ipv4    in         port      2     4         1\n"
                          "\n"
                          "Costliest lines\n"
                          "  2 rows  " +
                          (folder_ / "a.conf").string() +
                          ":2  permit tcp any any range 1 3\n"
                          "      destination ports 1-3 = 1/0xffff 2/0xfffe\n");
}

TEST_F(Tool, PlanSaysWhatLacksAndEndsWithOne) {
  const Outcome plan = run("plan --json " + file("a.conf", small) + " --tcam ingressV4=4");
  EXPECT_EQ(plan.status, 1);
  const json answer = json::parse(plan.out);
  EXPECT_EQ(answer["fits"], false);
  EXPECT_EQ(answer["tables"]["ingressV4"].dump(), R"({"free":0,"lack":1,"peak":4,"rows":4,"used":4})");
  EXPECT_EQ(
      answer["acls"].dump(),
      R"([{"direction":"in","family":"ipv4","name":"A","role":"port","rows":4,"rules":2,"versions":1}])");
  EXPECT_EQ(answer["errors"].dump(), "[]");
}

TEST_F(Tool, PlanFromAnotherConfigurationCountsBothSides) {
  std::string edited = small;
  edited.replace(edited.find("1 3"), 3, "1 7");
  const Outcome plan = run("plan --json " + file("new.conf", edited) + " --from " + file("old.conf", small) +
                           " --tcam ingressV4=9");
  EXPECT_EQ(plan.status, 1);
  EXPECT_EQ(json::parse(plan.out)["tables"]["ingressV4"].dump(),
            R"({"free":3,"lack":1,"peak":9,"rows":9,"used":5})");
}

TEST_F(Tool, ErrorsOfAConfigurationStandInTheAnswer) {
  const Outcome plan = run("plan --json " + file("bad.conf", "ip access-list extended A\n"
                                                             " permit tcp any any eq nosuch\n"
                                                             "interface Ethernet1\n ip access-group A in\n"));
  EXPECT_EQ(plan.status, 2);
  const json answer = json::parse(plan.out);
  EXPECT_EQ(answer["fits"], false);
  ASSERT_EQ(answer["errors"].size(), 1u);
  EXPECT_EQ(answer["errors"][0]["line"], 2);
  EXPECT_EQ(answer["errors"][0]["column"], 24);
  EXPECT_NE(plan.err.find("bad.conf:2:24: error: 'nosuch'"), std::string::npos) << plan.err;
}

TEST_F(Tool, ReplayOfTheExampleAddsUp) {
  const Outcome replay = run("replay --json " + example("campus.conf") + " --pcap " + example("campus.pcap"));
  ASSERT_EQ(replay.status, 0) << replay.err;
  const std::vector<json> answers = lines(replay.out);
  const json summary = answers.back()["summary"];
  EXPECT_EQ(answers.size(), summary["packets"].get<std::size_t>() + 1);
  EXPECT_EQ(summary["packets"], 212);
  EXPECT_EQ(summary["permit"], 158);
  EXPECT_EQ(summary["deny"], 54);
  uint64_t permit = 0;
  uint64_t lookups = 0;
  for (std::size_t i = 0; i + 1 < answers.size(); ++i) {
    EXPECT_EQ(answers[i]["packet"], i + 1);
    permit += answers[i]["verdict"] == "permit" ? 1 : 0;
    bool all = true;
    for (const json& lookup : answers[i]["lookups"]) {
      ++lookups;
      all = all && lookup["result"] == "permit";
    }
    EXPECT_EQ(answers[i]["verdict"] == "permit", all);
  }
  EXPECT_EQ(permit, 158u);
  uint64_t hits = 0;
  for (const json& line : summary["lines"]) {
    hits += line["hits"].get<uint64_t>();
  }
  EXPECT_EQ(hits, lookups); // no default row was hit
}

TEST_F(Tool, ReplayKeepsThePermittedPackets) {
  const std::string kept = (folder_ / "kept.pcap").string();
  ASSERT_EQ(run("replay " + example("campus.conf") + " --pcap " + example("campus.pcap") + " --write " + kept)
                .status,
            0);
  const Outcome again = run("replay --json " + example("campus.conf") + " --pcap " + kept);
  ASSERT_EQ(again.status, 0) << again.err;
  const json summary = lines(again.out).back()["summary"];
  EXPECT_EQ(summary["packets"], 158);
  EXPECT_EQ(summary["deny"], 0);
}

TEST_F(Tool, ReplayOfWhatDoesNotFitWritesNothing) {
  const Outcome replay =
      run("replay " + example("campus.conf") + " --pcap " + example("campus.pcap") + " --tcam ingressV4=64");
  EXPECT_EQ(replay.status, 1);
  EXPECT_EQ(replay.out, "");
  EXPECT_EQ(replay.err,
            "xpacl: the configuration does not fit; nothing was written\n"
            "  table ingressV4 of chip 0 has 63 free rows, the new versions need 88: 25 rows lack\n");
}

TEST_F(Tool, DumpsAreByteForByte) {
  const std::string config = file("a.conf", small);
  const Outcome empty = run("show " + config + " tcam ipv4 out --tcam egressV4=0");
  const std::string separator = std::string(135, '=') + "\n";
  const std::string header =
      "| Index | AclId | Role | TcpEst | Frag | SrcL4  | DstL4  | Proto | TTL  | SrcIp           | "
      "DstIp           ||| Res | LogEn | CntrIdx | \n";
  EXPECT_EQ(empty.status, 0);
  EXPECT_EQ(empty.out, separator + header + separator + separator);
  const Outcome rows = run("show " + config + " tcam ipv4 in --tcam ingressV4=5");
  EXPECT_EQ(rows.status, 0);
  EXPECT_EQ(std::count(rows.out.begin(), rows.out.end(), '\n'), 3 + 5 * 3 + 1);
  EXPECT_NE(rows.out.find(
                "| 0     | 0x01  | 0    | 0      | 0    | 0x0000 | 0x0001 | 0x06 | 0x00 | 0.0.0.0         | "
                "0.0.0.0         ||| 1   | 0     | 1       | \n"
                "|       | 0x00  | 0    | 1      | 1    | 0xffff | 0x0000 | 0x00  | 0xff | 255.255.255.255 | "
                "255.255.255.255 |||     |       |         |\n"),
            std::string::npos)
      << rows.out;
}

TEST_F(Tool, TraceAndWhoNameTheLine) {
  const std::string config = file("a.conf", small);
  const Outcome trace = run("trace --json " + config + " 'tcp 10.1.2.3:1234 > 10.9.8.7:2'");
  ASSERT_EQ(trace.status, 0) << trace.err;
  const json answer = json::parse(trace.out);
  EXPECT_EQ(answer["verdict"], "permit");
  EXPECT_EQ(answer["lookups"][0]["row"], 1);
  EXPECT_EQ(answer["lookups"][0]["line"], 2);
  EXPECT_EQ(answer["lookups"][0]["others"].size(), 2u);
  EXPECT_EQ(run("who " + config + " ingressV4 1").out.substr(0, 18), "ingressV4 row 1: A");
  EXPECT_EQ(run("who " + config + " ingressV4 5000").status, 2);
}

TEST_F(Tool, UpdateIsOldOrNewOrBlockedAtEveryWrite) {
  std::string edited = slurp(example("campus.conf"));
  const std::string line = " 130 permit tcp 10.20.10.0 0.0.0.255 object-group WEB-SERVERS eq www 443 8443\n";
  const std::size_t at = edited.find(line);
  ASSERT_NE(at, std::string::npos);
  edited.replace(at, line.size(), " 130 deny tcp 10.20.10.0 0.0.0.255 object-group WEB-SERVERS eq 8443\n");
  const std::string tail =
      " --in GigabitEthernet1/0/1 --out GigabitEthernet1/0/3 --every --pcap " + example("campus.pcap");
  const Outcome update =
      run("update --json " + example("campus.conf") + " " + file("new.conf", edited) + tail);
  ASSERT_EQ(update.status, 0) << update.out << update.err;
  const json summary = lines(update.out).back()["summary"];
  EXPECT_EQ(summary["findings"].dump(), "[]");
  EXPECT_EQ(summary["packets"], 212);
  EXPECT_GT(summary["blocked"], 0);
  EXPECT_GT(summary["rowsPeak"], summary["rowsStaged"]);
}

TEST_F(Tool, WrongUsageEndsWithTwo) {
  for (const char* const arguments :
       {"", "nosuch", "plan", "plan /nonexistent.conf", "plan /tmp",
        "replay " XPACL_SOURCE_DIR "/examples/campus.conf",
        "replay " XPACL_SOURCE_DIR "/examples/campus.conf --pcap /nonexistent.pcap",
        "replay " XPACL_SOURCE_DIR "/examples/campus.conf --pcap " XPACL_SOURCE_DIR "/README.md",
        "replay " XPACL_SOURCE_DIR "/examples/campus.conf --pcap " XPACL_SOURCE_DIR
        "/examples/campus.pcap --in Ethernet99",
        "show " XPACL_SOURCE_DIR "/examples/campus.conf tcam ipv5",
        "show " XPACL_SOURCE_DIR "/examples/campus.conf tcam mac out",
        "show " XPACL_SOURCE_DIR "/examples/campus.conf ids --chip 7",
        "plan " XPACL_SOURCE_DIR "/examples/campus.conf --tcam nosuch=5",
        "plan " XPACL_SOURCE_DIR "/examples/campus.conf --tcam ingressV4=40000",
        "trace " XPACL_SOURCE_DIR "/examples/campus.conf 'tcp nonsense'"}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments << "\n" << outcome.out << outcome.err;
    EXPECT_NE(outcome.err, "") << arguments;
  }
}

TEST_F(Tool, WrongUsageIsSaidByTheCommandThatItIsFor) {
  EXPECT_EQ(
      run("bogus").err,
      "xpacl: there is no command 'bogus'; the commands are plan, replay, show, trace, who, update, audit, "
      "run, verify, lint, diff, check-certificate, convert, report, top\n"
      "xpacl --help tells more\n");
  EXPECT_EQ(run("diff").err, "xpacl diff: OLD is required\nxpacl diff --help tells more\n");
  EXPECT_EQ(run("convert a --to xml").err, "xpacl convert: --to: xml not in {cli,openconfig}\n"
                                           "xpacl convert --help tells more\n");
  EXPECT_EQ(run("--bogus").status, 2);
  EXPECT_EQ(run("check-certificate " + file("no.json", "hostname a\n")).status, 2);
}

TEST_F(Tool, HelpShowsExamples) {
  for (const char* const command : {"plan", "replay", "show", "trace", "who", "update"}) {
    const Outcome help = run(std::string(command) + " --help");
    EXPECT_EQ(help.status, 0) << command;
    EXPECT_NE(help.out.find("Example"), std::string::npos) << command;
  }
}

TEST_F(Tool, RealConfigurationsAndCaptures) {
  const auto shared = test::sharedData();
  if (!shared) {
    std::cout << "the folder of real configurations is not here; nothing to run\n";
    return;
  }
  for (const auto& entry : fs::directory_iterator(*shared / "configs")) {
    const Outcome plan = run("plan --keep-going --json " + entry.path().string());
    EXPECT_EQ(plan.status, 0) << entry.path() << "\n" << plan.err;
  }
  const std::string config = example("campus.conf");
  for (const auto& entry : fs::directory_iterator(*shared / "pcaps")) {
    const Outcome replay = run("replay --json " + config + " --pcap " + entry.path().string());
    ASSERT_EQ(replay.status, 0) << entry.path() << "\n" << replay.err;
    const json summary = lines(replay.out).back()["summary"];
    EXPECT_EQ(summary["permit"].get<uint64_t>() + summary["deny"].get<uint64_t>(),
              summary["packets"].get<uint64_t>());
  }
}

// The first filter in order that holds a header's five fields is the line that the chip hits.
TEST_F(Tool, ClassBenchTracesAgreeWithAScanOverTheRanges) {
  const auto shared = test::sharedData();
  if (!shared) {
    std::cout << "the folder of filter sets is not here; nothing to run\n";
    return;
  }
  for (const char* const name : {"acl1_1k", "fw1_1k", "ipc1_1k"}) {
    struct Range {
      uint64_t low, high;
    };
    std::vector<std::array<Range, 5>> filters;
    std::ifstream set(*shared / "classbench" / name);
    for (std::string line; std::getline(set, line);) {
      unsigned a[5], b[5], sl, sh, dl, dh, proto, mask;
      if (std::sscanf(line.c_str(), "@%u.%u.%u.%u/%u %u.%u.%u.%u/%u %u : %u %u : %u %x/%x", &a[0], &a[1],
                      &a[2], &a[3], &a[4], &b[0], &b[1], &b[2], &b[3], &b[4], &sl, &sh, &dl, &dh, &proto,
                      &mask) != 16) {
        continue;
      }
      const auto prefix = [](const unsigned* p) {
        const uint64_t address = (uint64_t{p[0]} << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
        const uint64_t size = uint64_t{1} << (32 - p[4]);
        return Range{address & ~(size - 1), (address & ~(size - 1)) + size - 1};
      };
      filters.push_back({prefix(a), prefix(b), Range{sl, sh}, Range{dl, dh},
                         mask == 0 ? Range{0, 255} : Range{proto, proto}});
    }
    const Outcome replay = run("replay --json " + (*shared / "classbench" / name).string() + " --headers " +
                               (*shared / "classbench" / (std::string(name) + "_trace")).string());
    ASSERT_EQ(replay.status, 0) << replay.err;
    std::ifstream trace(*shared / "classbench" / (std::string(name) + "_trace"));
    std::istringstream answers(replay.out);
    uint64_t packets = 0;
    for (std::string header, answer; std::getline(trace, header) && std::getline(answers, answer);
         ++packets) {
      uint64_t field[5];
      std::istringstream(header) >> field[0] >> field[1] >> field[2] >> field[3] >> field[4];
      const auto first = std::find_if(filters.begin(), filters.end(), [&](const auto& filter) {
        for (unsigned i = 0; i < 5; ++i) {
          if (field[i] < filter[i].low || field[i] > filter[i].high) {
            return false;
          }
        }
        return true;
      });
      const json lookup = json::parse(answer)["lookups"][0];
      ASSERT_NE(first, filters.end());
      ASSERT_EQ(lookup["line"], first - filters.begin() + 1) << name << " packet " << packets + 1;
    }
    std::cout << name << ": " << filters.size() << " filters, " << packets << " headers\n";
  }
}

} // namespace
