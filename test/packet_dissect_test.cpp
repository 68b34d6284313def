#include "packet/Dissect.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "packet/PacketText.h"
#include "test/Random.h"

// Frames are built octet by octet; the record is compared as its whole text.

namespace {

using Bytes = std::vector<uint8_t>;
using packet::LinkType;

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes zeros(std::size_t count) {
  return Bytes(count);
}
Bytes be16(unsigned v) {
  return {static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)};
}

Bytes macs() {
  return {0x02, 0, 0, 0, 0, 0x0D, 0x02, 0, 0, 0, 0, 0x05};
}
Bytes ethernet(unsigned type) {
  return macs() + be16(type);
}

// An IPv4 header of 20 octets with TTL 9 from 10.1.2.3 to 10.9.8.7 in front of `payload`.
Bytes ipv4(uint8_t protocol, const Bytes& payload, unsigned fragment = 0) {
  return Bytes{0x45, 0} + be16(static_cast<unsigned>(20 + payload.size())) + be16(1) + be16(fragment) +
         Bytes{9, protocol, 0, 0, 10, 1, 2, 3, 10, 9, 8, 7} + payload;
}

// An IPv6 header with hop limit 5 from 2001:db8::1 to 2001:db8::2.
Bytes ipv6(uint8_t nextHeader, const Bytes& payload) {
  const Bytes prefix = Bytes{0x20, 0x01, 0x0D, 0xB8} + zeros(11);
  const Bytes src = prefix + Bytes{1};
  const Bytes dst = prefix + Bytes{2};
  return Bytes{0x60, 0, 0, 0} + be16(static_cast<unsigned>(payload.size())) + Bytes{nextHeader, 5} + src +
         dst + payload;
}

Bytes tcp(uint8_t flags) {
  return be16(1234) + be16(80) + zeros(8) + Bytes{0x50, flags} + zeros(6);
}
Bytes udp() {
  return be16(53) + be16(5353) + zeros(4);
}

// Dissects a copy that ends exactly where the capture ends, so that sanitizers see a read behind it.
std::string textOf(const Bytes& bytes, LinkType linkType = LinkType::ethernet) {
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), exact.get());
  return packet::toText(packet::dissect(linkType, exact.get(), static_cast<uint32_t>(bytes.size()), 0));
}

const std::string kMacs = " src-mac 02:00:00:00:00:05 dst-mac 02:00:00:00:00:0d";

TEST(Dissect, TcpUdpSctpIcmp) {
  EXPECT_EQ(textOf(ethernet(0x0800) + ipv4(6, tcp(0x10))),
            "tcp 10.1.2.3:1234 > 10.9.8.7:80 ack ttl 9" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x0800) + ipv4(17, udp())), "udp 10.1.2.3:53 > 10.9.8.7:5353 ttl 9" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x0800) + ipv4(132, be16(7) + be16(8) + zeros(8))),
            "sctp 10.1.2.3:7 > 10.9.8.7:8 ttl 9" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x0800) + ipv4(1, {3, 13, 0, 0})), "icmp 10.1.2.3 > 10.9.8.7 3/13 ttl 9" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(58, {135, 0, 0, 0})),
            "icmp6 2001:db8::1 > 2001:db8::2 135/0 ttl 5" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x0800) + ipv4(89, zeros(24))), "proto 89 10.1.2.3 > 10.9.8.7 ttl 9" + kMacs);
}

TEST(Dissect, CutL4HeadersAreAbsent) {
  const auto cut = [](uint8_t protocol, std::size_t size) {
    return textOf(ethernet(0x0800) + ipv4(protocol, Bytes(size, 1)));
  };
  EXPECT_EQ(cut(6, 19), "tcp 10.1.2.3 > 10.9.8.7 ttl 9" + kMacs);
  EXPECT_EQ(cut(17, 7), "udp 10.1.2.3 > 10.9.8.7 ttl 9" + kMacs);
  EXPECT_EQ(cut(132, 11), "sctp 10.1.2.3 > 10.9.8.7 ttl 9" + kMacs);
  EXPECT_EQ(cut(1, 3), "icmp 10.1.2.3 > 10.9.8.7 ttl 9" + kMacs);
  EXPECT_EQ(cut(17, 8), "udp 10.1.2.3:257 > 10.9.8.7:257 ttl 9" + kMacs);
}

// Ethernet pads short frames; the padding is no L4 header.
TEST(Dissect, PaddingIsNoHeader) {
  EXPECT_EQ(textOf(ethernet(0x0800) + ipv4(6, zeros(4)) + zeros(40)),
            "tcp 10.1.2.3 > 10.9.8.7 ttl 9" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(17, {}) + zeros(40)),
            "udp 2001:db8::1 > 2001:db8::2 ttl 5" + kMacs);
}

