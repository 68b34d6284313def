#include "test/HelperUnderTest.h"
#include "test/ValueLaws.h"

#include "XpAclTcam/XpAclVlanVifKey.h"
#include "XpLib/PortAndVlanId.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

// Every value type of the platform and the library obeys the same laws, checked over samples
// that are all different, in ascending order.

namespace {

using Bridging::VlanId;
using Ovnet::IntfId;
using Plex::AclKey;
using Plex::Central::ChipPort;
using Plex::Central::DeviceId;
using Plex::Central::PortId;
using XpAcl::AclId;
using XpAcl::AclKeyInfo;
using XpAcl::HwAclIndexKey;
using XpAcl::TcamAclRuleId;
using XpAcl::XpAclVlanVifKey;
using XpVif::VifId;

using test::checkLaws;
using test::Stream;
using test::streamed;
using test::valueOf;
using test::valueText;

AclKey key(const char* name, unsigned direction = 0, unsigned type = 0, Vane::U32 generation = 0) {
  return AclKey(name, Acl::AclDirectionInstance(direction), Acl::AclTypeInstance(type), generation);
}

HwAclIndexKey indexKey(unsigned slot, const char* name) {
  HwAclIndexKey result;
  result.slotIs(slot, key(name));
  return result;
}

TEST(LibValues, Enumerations) {
  checkLaws<Acl::AclDirection>({Acl::ingress, Acl::egress});
  checkLaws<Acl::AclType>({Acl::ipv4, Acl::ipv6, Acl::mac});
  checkLaws<Acl::Action>({Acl::permit, Acl::deny});
  checkLaws<XpAcl::TcamType>(
      {XpAcl::ingressV4, XpAcl::ingressV6, XpAcl::egressV4, XpAcl::egressV6, XpAcl::ingressMac});
  checkLaws<XpAcl::AclIntfTypeAndDir>(
      {XpAcl::portIngress, XpAcl::portEgress, XpAcl::routedIngress, XpAcl::routedEgress});
  EXPECT_EQ(Acl::egress, 1u);
  EXPECT_EQ(Acl::mac, 2u);
  EXPECT_EQ(Acl::permit, 0u);
}

TEST(LibValues, Numbers) {
  checkLaws<Acl::UniqueId>({Acl::UniqueId(0), Acl::UniqueId(1), Acl::UniqueId(~Vane::U64{0})});
  checkLaws<VlanId>({VlanId(1), VlanId(255), VlanId(256), VlanId(4094)});
  checkLaws<Bridging::VlanIdOrNone>(
      {Bridging::VlanIdOrNone(0), Bridging::VlanIdOrNone(1), Bridging::VlanIdOrNone(4094)});
  checkLaws<DeviceId>({DeviceId(0), DeviceId(63), DeviceId(64)});
  checkLaws<PortId>({PortId(0), PortId(256), PortId(65535)});
  checkLaws<XpXdk::XpDeviceId>({XpXdk::XpDeviceId(0), XpXdk::XpDeviceId(127), XpXdk::XpDeviceId(255)});
  checkLaws<AclId>({AclId(0), AclId(1), AclId(65535)});
  checkLaws<VifId>({VifId(0), VifId(0x80000000u), VifId(0xFFFFFFFFu)});
  checkLaws<XpLib::PortVlanIvifTableKey>({XpLib::PortVlanIvifTableKey(0),
                                          XpLib::PortVlanIvifTableKey(0x00010002), //
                                          XpLib::PortVlanIvifTableKey(0xFFFF0FFE)});
  EXPECT_TRUE(VlanId() == VlanId(1));
  EXPECT_TRUE(Bridging::VlanIdOrNone() == Bridging::VlanIdOrNone(0));
  EXPECT_TRUE(DeviceId() == DeviceId(64));
  EXPECT_TRUE(XpXdk::XpDeviceId() == XpXdk::XpDeviceId(127));
  EXPECT_TRUE(VifId() == VifId(0xFFFFFFFFu));
  EXPECT_TRUE(AclId() == AclId(0));
}

TEST(LibValues, Records) {
  checkLaws<TcamAclRuleId>({TcamAclRuleId(1, 0), TcamAclRuleId(1, 1), TcamAclRuleId(2, 0),
                            TcamAclRuleId(0x80000000u, 0), TcamAclRuleId(0x80000000u, 0x80000000u)});
  checkLaws<AclKey>({key("", 1, 2, 9), key("a"), key("a", 0, 0, 1), key("a", 0, 1), key("a", 1), key("a b"),
                     key("b'\\"), key("ba")});
  checkLaws<AclKeyInfo>({AclKeyInfo(key("a"), 1, 1), AclKeyInfo(key("a"), 2, 0), AclKeyInfo(key("a"), 2, 1),
                         AclKeyInfo(key("b"), 0, 0)});
  checkLaws<Plex::IntfPairKey>({Plex::IntfPairKey(IntfId(), IntfId()),
                                Plex::IntfPairKey(IntfId(), IntfId(IntfId::vlan, 1)),
                                Plex::IntfPairKey(IntfId(IntfId::ethernet, 1), IntfId())});
  checkLaws<ChipPort>({ChipPort(DeviceId(0), PortId(0)), ChipPort(DeviceId(0), PortId(7)),
                       ChipPort(DeviceId(1), PortId(0)), ChipPort()});
  checkLaws<XpAcl::IntfIdDirection>({XpAcl::IntfIdDirection(IntfId(IntfId::ethernet, 1), Acl::ingress),
                                     XpAcl::IntfIdDirection(IntfId(IntfId::ethernet, 1), Acl::egress),
                                     XpAcl::IntfIdDirection(IntfId(IntfId::vlan, 1), Acl::ingress)});
  // The default name "aclGroupDefault" stands between "a" and "b".
  checkLaws<HwAclIndexKey>({indexKey(0, "a"), indexKey(4, "a"), indexKey(9, "a"), HwAclIndexKey(),
                            indexKey(9, "b"), indexKey(0, "b")});
  checkLaws<XpLib::PortAndVlanId>({XpLib::PortAndVlanId(IntfId(IntfId::ethernet, 1), VlanId(1)),
                                   XpLib::PortAndVlanId(IntfId(IntfId::ethernet, 1), VlanId(4094)),
                                   XpLib::PortAndVlanId(IntfId(IntfId::ethernet, 2), VlanId(1))});
  checkLaws<XpAclVlanVifKey>({XpAclVlanVifKey(VlanId(9), VifId(100)), XpAclVlanVifKey(VlanId(10), VifId(5)),
                              XpAclVlanVifKey(VlanId(10), VifId(7)), XpAclVlanVifKey(VlanId(10), VifId())});
  checkLaws<XpLib::FeatureAllocation>({XpLib::FeatureAllocation(false), XpLib::FeatureAllocation(true)});
  checkLaws<XpAcl::ChipRecord>({XpAcl::ChipRecord(""), XpAcl::ChipRecord("a"), XpAcl::ChipRecord("b")});
  checkLaws<XpSystem::ChipInfo>({XpSystem::ChipInfo(""), XpSystem::ChipInfo("a")});
}

TEST(LibValues, TextsOfRecords) {
  EXPECT_EQ(valueText(TcamAclRuleId(5, 2)),
            "Value('XpAcl::TcamAclRuleId', ** {'ruleNum': 5, 'subRuleNum': 2})");
  EXPECT_EQ(valueText(AclKey()), "Value('Plex::AclKey', ** {'name': 'aclGroupDefault', 'direction': ingress, "
                                 "'aclType': ipv4, 'generation': 0})");
  EXPECT_EQ(valueText(ChipPort()), "Value('Plex::Central::ChipPort', ** {'chip': 64, 'port': 65535})");
  EXPECT_EQ(valueText(XpLib::PortAndVlanId(IntfId(IntfId::ethernet, 3), VlanId(7))),
            "Value('XpLib::PortAndVlanId', ** {'intf': 'Ethernet3', 'vlanId': 7})");
  for (const char* wrong : {"Value('XpAcl::TcamAclRuleId', ** {'ruleNum': 5, 'subRuleNum': -2})",
                            "Value('XpAcl::TcamAclRuleId', ** {'ruleNum': 4294967296, 'subRuleNum': 2})",
                            "Value('XpAcl::TcamAclRuleId', ** {'ruleNum': , 'subRuleNum': 2})",
                            "Value('XpAcl::TcamAclRuleId', ** {'subRuleNum': 2, 'ruleNum': 5})",
                            "Value('TcamAclRuleId', ** {'ruleNum': 5, 'subRuleNum': 2})", "5, 2", ""}) {
    EXPECT_EQ(test::thrownBy([&] { valueOf<TcamAclRuleId>(wrong); }).substr(0, 16), "ParseException: ")
        << wrong;
  }
}

TEST(LibValues, Hashes) {
  // The eight bytes of the two numbers, low byte first.
  Vane::Hash bytes;
  for (const Vane::U8 byte : {4, 3, 2, 1, 8, 7, 6, 5}) {
    bytes.mix(byte);
  }
  EXPECT_EQ(TcamAclRuleId(0x01020304, 0x05060708).hash(), bytes.result());
}

TEST(LibValues, NumbersOutOfRange) {
  const auto of = [](const std::function<void()>& make) { return test::thrownBy(make); };
  EXPECT_EQ(of([] { VlanId(0); }), "RangeException: VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(of([] { VlanId(4095); }), "RangeException: VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(of([] { VlanId(65537); }), "RangeException: VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(of([] { Bridging::VlanIdOrNone(4095); }),
            "RangeException: VlanIdOrNone::value > 4094 not allowed");
  EXPECT_EQ(of([] { DeviceId(65); }),
            "RangeException: DeviceId::value < DeviceId::min or > DeviceId::null not allowed");
  EXPECT_EQ(of([] { Plex::Range(2, 1); }), "RangeException: Range::min > Range::max not allowed");
  EXPECT_EQ(of([] { Plex::Range(1, 1); }), "nothing");
  Acl::IpFilter filter;
  EXPECT_EQ(of([&] { filter.vniIs(16777215); }), "nothing");
  EXPECT_EQ(of([&] { filter.vniIs(16777216); }),
            "RangeException: IpFilterBase::vni < 0 or > 16777215 not allowed");
  EXPECT_EQ(filter.vni(), 16777215u);
  Acl::MacFilter mac;
  EXPECT_EQ(of([&] { mac.mplsLabelIs(0xFFFFF); }), "nothing");
  EXPECT_EQ(of([&] { mac.mplsLabelIs(0x100000); }),
            "RangeException: MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed");
  EXPECT_EQ(mac.mplsLabel(), 0xFFFFFu);
  const std::string longest(Acl::VrfName::maxLength, 'v');
  EXPECT_EQ(of([&] { Acl::VrfName{Vane::String(std::string_view(longest))}; }), "nothing");
  EXPECT_EQ(of([&] { Acl::VrfName{Vane::String(std::string_view(longest + "v"))}; }),
            "RangeException: VrfName::bytes > VrfName::maxLength not allowed");
}

TEST(LibValues, Interfaces) {
  checkLaws<IntfId>({IntfId(), IntfId(IntfId::ethernet, 1), IntfId(IntfId::ethernet, 0xFFFFFF),
                     IntfId(IntfId::vlan, 10), IntfId(IntfId::portChannel, 2), IntfId(IntfId::loopback, 0),
                     IntfId(IntfId::tunnel, 1), IntfId(IntfId::management, 1)},
                    Stream::other);
  for (const char* name :
       {"", "Ethernet1", "Ethernet0", "Vlan4094", "Vlan5000", "Port-Channel2", "Loopback0", "Management1"}) {
    EXPECT_STREQ(IntfId(Vane::String(name)).stringValue().charPtr(), name);
  }
  for (const char* wrong : {"Ethernet", "Ethernet01", "ethernet1", "Vlan 10", "Vlan010", "Vlan10x", "Vlan-1",
                            "Vlan16777216", "Vlan99999999999", "Eth1", "1"}) {
    EXPECT_EQ(test::thrownBy([&] { IntfId intf{Vane::String(wrong)}; }),
              std::string("RangeException: IntfId '") + wrong + "' is not the name of an interface");
  }
  EXPECT_NE(test::thrownBy([] { IntfId(IntfId::ethernet, 0x1000000); }), "nothing");
  const IntfId vlan(IntfId::vlan, 10);
  EXPECT_EQ(streamed(vlan), "Vlan10");
  EXPECT_TRUE(IntfId::fromCode(vlan.code()) == vlan);
  EXPECT_TRUE(Ovnet::VlanIntfId::isVlanIntfId(vlan));
  EXPECT_FALSE(Ovnet::EthIntfId::isEthIntfId(vlan));
  EXPECT_TRUE(Ovnet::PortChannelIntfId::isPortChannelIntfId(IntfId(IntfId::portChannel, 1)));
  EXPECT_TRUE(Ovnet::VlanIntfId::vlanId(vlan) == VlanId(10));
  EXPECT_TRUE(Ovnet::VlanIntfId::intfId(VlanId(10)) == vlan);
  for (const uint32_t number : {0u, 4095u, 65537u}) {
    EXPECT_EQ(test::thrownBy([&] { Ovnet::VlanIntfId::vlanId(IntfId(IntfId::vlan, number)); }),
              "RangeException: VlanId::value < 1 or > 4094 not allowed");
  }
}

TEST(LibValues, Addresses) {
  const auto six = [](std::array<uint8_t, 16> bytes) {
    return std::string(Ovnet::Ip6Addr(bytes).stringValue().view());
  };
  // RFC 5952, section 4: the longest run, the first of equals, never a single group.
  EXPECT_EQ(six({}), "::");
  EXPECT_EQ(six({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), "::1");
  EXPECT_EQ(six({0x20, 1, 0xd, 0xb8}), "2001:db8::");
  EXPECT_EQ(six({0x20, 1, 0xd, 0xb8, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1}), "2001:db8:0:1:1:1:1:1");
  EXPECT_EQ(six({0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1}), "2001:db8::1:0:0:1");
  EXPECT_EQ(six({0x20, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1}), "2001:0:0:1::1");
  EXPECT_EQ(
      six({0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}),
      "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
  EXPECT_EQ(six({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff, 0xff}), "::ff:ffff:ffff");
  const Ovnet::MacAddr mac({0, 1, 2, 3, 4, 5});
  EXPECT_TRUE(Ovnet::MacAddr().isZero() && !mac.isZero());
  EXPECT_TRUE(Ovnet::MacAddr() < mac);
  EXPECT_NE(mac.hash(), Ovnet::MacAddr().hash());
  EXPECT_EQ(Ovnet::MacAddr({0, 1, 2, 3, 4, 5}).hash(), mac.hash());
}

} // namespace
