#pragma once

#include "test/RecordingIfSdk.h"

#include "XpAclTcam/XpAclTcamHwAclIdSm.h"

#include <functional>
#include <string>
#include <vector>

// The ACL-id state machines over a recording SDK, with the shared entities that they watch, and their state
// as short text. Ethernet1 to Ethernet4 are ports 1 to 4 of chip 0, Ethernet33 to Ethernet36 those of chip 1.

namespace test {

// What the machines are made of, before any of them.
class MachineInputs {
public:
  MachineInputs();

  RecordingIfSdk sdk;
  Vane::Ptr<XpVif::PortVlanVifStatus> portVlanVifStatus;
  Vane::Ptr<XpVif::PortVifStatus> portVifStatus;
  Vane::Ptr<XpSystem::SystemStatus> systemStatus; // mode 3, one table copy
  Vane::Ptr<XpAcl::XpAclCommonSmData> xpcsd;
  Vane::Ptr<Scribe::Dal> dal;
  Vane::Ptr<XpLib::TcamPartitionStatus> partition;
  Vane::Ptr<XpAcl::AclIdMapping> aclIdMapping;
  Vane::Ptr<XpAcl::BlockedIntfColl> blockedIntfColl;
  Vane::Ptr<XpXdk::XpDeviceIdColl> activeXpDeviceColl;

  // The egress databases of a partition profile.
  void partitionIs(bool egressV4, bool egressV6);

  // Both key-and-index maps, sorted, a line each: "portVlan 10/5 -> 0", and the way back:
  // "portVlan 0 -> 10/5".
  std::string indexMaps() const;
};

// One chip's programming machine by itself: chip 0, initialised, its status empty.
class ChipUnderTest : public MachineInputs {
public:
  explicit ChipUnderTest(unsigned chip = 0);

  Vane::Ptr<XpVif::PortVlanVifStatus> status;
  Vane::Ptr<XpAcl::ChipHwAclIdSm> machine;

  XpAcl::ChipHwAclIdSm* operator->() { return machine.ptr(); }
  XpAcl::ChipHwAclIdMap& map() { return *machine->chipHwAclIdMap(); }
  void pairIs(const char* intf, unsigned vlan, Vane::U32 vif);
  void pairDel(const char* intf, unsigned vlan);
  // Runs the edits, then returns the calls that they made.
  std::string calls(const std::function<void()>& edits);
  // Cache and users of the shared entries, sorted: "cache Ethernet1/10 vif 5", "users vif 5 vlan 10:
  // Ethernet1/10".
  std::string books() const;
};

// The agent-wide machine over the given chips.
class SystemUnderTest : public MachineInputs {
public:
  explicit SystemUnderTest(const std::vector<unsigned>& chips = {0});

  Vane::Ptr<XpAcl::TcamHwAclIdSm> machine;

  // Made by hand, so that a test may fill the inputs first.
  void make();
  XpAcl::TcamHwAclIdSm* operator->() { return machine.ptr(); }
  Vane::Ptr<XpAcl::TcamChipHwAclIdSm> chip(unsigned number) const;
  std::string calls(const std::function<void()>& edits);
  std::string enables(unsigned chip) const;
  // A chip's copy of the mapping, its blocked ports and the shared blocked VLANs:
  // "Ethernet1 ingress: web/- -> 3".
  std::string mapping(unsigned chip) const;
  std::string blocked(unsigned chip) const;
};

XpXdk::XpDeviceId device(unsigned number);
Ovnet::IntfId intf(const char* name);
Bridging::VlanId vlan(unsigned number);
XpLib::PortAndVlanId pairOf(const char* intfName, unsigned vlanNumber);
// "id=3 v4 v6 mac blocked", with only the flags that are set.
std::string textOf(const XpAcl::AclIdEn& en);
// The four enable maps of a chip, sorted: "in Ethernet1 id=3 v4", "out Vlan10 id=0 v4 v6 mac blocked".
std::string enablesOf(const XpAcl::ChipHwAclIdMap& map);
// The flags by letter: 4, 6, m and b.
XpAcl::AclIdEn aclIdEn(unsigned id, const char* flags);
// An index key with the ACL `name` in one slot.
XpAcl::HwAclIndexKey indexKey(unsigned slot, const char* name = "web");
XpAcl::IntfIdDirection in(const char* intfName);
XpAcl::IntfIdDirection out(const char* intfName);

// Runs `action` in a process of its own and answers how it ended: "returned", or all that the process wrote
// to standard error before it aborted, letter for letter.
std::string exactDeathOf(const std::function<void()>& action);
// The same with the line numbers of assertions in this project shown as "#".
std::string deathOf(const std::function<void()>& action);
// What `action` throws, or "nothing".
std::string thrownBy(const std::function<void()>& action);
// Everything that `action` writes to a file descriptor.
std::string writtenBy(const std::function<void(Vane::U32 fd)>& action);

// Collects the statements of some units in their order, a line each, without what every line begins with.
class TraceCapture {
public:
  explicit TraceCapture(Vane::TraceHandle& handle);
  TraceCapture(Vane::TraceHandle& first, Vane::TraceHandle& second);
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;
  std::string take();

private:
  std::vector<Vane::TraceHandle*> handles_;
  std::string text_;
};

} // namespace test