TEST(Dissect, Fragments) {
  EXPECT_EQ(textOf(ethernet(0x0800) + ipv4(17, udp(), 0x2000)),
            "udp 10.1.2.3:53 > 10.9.8.7:5353 ttl 9" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x0800) + ipv4(17, udp(), 0x2001)),
            "udp 10.1.2.3 > 10.9.8.7 fragment ttl 9" + kMacs);
}

TEST(Dissect, MalformedIpHeadersGetNoIpLookup) {
  const std::string none4 = "frame" + kMacs + " ethertype 0x0800";
  const std::string none6 = "frame" + kMacs + " ethertype 0x86dd";
  const auto broken = [](std::size_t at, uint8_t value) {
    Bytes bytes = ethernet(0x0800) + ipv4(17, udp());
    bytes[14 + at] = value;
    return textOf(bytes);
  };
  EXPECT_EQ(broken(0, 0x65), none4); // version 6 behind the EtherType of IPv4
  EXPECT_EQ(broken(0, 0x44), none4); // a header of 16 octets
  EXPECT_EQ(broken(0, 0x4F), none4); // a header that is longer than the frame
  EXPECT_EQ(broken(3, 19), none4);   // a total length below the header's
  Bytes bytes = ethernet(0x0800) + ipv4(17, udp());
  bytes.resize(14 + 19);
  EXPECT_EQ(textOf(bytes), none4);
  bytes = ethernet(0x86DD) + ipv6(17, udp());
  bytes[14] = 0x40;
  EXPECT_EQ(textOf(bytes), none6);
  bytes = ethernet(0x86DD) + ipv6(17, udp());
  bytes.resize(14 + 39);
  EXPECT_EQ(textOf(bytes), none6);
}

TEST(Dissect, Ipv4Options) {
  Bytes header = ipv4(17, zeros(4) + udp());
  header[0] = 0x46;
  EXPECT_EQ(textOf(ethernet(0x0800) + header), "udp 10.1.2.3:53 > 10.9.8.7:5353 ttl 9" + kMacs);
}

TEST(Dissect, ExtensionHeadersAreSkipped) {
  for (const uint8_t type : {0, 43, 60, 135, 139, 140}) {
    const Bytes extension = Bytes{17, 1} + zeros(14);
    EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(type, extension + udp())),
              "udp [2001:db8::1]:53 > [2001:db8::2]:5353 ttl 5" + kMacs)
        << unsigned{type};
  }
  // The length of an authentication header counts in units of 4 octets, less 2.
  EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(51, Bytes{17, 4} + zeros(22) + udp())),
            "udp [2001:db8::1]:53 > [2001:db8::2]:5353 ttl 5" + kMacs);
  // Hop-by-hop, routing, atomic fragment, destination options, TCP.
  const Bytes chain = Bytes{43, 0} + zeros(6) + Bytes{44, 0} + zeros(6) + Bytes{60, 0, 0, 0} + zeros(4) +
                      Bytes{6, 0} + zeros(6) + tcp(2);
  EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(0, chain)),
            "tcp [2001:db8::1]:1234 > [2001:db8::2]:80 syn ttl 5" + kMacs);
}

TEST(Dissect, CutChainsYieldTheLastNextHeaderValue) {
  // The routing header says 16 octets and has 8.
  EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(0, Bytes{43, 0} + zeros(6) + Bytes{17, 1} + zeros(6))),
            "proto 43 2001:db8::1 > 2001:db8::2 ttl 5" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(60, {17})), "proto 60 2001:db8::1 > 2001:db8::2 ttl 5" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(0, {})), "proto 0 2001:db8::1 > 2001:db8::2 ttl 5" + kMacs);
  // What stands behind a non-initial fragment header is no header.
  EXPECT_EQ(
      textOf(ethernet(0x86DD) + ipv6(44, Bytes{60, 0, 0, 8} + zeros(4) + Bytes{17, 0} + zeros(6) + udp())),
      "proto 60 2001:db8::1 > 2001:db8::2 fragment ttl 5" + kMacs);
  EXPECT_EQ(textOf(ethernet(0x86DD) + ipv6(59, udp())), "proto 59 2001:db8::1 > 2001:db8::2 ttl 5" + kMacs);
}

// The hop-by-hop header is 8 octets, the option that gives the real length among them.
TEST(Dissect, JumbogramsAreReadToTheEndOfTheFrame) {
  Bytes bytes = ethernet(0x86DD) + ipv6(0, Bytes{17, 0} + zeros(6) + udp());
  bytes[14 + 4] = bytes[14 + 5] = 0;
  EXPECT_EQ(textOf(bytes), "udp [2001:db8::1]:53 > [2001:db8::2]:5353 ttl 5" + kMacs);
}

