#include "test/ToolUnderTest.h"

#include <filesystem>

// What `xpacl report` says, as data, and the page that it stands in.

namespace {

using nlohmann::ordered_json;
using test::Outcome;

// Two interfaces share a list, one list stands at egress, one is not applied.
constexpr const char* shared = "hardware tcam ingressV4 32\n"
                               "ip access-list extended A\n"
                               " permit tcp any any range 1 2\n"
                               " deny udp any any log\n"
                               "ipv6 access-list S\n"
                               " permit tcp any any\n"
                               "ip access-list extended SPARE\n"
                               " permit ip any any\n"
                               "interface Ethernet1\n"
                               " ip access-group A in\n"
                               "interface Ethernet2\n"
                               " ip access-group A in\n"
                               " ipv6 traffic-filter S out\n";

class Report : public test::ToolUnderTest {
protected:
  // One line for each member, and one for each element of a list.
  std::string text(const std::string& arguments, int status = 0) {
    const Outcome outcome = run(std::string("report --json ").append(arguments));
    EXPECT_EQ(outcome.status, status);
    std::string folder = folder_.string();
    std::string said = outcome.out;
    for (std::size_t at = said.find(folder); at != std::string::npos; at = said.find(folder)) {
      said.erase(at, folder.size() + 1);
    }
    std::string text;
    const ordered_json data = ordered_json::parse(said);
    for (const auto& [name, value] : data.items()) {
      if (!value.is_array() || value.empty()) {
        text.append(name).append(" ").append(value.dump()).append("\n");
        continue;
      }
      text.append(name).append("\n");
      for (const ordered_json& element : value) {
        text.append("  ").append(element.dump()).append("\n");
      }
    }
    return text;
  }

  std::string page(const std::string& arguments, int status = 0) {
    const std::string path = (folder_ / "report.html").string();
    EXPECT_EQ(run(std::string("report ").append(arguments).append(" -o ").append(path)).status, status);
    return slurp(path);
  }

