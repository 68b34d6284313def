#include "test/ConfigSummary.h"
#include "test/Random.h"
#include "test/Shared.h"

#include <gtest/gtest.h>

#include <algorithm>

// Configurations written as text and read again are the same; what has no words is named.

namespace {

using namespace agent;
using namespace configtest;

// What must survive: everything but places and texts of lines.
std::string meaning(const Config& config) {
  std::string text = listsText(config);
  for (const Interface& interface : config.interfaces) {
    Config one;
    one.interfaces.push_back(interface);
    one.interfaces[0].refusedBindings.clear();
    if (interface.kind != InterfaceKind::unsupported)
      text += interfacesText(one);
  }
  for (const uint16_t vlan : config.vlans)
    text += "vlan " + std::to_string(vlan) + "\n";
  for (const auto& [table, rows] : config.tcamRows)
    text += std::string(tableName(table)) + " " + std::to_string(rows) + "\n";
  return text + std::to_string(config.numChips) + " chips\n";
}

void expectRoundTrip(const Config& config) {
  std::vector<std::string> losses;
  const std::string text = toText(config, &losses);
  EXPECT_TRUE(losses.empty()) << losses[0];
  const Config again = readConfigText(text, "again");
  EXPECT_EQ(meaning(config), meaning(again)) << text;
  EXPECT_FALSE(again.hasErrors()) << diagnosticsText(again) << text;
}

TEST(ConfigText, everythingAtOnce) {
  const Config config = readConfigText(R"(hardware tcam ingressV4 512
vlan 10,20-22
object-group service MIX
 tcp eq 80
 tcp source neq 5 eq 443
 tcp source range 6 9 neq 443
 udp eq domain ntp 1000
 icmp 3 4
 50
 ip
object-group network NET
 host 10.0.0.1
 10.1.0.0/16
 2001:db8::/32
 host 2001:db8:1::1
object-group ip port P
 range 10 20
 range 30 50
object-group service PG
 tcp range 10 20
 tcp range 30 50
 udp eq 5
object-group ip address W
 10.0.0.0 0.0.255.0
 host 1.2.3.4
ip access-list extended A
 permit object-group MIX object-group NET object-group W
 deny object-group PG object-group NET any
 permit tcp any portgroup P object-group NET portgroup P log
 permit tcp any gt 1023 any neq 5 6 established
 permit udp any lt 0 any range 0 65534
 permit ip any any ttl eq 64
 deny udp any any fragments
 permit icmp any any unreachable
 100 permit sctp host 1.1.1.1 any eq 80 ttl eq 0
 permit 58 any any
ip access-list standard S
 permit object-group NET
 deny 10.0.0.0 0.0.255.0 log
ip access-list extended EMPTY
access-list 10 permit 1.2.3.4
access-list 700 permit 0000.0000.0001 0000.0000.ffff
ipv6 access-list A
 permit ipv6 object-group NET any
 permit icmp any any nd-na
 permit 1 any any
 deny tcp any eq 80 2001:db8::/33 established log
ipv6 access-list standard S6
 permit object-group NET
mac access-list extended M
 permit any host 0000.0000.0001 0x8800 0x00f3 vlan 5
 deny 0011.0000.0000 0000.ffff.ffff any vlan 4094 log
 permit any any ip
interface GigabitEthernet1/0/1
 ip access-group A in
 ipv6 traffic-filter A out
 mac access-group M in
 switchport trunk allowed vlan 1,5-10
 channel-group 1 mode on
interface Port-channel1
 ip access-group S out
interface Ethernet2
 switchport access vlan 10
interface Vlan10
 ip access-group A in
interface Ethernet1/1
 switchport trunk allowed vlan none
hardware chip 2 interface Ethernet2
)",
                                       "t");
  ASSERT_EQ("", diagnosticsText(config));
  expectRoundTrip(config);
}

