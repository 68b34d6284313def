#include "test/JsonSchema.h"
#include "test/ToolUnderTest.h"

#include <set>

// Every command's JSON against the schema that it names.

namespace {

using nlohmann::json;
using test::JsonSchema;
using test::Outcome;

constexpr const char* oldText = "ip access-list extended WEB\n"
                                " 10 permit tcp any any range 80 90\n"
                                " 20 permit udp any any eq 53\n"
                                " 30 deny tcp any any eq 443\n"
                                "interface Ethernet1\n"
                                " ip access-group WEB in\n";
constexpr const char* newText = "ip access-list extended WEB\n"
                                " 10 permit tcp any any eq 80\n"
                                " 20 permit udp any any eq 53\n"
                                "interface Ethernet1\n"
                                " ip access-group WEB in\n";

class JsonDocuments : public test::ToolUnderTest {
protected:
  // One line for each document: its schema, and the kind where a command has several; or what is wrong.
  std::string documents(const std::string& command, const std::string& arguments, int status) {
    const Outcome outcome = run(std::string(command).append(" --json ").append(arguments));
    std::string text;
    if (outcome.status != status) {
      text.append("status ").append(std::to_string(outcome.status)).append(": ").append(outcome.err);
    }
    std::string last;
    for (const json& document : lines(outcome.out)) {
      const std::string name = document.value("schema", "no schema");
      std::string kind;
      for (const char* const member : {"summary", "step", "proven", "what"}) {
        if (document.contains(member) && name != "xpacl/who/1") {
          kind = document[member].is_string() ? document[member].get<std::string>() : member;
          break;
        }
      }
      // In a stream of packets each has its number; a single packet is text.
      if (kind.empty() && document.contains("packet") && document["packet"].is_number()) {
        kind = "packet";
      }
      const std::string said = std::string(name).append(kind.empty() ? "" : " ").append(kind);
      const std::string wrong = complaint(name, document);
      // Of equal lines one is enough.
      if (said != last || !wrong.empty()) {
        text.append(said).append(wrong.empty() ? "" : " ").append(wrong).append("\n");
      }
      last = said;
    }
    return text;
  }

