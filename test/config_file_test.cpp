#include "test/ConfigSummary.h"
#include "test/Random.h"
#include "test/Shared.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iostream>

#include <unistd.h>

// Files: real ones, filter sets, and everything that is no configuration.

namespace {

using namespace agent;
using namespace configtest;

const ReadOptions classBench{InputFormat::classbench, false, false, {}};

// A file that lives as long as the object.
class TemporaryFile {
public:
  explicit TemporaryFile(const std::string& content)
      : path_(std::filesystem::temp_directory_path() /
              ("xpacl-config-test-" + std::to_string(getpid()) + "-" + std::to_string(++count_))) {
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~TemporaryFile() { std::filesystem::remove(path_); }
  std::string path() const { return path_; }

private:
  static inline int count_ = 0;
  std::filesystem::path path_;
};

std::string withoutFolder(std::string text, const std::string& path) {
  for (size_t at = text.find(path); at != std::string::npos; at = text.find(path))
    text.replace(at, path.size(), "FILE");
  return text;
}

std::string diagnosticsOfFile(const std::string& path) {
  std::string text;
  for (const Diagnostic& diagnostic : readConfig(path).diagnostics)
    text += diagnostic.text() + "\n";
  return withoutFolder(text, path);
}

TEST(ConfigFile, whatIsNoConfiguration) {
  EXPECT_EQ("FILE: error: cannot be opened: No such file or directory\n",
            diagnosticsOfFile("/nonexistent/file"));
  EXPECT_FALSE(readConfig("/nonexistent/file").readable);
  EXPECT_EQ("FILE: error: this is a directory; name a file in it\n", diagnosticsOfFile("/tmp"));
  EXPECT_FALSE(readConfig("/tmp").readable);
  EXPECT_EQ("FILE:1:1: warning: the file is empty, nothing is configured\n",
            diagnosticsOfFile(TemporaryFile("").path()));
  EXPECT_EQ("FILE:1:1: warning: the file is empty, nothing is configured\n",
            diagnosticsOfFile(TemporaryFile("\xEF\xBB\xBF").path()));
  EXPECT_EQ(
      "FILE:1:1: warning: no access list and no interface stands in this text; is it a configuration?\n",
      diagnosticsOfFile(TemporaryFile("dear all,\n\nregards\n").path()));
  const TemporaryFile binary(std::string("\x7F"
                                         "ELF\n\n ab\0\x01",
                                         11));
  EXPECT_EQ("FILE:3:4: error: '\\x00': this octet does not stand in text; the file is binary or in UTF-16, "
            "save it as "
            "text in UTF-8\n",
            diagnosticsOfFile(binary.path()));
  EXPECT_FALSE(readConfig(binary.path()).readable);
}

TEST(ConfigFile, lineEndsAndByteOrderMarks) {
  const std::string text = "ip access-list extended A\r\n permit tcp any any eq 80\r\n\r\n deny ip any any";
  EXPECT_EQ("v4 extended A\n  10 permit tcp any any eq 80\n  20 deny ip any any\n", summaryOf(text));
  EXPECT_EQ(summaryOf(text), summaryOf("\xEF\xBB\xBF" + text));
  EXPECT_EQ("v4 extended A (errors)\n"
            "2:9: warning: 'tpc': this is no protocol that is known here; write its number; did you mean "
            "'tcp'? (no "
            "error, because the list is applied nowhere)\n",
            summaryOf("ip access-list extended A\r\n permit tpc any any\r\n"));
}

TEST(ConfigFile, hostileLines) {
  const std::string megabyte(1 << 20, 'x');
  EXPECT_EQ("1:1: warning: no access list and no interface stands in this text; is it a configuration?\n",
            summaryOf(megabyte));
  const std::string header = "ip access-list extended A\n";
  const std::string binding = "\ninterface Ethernet1\n ip access-group A in\n";
  std::string manyPorts = " permit tcp any any eq";
  for (int i = 0; i < 200000; ++i)
    manyPorts += " 80";
  EXPECT_EQ("v4 extended A\n  10 permit tcp any any eq 80\nEthernet1 = Ethernet1 [v4 in A]\n",
            summaryOf(header + manyPorts + binding));
  const std::string name = "'" + std::string(48, 'x') + "...'";
  EXPECT_EQ("v4 extended A (errors)\n"
            "Ethernet1 = Ethernet1 refused [v4 in A]\n"
            "2:9: error: " +
                name + ": this is no protocol that is known here; write its number\n",
            summaryOf(header + " permit " + megabyte + " any any" + binding));
  EXPECT_EQ("v4 extended A (errors)\n"
            "Ethernet1 = Ethernet1 refused [v4 in A]\n"
            "2:2: error: '\\xff\\xfe\\x01': inside a list stand entries, which start with permit or deny, "
            "and remarks; end "
            "the list with exit before anything else\n",
            summaryOf(header + " \xFF\xFE\x01 \x80\x81" + binding));
  EXPECT_EQ("- = " + std::string(64, 'x') + " (unsupported)\n", summaryOf("interface " + megabyte + "1/1"));
  EXPECT_EQ("v4 extended A\n  10 permit ip any any\n",
            summaryOf(header + std::string(100000, '\n') + " permit ip any any"));
}

TEST(ConfigFile, manyMistakesTakeLinearTime) {
  // Each of these would take minutes if one mistake cost as much as the file is long.
  std::string undefinedLists;
  std::string deletions = "ip access-list extended A\n";
  std::string banners;
  std::string descending = "ip access-list extended D\n";
  for (int i = 0; i < 8000; ++i) {
    undefinedLists += "ip access-list extended list" + std::to_string(i) +
                      "\n permit ip any any\ninterface Vlan" + std::to_string(i % 4000 + 1) +
                      "\n ip access-group lisst" + std::to_string(i) + " in\n";
    deletions += " permit tcp any any eq " + std::to_string(i) + "\n no permit tcp any any eq " +
                 std::to_string(i / 2) + "\n";
    banners += "banner motd %\n";
    descending.append(" ").append(std::to_string(100000 - i)).append(" permit ip any any\n");
  }
  EXPECT_GT(readConfigText(undefinedLists, "t").diagnostics.size(), 6000u);
  EXPECT_EQ(4000u, readConfigText(deletions, "t").lists[0].rules.size());
  readConfigText(banners, "t");
  EXPECT_EQ(8000u, readConfigText(descending, "t").lists[0].rules.size());
  std::string ranges;
  for (int i = 0; i < 100; ++i)
    ranges += "interface range Ethernet" + std::to_string(i) + "/1-1000\n ip access-group A in\n";
  EXPECT_EQ(16384u, readConfigText(ranges, "t").interfaces.size());
  std::string groups = "object-group network BIG\n";
  for (int i = 0; i < 30000; ++i)
    groups += " host 10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256) + "\n";
  groups += "ip access-list extended A\n";
  for (int i = 0; i < 1000; ++i)
    groups += " permit ip object-group BIG any\n";
  groups += "interface Ethernet1\n ip access-group A in\n";
  const Config config = readConfigText(groups, "t");
  EXPECT_EQ(32u, config.lists[0].rules.size()); // a million alternatives, less the members of the group
  EXPECT_TRUE(config.hasErrors());
}

TEST(ConfigFile, garbledConfigurationsNeverBreakIt) {
  const std::string base = R"(hardware tcam ingressV4 100
object-group network G
 host 10.0.0.1
 10.0.0.0 255.0.0.0
ip access-list extended A
 10 permit tcp any object-group G eq 80 established log
 deny icmp any any echo ttl eq 5
ipv6 access-list B
 sequence 10 permit udp 2001:db8::/32 any range 1 5
mac access-list extended M
 permit any host 0000.0000.0001 0x800 0xff vlan 5
interface range Gi1/0/1-4 , Gi1/0/7
 ip access-group A in
 switchport trunk allowed vlan 1,5-10
)";
  const uint64_t seed = test::Random::seed("ConfigFile.garbledConfigurationsNeverBreakIt");
  test::Random random(seed);
  for (int round = 0; round < 1000; ++round) {
    std::string text = base;
    for (uint32_t edits = random.below(8) + 1; edits > 0; --edits) {
      const size_t at = random.below(static_cast<uint32_t>(text.size()));
      const size_t length = random.below(20);
      switch (random.below(4)) {
      case 0:
        text[at] = static_cast<char>(random.byte());
        break;
      case 1:
        text.erase(at, length);
        break;
      case 2:
        text.insert(at, text.substr(random.below(static_cast<uint32_t>(text.size())), length));
        break;
      default:
        text.insert(at, 1, " \n/.:-0129"[random.below(10)]);
      }
      if (text.empty())
        text = " ";
    }
    const Config config = readConfigText(text, "garbled");
    toText(config);
    for (const Diagnostic& diagnostic : config.diagnostics) {
      ASSERT_GE(diagnostic.loc.line, 1u);
      ASSERT_GE(diagnostic.loc.column, 1u);
      ASSERT_FALSE(diagnostic.message.empty());
    }
  }
}

TEST(ConfigFile, classBench) {
  EXPECT_EQ(R"(v4 extended classbench
  10 permit tcp 10.0.0.0 0.255.255.255 any range 80 90
  20 permit udp host 1.2.3.4 eq 5 5.6.7.8 0.0.0.1
  30 permit ip any any
  40 permit ip any any eq 7
  50 permit tcp any any
     or 7 any any
  60 permit tcp any any
Ethernet1 = Ethernet1 [v4 in classbench]
)",
            summaryOf(R"(# a comment

@10.1.2.3/8	0.0.0.0/0	0 : 65535	80 : 90	0x06/0xFF	0x1000/0x1000	
@1.2.3.4/32 5.6.7.8/31 5:5 0 : 65535 0x11/0xFF
@0.0.0.0/0	0.0.0.0/0	0 : 65535	0 : 65535	0x00/0x00	0x0000/0x0000
@0.0.0.0/0	0.0.0.0/0	0 : 65535	7 : 7	0x00/0x00	0x0000/0x0000
@0.0.0.0/0	0.0.0.0/0	0 : 65535	0 : 65535	0x06/0xFE
@0.0.0.0/0	0.0.0.0/0	0 : 65535	0 : 65535	6/255
)"));
}

TEST(ConfigFile, classBenchMistakes) {
  EXPECT_EQ(R"(v4 extended classbench (errors)
Ethernet1 = Ethernet1 refused [v4 in classbench]
1:1: error: '10.1.2.3/8': a filter starts with @ and the source prefix, like @10.0.0.0/8
2:2: error: '10.1.2.3': the source prefix of a filter is needed here, like 10.0.0.0/8
3:13: error: '0.0.0.0/33': the destination prefix of a filter is needed here, like 10.0.0.0/8
4:25: error: '65535': the colon of the source ports is needed here, like 0 : 65535
5:27: error: '65536': a source port is a number from 0 to 65535
6:38: error: '80': the range of destination ports runs backwards; write the lower port first
7:40: error: the line ends too early: the protocol bits of a filter and their mask are needed here, like 0x06/0xFF
8:41: error: '0x06': the protocol bits of a filter and their mask are needed here, like 0x06/0xFF
9:41: error: '0x00/0xFF': this stands for protocol 0 as well, which cannot be a criterion, because a row takes it for any protocol; write 0x00/0x00 for any
10:41: error: '0x01/0xF0': this stands for protocol 0 as well, which cannot be a criterion, because a row takes it for any protocol; write 0x00/0x00 for any
11:41: error: '0x100/0xFF': the protocol bits of a filter and their mask are needed here, like 0x06/0xFF
12:51: error: '0x10000/0x0': the flag bits of a filter and their mask are needed here, like 0x0000/0x0200
13:59: error: 'more': the filter ends before this word; write one filter a line
14:2: error: the line ends too early: the source prefix of a filter is needed here, like 10.0.0.0/8
15:1: error: 'ip': a filter starts with @ and the source prefix, like @10.0.0.0/8
)",
            summaryOf(R"(10.1.2.3/8 0.0.0.0/0 0 : 65535 80 : 90 0x06/0xFF
@10.1.2.3 0.0.0.0/0 0 : 65535 80 : 90 0x06/0xFF
@10.1.2.3/8 0.0.0.0/33 0 : 65535 80 : 90 0x06/0xFF
@10.1.2.3/8 0.0.0.0/0 0 65535 80 : 90 0x06/0xFF
@10.1.2.3/8 0.0.0.0/0 0 : 65536 80 : 90 0x06/0xFF
@10.1.2.3/8 0.0.0.0/0 0 : 65535 90 : 80 0x06/0xFF
@10.1.2.3/8 0.0.0.0/0 0 : 65535 80 : 90
@10.1.2.3/8 0.0.0.0/0 0 : 65535 80 : 90 0x06
@10.1.2.3/8 0.0.0.0/0 0 : 65535 80 : 90 0x00/0xFF
@10.1.2.3/8 0.0.0.0/0 0 : 65535 80 : 90 0x01/0xF0
@10.1.2.3/8 0.0.0.0/0 0 : 65535 80 : 90 0x100/0xFF
@10.1.2.3/8 0.0.0.0/0 0 : 65535 80 : 90 0x06/0xFF 0x10000/0x0
@10.1.2.3/8 0.0.0.0/0 0 : 65535 80 : 90 0x06/0xFF 0x0/0x0 more
@
ip access-list extended A
)",
                      classBench));
}