TEST(ConfigText, asItIsWritten) {
  const Config config =
      readConfigText("object-group service S\n tcp eq 80\n udp eq 53\n"
                     "ip access-list extended A\n permit object-group S any host 1.1.1.1 log\n"
                     "interface gi1/0/1\n ip access-group A in\n switchport mode trunk\n",
                     "t");
  EXPECT_EQ("object-group service group-1\n"
            " tcp eq 80\n"
            " udp eq 53\n"
            "ip access-list extended A\n"
            " 10 permit object-group group-1 any host 1.1.1.1 log\n"
            "interface GigabitEthernet1/0/1\n"
            " switchport trunk allowed vlan 1-4094\n"
            " ip access-group A in\n",
            toText(config));
}

TEST(ConfigText, whatHasNoWordsIsNamed) {
  Config config = readConfigText("@10.0.0.0/8 0.0.0.0/0 0 : 65535 80 : 80 0x00/0x00 0x0000/0x0000\n"
                                 "@10.0.0.0/8 0.0.0.0/0 0 : 65535 80 : 80 0x06/0xFE 0x0000/0x0000\n"
                                 "@10.0.0.0/8 0.0.0.0/0 0 : 65535 0 : 65535 0x08/0xFE\n",
                                 "t");
  std::vector<std::string> losses;
  EXPECT_EQ("object-group service group-1\n"
            " 8\n"
            " 9\n"
            "ip access-list extended classbench\n"
            " 10 remark left out: @10.0.0.0/8 0.0.0.0/0 0 : 65535 80 : 80 0x00/0x00 0x0000/0x0000\n"
            " 20 remark left out: @10.0.0.0/8 0.0.0.0/0 0 : 65535 80 : 80 0x06/0xFE 0x0000/0x0000\n"
            " 30 permit object-group group-1 10.0.0.0 0.255.255.255 any\n"
            "interface Ethernet1\n"
            " ip access-group classbench in\n",
            toText(config, &losses));
  ASSERT_EQ(2u, losses.size());
  EXPECT_EQ("t:1:1: @10.0.0.0/8 0.0.0.0/0 0 : 65535 80 : 80 0x00/0x00 0x0000/0x0000", losses[0]);

  config = readConfigText("ip access-list extended A\n permit ip any any dscp ef\n permit ip any any\n", "t");
  losses.clear();
  EXPECT_EQ("ip access-list extended A\n 20 permit ip any any\n remark left out: the lines with errors\n",
            toText(config, &losses));
  EXPECT_EQ(1u, losses.size());

  // Alternatives that are no product of services, sources and destinations.
  Rule& rule = config.lists[0].rules.edit()[0];
  rule.alternatives.resize(2);
  rule.alternatives[0].srcV4 = rule.alternatives[1].dstV4 = {0x0A000001, 0};
  config.lists[0].hasErrors = false;
  EXPECT_EQ("ip access-list extended A\n 20 remark left out: permit ip any any\n", toText(config));
}

class RandomConfig {
public:
  explicit RandomConfig(uint64_t seed) : random_(seed) {}
  std::string text();

private:
  std::string oneOf(std::initializer_list<const char*> words) {
    return *(words.begin() + random_.below(static_cast<uint32_t>(words.size())));
  }
  std::string number(uint32_t bound) { return std::to_string(random_.below(bound)); }
  std::string v4() { return number(256) + "." + number(256) + "." + number(256) + "." + number(256); }
  std::string v6() { return oneOf({"2001:db8::", "fe80::", "::", "1:2:3:4:5:6:7:"}) + number(10000); }
  std::string address(bool isV6);
  std::string ports();
  std::string entry(bool isV6);

  test::Random random_;
};

std::string RandomConfig::address(bool isV6) {
  switch (random_.below(4)) {
  case 0:
    return "any";
  case 1:
    return "host " + (isV6 ? v6() : v4());
  case 2:
    return isV6 ? v6() + "/" + number(129) : v4() + "/" + number(33);
  default:
    return isV6 ? "object-group G6" : random_.oneIn(2) ? "object-group G4" : v4() + " " + v4();
  }
}

