#pragma once

#include "XpXdk/Managers.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// A small stand-in for the part of the chip's SDK that serves ports and VLANs: three tables for each device,
// kept and refused as a chip does it, and every call written down as one line of text. Independent of the
// simulated chip, so that the library's tests do not lean on it. Lines look like this:
//
//   writeEntry portConfig d0 p3 id=7 en=1 mac=0 -> 0
//   addEntry portVlan d0 c0 vlan=10 vif=5 id=3 en=1 -> 0
//   writeEntry portVlan d0 c0 i0 vlan=10 vif=5 id=3 en=1 -> 0
//   removeEntry portVlan d0 i0 -> 0
//   addEntry egress d0 bd=10 vif=5 port=3/10 route=0/00 -> 0
//   lookup egress d0 bd=10 vif=5 -> 41
//
// In an egress entry "3/10" is ACL id 3 with IPv4 on and IPv6 off.

namespace test {

class RecordingIfSdk : private XpXdk::xpIfPl {
public:
  // Installs itself; the destructor brings back what was installed before.
  RecordingIfSdk();
  ~RecordingIfSdk() override;
  RecordingIfSdk(const RecordingIfSdk&) = delete;
  RecordingIfSdk& operator=(const RecordingIfSdk&) = delete;

  // Entries of each table on every device, from now on: 8 ports and 16 entries at first.
  void numPortsIs(uint32_t count) { numPorts_ = count; }
  void numEntriesIs(uint32_t count) { numEntries_ = count; }
  // How many places an added entry takes; 0: none, which no chip does.
  void placesPerEntryIs(unsigned places) { places_ = places; }

  // The n-th call from now (1: the next one) answers `status` and does nothing.
  void failCall(unsigned n, XpXdk::XP_STATUS status);
  // Every call that is carried out answers `status` in place of 0.
  void everyStatusIs(XpXdk::XP_STATUS status) { everyStatus_ = status; }

  // The calls since the last time, a line each.
  std::string takeCalls();

  // What one device holds, a line for each entry with an ACL or a key.
  std::string tables(uint8_t device) const;
  // Behind the driver's back.
  void portConfigIs(uint8_t device, uint32_t port, const XpXdk::xpPortConfigEntry& entry);
  void portVlanIs(uint8_t device, uint32_t index, const XpXdk::xpPortVlanIvifEntry& entry);
  void egressIs(uint8_t device, uint32_t index, const XpXdk::xpEgressBdEvifEntry& entry);

  XpXdk::xpPortConfigMgr* portConfigMgr() override { return &portConfig_; }
  XpXdk::xpPortVlanIvifMgr* portVlanIvifMgr() override { return &portVlan_; }
  XpXdk::xpEgressBdEvifMgr* egressBdEvifMgr() override { return &egress_; }

private:
  struct PortConfig : XpXdk::xpPortConfigMgr {
    explicit PortConfig(RecordingIfSdk& sdk) : sdk_(sdk) {}
    XpXdk::XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override;
    XpXdk::XP_STATUS writeEntry(uint8_t device, uint32_t port, const XpXdk::xpPortConfigEntry*) override;
    XpXdk::XP_STATUS readEntry(uint8_t device, uint32_t port, XpXdk::xpPortConfigEntry*,
                               uint8_t copy) override;
    RecordingIfSdk& sdk_;
    std::map<uint8_t, std::map<uint32_t, XpXdk::xpPortConfigEntry>> entries_;
  };
  struct PortVlan : XpXdk::xpPortVlanIvifMgr {
    explicit PortVlan(RecordingIfSdk& sdk) : sdk_(sdk) {}
    XpXdk::XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override;
    XpXdk::XP_STATUS addEntry(uint8_t device, uint8_t copy, const XpXdk::xpPortVlanIvifEntry*,
                              std::vector<uint32_t>& indexList) override;
    XpXdk::XP_STATUS writeEntry(uint8_t device, uint8_t copy, uint32_t index,
                                const XpXdk::xpPortVlanIvifEntry*) override;
    XpXdk::XP_STATUS removeEntry(uint8_t device, uint32_t index) override;
    XpXdk::XP_STATUS readEntry(uint8_t device, uint32_t index, XpXdk::xpPortVlanIvifEntry*,
                               uint8_t copy) override;
    RecordingIfSdk& sdk_;
    std::map<uint8_t, std::map<uint32_t, XpXdk::xpPortVlanIvifEntry>> entries_;
  };
  struct Egress : XpXdk::xpEgressBdEvifMgr {
    explicit Egress(RecordingIfSdk& sdk) : sdk_(sdk) {}
    XpXdk::XP_STATUS getNumOfEntry(uint8_t device, uint32_t& count) override;
    XpXdk::XP_STATUS addEntry(uint8_t device, const XpXdk::xpEgressBdEvifEntry*,
                              std::vector<uint32_t>& indexList) override;
    XpXdk::XP_STATUS writeEntry(uint8_t device, uint32_t index, const XpXdk::xpEgressBdEvifEntry*) override;
    XpXdk::XP_STATUS lookup(uint8_t device, const XpXdk::xpEgressBdEvifEntry*, uint32_t& index) override;
    XpXdk::XP_STATUS removeEntry(uint8_t device, uint32_t index) override;
    XpXdk::XP_STATUS readEntry(uint8_t device, uint32_t index, XpXdk::xpEgressBdEvifEntry*,
                               uint8_t copy) override;
    RecordingIfSdk& sdk_;
    std::map<uint8_t, std::map<uint32_t, XpXdk::xpEgressBdEvifEntry>> entries_;
  };

  // The status that was arranged for this call, if any.
  std::optional<XpXdk::XP_STATUS> arranged();
  // Writes the call down with its answer; a success answers what was arranged for all calls.
  XpXdk::XP_STATUS record(const std::string& call, XpXdk::XP_STATUS status);
  // Inserts at the lowest free places: full tables and keys that stand already are refused.
  template <typename Entry>
  XpXdk::XP_STATUS add(std::map<uint32_t, Entry>& entries, const Entry& entry,
                       std::vector<uint32_t>& indexList) const;

  uint32_t numPorts_ = 8;
  uint32_t numEntries_ = 16;
  unsigned places_ = 1;
  unsigned failIn_ = 0; // 0: no call fails
  XpXdk::XP_STATUS failStatus_ = XpXdk::statusOk;
  XpXdk::XP_STATUS everyStatus_ = XpXdk::statusOk;
  std::vector<std::string> calls_;
  PortConfig portConfig_{*this};
  PortVlan portVlan_{*this};
  Egress egress_{*this};
  XpXdk::xpIfPl* previous_;
};

} // namespace test