TEST(Dissect, Tags) {
  const auto tagged = [](const Bytes& tags) {
    return textOf(macs() + tags + be16(0x0800) + ipv4(17, udp()));
  };
  const auto expected = [](const std::string& vlan) {
    return "udp 10.1.2.3:53 > 10.9.8.7:5353 ttl 9" + vlan + kMacs;
  };
  EXPECT_EQ(tagged(be16(0x8100) + be16(0xE00A)), expected(" vlan 10"));
  EXPECT_EQ(tagged(be16(0x88A8) + be16(100) + be16(0x8100) + be16(10)), expected(" vlan 100"));
  EXPECT_EQ(tagged(be16(0x9100) + be16(100) + be16(0x9100) + be16(10)), expected(" vlan 100"));
  EXPECT_EQ(tagged(be16(0x8100) + be16(0xE000)), expected(""));
  EXPECT_EQ(tagged(be16(0x88A8) + be16(0) + be16(0x8100) + be16(10)), expected(" vlan 10"));
  // The reserved VLAN is kept as it is; no port carries it.
  EXPECT_EQ(tagged(be16(0x8100) + be16(0xFFFF)), expected(" vlan 4095"));
  EXPECT_EQ(textOf(macs() + be16(0x8100) + Bytes{0, 10, 8}), "frame" + kMacs + " ethertype 0x8100");
}

TEST(Dissect, LlcAndSnapGetNoIpLookup) {
  const Bytes snap{0xAA, 0xAA, 0x03, 0, 0, 0, 0x08, 0x00};
  EXPECT_EQ(textOf(ethernet(36) + snap + ipv4(17, udp())), "frame" + kMacs + " ethertype 0x0024");
}

TEST(Dissect, RawIpHasNoMacAddresses) {
  EXPECT_EQ(textOf(ipv4(17, udp()), LinkType::rawIp), "udp 10.1.2.3:53 > 10.9.8.7:5353 ttl 9");
  EXPECT_EQ(textOf(ipv6(17, udp()), LinkType::rawIp), "udp [2001:db8::1]:53 > [2001:db8::2]:5353 ttl 5");
  EXPECT_EQ(textOf({0x20, 1, 2}, LinkType::rawIp), "frame");
  EXPECT_EQ(textOf({}, LinkType::rawIp), "frame");
}

TEST(Dissect, LinuxCooked) {
  const Bytes address{0x02, 0, 0, 0, 0, 0x05, 0, 0};
  EXPECT_EQ(
      textOf(be16(0) + be16(1) + be16(6) + address + be16(0x0800) + ipv4(17, udp()), LinkType::linuxCooked),
      "udp 10.1.2.3:53 > 10.9.8.7:5353 ttl 9 src-mac 02:00:00:00:00:05");
  EXPECT_EQ(
      textOf(be16(0) + be16(1) + be16(0) + zeros(8) + be16(0x8100) + be16(7) + be16(0x86DD) + ipv6(17, udp()),
             LinkType::linuxCooked),
      "udp [2001:db8::1]:53 > [2001:db8::2]:5353 ttl 5 vlan 7");
  EXPECT_EQ(textOf(be16(0x0800) + zeros(6) + be16(1) + Bytes{0, 6} + address + ipv4(17, udp()),
                   LinkType::linuxCooked2),
            "udp 10.1.2.3:53 > 10.9.8.7:5353 ttl 9 src-mac 02:00:00:00:00:05");
  EXPECT_EQ(textOf(zeros(15), LinkType::linuxCooked), "frame");
  EXPECT_EQ(textOf(zeros(19), LinkType::linuxCooked2), "frame");
}

TEST(Dissect, ShortFramesKeepWhatIsThere) {
  EXPECT_EQ(textOf({}), "frame");
  EXPECT_EQ(textOf(zeros(5)), "frame");
  EXPECT_EQ(textOf(macs()), "frame" + kMacs);
  Bytes dstOnly = macs();
  dstOnly.resize(6);
  EXPECT_EQ(textOf(dstOnly), "frame dst-mac 02:00:00:00:00:0d");
}

// Every cut of a deep frame, and random damage to it, is read without a look behind its end.
TEST(Dissect, DamagedFramesStayInBounds) {
  test::Random random(test::Random::seed("DamagedFramesStayInBounds"));
  const Bytes chain =
      Bytes{43, 0} + zeros(6) + Bytes{44, 2} + zeros(22) + Bytes{6, 0, 0, 0} + zeros(4) + tcp(2);
  const Bytes frame =
      macs() + be16(0x88A8) + be16(100) + be16(0x8100) + be16(10) + be16(0x86DD) + ipv6(0, chain);
  for (std::size_t size = 0; size <= frame.size(); ++size) {
    textOf(Bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size)));
  }
  for (int round = 0; round < 20000; ++round) {
    Bytes damaged = frame;
    for (int i = 0; i < 3; ++i) {
      damaged[random.below(static_cast<uint32_t>(damaged.size()))] = random.byte();
    }
    damaged.resize(random.below(static_cast<uint32_t>(damaged.size()) + 1));
    const auto linkType = static_cast<LinkType>(random.below(4));
    const std::string text = textOf(damaged, linkType);
    ASSERT_EQ(packet::toText(packet::fromText(text)), text);
  }
}

} // namespace
