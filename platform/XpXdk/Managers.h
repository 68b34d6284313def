#pragma once

#include "XpXdk/IaclTypes.h"
#include "XpXdk/Status.h"

#include <cstdint>
#include <string>
#include <vector>

// The surface of the chip's development kit (SDK): pure interfaces and plain records. Whatever
// implements them, a real SDK adapter or the simulated chip, is installed with `install` on the
// three platform objects at the end of this file.
//
// Every call takes the device number first (0..63) and answers an XP_STATUS (XpXdk/Status.h).

namespace XpXdk {

// Base of all table managers.
class xpPrimitiveMgr {
public:
  virtual ~xpPrimitiveMgr() = default;
  // Number of entries of the manager's table on `device`; `count` stays as it was on error. Errors
  // also go to the SDK's own log.
  virtual XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) = 0;
};

// Manager of the five ACL TCAM tables. Rows count from 0; a write to a valid row takes effect at once.
class xpIaclMgr {
public:
  virtual ~xpIaclMgr() = default;
  // Writes key and ignore-mask of row `tcamIdx`. `flag` is passed as true by every caller.
  virtual XP_STATUS writeKeyMask(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint32_t flag,
                                 const xpIaclkeyFieldList* key) = 0;
  // Writes the data word of row `tcamIdx` in data table copy `tblNum`.
  virtual XP_STATUS writeData(uint8_t device, xpIaclType_e table, uint8_t tblNum, uint32_t tcamIdx,
                              const xpIaclData_t* data) = 0;
  virtual XP_STATUS setEntryValid(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint8_t valid) = 0;
  // Reads one row back: key fields all present, data of copy `tblNum`. A row never written is not
  // valid, ignores every field and has data zero.
  virtual XP_STATUS readEntry(uint8_t device, xpIaclType_e table, uint32_t tcamIdx, uint32_t& isValid,
                              xpIaclkeyFieldList* key, xpIaclData_t* data, uint8_t tblNum) = 0;
  virtual XP_STATUS getNumOfEntry(uint8_t device, xpIaclType_e table, uint32_t& count) = 0;
};

// Access control counters (ACM): one block of 64-bit counters per client. Client 39 counts for
// ingress ACLs, client 40 for egress ACLs. Counters run freely; reading does not clear them.
enum xpAcmClient_e : uint32_t { acmClientIngressAcl = 39, acmClientEgressAcl = 40 };
enum XP_ACM_CONFIG_MODE : uint32_t { acmConfigModeCounter = 1 }; // what a counter counts

class xpAcmMgr { // the packets that one counter has counted
public:
  virtual ~xpAcmMgr() = default;
  virtual XP_STATUS readCounter(uint8_t device, xpAcmClient_e client, uint32_t index, uint64_t& count) = 0;
};

// ---------------------------------------------------------------- port, port-VLAN, egress tables

// One entry per chip port: the ingress port ACL.
struct xpPortConfigEntry {
  uint8_t portAclId = 0; // "PAclId"
  uint8_t aclEnBits = 0; // 2 bits: bit 0 IPv4, bit 1 IPv6
  uint8_t macAclEn = 0;  // 1 bit
  bool operator==(const xpPortConfigEntry&) const = default;
};

class xpPortConfigMgr : public xpPrimitiveMgr { // port numbers count from 0
public:
  // Replaces the whole entry of port `portNumber`.
  virtual XP_STATUS writeEntry(uint8_t device, uint32_t portNumber, const xpPortConfigEntry* entry) = 0;
  virtual XP_STATUS readEntry(uint8_t device, uint32_t portNumber, xpPortConfigEntry* entry,
                              uint8_t copy) = 0;
};

// Keyed by (ingress VIF, VLAN): the ingress routed ACL.
struct xpPortVlanIvifEntry {
  uint16_t keyVlan = 0;
  uint16_t keyIvif = 0; // 65535 when the pair has no VIF
  uint8_t routeAclId = 0;
  uint8_t routeAclEn = 0; // 2 bits: bit 0 IPv4, bit 1 IPv6
  bool operator==(const xpPortVlanIvifEntry&) const = default;
};

