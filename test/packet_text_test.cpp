#include "packet/PacketText.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "packet/AddressText.h"
#include "packet/HeaderTrace.h"
#include "test/Random.h"

namespace {

using packet::L3;
using packet::Packet;

std::string again(const std::string& text) {
  try {
    return packet::toText(packet::fromText(text));
  } catch (const packet::PacketTextError& error) {
    return error.what();
  }
}

TEST(PacketText, EveryForm) {
  const char* const texts[] = {
      "tcp 10.1.2.3:1234 > 10.9.8.7:80 ack ttl 64 vlan 10",
      "tcp 10.1.2.3:1234 > 10.9.8.7:80 fin syn rst psh ack urg ece cwr ttl 255",
      "tcp [2001:db8::1]:1 > [::]:65535 rst ttl 0",
      "udp 0.0.0.0:0 > 255.255.255.255:0 ttl 1",
      "udp 10.1.2.3 > 10.9.8.7 fragment ttl 64",
      "sctp 10.1.2.3:7 > 10.9.8.7:8 ttl 64",
      "icmp 10.1.2.3 > 10.9.8.7 8/0 ttl 64",
      "icmp 10.1.2.3 > 10.9.8.7 ttl 64",
      "icmp 10.1.2.3:4 > 10.9.8.7:5 0/0 ttl 64",
      "icmp6 fe80::1 > ff02::1:ff00:1 135/0 ttl 255",
      "proto 89 10.1.2.3 > 10.9.8.7 ttl 1",
      "proto 47 10.1.2.3:5 > 10.9.8.7:6 ttl 64",
      "udp 1.2.3.4:1 > 5.6.7.8:2 ttl 64 vlan 4095 src-mac 02:00:5e:10:00:01 dst-mac ff:ff:ff:ff:ff:ff",
      "udp 10.1.2.3:1 > 10.9.8.7:2 ttl 64 ethertype 0x0024",
      "frame",
      "udp 1.2.3.4:1 > 5.6.7.8:2 ttl 64 length 4294967295",
      "frame vlan 1 src-mac 02:00:5e:10:00:01 ethertype 0x0806 length 60",
      "frame ethertype 0x86dd",
  };
  for (const char* text : texts) {
    EXPECT_EQ(again(text), text);
  }
}

TEST(PacketText, OtherSpellings) {
  EXPECT_EQ(again("  TCP\t10.1.2.3:1234   >  10.9.8.7:80  VLAN 10   ACK\r"),
            "tcp 10.1.2.3:1234 > 10.9.8.7:80 ack ttl 64 vlan 10");
  EXPECT_EQ(again("proto 6 10.1.2.3:1 > 10.9.8.7:2"), "tcp 10.1.2.3:1 > 10.9.8.7:2 ttl 64");
  EXPECT_EQ(again("icmp 10.1.2.3 > 10.9.8.7 8"), "icmp 10.1.2.3 > 10.9.8.7 8/0 ttl 64");
  EXPECT_EQ(again("proto 0x11 2001:DB8:0:0:0:0:0:1 > ::ffff:1.2.3.4"),
            "udp 2001:db8::1 > ::ffff:102:304 ttl 64");
  EXPECT_EQ(again("frame src-mac 0200.5E10.0001 ethertype 2054"),
            "frame src-mac 02:00:5e:10:00:01 ethertype 0x0806");
}

TEST(PacketText, ErrorsSayWhereAndWhatWasExpected) {
  const std::string protocols =
      "\"tcp\", \"udp\", \"sctp\", \"icmp\", \"icmp6\", \"proto N\" or \"frame\" was expected";
  EXPECT_EQ(again(""), "column 1: the text ends where " + protocols);
  EXPECT_EQ(again("ospf 1.2.3.4 > 5.6.7.8"), "column 1: \"ospf\" stands where " + protocols);
  EXPECT_EQ(again("tcp 10.1.2:5 > 5.6.7.8:1"),
            "column 5: \"10.1.2:5\" stands where an IPv4 or IPv6 address was expected");
  EXPECT_EQ(again("tcp 10.1.2.3:99999 > 5.6.7.8:1"),
            "column 5: \"99999\" is no port: write a number up to 65535");
  EXPECT_EQ(again("tcp [::1 > ::2"),
            "column 5: \"[::1\" stands where an address such as [2001:db8::1]:80 was expected");
  EXPECT_EQ(again("tcp 1.2.3.4:5 5.6.7.8:1"), "column 15: \"5.6.7.8:1\" stands where \">\" was expected");
  EXPECT_EQ(again("tcp 1.2.3.4:5 >"), "column 16: the text ends where an IPv4 or IPv6 address was expected");
  EXPECT_EQ(again("tcp 1.2.3.4:5 > 5.6.7.8"),
            "column 17: one end has a port and the other has none: give both or neither");
  EXPECT_EQ(again("tcp 1.2.3.4 > ::1"), "column 15: the two addresses are of different families");
  EXPECT_EQ(again("tcp 1.2.3.4 > 5.6.7.8 ack"), "column 23: \"ack\" belongs to tcp with ports only");
  EXPECT_EQ(again("udp 1.2.3.4:1 > 5.6.7.8:1 syn"), "column 27: \"syn\" belongs to tcp with ports only");
  EXPECT_EQ(again("udp 1.2.3.4:1 > 5.6.7.8:1 8/0"),
            "column 27: \"8/0\" stands where an option was expected: only icmp and icmp6 have a type");
  EXPECT_EQ(again("icmp 1.2.3.4 > 5.6.7.8 8/256"),
            "column 24: \"8/256\" stands where an ICMP type or type/code up to 255 was expected");
  EXPECT_EQ(again("udp 1.2.3.4:1 > 5.6.7.8:1 fragment"),
            "column 35: a non-initial fragment has no L4 header: leave out ports and type, or \"fragment\"");
  EXPECT_EQ(again("udp 1.2.3.4:1 > 5.6.7.8:1 ttl 256"),
            "column 31: \"256\" stands where a time to live up to 255 was expected");
  EXPECT_EQ(again("frame vlan 0"), "column 12: there is no VLAN 0: write 1 to 4094, or leave it out");
  EXPECT_EQ(again("frame vlan 4096"), "column 12: \"4096\" stands where a VLAN up to 4095 was expected");
  EXPECT_EQ(again("frame vlan"), "column 11: the text ends where a VLAN up to 4095 was expected");
  EXPECT_EQ(again("frame vlan 1 vlan 2"), "column 14: \"vlan\" stands twice");
  EXPECT_EQ(again("frame ttl 1"),
            "column 7: \"ttl\" stands where \"vlan\", \"src-mac\", \"dst-mac\", \"ethertype\" or "
            "\"length\" was expected");
  EXPECT_EQ(again("frame src-mac 1:2:3:4:5:6"),
            "column 15: \"1:2:3:4:5:6\" stands where a MAC address such as 00:11:22:33:44:55 was expected");
}

TEST(PacketText, RoundTripOfRandomRecords) {
  test::Random random(test::Random::seed("RoundTripOfRandomRecords"));
  for (int round = 0; round < 20000; ++round) {
    Packet p;
    p.l3 = static_cast<L3>(random.below(3));
    p.vlan = random.oneIn(2) ? static_cast<uint16_t>(random.below(4095)) : uint16_t{0};
    p.etherType = static_cast<uint16_t>(random.next());
    p.length = random.below(3000);
    for (uint8_t& byte : p.srcMac) {
      byte = random.byte();
    }
    if (p.l3 != L3::none) {
      const unsigned octets = p.l3 == L3::ipv4 ? 4 : 16;
      for (unsigned i = 0; i < octets; ++i) {
        p.src[i] = random.oneIn(2) ? random.byte() : uint8_t{0};
        p.dst[i] = random.oneIn(2) ? random.byte() : uint8_t{0};
      }
      const uint8_t known[] = {1, 6, 17, 58, 132, 89};
      p.protocol = known[random.below(6)];
      p.ttl = random.byte();
      p.nonInitialFragment = random.oneIn(4);
      p.hasL4 = !p.nonInitialFragment && random.oneIn(2);
      if (p.hasL4 && (p.protocol == 1 || p.protocol == 58)) {
        p.icmpType = random.byte();
        p.icmpCode = random.byte();
      } else if (p.hasL4) {
        p.srcPort = static_cast<uint16_t>(random.next());
        p.dstPort = static_cast<uint16_t>(random.next());
        p.tcpFlags = p.protocol == 6 ? random.byte() : uint8_t{0};
      }
    }
    ASSERT_EQ(packet::fromText(packet::toText(p)), p) << packet::toText(p);
  }
}

TEST(AddressText, Ipv6AsRecommended) {
  const auto canonical = [](const char* text) {
    packet::IpAddr address{};
    return packet::parseIpv6(text, address) ? packet::ipText(L3::ipv6, address) : std::string("none");
  };
  EXPECT_EQ(canonical("2001:0DB8:0:0:0:0:2:1"), "2001:db8::2:1");
  EXPECT_EQ(canonical("2001:db8:0:1:1:1:1:1"), "2001:db8:0:1:1:1:1:1");
  EXPECT_EQ(canonical("2001:0:0:1:0:0:0:1"), "2001:0:0:1::1");
  EXPECT_EQ(canonical("2001:db8:0:0:1:0:0:1"), "2001:db8::1:0:0:1");
  EXPECT_EQ(canonical("::"), "::");
  EXPECT_EQ(canonical("1::"), "1::");
  EXPECT_EQ(canonical("::1.2.3.4"), "::102:304");
  EXPECT_EQ(canonical("1:2:3:4:5:6:1.2.3.4"), "1:2:3:4:5:6:102:304");
  for (const char* bad :
       {"", ":", ":::", "1", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1:2:3:4:5:6:7:8::", "1::2::3",
        "12345::", "g::", "1:", ":1", "::1:", "1.2.3.4::", "::1.2.3", "1:2:3:4:5:6:7:1.2.3.4"}) {
    EXPECT_EQ(canonical(bad), "none") << bad;
  }
}

TEST(AddressText, Ipv4) {
  packet::IpAddr address{};
  for (const char* bad : {"", "1", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.", ".1.2.3", "1.2.3.0004",
                          "1.2.3.-4", "1.2.3.4 ", "+1.2.3.4"}) {
    EXPECT_FALSE(packet::parseIpv4(bad, address)) << bad;
  }
  EXPECT_EQ(packet::ipText(L3::ipv4, address), "0.0.0.0");
  EXPECT_TRUE(packet::parseIpv4("255.0.010.1", address));
  EXPECT_EQ(packet::ipText(L3::ipv4, address), "255.0.10.1");
}

// All packets of a trace, or its error.
std::string readTrace(const std::string& text) {
  std::istringstream stream(text);
  packet::HeaderTraceReader reader(stream, "trace");
  std::string result;
  try {
    for (Packet packet; reader.next(packet);) {
      result += std::to_string(reader.line()) + " " + packet::toText(packet) + "\n";
    }
  } catch (const packet::HeaderTraceError& error) {
    result += error.what();
  }
  return result;
}

TEST(HeaderTrace, Lines) {
  EXPECT_EQ(
      readTrace(
          "3826338723\t376166655\t0\t65535\t6\t4294967295\t820\r\n\n  1 2 3 4 17\n16909060 0 5 6 1 0\n"),
      "1 tcp 228.17.75.163:0 > 22.107.216.255:65535 ttl 64\n"
      "3 udp 0.0.0.1:3 > 0.0.0.2:4 ttl 64\n"
      "4 icmp 1.2.3.4:5 > 0.0.0.0:6 0/0 ttl 64\n");
  EXPECT_EQ(readTrace(""), "");
}

TEST(HeaderTrace, Errors) {
  EXPECT_EQ(readTrace("1 2 3 4 17\n1 2 70000 4 17\n"),
            "1 udp 0.0.0.1:3 > 0.0.0.2:4 ttl 64\n"
            "trace:2:5: \"70000\" is no source port: write a decimal number up to 65535");
  EXPECT_EQ(readTrace("1 2 3 4"),
            "trace:1:8: the line ends before the protocol: write source, destination, source "
            "port, destination port and protocol");
  EXPECT_EQ(readTrace("1 2 3 4 256"), "trace:1:9: \"256\" is no protocol: write a decimal number up to 255");
  EXPECT_EQ(readTrace("4294967296 2 3 4 6"),
            "trace:1:1: \"4294967296\" is no source address: write a decimal number up to 4294967295");
  EXPECT_EQ(readTrace("1 2 3 4 6 0 x"),
            "trace:1:13: \"x\" is no number: write a decimal number up to 4294967295");
  EXPECT_EQ(readTrace(std::string("\x7f\x45\x4c\x46\x02\x00", 6)),
            "trace:1:1: \"?ELF??\" is no source address: write a decimal number up to 4294967295");
  EXPECT_EQ(readTrace(std::string(1 << 20, '9')),
            "trace:1:1: \"" + std::string(40, '9') +
                "...\" is no source address: write a decimal number up to "
                "4294967295");
}

TEST(HeaderTrace, MissingFilesAndDirectories) {
  const auto open = [](const std::string& name) -> std::string {
    try {
      packet::HeaderTraceReader reader(name);
    } catch (const packet::HeaderTraceError& error) {
      return error.what();
    }
    return "opened";
  };
  EXPECT_EQ(open("/nonexistent/trace"), "/nonexistent/trace: cannot be opened: No such file or directory");
  EXPECT_EQ(open("/"), "/: is a directory, not a header trace");
}

} // namespace