  // By the schema that the document names, which stands in the file of that command.
  static std::string complaint(const std::string& name, const json& document) {
    const std::size_t from = name.find('/') + 1;
    const std::string command = name.substr(from, name.rfind('/') - from);
    try {
      return JsonSchema::ofCommand(command).check(document);
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  std::string campus() { return example("campus.conf"); }
  std::string packets() { return std::string(" --pcap ").append(example("campus.pcap")); }
};

TEST_F(JsonDocuments, OfPlanShowAndTrace) {
  EXPECT_EQ(documents("plan", campus(), 0), "xpacl/plan/1\n");
  EXPECT_EQ(documents("plan", campus() + " --tcam ingressV4=32", 1), "xpacl/plan/1\n");
  EXPECT_EQ(documents("plan",
                      file("bad.conf", "ip access-list extended A\n permit tcp any any eq nowhere\n"
                                       "interface Ethernet1\n ip access-group A in\n"),
                      2),
            "xpacl/plan/1\n");
  for (const char* const what :
       {"tcam", "tcam ipv6 in", "ports", "vlans", "egress", "ids", "counters", "state", "trace"}) {
    const std::string kind = std::string(what).substr(0, std::string(what).find(' '));
    EXPECT_EQ(documents("show", campus() + " " + what, 0), "xpacl/show/1 " + kind + "\n");
  }
  EXPECT_EQ(documents("show", campus() + " counters" + packets(), 0), "xpacl/show/1 counters\n");
  EXPECT_EQ(
      documents("trace", campus() + " --in Gi1/0/1 'tcp 10.20.10.9:40000 > 10.20.40.80:443 syn vlan 10'", 0),
      "xpacl/trace/1\n");
  EXPECT_EQ(documents("who", campus() + " ingressV4 12", 0), "xpacl/who/1\n");
  EXPECT_EQ(documents("who", campus() + " ingressV4 1023", 0), "xpacl/who/1\n");
  EXPECT_EQ(documents("who", campus() + " ingressV4 900", 0), "xpacl/who/1\n");
}

TEST_F(JsonDocuments, OfStreams) {
  EXPECT_EQ(documents("replay", campus() + packets(), 0), "xpacl/replay/1 packet\nxpacl/replay/1 summary\n");
  // All steps of the campus; only whether they are described is of interest.
  EXPECT_EQ(documents("run", example("campus.scenario"), 0).find(":"), std::string::npos);
  EXPECT_EQ(documents("run",
                      file("good.scenario",
                           std::string("load ").append(campus()).append("\nreplay").append(packets())),
                      0),
            "xpacl/run/1 step\nxpacl/replay/1 summary\nxpacl/run/1 step\nxpacl/run/1 summary\n");
  EXPECT_EQ(documents("run",
                      file("bad.scenario", std::string("load ").append(campus()).append(
                                               "\nexpect rows ingressV4 1\necho hello\n")),
                      1),
            "xpacl/run/1 step\nxpacl/run/1 summary\n");
  EXPECT_EQ(documents("top", campus() + packets() + " --once", 0), "xpacl/top/1\n");
  EXPECT_EQ(documents("top", campus() + packets() + " --speed 1e9 --interval 0.05", 0), "xpacl/top/1\n");
}

TEST_F(JsonDocuments, OfChanges) {
  const std::string change = file("old.conf", oldText).append(" ").append(file("new.conf", newText));
  const std::string both = change + packets() + " --in Ethernet1";
  EXPECT_EQ(documents("update", both, 0), "xpacl/update/1 packet\nxpacl/update/1 summary\n");
  const std::string certificate = (folder_ / "change.json").string();
  EXPECT_EQ(documents("update", change + " --prove --certificate " + certificate, 0),
            "xpacl/update/1 proven\n");
  EXPECT_EQ(documents("check-certificate", certificate + " " + change, 0), "xpacl/check-certificate/1\n");
  std::string tampered = slurp(certificate);
  tampered.replace(tampered.find("Ethernet1"), 9, "Ethernet2");
  EXPECT_EQ(documents("check-certificate", file("tampered.json", tampered), 1),
            "xpacl/check-certificate/1\n");
  EXPECT_EQ(documents("diff", change, 1), "xpacl/diff/1\n");
  EXPECT_EQ(documents("diff", both.substr(0, both.find(" --in")), 1), "xpacl/diff/1\n");
}

TEST_F(JsonDocuments, OfProofsAndFindings) {
  EXPECT_EQ(documents("verify", campus(), 0), "xpacl/verify/1\n");
  EXPECT_EQ(documents("audit", campus(), 0), "xpacl/audit/1\n");
  // The chips of another configuration hold something else.
  const std::string chips = (folder_ / "chips.bin").string();
  const std::string first = file("old.conf", oldText);
  const std::string second = file("new.conf", newText);
  EXPECT_EQ(run("audit " + first + " --save " + chips).status, 0);
  EXPECT_EQ(documents("audit", second + " --chip-dump " + chips, 1), "xpacl/audit/1\n");
  EXPECT_EQ(documents("verify", second + " --chip-dump " + chips, 1), "xpacl/verify/1\n");
  EXPECT_EQ(documents("lint", campus(), 1), "xpacl/lint/1\n");
  EXPECT_EQ(documents("lint",
                      file("calm.conf",
                           "ip access-list extended A\n permit tcp any any eq 80\n deny ip any any log\n"),
                      0),
            "xpacl/lint/1\n");
  EXPECT_EQ(documents("report", campus() + packets(), 0), "xpacl/report/1\n");
  EXPECT_EQ(documents("report", campus() + " --no-lint --tcam ingressV4=32", 1), "xpacl/report/1\n");
  EXPECT_EQ(documents("convert", campus() + " --to cli", 0), "xpacl/convert/1\n");
}

// The names of the program's commands, as its help has them.
std::set<std::string> commandsOf(const std::string& help) {
  std::set<std::string> commands;
  std::istringstream stream(help.substr(help.find("Subcommands:")));
  std::string line;
  std::getline(stream, line);
  while (std::getline(stream, line) && line.rfind("  ", 0) == 0) {
    if (line[2] != ' ') {
      commands.insert(line.substr(2, line.find(' ', 2) - 2));
    }
  }
  return commands;
}

// A command without --json, schema or description is found here.
TEST_F(JsonDocuments, OfEveryCommandAreDescribed) {
  const std::string manual = slurp(std::string(XPACL_SOURCE_DIR) + "/docs/json.md");
  const std::set<std::string> commands = commandsOf(run("--help").out);
  EXPECT_GE(commands.size(), 14U);
  std::string missing;
  for (const std::string& command : commands) {
    // Makes the manual pages; its files are its output.
    if (command == "reference") {
      continue;
    }
    if (run(command + " --help").out.find("--json") == std::string::npos) {
      missing.append(command).append(" has no --json\n");
    }
    if (manual.find("`" + command + "`") == std::string::npos) {
      missing.append(command).append(" is not in docs/json.md\n");
    }
    const json schema = JsonSchema::ofCommand(command).text();
    if (schema["$id"] != std::string("urn:xpacl:").append(command).append(":1")) {
      missing.append(command).append(": the schema has another $id\n");
    }
  }
  EXPECT_EQ(missing, "");
}

TEST(JsonSchemas, FindWhatIsWrong) {
  const JsonSchema schema(json::parse(R"({"type":"object","required":["a"],"properties":{
      "a":{"type":"integer","minimum":1},"b":{"type":["string","null"]},
      "c":{"type":"array","items":{"$ref":"#/$defs/word"}},
      "d":{"oneOf":[{"type":"null"},{"type":"object","properties":{"e":{"const":1}}}]}},
      "$defs":{"word":{"enum":["in","out"]}}})"));
  const auto check = [&](const char* text) { return schema.check(json::parse(text)); };
  EXPECT_EQ(check(R"({"a":1,"b":null,"c":["in"],"d":{"e":1}})"), "");
  EXPECT_EQ(check(R"([])"), ": is not \"object\"");
  EXPECT_EQ(check(R"({"b":"x"})"), "/a: is missing");
  EXPECT_EQ(check(R"({"a":0})"), "/a: is below 1");
  EXPECT_EQ(check(R"({"a":1.5})"), "/a: is not \"integer\"");
  EXPECT_EQ(check(R"({"a":1,"b":2})"), "/b: is not [\"string\",\"null\"]");
  EXPECT_EQ(check(R"({"a":1,"c":["in","up"]})"), "/c/1: \"up\" is none of [\"in\",\"out\"]");
  EXPECT_EQ(check(R"({"a":1,"d":{"e":2}})"),
            "/d: 0 alternatives fit\n  /d: is not \"null\"\n  /d/e: is not 1");
  EXPECT_EQ(check(R"({"a":1,"z":2})"), "/z: is not described");
  EXPECT_THROW(JsonSchema(json::parse(R"({"pattern":"x"})")), std::runtime_error);
}

} // namespace
