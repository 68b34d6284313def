#include "XpAclTcam/XpAclHwAclIdSm.h"

#include "XpAclTcam/XpAclHwAclIdUnit.h"

#include <cstdio>
#include <string>

// Dumps of the three tables that carry ACL ids: what the chip holds, read back entry by entry.

namespace XpAcl {

namespace {

// One table's dump: header and footer lines, what makes an entry relevant, and its row.
template <typename Entry>
struct VifTableDump {
  const char* header;
  const char* footer;
  unsigned line; // of the assertion "numEntries"
  bool (*relevant)(const Entry&);
  void (*row)(int fd, Vane::U32 index, const Entry&);
};

const VifTableDump<XpXdk::xpPortVlanIvifEntry> portVlanDump{
    "|-------|-----|-----|-----|-----|\n"
    "|hw     |Route|Route|key  |key  |\n"
    "|Index  |ACLEn|AclId|Ivif |Vlan |\n"
    "|-------|-----|-----|-----|-----|\n",
    "|-------------------------------|\n", 569,
    [](const XpXdk::xpPortVlanIvifEntry& entry) { return entry.routeAclId != 0 || entry.routeAclEn != 0; },
    [](int fd, Vane::U32 index, const XpXdk::xpPortVlanIvifEntry& entry) {
      dprintf(fd, "|%7d|%5d|%5d|%5d|%5d|\n", static_cast<int>(index), entry.routeAclEn, entry.routeAclId,
              entry.keyIvif, entry.keyVlan);
    }};

// The IPv6 column shows the enable bit where it stands: 2.
const VifTableDump<XpXdk::xpPortConfigEntry> portConfigDump{
    "|----------------------------------------|\n"
    "| hwIndex | PAclId | v4En | v6En | macEn |\n"
    "|--------------------------------|-------|\n",
    "|----------------------------------------------|\n", 599,
    [](const XpXdk::xpPortConfigEntry& entry) { return entry.portAclId != 0 || entry.aclEnBits != 0; },
    [](int fd, Vane::U32 index, const XpXdk::xpPortConfigEntry& entry) {
      dprintf(fd, "|%9d|%8d|%6d|%6d|%6d|\n", static_cast<int>(index), entry.portAclId, entry.aclEnBits & 1,
              entry.aclEnBits & 2, entry.macAclEn);
    }};

const VifTableDump<XpXdk::xpEgressBdEvifEntry> egressDump{
    "|--------|-----------|-------|-----------|-----------|-------|-----------|-----------|-------|\n"
    "|key     | key       |       |           |           |       |           |           |hw     |\n"
    "|egressBd| egressVif |ePaclId|ePaclIpV4En|ePaclIpV6En|eRaclId|eRaclIpV4En|eRaclIpV6En|Index  |\n"
    "|--------|-----------|-------|-----------|-----------|-------|-----------|-----------|-------|\n",
    "|--------------------------------------------------------------------------------------------|\n", 630,
    [](const XpXdk::xpEgressBdEvifEntry& entry) { return entry.egressBd != 0 || entry.egressVif != 0; },
    [](int fd, Vane::U32 index, const XpXdk::xpEgressBdEvifEntry& entry) {
      dprintf(fd, "|%8u|%11u|%7u|%11u|%11u|%7u|%11u|%11u|%7u|\n", entry.egressBd, entry.egressVif,
              entry.ePaclId, entry.ePaclIpV4En != 0 ? 1u : 0u, entry.ePaclIpV6En != 0 ? 1u : 0u,
              entry.eRaclId, entry.eRaclIpV4En != 0 ? 1u : 0u, entry.eRaclIpV6En != 0 ? 1u : 0u, index);
    }};

template <typename Manager, typename Entry>
void dumpTable(Vane::U32 fd, XpXdk::XpDeviceId device, Manager& manager, const VifTableDump<Entry>& dump,
               const char* signature) {
  const int out = static_cast<int>(fd);
  Vane::U32 numEntries = 0;
  manager.getNumOfEntry(device.value(), numEntries);
  VANE_ASSERT_AT(numEntries != 0, "numEntries", "XpAclHwAclIdSm", dump.line, signature);
  dprintf(out, "%s", dump.header);
  Entry entry;
  unsigned relevant = 0;
  for (Vane::U32 index = 0; index < numEntries; ++index) {
    if (manager.readEntry(device.value(), index, &entry, 0) == XpXdk::statusOk && dump.relevant(entry)) {
      dump.row(out, index, entry);
      ++relevant;
    }
  }
  dprintf(out, "%s", dump.footer);
  dprintf(out, "Number of acl-relevent entries in range of 0 to %d : %d\n", static_cast<int>(numEntries),
          static_cast<int>(relevant));
}

} // namespace

void ChipHwAclIdSm::doShowPortVlanIvifTblEntries(Vane::U32 fd, XpXdk::XpDeviceId device) {
  dumpTable(fd, device, *portVlanIvifMgr(), portVlanDump, __PRETTY_FUNCTION__);
}

void ChipHwAclIdSm::doShowPortCfgTblEntries(Vane::U32 fd, XpXdk::XpDeviceId device) {
  dumpTable(fd, device, *portCfgMgr(), portConfigDump, __PRETTY_FUNCTION__);
}

void ChipHwAclIdSm::doShowEgressBdEvifTblEntries(Vane::U32 fd, XpXdk::XpDeviceId device) {
  dumpTable(fd, device, *egressBdEvifMgr(), egressDump, __PRETTY_FUNCTION__);
}

} // namespace XpAcl
