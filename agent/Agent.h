#pragma once

#include "Plex/AclIdMapping.h"
#include "Plex/PlexAclAggregatorHelper.h"
#include "Scribe/Dal.h"
#include "XpAclTcam/XpAclAgentCommon.h"
#include "XpAclTcam/XpAclPlexAggregatorHelper.h"
#include "XpAclTcam/XpAclTcamHwAclIdSm.h"
#include "XpLib/TcamPartitionStatus.h"
#include "XpSystem/SystemStatus.h"
#include "XpVif/VifStatus.h"
#include "XpXdk/DeviceId.h"
#include "agent/Desired.h"
#include "agent/MemoryReserve.h"
#include "agent/RowArray.h"
#include "agent/config/ConfigModel.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

// The reference agent: the generic layer that drives the chip library. It owns the shared entities, one
// helper for each chip, and the versions that stand in the chips.
//
// When memory runs out, apply(), check(), chipAdd(), chipRemove() and blockIntf() raise std::bad_alloc and
// leave everything as it was: what they need after the first write is set aside before it (MemoryReserve.h).
//
// A change is made in this order, so that no packet ever meets a half-written policy:
//
//   1. compute what is wanted (Desired.h); give new index keys their hardware ACL ids
//   2. stage every version that is missing, on every chip; on any failure give everything back
//   3. commit: rows are written under ids that no interface uses yet
//   4. chips that join get what the others hold
//   5. (port, VLAN) pairs that are new join
//   6. per interface: block, publish the id, publish the index key, unblock (when several interfaces move,
//      all are blocked before the first one moves)
//   7. pairs that are not wanted any more leave
//   8. retire the versions that nothing uses; release their ids last

namespace agent {

// Fixed at start.
struct AgentSetup {
  unsigned numChips = 1;
  std::map<Table, uint32_t> tcamRows; // tables that are not named have defaultTableRows
  bool counters = true;               // lists ask for hit counters
  // The chips may still hold what an earlier run of the agent wrote. They drop what that judged until the
  // first configuration stands, which leaves nothing of it behind.
  bool restart = false;

  uint32_t rows(Table table) const; // the rows of a table, defaults included
};

AgentSetup setupFor(const Config& config); // what the configuration says of it

// One table of one chip that is too small for a change.
struct Shortage {
  uint8_t chip = 0;
  XpAcl::TcamType table = XpAcl::ingressV4;
  uint32_t needed = 0; // rows that the new versions take
  uint32_t free = 0;   // rows that were free
};

struct ApplyResult { // what became of a change
  bool ok = false;
  std::vector<Shortage> shortages;
  std::vector<std::string> errors;   // why it was refused, for people
  std::vector<std::string> warnings; // lines that have no counter of their own
  uint32_t rowsStaged = 0;
  uint32_t rowsRetired = 0;
};

// Which TCAM rule of which configured entry a row holds.
struct RowOwner {
  std::shared_ptr<AggregatedAcl> acl; // null: the row holds no rule of a list
  XpAcl::AclKeyInfo version;
  uint32_t ruleNum = 0;
  uint32_t subRuleNum = 0;
  int32_t origin = originFinal;
  uint64_t uniqueId = 0;
  // Hits of the row are counted for its line alone. The implicit deny of all lists counts where nobody else
  // does, and so do rows that found their counter taken.
  bool ownCounter = false;

