#include "agent/config/ConfigReader.h"
#include "sim/ChipFile.h"
#include "test/Random.h"
#include "tool/ChipAudit.h"

#include <gtest/gtest.h>

#include <string>

// Damage to a chip is found and named: every single bit of what is in force, and rows and entries that come
// and go.

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr unsigned bitStride = 37; // the sanitizers look at the code, the other builds at every bit
#else
constexpr unsigned bitStride = 1;
#endif

using sim::TcamRow;
using sim::TcamTable;

constexpr const char* smallSwitch = R"(hardware tcam ingressV4 8
hardware tcam ingressV6 8
hardware tcam egressV4 8
hardware tcam egressV6 8
hardware tcam ingressMac 8
ip access-list extended WEB
 10 permit tcp any host 10.0.0.2 eq 80 log
 20 deny udp any any
ip access-list extended OUT
 10 permit icmp any any echo
ipv6 access-list SIX
 permit tcp any any established
mac access-list MAC
 permit any any
interface Ethernet1
 switchport access vlan 10
 ip access-group WEB in
 mac access-group MAC in
interface Ethernet2
 switchport trunk allowed vlan 10,20
 ip access-group OUT out
interface Vlan10
 ip access-group WEB in
 ipv6 traffic-filter SIX out
)";

tool::Session session() {
  const agent::Config config = agent::readConfigText(smallSwitch, "small.conf");
  EXPECT_TRUE(config.diagnostics.empty()) << config.diagnostics.front().text();
  return tool::Session(config, tool::CommonOptions());
}

std::string text(tool::Session& session) {
  std::string text;
  for (const tool::AuditFinding& finding : tool::auditChips(session)) {
    text += std::string(damageText(finding.damage)) + ": chip " + std::to_string(finding.chip) + " " +
            finding.place + ": " + finding.detail + ": " + finding.line + "\n";
  }
  return text;
}

sim::Device& chip(tool::Session& session) {
  return *session.system().device(0);
}

TEST(ChipAudit, FindsNothingWhereNothingIs) {
  tool::Session box = session();
  EXPECT_EQ(text(box), "");
  // Looking changes nothing.
  EXPECT_EQ(text(box), "");
  EXPECT_EQ(box.agent().audit(), std::vector<std::string>());
}

