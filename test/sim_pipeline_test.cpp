#include "sim/Pipeline.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "packet/PacketText.h"
#include "sim/System.h"

// Packets judged by chip tables that are filled by hand. Verdicts are compared as whole texts.

namespace {

using namespace XpXdk;
using sim::Fate;
using sim::PortRef;

class PipelineTest : public testing::Test {
protected:
  PipelineTest() : system(config()), chip(*system.device(0)) {}

  static sim::DeviceConfig config() {
    sim::DeviceConfig config;
    config.tcamRows = {64, 64, 64, 64, 64};
    config.numTableCopies = 2;
    config.numPorts = 8;
    return config;
  }
  // A valid row that matches `aclId` and `role` (MAC: `aclId` alone) and nothing else.
  void rowIs(sim::Device& device, xpIaclType_e table, uint32_t row, uint8_t aclId, unsigned role, bool permit,
             uint16_t counter) {
    sim::TcamRow content;
    const unsigned aclIdAt = table == TACL_MAC_ACL ? 2 : 0;
    content.value[aclIdAt] = aclId;
    content.mask[aclIdAt] = content.mask[aclIdAt + 1] = 0;
    if (table != TACL_MAC_ACL) {
      content.value[2] = static_cast<uint8_t>(role);
      content.mask[2] = 0xFE;
    }
    xpIaclData_t data;
    data.countEnIs(true);
    data.resultIs(permit ? 1 : 0);
    data.cntrIdxIs(counter);
    device.tcam(table)->keyMaskIs(row, content.value, content.mask);
    for (unsigned copy = 0; copy < 2; ++copy) {
      device.tcam(table)->dataIs(row, copy, data.word());
    }
    device.tcam(table)->validIs(row, true);
  }
  void portVlanIs(uint16_t vlan, uint16_t vif, uint8_t aclId, uint8_t enable) {
    uint32_t index = 0;
    ASSERT_EQ(chip.portVlan().add({vlan, vif, aclId, enable}, index), statusOk);
  }
  std::string judge(const std::string& packet, uint32_t port, std::optional<PortRef> out = {},
                    bool count = true) {
    sim::Ingress ingress;
    ingress.in.port = port;
    ingress.out = out;
    ingress.count = false;
    sim::Verdict inBurst;
    sim::Burst burst(system);
    burst.add(packet::fromText(packet), ingress, inBurst);
    burst.finish();
    ingress.count = count;
    const std::string text = sim::verdictText(sim::judge(system, packet::fromText(packet), ingress));
    EXPECT_EQ(sim::verdictText(inBurst), text);
    return text;
  }
  uint64_t counted(uint32_t index, xpAcmClient_e client = acmClientIngressAcl) {
    return chip.counter(client, index);
  }