  // The configured entry, or null for the implicit rules.
  const Rule* rule() const {
    return acl && origin >= 0 ? &acl->source.rules[static_cast<size_t>(origin)] : nullptr;
  }
};

using RowOwners = RowArray<RowOwner>;

// One hardware ACL id in use.
struct LiveIndexKey {
  uint16_t id = 0;
  bool routed = false;
  std::set<uint8_t> chips; // where its rows stand
};

// Hits of one line of a list.
struct LineCounter {
  int32_t origin = originFinal; // the entry, or originSolicitation or originAdvertisement
  uint64_t hits = 0;
  bool counted = true; // false: some row of the line has no counter of its own, so hits may lack
};

// Hits of one list in one direction, over everything that its lines have been through.
struct ListCounters {
  AclName name;
  std::shared_ptr<AggregatedAcl> acl; // as it is now
  bool applied = false;
  std::vector<LineCounter> lines; // the entries in order, then those of the neighbour-discovery permits
  uint64_t removed = 0;           // of lines that the list does not have any more
};

struct Counters { // hits of all lists, as last read
  std::vector<ListCounters> lists;
  // Hits of the implicit denies of all lists of a direction, and of rows without a counter of their own: the
  // chip counts them together.
  uint64_t implicitDeny[2] = {0, 0}; // by Direction
};

class Agent { // not for several threads at once
public:
  // Requires an installed SDK whose devices 0..numChips-1 exist; initialises their tables.
  explicit Agent(const AgentSetup& setup);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // Moves from the present configuration to `config`, hitless. When it does not fit, nothing is written,
  // everything stays as it was and the unit error is raised until the next success. Requires a
  // configuration without errors (or read with keepGoing); in one made by hand, the ports of a port-channel
  // on one chip must have the same egress lists, because they share their egress entries.
  ApplyResult apply(const Config& config);

  // What applying `config` now would take; writes nothing.
  ApplyResult check(const Config& config) const;

  // A chip joins or leaves while the system runs. One that leaves is emptied first; one that joins gets
  // everything that the configuration puts on it, or is refused when that does not fit. The SDK knows the
  // device. Numbers are 0..63.
  ApplyResult chipAdd(uint8_t chip);
  ApplyResult chipRemove(uint8_t chip);
  const std::set<uint8_t>& activeChips() const { return active_; }

  // Blocks or unblocks an interface, whatever lists it has. A block stays through changes, also while the
  // interface is away. The ports of one port-channel on one chip are blocked while any of them is.
  void blockIntf(Ovnet::IntfId intf, bool block);

  // One (port, VLAN) pair more or less than the configuration has. The port is an Ethernet port of an active
  // chip.
  void pairAdd(Ovnet::IntfId intf, uint16_t vlan);
  void pairDel(Ovnet::IntfId intf, uint16_t vlan);
  // The VIF of a port: ports of one port-channel on one chip share theirs. Nothing for a port without pairs.
  std::optional<uint16_t> vifOf(Ovnet::IntfId intf) const;

  const AgentSetup& setup() const { return setup_; }
  const Config& config() const { return config_; }
  // The helper of a chip that is or was active; null for others.
  Vane::Ptr<XpAcl::XpAclPlexAggregatorHelper> helper(uint8_t chip) const;
  // The machine that programs a chip's port tables; null for a chip that is not active, and before the first
  // configuration.
  Vane::Ptr<XpAcl::TcamChipHwAclIdSm> chipMachine(uint8_t chip) const;
  const Vane::Ptr<XpVif::PortVlanVifStatus>& portVlanVifStatus() const { return portVlanVifStatus_; }
  const Vane::Ptr<XpAcl::XpAclCommonSmData>& xpcsd() const { return xpcsd_; }
  const Vane::Ptr<XpAcl::AclIdMapping>& aclIdMapping() const { return aclIdMapping_; }
  const Vane::Ptr<XpAcl::BlockedIntfColl>& blockedIntfColl() const { return blockedIntfColl_; }
  const Vane::Ptr<XpSystem::SystemStatus>& systemStatus() const { return systemStatus_; }
  bool needsNeighborDiscovery() const { return neighborDiscovery_; }

  // The owner of a row, also while it is staged or about to be retired; null for a free row.
  const RowOwner* rowOwner(uint8_t chip, XpAcl::TcamType table, uint32_t row) const;
  const std::map<XpAcl::HwAclIndexKey, LiveIndexKey>& liveIndexKeys() const { return live_; }
  const std::map<Attachment, XpAcl::HwAclIndexKey>& attachments() const { return attachments_; }
  const AclRegistry& registry() const { return registry_; }
  // The aggregated list behind a key that is in use, or null.
  std::shared_ptr<AggregatedAcl> acl(const Plex::AclKey& key) const;

