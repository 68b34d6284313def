#include "agent/config/Addresses.h"
#include "agent/config/InterfaceNames.h"
#include "agent/config/Lexer.h"
#include "agent/config/Names.h"
#include "agent/config/PortSets.h"

#include <gtest/gtest.h>

// The small parts of the reader: words, numbers, addresses, port sets, names.

namespace {

using namespace agent;

std::string wordsOf(std::string_view line) {
  std::vector<Token> tokens;
  splitWords(line, tokens);
  std::string text;
  for (const Token& token : tokens)
    text += std::to_string(token.column) + "<" + std::string(token.text) + ">";
  return text;
}

TEST(ConfigWords, splitting) {
  EXPECT_EQ("", wordsOf(""));
  EXPECT_EQ("", wordsOf("  \t "));
  EXPECT_EQ("", wordsOf("! comment"));
  EXPECT_EQ("", wordsOf("   ! comment"));
  EXPECT_EQ("1<a>3<b>", wordsOf("a b"));
  EXPECT_EQ("2<a>5<b!c>", wordsOf(" a\t b!c !d e"));
  EXPECT_EQ("1<\xC3\xA9>4<x>", wordsOf("\xC3\xA9 x"));
}

std::string linesOf(std::string_view text) {
  LineReader reader(text);
  std::string_view line;
  std::string result;
  while (reader.next(line))
    result += std::to_string(reader.number()) + "<" + std::string(line) + ">";
  return result;
}

TEST(ConfigWords, lines) {
  EXPECT_EQ("", linesOf(""));
  EXPECT_EQ("1<>", linesOf("\n"));
  EXPECT_EQ("1<a>2<b>", linesOf("a\nb"));
  EXPECT_EQ("1<a>2<>3<b>", linesOf("a\r\n\r\nb\r\n"));
  EXPECT_EQ("1<a\rb>", linesOf("a\rb"));
}

TEST(ConfigWords, numbers) {
  const auto text = [](std::optional<uint32_t> value) {
    return value ? std::to_string(*value) : std::string("-");
  };
  EXPECT_EQ("0 65535 - - - - 7", text(decimal("0", 65535)) + " " + text(decimal("65535", 65535)) + " " +
                                     text(decimal("65536", 65535)) + " " + text(decimal("", 9)) + " " +
                                     text(decimal("-1", 9)) + " " + text(decimal("1x", 9)) + " " +
                                     text(decimal("0000000000000000000000007", 9)));
  EXPECT_EQ("4294967295 -",
            text(decimal("4294967295", UINT32_MAX)) + " " + text(decimal("4294967296", UINT32_MAX)));
  EXPECT_EQ("- -", text(decimal("99999999999999999999999999", UINT32_MAX)) + " " +
                       text(number("0x99999999999999999999999", UINT32_MAX)));
  EXPECT_EQ("255 65535 - - 10 -", text(number("0xfF", 255)) + " " + text(number("0XFFFF", 65535)) + " " +
                                      text(number("0x", 255)) + " " + text(number("0xg", 255)) + " " +
                                      text(number("10", 255)) + " " + text(number("ff", 255)));
}

TEST(ConfigWords, quoting) {
  EXPECT_EQ("'abc'", quotedWord("abc"));
  EXPECT_EQ("'\\x01\\xc3\\xa9'", quotedWord("\x01\xC3\xA9"));
  EXPECT_EQ("'" + std::string(48, 'x') + "...'", quotedWord(std::string(1000, 'x')));
}

TEST(ConfigWords, editDistance) {
  EXPECT_EQ(0u, editDistance("Permit", "pERMIT", 3));
  EXPECT_EQ(1u, editDistance("permit", "premit", 3));
  EXPECT_EQ(1u, editDistance("permit", "pemit", 3));
  EXPECT_EQ(1u, editDistance("permit", "permitt", 3));
  EXPECT_EQ(1u, editDistance("permit", "perXit", 3));
  EXPECT_EQ(4u, editDistance("permit", "deny", 3));
  EXPECT_EQ(3u, editDistance("", "abc", 3));
  EXPECT_EQ(4u, editDistance(std::string(1000, 'a'), std::string(1000, 'a'), 3));
}

TEST(ConfigWords, v4) {
  for (const char* good : {"0.0.0.0", "255.255.255.255", "10.1.2.3"})
    EXPECT_EQ(good, v4Text(v4FromText(good).value()));
  EXPECT_EQ("10.1.2.3", v4Text(v4FromText("010.001.002.003").value()));
  for (const char* bad : {"", "1", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.", ".1.2.3", "1..2.3",
                          "1.2.3.4 ", "a.b.c.d", "1.2.3.-4", "1.2.3.0004", "0x1.2.3.4"})
    EXPECT_FALSE(v4FromText(bad)) << bad;
}

TEST(ConfigWords, v6) {
  const auto round = [](const char* text) {
    const auto address = v6FromText(text);
    return address ? v6Text(*address) : std::string("-");
  };
  EXPECT_EQ("::", round("::"));
  EXPECT_EQ("::1", round("::1"));
  EXPECT_EQ("1::", round("1::"));
  EXPECT_EQ("2001:db8::1", round("2001:0DB8:0:0:0:0:0:1"));
  EXPECT_EQ("1:2:3:4:5:6:7:8", round("1:2:3:4:5:6:7:8"));
  EXPECT_EQ("1:0:3:4:5:6:7:8", round("1::3:4:5:6:7:8"));
  EXPECT_EQ("1::4:0:0:7:8", round("1:0:0:4:0:0:7:8")); // the first of two gaps of one length
  EXPECT_EQ("1:0:0:4::8", round("1:0:0:4:0:0:0:8"));   // the longer one
  EXPECT_EQ("::ffff:a00:1", round("::ffff:10.0.0.1"));
  EXPECT_EQ("64:ff9b::a00:1", round("64:ff9b::10.0.0.1"));
  EXPECT_EQ("1:2:3:4:5:6:a00:1", round("1:2:3:4:5:6:10.0.0.1"));
  for (const char* bad : {"",
                          ":",
                          ":::",
                          "1",
                          "1:2:3:4:5:6:7",
                          "1:2:3:4:5:6:7:8:9",
                          "1::2::3",
                          "1:2:3:4:5:6:7::8",
                          "12345::",
                          "g::",
                          "1:",
                          ":1",
                          "::1:",
                          "fe80::1%eth0",
                          "1:2:3:4:5:6:7:10.0.0.1",
                          "10.0.0.1",
                          "::10.0.0",
                          "10.0.0.1::",
                          "::10.0.0.1:5",
                          "1:2:3:4:5:6:7:8::"})
    EXPECT_EQ("-", round(bad)) << bad;
}

TEST(ConfigWords, mac) {
  for (const char* good : {"aabb.cc00.0920", "aa:bb:cc:00:09:20", "AA-BB-CC-00-09-20"})
    EXPECT_EQ("aabb.cc00.0920", macText(macFromText(good).value())) << good;
  for (const char* bad : {"", "aabb.cc00.092", "aabb.cc00.09200", "aabbcc000920", "aabb:cc00:0920",
                          "aa:bb:cc-00:09:20", "aa.bb.cc.00.09.20", "gabb.cc00.0920", "aabb.cc000.920"})
    EXPECT_FALSE(macFromText(bad)) << bad;
}

TEST(ConfigWords, netmasksAndPrefixes) {
  std::string text;
  for (const unsigned length : {0u, 1u, 9u, 20u, 25u, 31u, 32u}) {
    EXPECT_EQ(length, prefixLengthOf(v4Wildcard(length)));
    EXPECT_EQ(v4Wildcard(length), wildcardOfNetmask(~v4Wildcard(length)));
    text += v4Text(v4Wildcard(length)) + " ";
  }
  EXPECT_EQ("255.255.255.255 127.255.255.255 0.127.255.255 0.0.15.255 0.0.0.127 0.0.0.1 0.0.0.0 ", text);
  EXPECT_FALSE(wildcardOfNetmask(0x000000FF));
  EXPECT_FALSE(wildcardOfNetmask(0xFF00FF00));
  const auto range = [](const char* low, const char* high) {
    std::string result;
    for (const V4Match& match : v4Prefixes(*v4FromText(low), *v4FromText(high)))
      result += v4Text(match.address) + "/" + std::to_string(*prefixLengthOf(match.wildcard)) + " ";
    return result;
  };
  EXPECT_EQ("10.0.0.1/32 10.0.0.2/31 10.0.0.4/32 ", range("10.0.0.1", "10.0.0.4"));
  EXPECT_EQ("0.0.0.0/0 ", range("0.0.0.0", "255.255.255.255"));
  EXPECT_EQ("255.255.255.255/32 ", range("255.255.255.255", "255.255.255.255"));
}

std::string portsText(const PortSet& ports) {
  std::string text;
  for (const PortRange& range : ports)
    text += std::to_string(range.low) + "-" + std::to_string(range.high) + " ";
  return text;
}

TEST(ConfigWords, portSets) {
  EXPECT_EQ("", portsText(portRange(1, 0)));
  EXPECT_EQ("0-65535 ", portsText(anyPort()));
  EXPECT_EQ("1-7 9-9 ", portsText(normalized({{9, 9}, {3, 5}, {1, 2}, {5, 7}, {8, 3}})));
  EXPECT_EQ("0-65535 ", portsText(normalized({{1, 65535}, {0, 0}})));
  EXPECT_EQ("0-65535 ", portsText(complementOf({})));
  EXPECT_EQ("", portsText(complementOf(anyPort())));
  EXPECT_EQ("0-4 6-65534 ", portsText(complementOf({{5, 5}, {65535, 65535}})));
  EXPECT_EQ("1-65535 ", portsText(complementOf({{0, 0}})));
  EXPECT_EQ("1-3 5-5 ", portsText(unionOf({{1, 2}}, {{3, 3}, {5, 5}})));
}

// A set of one range holds it in itself; others, and what is left of them, read the same.
TEST(ConfigWords, portSetsOfAnySize) {
  std::string sets;
  PortSet ports;
  for (const uint16_t port : {10, 20, 30}) {
    sets += "[" + portsText(ports) + "]";
    ports.push_back({port, port});
    const PortSet copy = ports;
    ports.back().high = static_cast<uint16_t>(port + 1);
    sets += portsText(copy) + (copy == ports ? "same " : "");
  }
  EXPECT_EQ("[]10-10 [10-11 ]10-11 20-20 [10-11 20-21 ]10-11 20-21 30-30 ", sets);
  PortSet moved = std::move(ports);
  moved.eraseIf([](const PortRange& range) { return range.low != 20; });
  EXPECT_EQ("20-21 ", portsText(moved));
  EXPECT_TRUE(moved == portRange(20, 21));
  moved.append(anyPort());
  moved = PortSet(std::vector<PortRange>{moved[1], moved.front()});
  EXPECT_EQ("0-65535 20-21 ", portsText(moved));
  PortSet one = anyPort();
  EXPECT_TRUE(isAnyPort(one));
  one.eraseIf([](const PortRange&) { return true; });
  EXPECT_TRUE(one.empty());
  EXPECT_TRUE(one == PortSet());
  EXPECT_FALSE(isAnyPort(moved));
}

TEST(ConfigWords, names) {
  EXPECT_EQ(80, serviceFromName("WWW", tcpPorts));
  EXPECT_EQ(53, serviceFromName("domain", tcpPorts | udpPorts));
  EXPECT_FALSE(serviceFromName("bootps", tcpPorts));
  EXPECT_FALSE(serviceFromName("bgp", tcpPorts | udpPorts));
  EXPECT_EQ(514, serviceFromName("cmd", tcpPorts));
  EXPECT_EQ(513, serviceFromName("who", udpPorts));
  EXPECT_EQ(513, serviceFromName("login", tcpPorts));
  EXPECT_EQ(112, protocolFromName("vrrp"));
  EXPECT_FALSE(protocolFromName("ip"));
  EXPECT_EQ(0x86DD, etherTypeFromName("IPv6"));
  EXPECT_EQ(3, icmpFromName("port-unreachable", false)->type);
  EXPECT_EQ(3, icmpFromName("port-unreachable", false)->code);
  EXPECT_EQ(1, icmpFromName("port-unreachable", true)->type);
  EXPECT_EQ(4, icmpFromName("port-unreachable", true)->code);
  EXPECT_FALSE(icmpFromName("unreachable", false)->code);
}

// The names that stand in real configurations; each must be known, and under its registered number.
TEST(ConfigWords, namesMetInTheWild) {
  std::string text;
  for (const char* name :
       {"www", "bgp", "telnet", "smtp", "ssh", "domain", "ftp", "lpd", "ftp-data", "sunrpc", "ident",
        "tacacs", "cmd", "whois", "finger", "nntp", "time", "microsoft-ds"})
    text += std::string(name) + " " + std::to_string(serviceFromName(name, tcpPorts).value_or(0)) + " ";
  EXPECT_EQ(
      "www 80 bgp 179 telnet 23 smtp 25 ssh 22 domain 53 ftp 21 lpd 515 ftp-data 20 sunrpc 111 ident 113 "
      "tacacs 49 cmd 514 whois 43 finger 79 nntp 119 time 37 microsoft-ds 445 ",
      text);
  text.clear();
  for (const char* name : {"netbios-ss", "snmp", "bootpc", "netbios-ns", "bootps", "tftp", "netbios-dgm",
                           "ntp", "pim-auto-rp", "bfd", "bfd-echo", "syslog", "snmptrap", "sunrpc", "domain"})
    text += std::string(name) + " " + std::to_string(serviceFromName(name, udpPorts).value_or(0)) + " ";
  EXPECT_EQ("netbios-ss 139 snmp 161 bootpc 68 netbios-ns 137 bootps 67 tftp 69 netbios-dgm 138 ntp 123 "
            "pim-auto-rp 496 bfd 3784 bfd-echo 3785 syslog 514 snmptrap 162 sunrpc 111 domain 53 ",
            text);
}

TEST(ConfigWords, interfaceNames) {
  const auto shown = [](const char* text) {
    const auto name = InterfaceName::fromText(text);
    return name ? name->text() + " <" + name->identity() + ">" : std::string("-");
  };
  EXPECT_EQ("GigabitEthernet1/0/1 <1g 1/0/1>", shown("gi1/0/1"));
  EXPECT_EQ("GigE1/0/1 <1g 1/0/1>", shown("GigE1/0/1"));
  EXPECT_EQ("TenGigE0/1 <10g 0/1>", shown("tengige0/1"));
  EXPECT_EQ("Ethernet1/1:2 <ethernet 1/1:2>", shown("et1/1:2"));
  EXPECT_EQ("Port-Channel7 <po 7>", shown("PORT-CHANNEL007"));
  EXPECT_EQ("t1 <t1>", shown("t1")); // tunnel or TenGigE, so neither
  EXPECT_EQ("-", shown(""));
  EXPECT_EQ("-", shown("1/0/1"));
}

} // namespace