  sim::System system;
  sim::Device& chip;
  const std::string tcp = "tcp 10.1.2.3:1 > 10.9.8.7:2";
  const std::string v6 = "udp [::1]:1 > [::2]:2";
  const std::string arp = "frame ethertype 0x0806";
};

TEST_F(PipelineTest, WithoutAnEnabledLookupTheFrameIsPermitted) {
  EXPECT_EQ(judge(tcp, 1), "permit");
  EXPECT_EQ(judge(arp, 1), "permit");
  chip.portConfig()[1] = {5, 2, 0}; // IPv6 only
  EXPECT_EQ(judge(tcp, 1), "permit");
  EXPECT_EQ(judge(arp, 1), "permit");
}

TEST_F(PipelineTest, NothingFailsOpen) {
  chip.portConfig()[1] = {5, 3, 1};
  EXPECT_EQ(judge(tcp, 1), "deny: TACL_V4_IACL port id 5 no row deny; TACL_MAC_ACL port id 5 no row deny");
  // Results 2 and 3 drop too, and an all-zero data word drops without counting.
  for (const unsigned result : {0u, 2u, 3u}) {
    xpIaclData_t data;
    data.resultIs(result);
    chip.tcam(TACL_V4_IACL)->dataIs(3, 1, data.word());
    chip.tcam(TACL_V4_IACL)->validIs(3, true);
    EXPECT_EQ(judge(tcp, 1), "deny: TACL_V4_IACL port id 5 row 3 deny; TACL_MAC_ACL port id 5 no row deny");
  }
  EXPECT_EQ(counted(0), 0u);
}

TEST_F(PipelineTest, PortLookupsFollowTheEnableBits) {
  chip.portConfig()[1] = {5, 3, 1};
  rowIs(chip, TACL_V4_IACL, 2, 5, 0, true, 21);
  rowIs(chip, TACL_V6_IACL, 3, 5, 0, true, 22);
  rowIs(chip, TACL_MAC_ACL, 4, 5, 0, true, 23);
  EXPECT_EQ(judge(tcp, 1),
            "permit: TACL_V4_IACL port id 5 row 2 permit; TACL_MAC_ACL port id 5 row 4 permit");
  EXPECT_EQ(judge(v6, 1), "permit: TACL_V6_IACL port id 5 row 3 permit; TACL_MAC_ACL port id 5 row 4 permit");
  EXPECT_EQ(judge(arp, 1), "permit: TACL_MAC_ACL port id 5 row 4 permit");
  EXPECT_EQ(counted(21), 1u);
  EXPECT_EQ(counted(22), 1u);
  EXPECT_EQ(counted(23), 3u);
}

TEST_F(PipelineTest, EveryHitRowCountsWhateverTheOthersSay) {
  chip.portConfig()[1] = {5, 1, 1};
  rowIs(chip, TACL_V4_IACL, 2, 5, 0, false, 21);
  rowIs(chip, TACL_MAC_ACL, 4, 5, 0, true, 23);
  sim::PortAttachment attachment;
  attachment.carriesIs(1, 4094, true);
  attachment.vifIs(1, 1, 9);
  chip.attachmentIs(1, attachment);
  portVlanIs(1, 9, 6, 1);
  rowIs(chip, TACL_V4_IACL, 7, 6, 1, true, 24);
  const std::string expected =
      "deny: TACL_V4_IACL port id 5 row 2 deny; TACL_MAC_ACL port id 5 row 4 permit; "
      "TACL_V4_IACL routed id 6 row 7 permit";
  EXPECT_EQ(judge(tcp, 1, {}, false), expected);
  EXPECT_EQ(counted(21) + counted(23) + counted(24), 0u);
  EXPECT_EQ(judge(tcp, 1), expected);
  EXPECT_EQ(counted(21), 1u);
  EXPECT_EQ(counted(23), 1u);
  EXPECT_EQ(counted(24), 1u);
}

TEST_F(PipelineTest, RoutedLookupsByVifAndVlan) {
  sim::PortAttachment attachment;
  attachment.accessVlanIs(10);
  attachment.carriesIs(10, 11, true);
  attachment.vifIs(10, 10, 7);
  attachment.vifIs(11, 11, 8);
  chip.attachmentIs(2, attachment);
  portVlanIs(10, 7, 3, 3);
  portVlanIs(11, 7, 4, 3);
  portVlanIs(11, 8, 5, 1);
  EXPECT_EQ(judge(tcp, 2), "deny: TACL_V4_IACL routed id 3 no row deny");
  EXPECT_EQ(judge(tcp + " vlan 11", 2), "deny: TACL_V4_IACL routed id 5 no row deny");
  EXPECT_EQ(judge(v6 + " vlan 11", 2), "permit"); // IPv6 is not enabled there
  EXPECT_EQ(judge(arp, 2), "permit");             // no IP packet, no routed lookup
  // A row of role 0 is not hit by a routed lookup.
  rowIs(chip, TACL_V4_IACL, 0, 3, 0, true, 1);
  rowIs(chip, TACL_V4_IACL, 1, 3, 1, true, 2);
  EXPECT_EQ(judge(tcp, 2), "permit: TACL_V4_IACL routed id 3 row 1 permit");
}

TEST_F(PipelineTest, VlanOfTheFrame) {
  sim::PortAttachment attachment;
  attachment.accessVlanIs(10);
  attachment.carriesIs(10, 10, true);
  attachment.carriesIs(20, 22, true);
  chip.attachmentIs(2, attachment);
  const auto vlanOf = [&](const std::string& packet, uint16_t defaultVlan, uint32_t port) {
    sim::Ingress ingress;
    ingress.in.port = port;
    ingress.defaultVlan = defaultVlan;
    const sim::Verdict verdict = sim::judge(system, packet::fromText(packet), ingress);
    return std::to_string(verdict.vlan) + " " + sim::fateText(verdict.fate);
  };
  EXPECT_EQ(vlanOf("frame", 5, 2), "10 permit");
  EXPECT_EQ(vlanOf("frame vlan 21", 5, 2), "21 permit");
  EXPECT_EQ(vlanOf("frame vlan 23", 5, 2), "23 dropped: the input port does not carry the VLAN");
  EXPECT_EQ(vlanOf("frame", 5, 3), "5 permit"); // a port without attachment
  EXPECT_EQ(vlanOf("frame vlan 4094", 5, 3), "4094 permit");
  attachment.accessVlanIs(0);
  chip.attachmentIs(2, attachment);
  EXPECT_EQ(vlanOf("frame", 5, 2), "5 dropped: the input port does not carry the VLAN");
  EXPECT_EQ(vlanOf("frame", 20, 2), "20 permit");
  chip.attachmentDel(2);
  EXPECT_EQ(vlanOf("frame", 5, 2), "5 permit");
}

// A frame that the port does not carry meets no lookup and counts nowhere.
TEST_F(PipelineTest, VlanThatIsNotCarriedMeetsNoLookup) {
  chip.attachmentIs(1, sim::PortAttachment());
  chip.portConfig()[1] = {5, 3, 1};
  EXPECT_EQ(judge(tcp, 1), "dropped: the input port does not carry the VLAN");
}

TEST_F(PipelineTest, EgressLookups) {
  sim::PortAttachment out;
  out.accessVlanIs(30);
  out.carriesIs(30, 30, true);
  out.vifIs(30, 30, 12);
  chip.attachmentIs(4, out);
  uint32_t index = 0;
  ASSERT_EQ(chip.egress().add({30, 12, 1, 1, 0, 2, 1, 1}, index), statusOk);
  EXPECT_EQ(judge(tcp, 1, PortRef{0, 4}),
            "deny: TACL_V4_EACL port id 1 no row deny; TACL_V4_EACL routed id 2 no row deny");
  EXPECT_EQ(judge(v6, 1, PortRef{0, 4}), "deny: TACL_V6_EACL routed id 2 no row deny");
  EXPECT_EQ(judge(arp, 1, PortRef{0, 4}), "permit");
  EXPECT_EQ(judge(tcp, 1), "permit");
  rowIs(chip, TACL_V4_EACL, 1, 1, 0, true, 41);
  rowIs(chip, TACL_V4_EACL, 2, 2, 1, true, 42);
  EXPECT_EQ(judge(tcp, 1, PortRef{0, 4}),
            "permit: TACL_V4_EACL port id 1 row 1 permit; TACL_V4_EACL routed id 2 row 2 permit");
  EXPECT_EQ(counted(41, acmClientEgressAcl), 1u);
  EXPECT_EQ(counted(42, acmClientEgressAcl), 1u);
  EXPECT_EQ(counted(41), 0u);
}

TEST_F(PipelineTest, OutputVlan) {
  sim::PortAttachment out;
  out.carriesIs(7, 7, true);
  chip.attachmentIs(4, out);
  EXPECT_EQ(judge("frame vlan 7", 1, PortRef{0, 4}), "permit");
  EXPECT_EQ(judge("frame vlan 8", 1, PortRef{0, 4}), "dropped: the output port does not carry the VLAN");
  // What the input side denied stays denied.
  chip.portConfig()[1] = {5, 1, 0};
  EXPECT_EQ(judge(tcp + " vlan 8", 1, PortRef{0, 4}), "deny: TACL_V4_IACL port id 5 no row deny");
}

// Data copies belong to ingress ports in turn, on the egress side too.
TEST_F(PipelineTest, DataCopyFollowsTheIngressPort) {
  for (const uint32_t port : {2u, 3u}) {
    chip.portConfig()[port] = {5, 1, 0};
  }
  rowIs(chip, TACL_V4_IACL, 2, 5, 0, true, 21);
  chip.tcam(TACL_V4_IACL)->dataIs(2, 1, 0);
  EXPECT_EQ(judge(tcp, 2), "permit: TACL_V4_IACL port id 5 row 2 permit");
  EXPECT_EQ(judge(tcp, 3), "deny: TACL_V4_IACL port id 5 row 2 deny");
  EXPECT_EQ(counted(21), 1u);
}

TEST_F(PipelineTest, SeveralChips) {
  sim::Device& second = system.deviceAdd(3, config());
  uint32_t index = 0;
  ASSERT_EQ(second.egress().add({1, sim::noVif, 9, 1, 0, 0, 0, 0}, index), statusOk);
  rowIs(second, TACL_V4_EACL, 6, 9, 0, true, 13);
  EXPECT_EQ(judge(tcp, 1, PortRef{3, 0}), "permit: TACL_V4_EACL port id 9 row 6 permit");
  EXPECT_EQ(second.counter(acmClientEgressAcl, 13), 1u);
  EXPECT_EQ(counted(13, acmClientEgressAcl), 0u);
  EXPECT_EQ(judge(tcp, 1, PortRef{2, 0}), "dropped: no such port");
  EXPECT_EQ(judge(tcp, 1, PortRef{3, 8}), "dropped: no such port");
  EXPECT_EQ(judge(tcp, 8), "dropped: no such port");
}

// Bursts of packets that enter and leave anywhere, dropped ones among them, against the same packets one by
// one.
TEST_F(PipelineTest, ABurstIsJudgedAndCountedAsItsPackets) {
  sim::Device& second = system.deviceAdd(3, config());
  chip.portConfig()[1] = {5, 3, 1};
  chip.portConfig()[2] = {6, 3, 0};
  rowIs(chip, TACL_V4_IACL, 2, 5, 0, true, 21);
  rowIs(chip, TACL_V6_IACL, 3, 6, 0, true, 22);
  rowIs(chip, TACL_MAC_ACL, 4, 5, 0, true, 23);
  sim::PortAttachment attachment;
  attachment.carriesIs(1, 1, true);
  chip.attachmentIs(2, attachment);
  second.attachmentIs(4, attachment);
  uint32_t index = 0;
  ASSERT_EQ(second.egress().add({1, sim::noVif, 9, 1, 0, 8, 0, 1}, index), statusOk);
  rowIs(second, TACL_V4_EACL, 6, 9, 0, true, 13);
  rowIs(second, TACL_V6_EACL, 7, 8, 1, true, 14);

  struct Sent {
    packet::Packet packet;
    sim::Ingress ingress;
  };
  std::vector<Sent> sent;
  for (const std::optional<PortRef>& out : {std::optional(PortRef{3, 4}), {}, std::optional(PortRef{3, 4})}) {
    for (const std::string& text : {tcp, v6, arp, tcp + " vlan 8"}) {
      for (const uint32_t port : {1u, 1u, 2u, 3u, 8u}) {
        sent.push_back({packet::fromText(text), {{0, port}, out, 1, port != 3}});
      }
    }
  }
  const auto counts = [&] {
    std::string text;
    for (const uint32_t counter : {13u, 14u, 21u, 22u, 23u}) {
      text += " " + std::to_string(counted(counter)) + "/" +
              std::to_string(second.counter(acmClientEgressAcl, counter));
    }
    return text;
  };
  sim::Burst burst(system);
  std::vector<sim::Verdict> verdicts(sent.size());
  const auto compare = [&] {
    std::string expected;
    for (const Sent& one : sent) {
      expected += sim::verdictText(sim::judge(system, one.packet, one.ingress)) + "\n";
    }
    for (std::size_t i = 0; i < sent.size(); ++i) {
      burst.add(sent[i].packet, sent[i].ingress, verdicts[i]);
    }
    burst.finish();
    std::string text;
    for (const sim::Verdict& verdict : verdicts) {
      text += sim::verdictText(verdict) + "\n";
    }
    EXPECT_EQ(text, expected);
  };
  compare();
  EXPECT_EQ(counts(), " 0/12 0/12 24/0 6/0 48/0");
  // What a burst has learned of ports and VLANs is not carried into the next one.
  chip.portConfig()[1] = {6, 2, 0};
  attachment.carriesIs(8, 8, true);
  chip.attachmentIs(2, attachment);
  ASSERT_EQ(second.egress().write(index, {1, sim::noVif, 8, 1, 0, 9, 1, 0}), statusOk);
  compare();
  EXPECT_EQ(counts(), " 0/12 0/12 24/0 24/0 48/0");
}

} // namespace
