#include "test/HelperUnderTest.h"

#include <gtest/gtest.h>

#include <string>

// What one rule becomes in the chip: the key bytes, ignore-masks and data of a row, and the calls that
// write them. Keys are given as text, id=value/ignore-mask in the order in which the fields are added.

namespace {

using namespace XpAcl;
using test::aclKey;
using test::deathOf;
using test::HelperUnderTest;

struct PortPieces {
  Vane::U16 src = 0, srcMask = 0, dst = 0, dstMask = 0;
};

struct Row {
  AclKeyInfo info{aclKey("web"), 0x12, 0};
  Acl::Action action = Acl::permit;
  bool log = false;
  bool finalRule = false;
  Vane::U32 row = 5;
  Vane::U32 counter = 11;
  PortPieces ports = {};
};

std::string callsV4(const Acl::IpFilter& filter, const Row& r = {}, Vane::U8 copies = 1) {
  test::HelperOptions options = test::allTables(64);
  options.copies = copies;
  HelperUnderTest h(options);
  h->programTcamRuleV4(r.info, Acl::ipv4, filter, r.action, r.log, Acl::UniqueId(), nullptr, 1, 2,
                       r.ports.src, r.ports.srcMask, r.ports.dst, r.ports.dstMask, r.finalRule, r.row,
                       r.counter);
  return h.sdk.takeCalls();
}

std::string callsV6(const Acl::Ip6Filter& filter, Row r = {}) {
  r.info = AclKeyInfo(aclKey("six", r.info.aclKey().direction(), Acl::ipv6), r.info.aclId(), r.info.type());
  HelperUnderTest h(test::allTables(64));
  h->programTcamRuleV6(r.info, Acl::ipv6, filter, r.action, r.log, Acl::UniqueId(), nullptr, 1, 2,
                       r.ports.src, r.ports.srcMask, r.ports.dst, r.ports.dstMask, r.finalRule, r.row,
                       r.counter);
  return h.sdk.takeCalls();
}

std::string callsMac(const Acl::MacFilter& filter, const Row& r = {}) {
  HelperUnderTest h(test::allTables(64));
  const AclKeyInfo info(aclKey("l2", r.info.aclKey().direction(), Acl::mac), r.info.aclId(), r.info.type());
  h->programTcamRuleMac(info, Acl::mac, filter, r.action, r.log, Acl::UniqueId(), nullptr, 1, 2, r.finalRule,
                        r.row, r.counter);
  return h.sdk.takeCalls();
}

// The fields behind the first `skip` ones (ACL id and flags) of the key that was written.
std::string key(const std::string& calls, unsigned skip) {
  std::size_t at = calls.find("writeKeyMask ");
  const std::size_t end = calls.find('\n', at);
  for (unsigned words = 0; words < 4 + skip && at < end; ++words) {
    at = calls.find(' ', at + 1);
  }
  return at < end ? calls.substr(at + 1, end - at - 1) : "";
}

std::string keyV4(const Acl::IpFilter& filter, const Row& r = {}) {
  return key(callsV4(filter, r), 2);
}
std::string keyV6(const Acl::Ip6Filter& filter, const Row& r = {}) {
  return key(callsV6(filter, r), 2);
}
std::string keyMac(const Acl::MacFilter& filter) {
  return key(callsMac(filter), 1);
}

Acl::IpFilter v4Source(Vane::U32 address, Vane::U32 netmask) {
  Acl::IpFilter filter;
  filter.sourceIs({address, Acl::ipMaskWord(netmask)});
  return filter;
}

std::array<uint8_t, 16> counting() {
  std::array<uint8_t, 16> bytes;
  for (unsigned i = 0; i < 16; ++i) {
    bytes[i] = static_cast<uint8_t>(0xA0 + i);
  }
  return bytes;
}

Acl::Ip6Filter v6Source(unsigned prefixLength) {
  Acl::Ip6Filter filter;
  filter.sourceIs({Ovnet::Ip6Addr(counting()), static_cast<uint8_t>(prefixLength)});
  return filter;
}

TEST(LibProgram, NormalRuleWritesDataThenKeyThenValid) {
  EXPECT_EQ(callsV4({}), "writeData d0 TACL_V4_IACL t0 5 log=0 en=1 res=1 cnt=11\n"
                         "writeKeyMask d0 TACL_V4_IACL 5 0=1200/0012 1=00/fe\n"
                         "setEntryValid d0 TACL_V4_IACL 5 1\n");
  EXPECT_EQ(callsV4({}, {.action = Acl::deny, .log = true}, 2),
            "writeData d0 TACL_V4_IACL t0 5 log=1 en=1 res=0 cnt=11\n"
            "writeData d0 TACL_V4_IACL t1 5 log=1 en=1 res=0 cnt=11\n"
            "writeKeyMask d0 TACL_V4_IACL 5 0=1200/0012 1=00/fe\n"
            "setEntryValid d0 TACL_V4_IACL 5 1\n");
  EXPECT_EQ(callsV4({}, {}, 0), "writeKeyMask d0 TACL_V4_IACL 5 0=1200/0012 1=00/fe\n"
                                "setEntryValid d0 TACL_V4_IACL 5 1\n");
}

TEST(LibProgram, FinalRuleWritesKeyThenDataThenValid) {
  Acl::IpFilter filter = v4Source(0x0A000000, 0xFF000000);
  filter.protoIs(6);
  filter.establishedIs(true);
  filter.fragmentsIs(true);
  const Row row{.log = true, .finalRule = true, .ports = {80, 0xFFFF, 80, 0xFFFF}};
  EXPECT_EQ(callsV4(filter, row, 2), "writeKeyMask d0 TACL_V4_IACL 5 0=1200/0012 1=00/fe\n"
                                     "writeData d0 TACL_V4_IACL t0 5 log=0 en=1 res=0 cnt=0\n"
                                     "writeData d0 TACL_V4_IACL t1 5 log=0 en=1 res=0 cnt=0\n"
                                     "setEntryValid d0 TACL_V4_IACL 5 1\n");
  EXPECT_EQ(callsV6(v6Source(64), row), "writeKeyMask d0 TACL_V6_IACL 5 0=1200/0012 1=00/fe\n"
                                        "writeData d0 TACL_V6_IACL t0 5 log=0 en=1 res=0 cnt=0\n"
                                        "setEntryValid d0 TACL_V6_IACL 5 1\n");
  Acl::MacFilter mac;
  mac.etherTypeIs(0x0806);
  EXPECT_EQ(callsMac(mac, row), "writeKeyMask d0 TACL_MAC_ACL 5 1=1200/0000\n"
                                "writeData d0 TACL_MAC_ACL t0 5 log=0 en=1 res=0 cnt=0\n"
                                "setEntryValid d0 TACL_MAC_ACL 5 1\n");
}

TEST(LibProgram, FinalRuleCountsWhereNobodyReads) {
  HelperUnderTest h;
  h->unusedAcmIndexIs(0x1FFFE);
  h->programTcamRuleV4(Row().info, Acl::ipv4, {}, Acl::permit, false, Acl::UniqueId(), nullptr, 0, 0, 0, 0, 0,
                       0, true, 2, 99);
  EXPECT_NE(h.sdk.takeCalls().find(" res=0 cnt=65534\n"), std::string::npos);
}

TEST(LibProgram, TablesOfDirections) {
  Row out{.info = AclKeyInfo(aclKey("web", Acl::egress), 0x12, 1)};
  EXPECT_EQ(callsV4({}, out), "writeData d0 TACL_V4_EACL t0 5 log=0 en=1 res=1 cnt=11\n"
                              "writeKeyMask d0 TACL_V4_EACL 5 0=1200/0012 1=01/fe\n"
                              "setEntryValid d0 TACL_V4_EACL 5 1\n");
  EXPECT_EQ(callsV6({}, out), "writeData d0 TACL_V6_EACL t0 5 log=0 en=1 res=1 cnt=11\n"
                              "writeKeyMask d0 TACL_V6_EACL 5 0=1200/0012 1=01/fe\n"
                              "setEntryValid d0 TACL_V6_EACL 5 1\n");
  EXPECT_EQ(callsV6({}), "writeData d0 TACL_V6_IACL t0 5 log=0 en=1 res=1 cnt=11\n"
                         "writeKeyMask d0 TACL_V6_IACL 5 0=1200/0012 1=00/fe\n"
                         "setEntryValid d0 TACL_V6_IACL 5 1\n");
  EXPECT_EQ(callsMac({}, {.action = Acl::deny, .log = true}),
            "writeData d0 TACL_MAC_ACL t0 5 log=1 en=1 res=0 cnt=11\n"
            "writeKeyMask d0 TACL_MAC_ACL 5 1=1200/0000\n"
            "setEntryValid d0 TACL_MAC_ACL 5 1\n");
  EXPECT_EQ(deathOf([&] { callsMac({}, out); }),
            "XpAclPlexAggregatorHelper:#: getTcamType: Assertion \"Egress MAC aclType unsupported\" "
            "failed.\n");
}

TEST(LibProgram, AclIdMaskOverlapsTheValue) {
  const auto field = [](Vane::U16 aclId, bool finalRule) {
    const Row row{.info = AclKeyInfo(aclKey("web"), aclId, 0), .finalRule = finalRule};
    return key(callsV4({}, row), 0) + " | " + key(callsV6({}, row), 0) + " | " + key(callsMac({}, row), 0);
  };
  EXPECT_EQ(field(1, false), "0=0100/0001 1=00/fe | 0=0100/0001 1=00/fe | 1=0100/0000");
  EXPECT_EQ(field(255, false), "0=ff00/00ff 1=00/fe | 0=ff00/00ff 1=00/fe | 1=ff00/0000");
  EXPECT_EQ(field(0x1234, false), "0=3412/0034 1=00/fe | 0=3412/0034 1=00/fe | 1=3412/0000");
  EXPECT_EQ(field(0x1234, true), "0=3412/0034 1=00/fe | 0=3412/0034 1=00/fe | 1=3412/0000");
}

// Role is the version's type and nothing else: 1 is routed, any other number is not.
TEST(LibProgram, Flags) {
  const auto flags = [](Vane::U32 type, bool established, bool fragments, bool finalRule) {
    Acl::IpFilter four;
    four.establishedIs(established);
    four.fragmentsIs(fragments);
    Acl::Ip6Filter six;
    six.establishedIs(established);
    six.fragmentsIs(fragments);
    const Row row{.info = AclKeyInfo(aclKey("web"), 0, type), .finalRule = finalRule};
    return key(callsV4(four, row), 1) + " " + key(callsV6(six, row), 1);
  };
  EXPECT_EQ(flags(0, false, false, false), "1=00/fe 1=00/fe");
  EXPECT_EQ(flags(1, false, false, false), "1=01/fe 1=01/fe");
  EXPECT_EQ(flags(2, false, false, false), "1=00/fe 1=00/fe");
  EXPECT_EQ(flags(0, true, false, false), "1=02/fc 1=02/fc");
  EXPECT_EQ(flags(1, true, false, false), "1=03/fc 1=03/fc");
  EXPECT_EQ(flags(0, false, true, false), "1=00/fa 1=00/fe");
  EXPECT_EQ(flags(1, true, true, false), "1=03/f8 1=03/fc");
  EXPECT_EQ(flags(1, true, true, true), "1=01/fe 1=01/fe");
}

TEST(LibProgram, Ports) {
  const auto ports = [](const PortPieces& p, bool fragments = false) {
    Acl::IpFilter four;
    four.fragmentsIs(fragments);
    Acl::Ip6Filter six;
    six.fragmentsIs(fragments);
    return keyV4(four, {.ports = p}) + " | " + keyV6(six, {.ports = p});
  };
  EXPECT_EQ(ports({}), " | ");
  EXPECT_EQ(ports({80, 0xFFFF, 443, 0xFFFF}), "3=5000/0000 2=bb01/0000 | 3=5000/0000 2=bb01/0000");
  EXPECT_EQ(ports({0, 0, 443, 0xFFFF}), "2=bb01/0000 | 2=bb01/0000");
  EXPECT_EQ(ports({1024, 0xFC00, 7, 0}), "3=0004/ff03 | 3=0004/ff03");
  EXPECT_EQ(ports({0x1234, 0x0001, 0, 0x8000}), "3=3412/feff 2=0000/ff7f | 3=3412/feff 2=0000/ff7f");
  EXPECT_EQ(ports({80, 0xFFFF, 443, 0xFFFF}, true), " | 3=5000/0000 2=bb01/0000")
      << "a non-initial fragment has no ports; IPv6 rows do not look at the fragment bit";
}

TEST(LibProgram, Icmp) {
  const auto icmp = [](Vane::U16 type, Vane::U16 code, bool fragments = false, const PortPieces& p = {}) {
    Acl::IpFilter four;
    four.icmpTypeIs(type);
    four.icmpCodeIs(code);
    four.fragmentsIs(fragments);
    Acl::Ip6Filter six;
    six.icmpTypeIs(type);
    six.icmpCodeIs(code);
    six.fragmentsIs(fragments);
    return keyV4(four, {.ports = p}) + " | " + keyV6(six, {.ports = p});
  };
  EXPECT_EQ(icmp(8, Acl::icmpAny), "2=0800/0000 | 2=0800/0000");
  EXPECT_EQ(icmp(3, 4), "2=0300/0000 3=0400/0000 | 2=0300/0000 3=0400/0000");
  EXPECT_EQ(icmp(0, 0), "2=0000/0000 3=0000/0000 | 2=0000/0000 3=0000/0000");
  EXPECT_EQ(icmp(Acl::icmpAny, 4), " | ") << "a code without type is not compared";
  EXPECT_EQ(icmp(0x0102, 0x0304), "2=0201/0000 3=0403/0000 | 2=0201/0000 3=0403/0000");
  EXPECT_EQ(icmp(3, 4, true), " | 2=0300/0000 3=0400/0000");
  EXPECT_EQ(icmp(3, Acl::icmpAny, false, {80, 0xFFFF, 443, 0xFFFF}),
            "3=5000/0000 2=0300/0000 | 3=5000/0000 2=0300/0000")
      << "the type replaces the port in the field that they share";
}

TEST(LibProgram, ProtocolAndTtl) {
  const auto fields = [](Vane::U8 proto, Acl::TtlOp op, Vane::U8 ttl) {
    Acl::IpFilter four;
    four.protoIs(proto);
    four.ttlIs(op, ttl);
    Acl::Ip6Filter six;
    six.protoIs(proto);
    six.ttlIs(op, ttl);
    return keyV4(four) + " | " + keyV6(six);
  };
  EXPECT_EQ(fields(6, Acl::TtlOp::any, 64), "4=06/00 | 4=06/00");
  EXPECT_EQ(fields(0, Acl::TtlOp::any, 64), " | ");
  EXPECT_EQ(fields(255, Acl::TtlOp::eq, 64), "4=ff/00 5=3f/00 | 4=ff/00 5=40/ff");
  EXPECT_EQ(fields(0, Acl::TtlOp::eq, 1), "5=00/00 | 5=01/ff");
  EXPECT_EQ(fields(0, Acl::TtlOp::eq, 0), "5=ff/00 | 5=00/ff");
  EXPECT_EQ(fields(0, Acl::TtlOp::eq, 255), "5=fe/00 | 5=ff/ff");
  EXPECT_EQ(fields(0, static_cast<Acl::TtlOp>(2), 64), " | ");
}

// Values have the most significant octet first; so must the mask, although its word is kept swapped.
TEST(LibProgram, Ipv4Netmasks) {
  const Vane::U32 address = 0x0A81F203;                                    // 10.129.242.3
  EXPECT_EQ(keyV4(v4Source(address, 0xFF800000)), "7=0a81f203/007fffff");  // /9
  EXPECT_EQ(keyV4(v4Source(address, 0xFFFFF000)), "7=0a81f203/00000fff");  // /20
  EXPECT_EQ(keyV4(v4Source(address, 0xFFFFFF80)), "7=0a81f203/0000007f");  // /25
  EXPECT_EQ(keyV4(v4Source(address, 0xFFFFFFFE)), "7=0a81f203/00000001");  // /31
  EXPECT_EQ(keyV4(v4Source(address, 0xFFFFFFFF)), "7=0a81f203/00000000");  // /32
  EXPECT_EQ(keyV4(v4Source(address, 0x80000000)), "7=0a81f203/7fffffff");  // /1
  EXPECT_EQ(keyV4(v4Source(address, 0)), "");                              // any
  EXPECT_EQ(keyV4(v4Source(address, ~0x0000FF00u)), "7=0a81f203/0000ff00") // wildcard 0.0.255.0
      << "wildcard";
  EXPECT_EQ(keyV4(v4Source(address, ~0x00FF0001u)), "7=0a81f203/00ff0001"); // wildcard 0.255.0.1
  Acl::IpFilter both = v4Source(address, 0xFF800000);
  both.destinationIs({0xC0A80100, Acl::ipMaskWord(0xFFFFFF00)});
  EXPECT_EQ(keyV4(both), "7=0a81f203/007fffff 6=c0a80100/000000ff");
  Acl::IpFilter destination;
  destination.destinationIs({address, Acl::ipMaskWord(0xFFFFFFFE)});
  EXPECT_EQ(keyV4(destination), "6=0a81f203/00000001");
  EXPECT_EQ(Acl::ipMaskWord(0xFFFFFF00), 0x00FFFFFFu);
}

TEST(LibProgram, Ipv6PrefixLengths) {
  const std::string value = "7=afaeadacabaaa9a8a7a6a5a4a3a2a1a0/";
  EXPECT_EQ(keyV6(v6Source(0)), "");
  EXPECT_EQ(keyV6(v6Source(1)), value + "ffffffffffffffffffffffffffffff7f");
  EXPECT_EQ(keyV6(v6Source(7)), value + "ffffffffffffffffffffffffffffff01");
  EXPECT_EQ(keyV6(v6Source(8)), value + "ffffffffffffffffffffffffffffff00");
  EXPECT_EQ(keyV6(v6Source(9)), value + "ffffffffffffffffffffffffffff7f00");
  EXPECT_EQ(keyV6(v6Source(63)), value + "ffffffffffffffff0100000000000000");
  EXPECT_EQ(keyV6(v6Source(64)), value + "ffffffffffffffff0000000000000000");
  EXPECT_EQ(keyV6(v6Source(65)), value + "ffffffffffffff7f0000000000000000");
  EXPECT_EQ(keyV6(v6Source(127)), value + "01000000000000000000000000000000");
  EXPECT_EQ(keyV6(v6Source(128)), value + "00000000000000000000000000000000");
  Acl::Ip6Filter both = v6Source(8);
  both.destinationIs({Ovnet::Ip6Addr(counting()), 120});
  EXPECT_EQ(keyV6(both), value + "ffffffffffffffffffffffffffffff00 6=" + value.substr(2) +
                             "ff000000000000000000000000000000");
}

TEST(LibProgram, Ipv6AddressBackFromTheKey) {
  std::array<uint8_t, 16> bytes = counting();
  std::reverse(bytes.begin(), bytes.end());
  EXPECT_TRUE(ipv6AddrToIp6Addr(bytes) == Ovnet::Ip6Addr(counting()));
}

TEST(LibProgram, Mac) {
  const Ovnet::MacAddr address({0x02, 0x11, 0x22, 0x33, 0x44, 0x55});
  const Ovnet::MacAddr oui({0xFF, 0xFF, 0xFF, 0, 0, 0});
  const Ovnet::MacAddr odd({0x01, 0, 0, 0, 0, 0x80});
  Acl::MacFilter filter;
  EXPECT_EQ(keyMac(filter), "");
  filter.vlanIs(0x0ABC, 0x0FFF);
  EXPECT_EQ(keyMac(filter), "0=bc0a/00f0");
  filter.etherTypeIs(0x0806);
  EXPECT_EQ(keyMac(filter), "0=bc0a/00f0 2=0608/0000");
  filter.sourceIs(address, oui);
  filter.destinationIs(address, odd);
  EXPECT_EQ(keyMac(filter),
            "0=bc0a/00f0 2=0608/0000 4=554433221102/ffffff000000 3=554433221102/7ffffffffffe");

  Acl::MacFilter anySource;
  anySource.vlanIs(5, 0);
  anySource.sourceIs(address, Ovnet::MacAddr());
  EXPECT_EQ(keyMac(anySource), "") << "masks of zero compare nothing";
  anySource.etherTypeIs(0);
  EXPECT_EQ(keyMac(anySource), "2=0000/0000") << "only all ones means any";
}

TEST(LibProgram, EveryFailingCallStopsTheRest) {
  const auto death = [](unsigned n, bool finalRule) {
    return deathOf([&] {
      HelperUnderTest h({.copies = 2});
      h.sdk.failCall(n, 5);
      h->programTcamRuleV4(Row().info, Acl::ipv4, {}, Acl::permit, false, Acl::UniqueId(), nullptr, 0, 0, 0,
                           0, 0, 0, finalRule, 2, 0);
    });
  };
  const auto text = [](const char* function, const std::string& arguments) {
    return std::string("XpAclPlexAggregatorHelper:# ((iaclMgr()->") + function + "( xpDevId().value(), " +
           "TACL_V4_IACL, " + arguments + " ))) API ERROR 5\nXpAclPlexAggregatorHelper:#: " + function +
           ": Assertion \"!(true)\" failed.\n";
  };
  const std::string data = text("writeData", "tblNum, tcamIdx, &data");
  const std::string key = text("writeKeyMask", "tcamIdx, true, &key.sdkKey");
  const std::string valid = text("setEntryValid", "tcamIdx, true");
  EXPECT_EQ(death(1, false), data);
  EXPECT_EQ(death(2, false), data);
  EXPECT_EQ(death(3, false), key);
  EXPECT_EQ(death(4, false), valid);
  EXPECT_EQ(death(5, false), "returned");
  EXPECT_EQ(death(1, true), key);
  EXPECT_EQ(death(2, true), data);
  EXPECT_EQ(death(3, true), data);
  EXPECT_EQ(death(4, true), valid);
}

TEST(LibProgram, EveryTableNamesItselfInItsCalls) {
  const auto death = [](const std::function<void(HelperUnderTest&)>& program) {
    return deathOf([&] {
      HelperUnderTest h(test::allTables(8));
      h.sdk.failCall(1, 7);
      program(h);
    });
  };
  const auto v4 = [](Acl::AclDirection direction) {
    return [direction](HelperUnderTest& h) {
      h->programTcamRuleV4(AclKeyInfo(aclKey("a", direction), 1, 0), Acl::ipv4, {}, Acl::permit, false,
                           Acl::UniqueId(), nullptr, 0, 0, 0, 0, 0, 0, false, 2, 0);
    };
  };
  const auto v6 = [](Acl::AclDirection direction) {
    return [direction](HelperUnderTest& h) {
      h->programTcamRuleV6(AclKeyInfo(aclKey("a", direction, Acl::ipv6), 1, 0), Acl::ipv6, {}, Acl::permit,
                           false, Acl::UniqueId(), nullptr, 0, 0, 0, 0, 0, 0, false, 2, 0);
    };
  };
  const auto mac = [](HelperUnderTest& h) {
    h->programTcamRuleMac(AclKeyInfo(aclKey("a", Acl::ingress, Acl::mac), 1, 0), Acl::mac, {}, Acl::permit,
                          false, Acl::UniqueId(), nullptr, 0, 0, false, 2, 0);
  };
  const auto text = [](const char* table) {
    return std::string("XpAclPlexAggregatorHelper:# ((iaclMgr()->writeData( xpDevId().value(), ") + table +
           ", tblNum, tcamIdx, &data ))) API ERROR 7\nXpAclPlexAggregatorHelper:#: writeData: Assertion "
           "\"!(true)\" failed.\n";
  };
  EXPECT_EQ(death(v4(Acl::ingress)), text("TACL_V4_IACL"));
  EXPECT_EQ(death(v4(Acl::egress)), text("TACL_V4_EACL"));
  EXPECT_EQ(death(v6(Acl::ingress)), text("TACL_V6_IACL"));
  EXPECT_EQ(death(v6(Acl::egress)), text("TACL_V6_EACL"));
  EXPECT_EQ(death(mac), text("TACL_MAC_ACL"));
}

TEST(LibProgram, AcceptedStatusesContinueLikeSuccess) {
  for (const int status : {9, 41, 42}) {
    for (unsigned n = 1; n <= 3; ++n) {
      HelperUnderTest h;
      h.sdk.failCall(n, status);
      h->programTcamRuleV4(Row().info, Acl::ipv4, {}, Acl::permit, false, Acl::UniqueId(), nullptr, 0, 0, 0,
                           0, 0, 0, false, 2, 0);
      EXPECT_EQ(h.sdk.numCalls(), 3u) << status << " at call " << n;
    }
  }
}

} // namespace