  // Reads the hit counters of everything that stands in the chips and adds them up. Versions that retire are
  // read at their end in any case.
  void pollCounters();
  // What was read so far.
  Counters counters() const;

  // The unit error that operators see; empty when there is none.
  std::string unitError() const;

  // Recomputes the invariants of the books, the chips and the versions; empty when all hold.
  std::vector<std::string> audit() const;

private:
  struct Change;
  using WantedPairs = std::map<Ovnet::IntfId, std::vector<uint16_t>>; // VLANs of each port, ascending
  // The code of a port, or of the port-channel of its members, and the chip.
  using VifOwner = std::pair<uint32_t, uint8_t>;

  // Entries that an earlier run left.
  struct Adopted {
    std::set<uint32_t> ports;
    std::vector<XpAcl::XpAclVlanVifKey> vlans;
    std::vector<XpAcl::XpAclVlanVifKey> egress;
  };

  void makeHelper(uint8_t chip);
  void adoptChip(uint8_t chip);
  void sweepChip(uint8_t chip, const Adopted& adopted);
  void sweepChips();
  std::set<uint8_t> wantedChips(const Config& config) const;
  void activateChips(const std::set<uint8_t>& wanted);
  void deactivateChips(const std::set<uint8_t>& wanted);
  std::set<Ovnet::IntfId> wantedBlocks() const;
  void blockWanted();
  void unblockUnwanted();
  void clearPorts(const std::set<uint8_t>& joined);
  void renotify();
  void unpublishMovedPorts(const Config& config);
  WantedPairs wantedPairs(const Config& config) const;
  void joinPairs(const Config& config, const WantedPairs& wanted);
  void removePairs(const WantedPairs& wanted);
  void reserveAtLeast(std::size_t bytes);
  static std::size_t bytesToCommit(XpAcl::TcamType table, std::size_t rows);
  std::size_t bytesToFinish(const Change& change) const;
  WantedPairs joiningPairs(const Change& change) const;
  std::vector<uint16_t> pairsToJoin(Ovnet::IntfId intf, const std::vector<uint16_t>& wanted) const;
  std::size_t bytesToMove(const std::set<Ovnet::IntfId>& intfs) const;
  void finish(Change& change, const std::set<uint8_t>& chips);
  bool giveIds(Change& change);
  bool stageAll(Change& change);
  bool stageIndexKey(Change& change, const Wanted& wanted, uint8_t chip);
  bool stageMember(Change& change, const Wanted& wanted, uint8_t chip, const Plex::AclKey& member,
                   const Plex::AclKey& trigger, bool create);
  void abandon(Change& change);
  // `claimed`: counters that rows of the same commit take before, and from now on those of this version.
  // Answers whether each line's rows have counters of their own.
  bool ownRows(uint8_t chip, const XpAcl::TcamIdxMapping& placement, const AclGeneration& generation,
               std::vector<bool>& claimed);
  void disownRows(uint8_t chip, const XpAcl::TcamIdxMapping& placement, ApplyResult& result);
  void commitAll(Change& change);
  void adoptLists(Change& change);
  void addPorts(const Config& config);
  void makeMachine();
  void removePorts(const Config& config);
  void publishAll(Change& change);
  void publish(const Attachment& attachment, const XpAcl::HwAclIndexKey& key, bool bracket);
  void retireUnused(Change& change);
  void retire(const XpAcl::HwAclIndexKey& key, const LiveIndexKey& live, uint8_t chip, ApplyResult& result);
  void clearUnitError();
  std::set<uint32_t> takenCounterRows(uint8_t chip, XpAcl::TcamType table) const;
  std::vector<uint32_t> withholdRows(uint8_t chip, XpAcl::TcamType table, std::size_t needed);
  template <class Visit>
  void forEachRowOf(uint8_t chip, const Plex::AclKey& key, const Visit& visit) const;
  std::vector<uint32_t> rowsOf(uint8_t chip, const Plex::AclKey& key) const;
  std::vector<uint32_t> rowsWithoutCounter(uint8_t chip, const XpAcl::TcamIdxMapping& placement) const;
  std::vector<uint32_t> rowsThatShare(uint8_t chip, const XpAcl::TcamIdxMapping& placement) const;
  void warnOfCounters(uint8_t chip, const XpAcl::TcamIdxMapping& placement, ApplyResult& result) const;
  void pollAcl(uint8_t chip, const Plex::AclKey& key);
  std::map<Acl::AclDirection, uint64_t> implicitHitsRead(uint8_t chip) const;
  void implicitHitsReadIs(uint8_t chip, const std::map<Acl::AclDirection, uint64_t>& read);
  void addHits(const AclName& name, uint64_t uniqueId, uint64_t hits);
  void foldRemoved();
  void restoreCounters(uint8_t chip, XpAcl::TcamType table, const std::vector<uint32_t>& rows);
  XpAcl::AclKeyInfo versionOf(const Plex::AclKey& member, uint16_t id, bool routed) const;
  Vane::Ptr<Plex::AclData> aclDataOf(const Plex::AclKey& key);
  const AclGeneration* generationOf(const Change* change, const Plex::AclKey& key) const;
  uint8_t chipOf(Ovnet::IntfId intf) const;
  VifOwner vifOwner(Ovnet::IntfId intf) const;