class xpPortVlanIvifMgr : public xpPrimitiveMgr { // indexes are the chip's own
public:
  // Inserts the entry into table copy `copy` and appends the hardware indices it occupies.
  virtual XP_STATUS addEntry(uint8_t device, uint8_t copy, const xpPortVlanIvifEntry* entry,
                             std::vector<uint32_t>& indexList) = 0;
  virtual XP_STATUS writeEntry(uint8_t device, uint8_t copy, uint32_t index,
                               const xpPortVlanIvifEntry* entry) = 0;
  virtual XP_STATUS removeEntry(uint8_t device, uint32_t index) = 0;
  virtual XP_STATUS readEntry(uint8_t device, uint32_t index, xpPortVlanIvifEntry* entry, uint8_t copy) = 0;
};

// Keyed by (egress BD, egress VIF), where the BD is the VLAN: the egress port and routed ACLs.
struct xpEgressBdEvifEntry {
  uint16_t egressBd = 0;
  uint16_t egressVif = 0; // 65535 when the pair has no VIF
  uint8_t ePaclId = 0;
  uint8_t ePaclIpV4En = 0; // 1 bit each
  uint8_t ePaclIpV6En = 0;
  uint8_t eRaclId = 0;
  uint8_t eRaclIpV4En = 0;
  uint8_t eRaclIpV6En = 0;
  bool operator==(const xpEgressBdEvifEntry&) const = default;
};

class xpEgressBdEvifMgr : public xpPrimitiveMgr { // indexes are the chip's own; entries are written whole
public:
  virtual XP_STATUS addEntry(uint8_t device, const xpEgressBdEvifEntry* entry,
                             std::vector<uint32_t>& indexList) = 0; // as above
  virtual XP_STATUS writeEntry(uint8_t device, uint32_t index, const xpEgressBdEvifEntry* entry) = 0;
  // Finds the index of the entry with the key of `entry`; statusNotFound when there is none.
  virtual XP_STATUS lookup(uint8_t device, const xpEgressBdEvifEntry* entry, uint32_t& index) = 0;
  virtual XP_STATUS removeEntry(uint8_t device, uint32_t index) = 0;
  virtual XP_STATUS readEntry(uint8_t device, uint32_t index, xpEgressBdEvifEntry* entry, uint8_t copy) = 0;
};

// ------------------------------------------------------------------------------------- platform

// The table profile of one device.
struct xpTableProfile {
  uint8_t numTableCopies = 1; // copies of the ACL data (action) table
};

class xpDevice { // not owned by those who ask for it
public:
  virtual ~xpDevice() = default;
  virtual const xpTableProfile* tableProfile() const = 0; // null: none loaded
};

// The devices that the SDK knows. Null until installed.
class xpDeviceMgr {
public:
  virtual ~xpDeviceMgr() = default;
  virtual xpDevice* device(uint8_t deviceId) = 0; // null: no such device; valid numbers are 0..63

  static xpDeviceMgr* instance(); // null: none installed
  // Installs `mgr` (not owned; null uninstalls) and answers the one installed before.
  static xpDeviceMgr* install(xpDeviceMgr* mgr);
};

// A new number for a module that uses primitive managers; counts up from 1 in each process.
uint32_t getNewPlMgrId();

// The ACL primitive layer: hands out the ACL managers of the installed SDK.
class xpAclPl {
public:
  virtual ~xpAclPl() = default;
  virtual xpIaclMgr* iaclMgr(uint32_t plMgrId) = 0; // `plMgrId`: of getNewPlMgrId
  virtual xpAcmMgr* acmMgr() = 0;                   // null: every counter reads 0

  static xpAclPl* instance();           // null: none installed
  static xpAclPl* install(xpAclPl* pl); // as that of xpDeviceMgr
};

// The interface primitive layer: hands out the managers of the port, port-VLAN and egress tables.
class xpIfPl {
public:
  virtual ~xpIfPl() = default;
  virtual xpPortConfigMgr* portConfigMgr() = 0;     // not owned by the caller
  virtual xpPortVlanIvifMgr* portVlanIvifMgr() = 0; // not owned by the caller
  virtual xpEgressBdEvifMgr* egressBdEvifMgr() = 0; // not owned by the caller

  static xpIfPl* instance();          // null: none installed
  static xpIfPl* install(xpIfPl* pl); // as that of xpDeviceMgr
};

} // namespace XpXdk
