#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "XpXdk/Managers.h"

#include "packet/Packet.h"
#include "sim/Key.h"
#include "sim/PortTables.h"
#include "sim/TcamTable.h"

// One simulated chip: its five TCAM tables, counter blocks, port, port-VLAN and egress tables, and the
// attachment of its ports to VLANs. What the SDK may do to it goes through sim::System; the members here
// are the chip's own view, for judging packets, for tests and for tools that look into the chip.

namespace sim {

constexpr uint16_t noVif = 65535;       // the number that says "no VIF"
constexpr uint32_t numCounters = 65536; // a block; counter indexes have 16 bits

struct DeviceConfig { // the sizes of a chip, fixed when it is made
  // Rows of each table, in the order of XpXdk::iaclTables: ingress IPv4, ingress IPv6, egress IPv4,
  // egress IPv6, MAC. 0 is a chip without that table.
  std::array<uint32_t, 5> tcamRows{4096, 4096, 4096, 4096, 4096};
  uint8_t numTableCopies = 1; // copies of the data word, at least 1
  uint32_t numPorts = 128;    // port-config entries; port numbers are below this
  uint32_t portVlanCapacity = 4096;
  uint32_t egressCapacity = 4096;

  // The row count of one table; an unknown table number asserts.
  uint32_t& rows(XpXdk::xpIaclType_e table);
};

// How one port is attached to VLANs. This is no ACL table: the agent of a real chip programs it through
// other parts of the SDK, so the simulation takes it directly.
class PortAttachment {
public:
  // The VLAN of untagged frames, 0: none (the caller's default VLAN is used).
  uint16_t accessVlan() const { return accessVlan_; }
  void accessVlanIs(uint16_t vlan) { accessVlan_ = vlan; }
  // Which VLANs (1..4094) the port carries; none until told. The access VLAN is not carried by itself.
  bool carries(uint16_t vlan) const { return vlan < carried_.size() && carried_[vlan]; }
  void carriesIs(uint16_t low, uint16_t high, bool carries);
  // The VIF of the port in each VLAN; noVif until told. Ports of one port-channel share theirs.
  uint16_t vif(uint16_t vlan) const;
  void vifIs(uint16_t low, uint16_t high, uint16_t vif);
  bool operator==(const PortAttachment&) const = default;

private:
  uint16_t accessVlan_ = 0;
  std::bitset<4095> carried_;  // index 0 is never set
  std::vector<uint16_t> vifs_; // by VLAN; empty until the first VIF
};

// What one TCAM lookup found.
struct LookupResult {
  XpXdk::xpIaclType_e table = XpXdk::TACL_V4_IACL;
  Role role = Role::port;
  uint8_t aclId = 0;
  uint32_t row = TcamTable::noRow; // noRow: nothing hit, which drops like an all-zero data word
  XpXdk::xpIaclData_t data;        // of the copy that the ingress port reads
  bool forward = false;            // the result bits are 1
  bool counted = false;            // the hit was counted at data.cntrIdx()
};

class Device : public XpXdk::xpDevice { // not for several threads at once
public:
  Device(uint8_t number, const DeviceConfig& config);

  uint8_t number() const { return number_; }
  const DeviceConfig& config() const { return config_; }
  const XpXdk::xpTableProfile* tableProfile() const override { return &profile_; }

  // Null for a number that is no table.
  TcamTable* tcam(XpXdk::xpIaclType_e table);
  const TcamTable* tcam(XpXdk::xpIaclType_e table) const;

  std::vector<XpXdk::xpPortConfigEntry>& portConfig() { return portConfig_; } // by port number
  const std::vector<XpXdk::xpPortConfigEntry>& portConfig() const { return portConfig_; }
  PortVlanTable& portVlan() { return portVlan_; }
  const PortVlanTable& portVlan() const { return portVlan_; }
  EgressTable& egress() { return egress_; }
  const EgressTable& egress() const { return egress_; }

  // The attachment of a port; a port that was never told about carries every VLAN and has no VIF.
  const PortAttachment& attachment(uint32_t port) const;
  void attachmentIs(uint32_t port, PortAttachment attachment);
  void attachmentDel(uint32_t port);

