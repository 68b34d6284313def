#include "sim/Key.h"

#include <string>

#include <gtest/gtest.h>

#include "packet/PacketText.h"
#include "sim/Device.h"

namespace {

using namespace XpXdk;
using sim::Role;

std::string keyOf(xpIaclType_e table, const std::string& packet, unsigned aclId = 0, Role role = Role::port,
                  uint16_t vlan = 0) {
  return sim::keyText(
      table, sim::buildKey(table, packet::fromText(packet), static_cast<uint8_t>(aclId), role, vlan));
}

TEST(Key, Ipv4) {
  EXPECT_EQ(keyOf(TACL_V4_IACL, "tcp 10.1.2.3:1234 > 10.9.8.7:80 syn ttl 64", 7),
            "aclId=0007 flags=04 dstL4=0050 srcL4=04d2 proto=06 ttl=3f dst=0a090807 src=0a010203");
  EXPECT_EQ(keyOf(TACL_V4_EACL, "udp 10.1.2.3:1234 > 10.9.8.7:65535 ttl 1", 255, Role::routed),
            "aclId=00ff flags=05 dstL4=ffff srcL4=04d2 proto=11 ttl=00 dst=0a090807 src=0a010203");
}

// TTL 0 is one below 1 all the same.
TEST(Key, TtlWraps) {
  EXPECT_EQ(keyOf(TACL_V4_IACL, "proto 89 10.1.2.3 > 10.9.8.7 ttl 0"),
            "aclId=0000 flags=04 dstL4=0000 srcL4=0000 proto=59 ttl=ff dst=0a090807 src=0a010203");
}

TEST(Key, Established) {
  const auto flags = [](const std::string& flag) {
    return keyOf(TACL_V4_IACL, "tcp 10.1.2.3:1 > 10.9.8.7:2 " + flag).substr(11, 8);
  };
  EXPECT_EQ(flags("ack"), "flags=06");
  EXPECT_EQ(flags("rst"), "flags=06");
  EXPECT_EQ(flags("syn ack"), "flags=06");
  EXPECT_EQ(flags("syn"), "flags=04");
  EXPECT_EQ(flags("fin psh urg"), "flags=04");
}

TEST(Key, WithoutAnL4Header) {
  EXPECT_EQ(keyOf(TACL_V4_IACL, "tcp 10.1.2.3 > 10.9.8.7 fragment", 7, Role::routed),
            "aclId=0007 flags=01 dstL4=0000 srcL4=0000 proto=06 ttl=3f dst=0a090807 src=0a010203");
  // A header that was cut is no fragment.
  EXPECT_EQ(keyOf(TACL_V4_IACL, "tcp 10.1.2.3 > 10.9.8.7", 7, Role::routed),
            "aclId=0007 flags=05 dstL4=0000 srcL4=0000 proto=06 ttl=3f dst=0a090807 src=0a010203");
}

TEST(Key, IcmpTypeAndCodeStandInThePortFields) {
  EXPECT_EQ(keyOf(TACL_V4_IACL, "icmp 10.1.2.3 > 10.9.8.7 3/13"),
            "aclId=0000 flags=04 dstL4=0003 srcL4=000d proto=01 ttl=3f dst=0a090807 src=0a010203");
}

TEST(Key, Ipv6) {
  EXPECT_EQ(keyOf(TACL_V6_IACL, "icmp6 2001:db8::1 > ff02::2 135/0 ttl 255", 3),
            "aclId=0003 flags=04 dstL4=0087 srcL4=0000 proto=3a ttl=ff "
            "dst=ff020000000000000000000000000002 src=20010db8000000000000000000000001");
  // Addresses are byte-reversed: the last octet comes first.
  const sim::TcamKeyBytes key =
      sim::buildKey(TACL_V6_IACL, packet::fromText("udp 2001:db8::1 > ff02::2"), 0, Role::port, 0);
  EXPECT_EQ(key[9], 2);
  EXPECT_EQ(key[24], 0xFF);
  EXPECT_EQ(key[25], 1);
  EXPECT_EQ(key[40], 0x20);
}

TEST(Key, Mac) {
  EXPECT_EQ(keyOf(TACL_MAC_ACL,
                  "frame src-mac 02:00:5e:10:00:01 dst-mac 03:00:5e:10:00:02 ethertype 0x0806 vlan 9", 5,
                  Role::port, 0x123),
            "vlan=0123 aclId=0005 etherType=0806 dst=03005e100002 src=02005e100001");
  const sim::TcamKeyBytes key = sim::buildKey(
      TACL_MAC_ACL, packet::fromText("frame src-mac 02:00:5e:10:00:01 dst-mac 03:00:5e:10:00:02"), 5,
      Role::routed, 0x123);
  EXPECT_EQ(key[0], 0x23);
  EXPECT_EQ(key[1], 0x01);
  EXPECT_EQ(key[6], 0x02);
  EXPECT_EQ(key[11], 0x03);
  EXPECT_EQ(key[12], 0x01);
  EXPECT_EQ(key[17], 0x02);
}

} // namespace