  // The JSON text in a page.
  static std::string dataOf(const std::string& page) {
    const std::string mark = "id=\"data\">";
    const std::size_t from = page.find(mark) + mark.size();
    return page.substr(from, page.find("</script>", from) - from);
  }
};

TEST_F(Report, HasTheRowsTheListsAndWhoSharesThem) {
  EXPECT_EQ(text(file("s.conf", shared)),
            R"x(schema "xpacl/report/1"
config "s.conf"
fits true
reasons []
capture null
chips
  {"chip":0,"tables":[{"table":"ingressV4","rows":32,"used":4,"free":27,"lack":0,"cells":[[0,0,0,0,1,0,"aclId=0001/0100 flags=00/fe dstL4=0001/0000 proto=06/00",1,0,0],[1,0,0,0,1,0,"aclId=0001/0100 flags=00/fe dstL4=0002/0000 proto=06/00",3,0,0],[2,0,0,1,0,1,"aclId=0001/0100 flags=00/fe proto=11/00",5,0,0],[3,0,0,-3,0,0,"aclId=0001/0100 flags=00/fe",0,0,0],[31,-1,-1,-1,0,0,"aclId=0000/0000",-1,0,0]]},{"table":"ingressV6","rows":4096,"used":0,"free":4095,"lack":0,"cells":[[4095,-1,-1,-1,0,0,"aclId=0000/0000",-1,0,0]]},{"table":"egressV4","rows":4096,"used":0,"free":4095,"lack":0,"cells":[[4095,-1,-1,-1,0,0,"aclId=0000/0000",-1,0,0]]},{"table":"egressV6","rows":4096,"used":4,"free":4091,"lack":0,"cells":[[1,1,1,0,1,0,"aclId=0001/0100 flags=00/fe proto=06/00",2,0,0],[2,1,1,-1,1,0,"aclId=0001/0100 flags=00/fe dstL4=0087/0000 proto=3a/00",4,0,0],[3,1,1,-2,1,0,"aclId=0001/0100 flags=00/fe dstL4=0088/0000 proto=3a/00",6,0,0],[4,1,1,-3,0,0,"aclId=0001/0100 flags=00/fe",0,0,0],[4095,-1,-1,-1,0,0,"aclId=0000/0000",-1,0,0]]},{"table":"ingressMac","rows":4096,"used":0,"free":4095,"lack":0,"cells":[[4095,-1,-1,-1,0,0,"aclId=0000/0000",-1,0,0]]}]}
lists
  {"acl":"A","family":"ipv4","direction":"in","file":"s.conf","line":2,"hasErrors":false,"roles":["port"],"lines":2,"rows":4,"versions":1,"room":{"replaceable":true,"rows":27,"limit":"ingressV4 of chip 0"},"entries":[{"file":"s.conf","line":3,"rule":"permit tcp any any range 1 2","permit":true,"rows":2,"hits":null},{"file":"s.conf","line":4,"rule":"deny udp any any log","permit":false,"rows":1,"hits":null}],"implicit":[{"origin":-3,"rule":"(implicit) deny ip any any","hits":null}]}
  {"acl":"S","family":"ipv6","direction":"out","file":"s.conf","line":5,"hasErrors":false,"roles":["port"],"lines":1,"rows":4,"versions":1,"room":{"replaceable":true,"rows":4091,"limit":"egressV6 of chip 0"},"entries":[{"file":"s.conf","line":6,"rule":"permit tcp any any","permit":true,"rows":1,"hits":null}],"implicit":[{"origin":-1,"rule":"(implicit) permit icmp any any neighbor-solicitation","hits":null},{"origin":-2,"rule":"(implicit) permit icmp any any neighbor-advertisement","hits":null},{"origin":-3,"rule":"(implicit) deny ipv6 any any","hits":null}]}
  {"acl":"SPARE","family":"ipv4","direction":null,"file":"s.conf","line":7,"hasErrors":false,"roles":[],"lines":1,"rows":0,"versions":0,"room":null,"entries":[{"file":"s.conf","line":8,"rule":"permit ip any any","permit":true,"rows":null,"hits":null}],"implicit":[]}
versions
  {"id":1,"kind":"portIngress","chips":[0],"lists":[0],"interfaces":["Ethernet1","Ethernet2"],"rows":4,"saved":4}
  {"id":1,"kind":"portEgress","chips":[0],"lists":[1],"interfaces":["Ethernet2"],"rows":4,"saved":0}
costs
  {"acl":"A","file":"s.conf","line":3,"rule":"permit tcp any any range 1 2","rows":2,"expansion":"destination ports 1-2 = 1/0xffff 2/0xffff"}
findings
  {"list":2,"kind":"removable","entry":0,"others":[],"detail":"what follows does the same to every packet that reaches it"}
pcap null
)x");
}

// Hits as replay counts them, line by line, and as the counters of the rows have them.
TEST_F(Report, HasTheHitsThatReplayCounts) {
  std::string arguments = example("campus.conf").append(" --pcap ").append(example("campus.pcap"));
  const ordered_json data = ordered_json::parse(run(std::string("report --json ").append(arguments)).out);
  const nlohmann::json summary =
      lines(run(std::string("replay --json ").append(arguments)).out).back()["summary"];
  EXPECT_EQ(data["capture"]["permit"].dump(), summary["permit"].dump());
  EXPECT_EQ(data["capture"]["deny"].dump(), summary["deny"].dump());
  std::string replayed;
  for (const auto& line : summary["lines"]) {
    replayed.append(line["acl"])
        .append(" ")
        .append(line["rule"])
        .append(" ")
        .append(line["hits"].dump())
        .append("\n");
  }
  std::string reported;
  uint64_t hits = 0;
  for (const auto& list : data["lists"]) {
    if (list["direction"] != "in") {
      continue;
    }
    for (const char* const part : {"entries", "implicit"}) {
      for (const auto& line : list[part]) {
        reported.append(list["acl"])
            .append(" ")
            .append(line["rule"])
            .append(" ")
            .append(line["hits"].dump())
            .append("\n");
        hits += line["hits"].get<uint64_t>();
      }
    }
  }
  EXPECT_EQ(reported, replayed);
  uint64_t cells = 0;
  for (const auto& table : data["chips"][0]["tables"]) {
    for (const auto& cell : table["cells"]) {
      cells += cell[9].get<uint64_t>();
      // What a row counts for itself is what hit it.
      if (cell[7] != -1 && cell[3] >= 0) {
        EXPECT_EQ(cell[8], cell[9]) << cell.dump();
      }
    }
  }
  EXPECT_EQ(cells, hits);
}

// Whether a list can be replaced is what a plan of that change says, in tables of every size about the limit.
TEST_F(Report, KnowsWhatCanBeReplaced) {
  const auto configuration = [](const char* log, const char* log6) {
    return std::string("ip access-list extended A\n permit tcp any any range 1 6")
        .append(log)
        .append("\nipv6 access-list S\n permit tcp any any")
        .append(log6)
        .append("\nmac access-list extended M\n permit any any\n"
                "interface Ethernet1\n ip access-group A in\n ipv6 traffic-filter S in\n"
                "interface Ethernet2\n ip access-group A in\n mac access-group M in\n"
                "interface Vlan7\n ip access-group A in\n");
  };
  const std::string old = file("old.conf", configuration("", ""));
  const std::string newer[] = {file("a.conf", configuration(" log", "")),
                               file("s.conf", configuration("", " log"))};
  unsigned able = 0;
  unsigned unable = 0;
  for (unsigned rows = 14; rows <= 34; rows += 1) {
    const std::string size = std::string(" --tcam ingressV4=").append(std::to_string(rows));
    const Outcome report = run(std::string("report --no-lint --json ").append(old).append(size));
    const ordered_json data = ordered_json::parse(report.out);
    if (!data["fits"]) {
      continue;
    }
    for (unsigned list = 0; list < 2; ++list) {
      const Outcome plan =
          run(std::string("plan --json --from ").append(old).append(" ").append(newer[list]).append(size));
      const bool fits = ordered_json::parse(plan.out)["fits"];
      EXPECT_EQ(data["lists"][list]["room"]["replaceable"], fits)
          << size << " " << data["lists"][list]["room"].dump();
      ++(fits ? able : unable);
    }
  }
  EXPECT_GT(able, 5U);
  EXPECT_GT(unable, 5U);
}

TEST_F(Report, HoldsTheDataWhereNoTextCanLeaveIt) {
  const std::string name = "</script><!--<b>&amp;";
  const std::string conf = file("a.conf", std::string("ip access-list extended ")
                                              .append(name)
                                              .append("\n permit tcp any any eq 80\n"
                                                      "interface Ethernet1\n ip access-group ")
                                              .append(name)
                                              .append(" in\n"));
  const std::string html = page(conf);
  const std::string data = dataOf(html);
  EXPECT_EQ(data.find_first_of("<>&"), std::string::npos);
  EXPECT_EQ(ordered_json::parse(data)["lists"][0]["acl"], name);
  EXPECT_EQ(data.substr(0, 25), R"({"schema":"xpacl/report/1)");
  EXPECT_EQ(ordered_json::parse(data),
            ordered_json::parse(run(std::string("report --json ").append(conf)).out));
  // The page asks for nothing else.
  for (const char* const word : {"http:", "https:", " src=", "@import", "url("}) {
    EXPECT_EQ(html.find(word), std::string::npos) << word;
  }
}

TEST_F(Report, SaysWhatIsWrong) {
  const std::string conf = file("s.conf", shared);
  const auto said = [&](const std::string& arguments) {
    const Outcome outcome = run(std::string("report ").append(arguments));
    std::string err = outcome.err;
    const std::string folder = folder_.string();
    for (std::size_t at = err.find(folder); at != std::string::npos; at = err.find(folder)) {
      err.erase(at, folder.size() + 1);
    }
    return std::to_string(outcome.status).append(" ").append(err);
  };
  EXPECT_EQ(said(std::string(conf).append(" -o /nowhere/report.html")),
            "2 xpacl: /nowhere/report.html: cannot be written: No such file or directory\n");
  EXPECT_EQ(said(std::string(conf).append(" -o ").append(conf)),
            "2 xpacl: s.conf is the configuration itself; name another file with -o\n");
  EXPECT_EQ(said(std::string(conf).append(" --in Ethernet1 -o -")),
            "2 xpacl: --in, --out and --vlan say where packets go; give them with --pcap\n");
  EXPECT_EQ(slurp(conf), shared);
  // A page is made even so, and says it too.
  const std::string html = page(std::string(conf).append(" --tcam ingressV4=4"), 1);
  const ordered_json data = ordered_json::parse(dataOf(html));
  EXPECT_EQ(data["reasons"].dump(),
            R"(["table ingressV4 of chip 0 has 3 rows for lists, 4 are needed: 1 rows lack"])");
  EXPECT_EQ(data["chips"][0]["tables"][0].dump(),
            R"({"table":"ingressV4","rows":4,"used":4,"free":0,"lack":1,"cells":[]})");
}

} // namespace