std::string RandomConfig::ports() {
  const uint32_t low = random_.below(65536);
  switch (random_.below(8)) {
  case 0:
    return " eq " + number(65536) + " " + number(65536);
  case 1:
    return " neq " + number(65536) + " " + number(65536);
  case 2:
    return " gt " + number(65536);
  case 3:
    return " lt " + number(65536);
  case 4:
    return " range " + std::to_string(low) + " " + std::to_string(low + random_.below(65536 - low));
  case 5:
    return " portgroup P";
  default:
    return "";
  }
}

std::string RandomConfig::entry(bool isV6) {
  std::string text = oneOf({" permit ", " deny "});
  const uint32_t form = random_.below(5);
  if (form == 0)
    text += (isV6 ? "ipv6 " : "ip ") + address(isV6) + " " + address(isV6);
  else if (form == 1)
    text += "icmp " + address(isV6) + " " + address(isV6) + " " + number(256) +
            (random_.oneIn(2) ? " " + number(256) : "");
  else if (form == 2)
    text += "object-group S " + address(isV6) + " " + address(isV6);
  else
    text += oneOf({"tcp ", "udp ", "sctp "}) + address(isV6) + ports() + " " + address(isV6) + ports();
  if (!isV6 && random_.oneIn(4))
    text += " ttl eq " + number(256);
  return text + (random_.oneIn(4) ? " log\n" : "\n");
}

std::string RandomConfig::text() {
  std::string text = "object-group service S\n tcp" + ports() + "\n udp source eq 5" + ports() + "\n 99\n";
  text.replace(text.find(" tcp"), 4, " tcp eq 7\n tcp");
  while (text.find("portgroup P") != std::string::npos)
    text.replace(text.find("portgroup P"), 11, "eq 9");
  text += "object-group ip address G4\n " + v4() + " " + v4() + "\n host " + v4() + "\n" +
          "object-group ipv6 address G6\n " + v6() + "/64\n host " + v6() +
          "\nobject-group ip port P\n range 5 10\n eq 100\n range 2000 30000\n";
  for (const bool isV6 : {false, true}) {
    text += isV6 ? "ipv6 access-list B\n" : "ip access-list extended A\n";
    for (int i = 0; i < 20; ++i)
      text += entry(isV6);
  }
  return text + "interface Ethernet1\n ip access-group A in\n ipv6 traffic-filter B in\n";
}

TEST(ConfigText, randomConfigurationsSurvive) {
  const uint64_t seed = test::Random::seed("ConfigText.randomConfigurationsSurvive");
  for (uint64_t i = 0; i < 200; ++i) {
    const std::string text = RandomConfig(seed + i).text();
    const Config config = readConfigText(text, "random");
    ASSERT_EQ("", diagnosticsText(config)) << text;
    ASSERT_EQ(20u, config.lists[0].rules.size()) << text;
    expectRoundTrip(config);
    if (HasFailure())
      return;
  }
}

TEST(ConfigText, realConfigurationsSurvive) {
  const auto shared = test::sharedData();
  if (!shared) {
    std::cout << "the folder of real configurations is absent, nothing to check\n";
    return;
  }
  for (const auto& file : std::filesystem::directory_iterator(*shared / "configs")) {
    SCOPED_TRACE(file.path());
    // Lists with errors lose their lines, and that is said; the others must be the same.
    Config config = readConfig(file.path());
    std::erase_if(config.lists, [](const AccessList& list) { return list.hasErrors; });
    expectRoundTrip(config);
  }
  for (const char* name : {"acl1_1k", "fw1_1k", "ipc1_1k"}) {
    SCOPED_TRACE(name);
    expectRoundTrip(readConfig(*shared / "classbench" / name));
  }
}

} // namespace
