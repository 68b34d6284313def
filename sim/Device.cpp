#include "sim/Device.h"

#include <algorithm>
#include <utility>

#include "Vane/Assert.h"

namespace sim {

using namespace XpXdk;

namespace {

// Position of a table in XpXdk::iaclTables, or its size for a number that is no table.
std::size_t tableIndex(xpIaclType_e table) {
  const auto it = std::find_if(iaclTables.begin(), iaclTables.end(),
                               [table](const IaclTableInfo& info) { return info.table == table; });
  return static_cast<std::size_t>(it - iaclTables.begin());
}

xpAcmClient_e clientOf(xpIaclType_e table) {
  return table == TACL_V4_EACL || table == TACL_V6_EACL ? acmClientEgressAcl : acmClientIngressAcl;
}

PortAttachment openAttachment() {
  PortAttachment attachment;
  attachment.carriesIs(1, 4094, true);
  return attachment;
}

} // namespace

uint32_t& DeviceConfig::rows(xpIaclType_e table) {
  const std::size_t index = tableIndex(table);
  VANE_ASSERT(index < tcamRows.size());
  return tcamRows[index];
}

void PortAttachment::carriesIs(uint16_t low, uint16_t high, bool carries) {
  for (unsigned vlan = std::max<unsigned>(low, 1); vlan <= high && vlan < carried_.size(); ++vlan) {
    carried_[vlan] = carries;
  }
}

uint16_t PortAttachment::vif(uint16_t vlan) const {
  return vlan < vifs_.size() ? vifs_[vlan] : noVif;
}

void PortAttachment::vifIs(uint16_t low, uint16_t high, uint16_t vif) {
  if (vifs_.empty()) {
    vifs_.assign(carried_.size(), noVif);
  }
  for (unsigned vlan = std::max<unsigned>(low, 1); vlan <= high && vlan < vifs_.size(); ++vlan) {
    vifs_[vlan] = vif;
  }
}

Device::Device(uint8_t number, const DeviceConfig& config)
    : number_(number), config_(config), profile_{config.numTableCopies}, portConfig_(config.numPorts),
      portVlan_(config.portVlanCapacity), egress_(config.egressCapacity) {
  VANE_ASSERT(config.numTableCopies >= 1);
  tcams_.reserve(iaclTables.size());
  for (std::size_t i = 0; i < iaclTables.size(); ++i) {
    tcams_.emplace_back(config.tcamRows[i], iaclKeyLayout(iaclTables[i].keyType)->length,
                        config.numTableCopies);
  }
}

TcamTable* Device::tcam(xpIaclType_e table) {
  const std::size_t index = tableIndex(table);
  return index < tcams_.size() ? &tcams_[index] : nullptr;
}

const TcamTable* Device::tcam(xpIaclType_e table) const {
  const std::size_t index = tableIndex(table);
  return index < tcams_.size() ? &tcams_[index] : nullptr;
}

void Device::tablesSwap(Device& other) {
  std::swap(tcams_, other.tcams_);
  std::swap(portConfig_, other.portConfig_);
  std::swap(portVlan_, other.portVlan_);
  std::swap(egress_, other.egress_);
  std::swap(counters_, other.counters_);
}

const PortAttachment& Device::attachment(uint32_t port) const {
  static const PortAttachment open = openAttachment();
  const auto it = attachments_.find(port);
  return it == attachments_.end() ? open : it->second;
}

void Device::attachmentIs(uint32_t port, PortAttachment attachment) {
  attachments_.insert_or_assign(port, std::move(attachment));
}

void Device::attachmentDel(uint32_t port) {
  attachments_.erase(port);
}

uint64_t Device::counter(xpAcmClient_e client, uint32_t index) const {
  if ((client != acmClientIngressAcl && client != acmClientEgressAcl) || index >= numCounters) {
    return 0;
  }
  const std::vector<uint64_t>& block = counters_[client == acmClientIngressAcl ? 0 : 1];
  return block.empty() ? 0 : block[index];
}

const std::vector<uint64_t>& Device::counterBlock(xpAcmClient_e client) const {
  VANE_ASSERT(client == acmClientIngressAcl || client == acmClientEgressAcl);
  return counters_[client == acmClientIngressAcl ? 0 : 1];
}

inline std::vector<uint64_t>& Device::counters(xpAcmClient_e client) {
  std::vector<uint64_t>& block = counters_[client == acmClientIngressAcl ? 0 : 1];
  if (block.empty()) {
    block.resize(numCounters);
  }
  return block;
}

void Device::counterIs(xpAcmClient_e client, uint32_t index, uint64_t count) {
  VANE_ASSERT(client == acmClientIngressAcl || client == acmClientEgressAcl);
  VANE_ASSERT(index < numCounters);
  counters(client)[index] = count;
}

LookupResult Device::lookup(xpIaclType_e table, const packet::Packet& packet, uint8_t aclId, Role role,
                            uint16_t vlan, uint32_t ingressPort, bool count) {
  LookupResult result = lookup(table, buildKey(table, packet, aclId, role, vlan), ingressPort, count);
  result.role = role;
  result.aclId = aclId;
  return result;
}

// The rest of a lookup whose search found `row`, or noRow.
inline void Device::found(const TcamTable& tcam, xpIaclType_e table, uint32_t row, const Asked& asked) {
  LookupResult& result = *asked.result;
  result.table = table;
  result.row = row;
  if (row == TcamTable::noRow) {
    return;
  }
  result.data = xpIaclData_t::fromWord(tcam.data(row, asked.ingressPort % tcam.numCopies()));
  result.forward = result.data.result() == 1;
  if (asked.count && result.data.countEn()) {
    ++counters(clientOf(table))[result.data.cntrIdx()];
    result.counted = true;
  }
}

LookupResult Device::lookup(xpIaclType_e table, const TcamKeyBytes& key, uint32_t ingressPort, bool count) {
  const TcamTable* tcam = this->tcam(table);
  VANE_ASSERT(tcam);
  LookupResult result;
  found(*tcam, table, tcam->lookup(key), {&result, ingressPort, count});
  return result;
}

void Device::lookup(xpIaclType_e table, std::span<const TcamKeyBytes> keys, std::span<uint32_t> rows,
                    std::span<const Asked> asked) {
  const TcamTable* tcam = this->tcam(table);
  VANE_ASSERT(tcam && asked.size() == keys.size());
  tcam->lookup(keys, rows);
  for (std::size_t i = 0; i < asked.size(); ++i) {
    found(*tcam, table, rows[i], asked[i]);
  }
}

std::vector<std::string> Device::audit() const {
  std::vector<std::string> broken;
  const auto check = [&](const std::string& table, const char* finding) {
    if (finding) {
      broken.push_back("device " + std::to_string(number_) + " " + table + ": " + finding);
    }
  };
  for (std::size_t i = 0; i < tcams_.size(); ++i) {
    check(iaclTables[i].name, tcams_[i].audit());
  }
  check("port-VLAN table", portVlan_.audit());
  check("egress table", egress_.audit());
  return broken;
}

} // namespace sim