TEST(ChipAudit, NamesWhatIsWrong) {
  tool::Session box = session();
  TcamTable& v4 = *chip(box).tcam(XpXdk::TACL_V4_IACL);
  const TcamRow row0 = v4.row(0);
  v4.validIs(0, false);
  EXPECT_EQ(text(box), "missing: chip 0 ingressV4 row 0: recorded 0 valid aclId=0001/0100 flags=00/fe "
                       "dstL4=0050/0000 proto=06/00 dst=0a000002/00000000 data log=1 count=1 result=1 "
                       "cntr=1: small.conf:7:5: WEB: permit tcp any host 10.0.0.2 eq 80 log\n");
  v4.validIs(0, true);
  TcamRow changed = row0;
  changed.mask[2] ^= 1;
  v4.keyMaskIs(0, changed.value, changed.mask);
  EXPECT_EQ(text(box),
            "wrong key: chip 0 ingressV4 row 0: recorded 0 valid aclId=0001/0100 flags=00/fe dstL4=0050/0000 "
            "proto=06/00 dst=0a000002/00000000 data log=1 count=1 result=1 cntr=1, found 0 valid "
            "aclId=0001/0100 dstL4=0050/0000 proto=06/00 dst=0a000002/00000000 data log=1 count=1 result=1 "
            "cntr=1: small.conf:7:5: WEB: permit tcp any host 10.0.0.2 eq 80 log\n");
  v4.keyMaskIs(0, row0.value, row0.mask);
  const uint32_t data = v4.data(0, 0);
  v4.dataIs(0, 0, 0);
  EXPECT_EQ(text(box),
            "wrong action: chip 0 ingressV4 row 0: recorded 0 valid aclId=0001/0100 flags=00/fe "
            "dstL4=0050/0000 proto=06/00 dst=0a000002/00000000 data log=1 count=1 result=1 cntr=1, found 0 "
            "valid aclId=0001/0100 flags=00/fe dstL4=0050/0000 proto=06/00 dst=0a000002/00000000 data log=0 "
            "count=0 result=0 cntr=0: small.conf:7:5: WEB: permit tcp any host 10.0.0.2 eq 80 log\n");
  v4.dataIs(0, 0, data);
  // A copy of a row on a free one: its id is in use. The same with an id that nobody has.
  v4.keyMaskIs(6, row0.value, row0.mask);
  v4.validIs(6, true);
  EXPECT_EQ(
      text(box),
      "orphan: chip 0 ingressV4 row 6: found 6 valid aclId=0001/0100 flags=00/fe dstL4=0050/0000 proto=06/00 "
      "dst=0a000002/00000000 data log=0 count=0 result=0 cntr=0: no line: the row is free\n");
  TcamRow old = row0;
  old.value = v4.row(0).value;
  for (unsigned byte = 0; byte < v4.keyLength(); ++byte) {
    if (old.mask[byte] == 0 && old.value[byte] == 1) {
      old.value[byte] = 77; // the ACL id
      break;
    }
  }
  v4.keyMaskIs(6, old.value, old.mask);
  EXPECT_EQ(
      text(box),
      "stale: chip 0 ingressV4 row 6: found 6 valid aclId=004d/0100 flags=00/fe dstL4=0050/0000 proto=06/00 "
      "dst=0a000002/00000000 data log=0 count=0 result=0 cntr=0: no line: the row is free\n");
  v4.validIs(6, false);
  v4.validIs(7, false);
  EXPECT_EQ(text(box), "missing: chip 0 ingressV4 row 7: recorded 7 valid aclId=0000/0000 data log=0 count=0 "
                       "result=0 cntr=0: the default entry, which drops for blocked interfaces\n");
  v4.validIs(7, true);
  chip(box).portConfig()[1].macAclEn = 0;
  chip(box).portConfig()[5].portAclId = 1;
  EXPECT_EQ(text(box), "wrong port entry: chip 0 port entry 1: recorded PAclId=1 aclEnBits=1 macAclEn=1, "
                       "found PAclId=1 aclEnBits=1 macAclEn=0: Ethernet1 WEB MAC\n"
                       "wrong port entry: chip 0 port entry 5: recorded PAclId=0 aclEnBits=0 macAclEn=0, "
                       "found PAclId=1 aclEnBits=0 macAclEn=0: port 5\n");
  chip(box).portConfig()[1].macAclEn = 1;
  chip(box).portConfig()[5].portAclId = 0;
  ASSERT_EQ(chip(box).portVlan().remove(0), 0u);
  EXPECT_EQ(
      text(box),
      "missing: chip 0 port-VLAN index 0: recorded vlan=10 ivif=1 routeAclId=1 routeAclEn=1: Vlan10 WEB\n");
  XpXdk::xpEgressBdEvifEntry entry = *chip(box).egress().entry(0);
  entry.eRaclId = 9;
  ASSERT_EQ(chip(box).egress().write(0, entry), 0u);
  EXPECT_EQ(
      text(box),
      "missing: chip 0 port-VLAN index 0: recorded vlan=10 ivif=1 routeAclId=1 routeAclEn=1: Vlan10 WEB\n"
      "wrong port entry: chip 0 egress index 0: recorded bd=10 evif=1 ePaclId=0 v4En=0 v6En=0 eRaclId=1 "
      "v4En=0 v6En=1, found bd=10 evif=1 ePaclId=0 v4En=0 v6En=0 eRaclId=9 v4En=0 v6En=1: Ethernet1, Vlan10 "
      "SIX\n");
}

template <typename Flip>
void expectFound(tool::Session& box, const std::string& what, const Flip& flip) {
  flip();
  ASSERT_FALSE(tool::auditChips(box).empty()) << what;
  flip();
}