  // Counters of the ingress (39) and egress (40) client; other clients read 0.
  uint64_t counter(XpXdk::xpAcmClient_e client, uint32_t index) const;
  void counterIs(XpXdk::xpAcmClient_e client, uint32_t index, uint64_t count);
  // A whole block, by index; empty when nothing was ever counted in it.
  const std::vector<uint64_t>& counterBlock(XpXdk::xpAcmClient_e client) const;

  // Exchanges tables and counters with a chip of the same sizes; attachments stay.
  void tablesSwap(Device& other);

  // One TCAM lookup: forms the key, searches, reads the data word of copy `ingressPort` mod copies, and
  // counts the hit when `count` holds and the data word asks for it (ingress tables client 39, egress
  // tables client 40). `packet` is of the table's family, or any for the MAC table.
  LookupResult lookup(XpXdk::xpIaclType_e table, const packet::Packet& packet, uint8_t aclId, Role role,
                      uint16_t vlan, uint32_t ingressPort, bool count = true);
  // The same with a key already formed.
  LookupResult lookup(XpXdk::xpIaclType_e table, const TcamKeyBytes& key, uint32_t ingressPort,
                      bool count = true);
  // Many lookups in one table at once, with keys already formed. `rows` is room for as many row numbers.
  struct Asked {
    LookupResult* result; // a fresh one; role and ACL id are left as they are
    uint32_t ingressPort;
    bool count;
  };
  void lookup(XpXdk::xpIaclType_e table, std::span<const TcamKeyBytes> keys, std::span<uint32_t> rows,
              std::span<const Asked> asked);

  // What the chip's tables hold, as text: one line for each valid row and each entry that differs from
  // zero. Equal tables give equal texts.
  std::string tablesText() const;
  // The broken invariants of all tables; empty when all hold.
  std::vector<std::string> audit() const;

private:
  std::vector<uint64_t>& counters(XpXdk::xpAcmClient_e client);
  void found(const TcamTable& tcam, XpXdk::xpIaclType_e table, uint32_t row, const Asked& asked);

  uint8_t number_;
  DeviceConfig config_;
  XpXdk::xpTableProfile profile_;
  std::vector<TcamTable> tcams_; // in the order of XpXdk::iaclTables
  std::vector<XpXdk::xpPortConfigEntry> portConfig_;
  PortVlanTable portVlan_;
  EgressTable egress_;
  std::unordered_map<uint32_t, PortAttachment> attachments_;
  std::array<std::vector<uint64_t>, 2> counters_; // ingress, egress; empty until the first count
};

// One row as text: "5 valid aclId=0001/0000 flags=00/fe data log=0 count=1 result=1 cntr=11", the fields
// that are compared at all as hexadecimal value/ignore mask, most significant octet first.
std::string rowText(const Device& device, XpXdk::xpIaclType_e table, uint32_t row);
// The compared fields of a packed key.
std::string keyText(XpXdk::xpIaclType_e table, const TcamKeyBytes& value, const TcamKeyBytes& mask);
// One whole packed key without mask: "aclId=0001 flags=04 ...".
std::string keyText(XpXdk::xpIaclType_e table, const TcamKeyBytes& key);
// "log=0 count=1 result=1 cntr=11"
std::string dataText(const XpXdk::xpIaclData_t& data);
// "PAclId=1 aclEnBits=3 macAclEn=0", "vlan=10 ivif=5 routeAclId=1 routeAclEn=1",
// "bd=10 evif=5 ePaclId=1 v4En=1 v6En=0 eRaclId=0 v4En=0 v6En=0"
std::string entryText(const XpXdk::xpPortConfigEntry& entry);
std::string entryText(const XpXdk::xpPortVlanIvifEntry& entry);
std::string entryText(const XpXdk::xpEgressBdEvifEntry& entry);
// The name of a field of the table's key: "aclId", "flags", "dstL4", ...
const char* fieldName(XpXdk::xpIaclType_e table, uint8_t fieldId);
// "TACL_V4_IACL"; "table<N>" for a number that is no table.
std::string tableText(XpXdk::xpIaclType_e table);

} // namespace sim