  AgentSetup setup_;
  Config config_;
  Vane::Ptr<XpAcl::PlexAclAggregatorHelperInfo> helperInfo_;
  Vane::Ptr<XpAcl::AclIdMapping> aclIdMapping_;
  Vane::Ptr<Acl::ParamConfig> paramConfig_;
  Vane::Ptr<XpAcl::BlockedIntfColl> blockedIntfColl_;
  Vane::Ptr<XpAcl::XpAclTcamLimit> tcamLimit_;
  Vane::Ptr<XpSystem::SystemStatus> systemStatus_;
  Vane::Ptr<XpLib::TcamPartitionStatus> partition_;
  Vane::Ptr<Scribe::Dal> dal_;
  Vane::Ptr<XpAcl::XpAclCommonSmData> xpcsd_;
  Vane::Ptr<XpVif::PortVlanVifStatus> portVlanVifStatus_;
  Vane::Ptr<XpVif::PortVifStatus> portVifStatus_;
  Vane::Ptr<XpXdk::XpDeviceIdColl> activeXpDeviceColl_;
  Vane::Ptr<XpAcl::TcamHwAclIdSm> machine_;
  std::map<uint8_t, Vane::Ptr<XpAcl::XpAclPlexAggregatorHelper>> helpers_;
  bool neighborDiscovery_ = true;
  std::set<uint8_t> active_;
  std::set<uint8_t> extraChips_;   // joined beyond the configuration
  std::set<uint8_t> removedChips_; // left, whether the configuration has them or not
  std::map<VifOwner, uint16_t> vifs_;
  std::map<Ovnet::IntfId, Ovnet::IntfId> channelOf_;
  std::set<Ovnet::IntfId> operatorBlocks_; // as asked for
  std::set<Ovnet::IntfId> blocks_;         // those and what they take along, of the interfaces that exist

  AclRegistry registry_;
  // Lists of every generation that still has rows.
  std::map<Plex::AclKey, AclGeneration> generations_;
  std::map<Plex::AclKey, Vane::Ptr<Plex::AclData>> aclData_;
  std::map<XpAcl::HwAclIndexKey, LiveIndexKey> live_;
  std::map<Attachment, XpAcl::HwAclIndexKey> attachments_;
  std::map<uint8_t, std::array<RowOwners, 5>> owners_; // by chip, table, row
  struct Total {
    AclName name;
    uint64_t hits = 0;
  };
  std::unordered_map<uint64_t, Total> totals_; // by unique id
  std::map<AclName, uint64_t> removed_; // hits of lines that the list lost, as far as they left totals_
  std::map<uint8_t, Adopted> adopted_;
  uint64_t implicitDeny_[2] = {0, 0};
  MemoryReserve reserve_;
};

} // namespace agent