TEST(ConfigFile, formats) {
  for (const InputFormat format : {InputFormat::automatic, InputFormat::cli, InputFormat::classbench})
    EXPECT_EQ(format, inputFormatFromName(inputFormatName(format)));
  EXPECT_FALSE(inputFormatFromName("xml"));
  const std::string filter = "@10.0.0.0/8 0.0.0.0/0 0 : 65535 0 : 65535 0x00/0x00\n";
  ReadOptions options;
  EXPECT_EQ("classbench", readConfigText(filter, "t", options).lists.at(0).name);
  options.format = InputFormat::cli;
  EXPECT_TRUE(readConfigText(filter, "t", options).lists.empty());
  options.format = InputFormat::classbench;
  EXPECT_EQ("v4 extended classbench\nEthernet1 = Ethernet1\n"
            "1:1: warning: the file has no filters, so that no list is applied and everything is permitted\n",
            summary(readConfigText("", "t", options)));
}

// Lists, entries, interfaces, bindings, VLANs, errors and warnings of every real configuration.
TEST(ConfigFile, realConfigurations) {
  const auto shared = test::sharedData();
  if (!shared) {
    std::cout << "the folder of real configurations is absent, nothing to check\n";
    return;
  }
  std::vector<std::filesystem::path> files;
  for (const char* folder : {"configs", "classbench"})
    for (const auto& file : std::filesystem::directory_iterator(*shared / folder))
      if (file.path().string().find("trace") == std::string::npos)
        files.push_back(file.path());
  std::sort(files.begin(), files.end());
  std::string text;
  for (const auto& path : files) {
    const Config config = readConfig(path);
    size_t rules = 0;
    size_t bindings = 0;
    size_t errors = 0;
    for (const AccessList& list : config.lists)
      rules += list.rules.size();
    for (const Interface& interface : config.interfaces)
      bindings += interface.bindings.size();
    for (const Diagnostic& diagnostic : config.diagnostics)
      errors += diagnostic.severity == Severity::error;
    text += path.filename().string().substr(0, 12) + ": " + std::to_string(config.lists.size()) + " lists " +
            std::to_string(rules) + " entries " + std::to_string(config.interfaces.size()) + " interfaces " +
            std::to_string(bindings) + " bindings " + std::to_string(config.vlans.size()) + " vlans " +
            std::to_string(errors) + " errors " + std::to_string(config.diagnostics.size() - errors) +
            " warnings\n";
  }
  EXPECT_EQ("acl1_1k: 1 lists 957 entries 1 interfaces 1 bindings 0 vlans 0 errors 0 warnings\n"
            "fw1_1k: 1 lists 868 entries 1 interfaces 1 bindings 0 vlans 0 errors 0 warnings\n"
            "ipc1_1k: 1 lists 981 entries 1 interfaces 1 bindings 0 vlans 0 errors 0 warnings\n"
            "01-campus-co: 42 lists 83 entries 135 interfaces 0 bindings 48 vlans 0 errors 0 warnings\n"
            "02-campus-zo: 9 lists 222 entries 84 interfaces 0 bindings 111 vlans 0 errors 0 warnings\n"
            "03-campus-di: 19 lists 115 entries 53 interfaces 26 bindings 38 vlans 2 errors 0 warnings\n"
            "04-campus-di: 24 lists 172 entries 60 interfaces 23 bindings 48 vlans 2 errors 0 warnings\n"
            "05-edge-pref: 1 lists 105 entries 2 interfaces 1 bindings 0 vlans 0 errors 0 warnings\n"
            "06-edge-comp: 4 lists 107 entries 0 interfaces 0 bindings 0 vlans 0 errors 0 warnings\n"
            "07-forms-ttl: 7 lists 45 entries 0 interfaces 0 bindings 0 vlans 0 errors 8 warnings\n"
            "08-partner-w: 12 lists 97 entries 0 interfaces 0 bindings 0 vlans 0 errors 4 warnings\n"
            "09-office-ro: 11 lists 53 entries 11 interfaces 0 bindings 1 vlans 3 errors 2 warnings\n"
            "10-dept-rout: 4 lists 12 entries 6 interfaces 2 bindings 0 vlans 0 errors 0 warnings\n"
            "11-objgroup-: 81 lists 81 entries 3 interfaces 0 bindings 0 vlans 0 errors 0 warnings\n"
            "12-intervlan: 4 lists 29 entries 4 interfaces 1 bindings 0 vlans 3 errors 0 warnings\n"
            "13-icmpv6-po: 2 lists 27 entries 0 interfaces 0 bindings 0 vlans 0 errors 0 warnings\n"
            "14-l2-port-f: 3 lists 8 entries 3 interfaces 3 bindings 5 vlans 0 errors 0 warnings\n"
            "15-scale-100: 6 lists 1010 entries 0 interfaces 0 bindings 0 vlans 0 errors 0 warnings\n",
            text);
}

} // namespace