TEST(ChipAudit, FindsEverySingleBit) {
  tool::Session box = session();
  sim::Device& device = chip(box);
  unsigned flips = 0;
  for (const XpXdk::IaclTableInfo& info : XpXdk::iaclTables) {
    TcamTable& table = *device.tcam(info.table);
    for (uint32_t row = 0; row < table.numRows(); ++row) {
      const std::string name = std::string(info.name) + " row " + std::to_string(row);
      ASSERT_NO_FATAL_FAILURE(
          expectFound(box, name + " valid", [&] { table.validIs(row, !table.valid(row)); }));
      ++flips;
      if (!table.valid(row)) {
        continue;
      }
      for (unsigned bit = 0; bit < table.keyLength() * 8; bit += bitStride) {
        for (const bool mask : {false, true}) {
          ASSERT_NO_FATAL_FAILURE(expectFound(box, name + " bit " + std::to_string(bit), [&] {
            TcamRow content = table.row(row);
            (mask ? content.mask : content.value)[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
            table.keyMaskIs(row, content.value, content.mask);
          }));
          ++flips;
        }
      }
      for (unsigned bit = 0; bit < 32; bit += bitStride) {
        ASSERT_NO_FATAL_FAILURE(expectFound(box, name + " data bit " + std::to_string(bit),
                                            [&] { table.dataIs(row, 0, table.data(row, 0) ^ 1u << bit); }));
        ++flips;
      }
    }
  }
  std::cout << flips << " bits of rows\n";
}

// Through the file: every bit of every entry of the port tables, where they stand in the image.
TEST(ChipAudit, FindsEveryBitOfThePortTables) {
  tool::Session box = session();
  const std::string image = sim::chipImage(box.system());
  const sim::DeviceConfig& config = chip(box).config();
  std::size_t ports = 8 + 4 + 2 + 3 * 4 + 5 * 4;
  for (const XpXdk::IaclTableInfo& info : XpXdk::iaclTables) {
    const TcamTable& table = *chip(box).tcam(info.table);
    ports += table.numRows() * (1 + 2 * table.keyLength() + 4 * table.numCopies());
  }
  const std::size_t vlans = ports + 3 * config.numPorts + 4;
  const std::size_t vlanEntries = 10 * chip(box).portVlan().used();
  const std::size_t egress = vlans + vlanEntries + 4;
  const std::size_t egressEntries = 14 * chip(box).egress().used();
  unsigned flips = 0;
  for (const auto& [from, count] :
       {std::pair(ports, std::size_t{9}), std::pair(vlans, vlanEntries), std::pair(egress, egressEntries)}) {
    for (std::size_t bit = 8 * from; bit < 8 * (from + count); bit += bitStride) {
      std::string damaged = image;
      damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
      try {
        sim::chipImageIs(box.system(), damaged);
      } catch (const sim::ChipFileError&) {
        continue; // an index behind the end is no damage of an entry
      }
      ++flips;
      ASSERT_FALSE(tool::auditChips(box).empty()) << "byte " << bit / 8 << " bit " << bit % 8;
    }
  }
  sim::chipImageIs(box.system(), image);
  EXPECT_EQ(text(box), "");
  std::cout << flips << " bits of entries\n";
}

TEST(ChipFile, ComesBackAsItWas) {
  tool::Session box = session();
  chip(box).counterIs(XpXdk::acmClientIngressAcl, 7, 1234567890123);
  const std::string image = sim::chipImage(box.system());
  const std::string tables = chip(box).tablesText();
  tool::Session other = session();
  chip(other).tcam(XpXdk::TACL_V4_IACL)->validIs(0, false);
  chip(other).portConfig()[1] = {};
  sim::chipImageIs(other.system(), image);
  EXPECT_EQ(chip(other).tablesText(), tables);
  EXPECT_EQ(chip(other).counter(XpXdk::acmClientIngressAcl, 7), 1234567890123u);
  EXPECT_EQ(chip(other).audit(), std::vector<std::string>());
  EXPECT_EQ(sim::chipImage(other.system()), image);
  // The restored tables go on working: entries leave and join.
  EXPECT_TRUE(other.agent().apply(agent::readConfigText("hardware tcam ingressV4 8\n", "c")).ok);
}

std::string errorOf(const std::string& image) {
  tool::Session box = session();
  const std::string before = sim::chipImage(box.system());
  try {
    sim::chipImageIs(box.system(), image);
  } catch (const sim::ChipFileError& error) {
    EXPECT_EQ(sim::chipImage(box.system()), before) << "a refused image changed the chip";
    return error.what();
  }
  return "";
}

TEST(ChipFile, RefusesWhatIsNone) {
  tool::Session box = session();
  const std::string image = sim::chipImage(box.system());
  std::string wrongSize = image;
  wrongSize[14] = 5;
  EXPECT_EQ(errorOf(""), "byte 0: the file ends where the file's mark should stand");
  EXPECT_EQ(errorOf("XPCHIPS2" + image.substr(8)),
            "byte 0: this is no chip file, it does not begin with XPCHIPS1");
  EXPECT_EQ(errorOf(image.substr(0, 100)), "byte 86: the file ends where a row's key should stand");
  EXPECT_EQ(errorOf(wrongSize), "byte 18: ports 5, but the switch has 128");
  EXPECT_EQ(errorOf(image + "x"),
            "byte " + std::to_string(image.size()) + ": the file goes on where it should end");
}

} // namespace
