#pragma once

#include "agent/config/ConfigModel.h"
#include "packet/Packet.h"
#include "tool/UpdateProofPlaces.h"
#include "tool/UpdateProofSets.h"
#include "tool/UpdateProofWays.h"
#include "tool/UpdateProofWrites.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

// The proof of a change: after every write, and before the first, no packet at any place meets anything but
// the verdict of the old lists, that of the new lists, or the drop of a blocked interface. All packets are
// looked at, as exact sets.
//
// With P the packets that the chip permits at a place, and Old and New those that the lines permit there:
//   between two writes  Old and New  <=  P  <=  Old or New;  at a blocked interface only P <= Old or New
//   before the first    P = Old
//   after the last      P = New
// and for each way of a packet through several places, whose lists change one after the other: what all of
// them permit, all Old permit or all New.
//
// A write costs what it changes. Rows under an id that no entry names concern nobody; a row in force concerns
// the places that look up with its id; an entry concerns its own places.

namespace tool {

enum class PlaceVerdict : uint8_t {
  same,    // as the old and the new lists, which permit the same there
  old,     // as the old list
  fresh,   // as the new list
  between, // each packet as one of them
  blocked, // permits nothing that either denies, and drops what it likes
  neither, // some packet gets what no list says
};
constexpr std::size_t numPlaceVerdicts = 6;
const char* verdictWord(PlaceVerdict verdict); // "same", "old", "new", "between", "blocked", "neither"

// The places that a write concerned, by their numbers, ascending; and what they were judged then.
using Judged = std::vector<std::pair<uint32_t, PlaceVerdict>>;

// What P is compared with. Requires sets of one space.
PlaceVerdict judgedAs(const verify::PacketSet& permitted, const verify::PacketSet& old,
                      const verify::PacketSet& fresh, bool blocked, const verify::PacketSet& entering);
// The packets that are judged as no list does.
verify::PacketSet strays(const verify::PacketSet& permitted, const verify::PacketSet& old,
                         const verify::PacketSet& fresh, bool blocked);
// The packets that can come to the place: of a MAC list, those of the VLANs that are carried.
verify::PacketSet enteringAt(verify::PacketSpace& space, const ProofPlace& place);
// One of `set`, as it enters the place, and the VLAN that it is in there.
packet::Packet witnessAt(const verify::PacketSet& set, const ProofPlace& place);
uint16_t vlanAt(const packet::Packet& packet, const ProofPlace& place);

// What the chip and the lists do with a packet at one place; true is permit.
struct ProofStep {
  uint32_t place = 0;
  bool blocked = false;
  bool lookup = false;         // else the chip makes none
  std::optional<uint32_t> row; // that hits
  bool now = false;
  bool old = false;
  bool fresh = false;
};

struct ProofFinding {
  enum class When : uint8_t { before, during, after };
  When when = When::during;
  uint64_t write = 0; // during: the one that was done last, from 1
  packet::Packet witness;
  uint16_t vlan = 0;            // that it is in at the first place
  std::vector<ProofStep> steps; // one, or those of a way that is judged as a whole
  std::string from;             // of a way: the port where it enters
  std::string to;               // and leaves; empty: not told

  bool isWay() const { return !from.empty(); }
  // Of the whole way.
  bool now() const;
  bool old() const;
  bool fresh() const;
};

class UpdateProof {
public:
  // `memoryLimit`: bytes that the sets of one family may take. All but `tick` must outlive the proof.
  UpdateProof(const Change& change, const agent::Config& old, const agent::Config& fresh,
              std::size_t memoryLimit = verify::Diagrams::defaultLimit);
  // Called as work is done, with the number of the write that is looked at.
  void tickIs(verify::Tick tick) { tick_ = std::move(tick); }

  // Looks at the whole change, or until the first finding. To be called once. Raises BadWrite for a write
  // that the chips cannot execute.
  bool run();

  const std::vector<ProofPlace>& places() const { return places_; }
  const std::optional<ProofFinding>& finding() const { return finding_; }
  std::string findingText() const; // requires a finding; several lines
  // One element a write that was looked at.
  const std::vector<Judged>& judged() const { return judged_; }

  // Places judged after writes, how they were judged, and how many writes concerned none.
  uint64_t numJudged() const;
  uint64_t numJudged(PlaceVerdict verdict) const { return counts_[static_cast<std::size_t>(verdict)]; }
  uint64_t numUnaffected() const { return unaffected_; }
  // Writes after which one place was ahead of its old list while another was behind its new one, and the ways
  // that were looked at then. None: no packet can meet a new list here and an old one there.
  uint64_t numMixed() const { return ways_.numMixed(); }
  uint64_t numWays() const { return ways_.numWays(); }
  std::size_t numItems() const;    // different rows and lines
  std::size_t numCombined() const; // sequences of them that were combined
  std::size_t nodes() const;       // of the diagrams
  std::size_t peakMemory() const;  // bytes
  // The chips as the last write that was looked at left them.
  const sim::System& chips() const { return *chips_; }

private:
  struct FamilySets {
    FamilySets(agent::Family family, std::size_t memoryLimit)
        : space(family, verify::Traffic::headers, memoryLimit), sets(space) {}
    verify::PacketSpace space;
    FirstMatch sets;
    std::map<const agent::AccessList*, const verify::PacketSet*> lists;
    // By the sets of P, Old and New, blocked, and place where that matters (MAC).
    std::map<std::tuple<verify::NodeRef, verify::NodeRef, verify::NodeRef, bool, uint32_t>, PlaceVerdict>
        verdicts;
  };
  using TableKey = std::pair<uint8_t, XpXdk::xpIaclType_e>;
  using UserKey = std::tuple<uint8_t, XpXdk::xpIaclType_e, uint8_t>; // chip, table, id

  FamilySets& family(agent::Family family);
  TableSets& table(uint8_t chip, XpXdk::xpIaclType_e number);
  const verify::PacketSet& listSet(const ProofPlace& place, bool fresh);
  const verify::PacketSet& chipSet(uint32_t place);

  void listEntries();
  bool judgeWays(const Judged& judged);
  bool judgeEnds(ProofFinding::When when);
  bool judge(uint32_t place, Judged& judged);
  void moveTo(uint32_t place, const PlaceState& state);
  std::set<uint32_t> execute(const ChipWrite& write);
  std::set<uint32_t> executeRow(const ChipWrite& write);
  std::set<uint32_t> executeEntry(const ChipWrite& write);
  void addUsers(std::set<uint32_t>& places, uint8_t chip, XpXdk::xpIaclType_e number, int id) const;
  void find(ProofFinding::When when, uint32_t place, const verify::PacketSet& wrong);
  ProofStep stepAt(uint32_t place, const packet::Packet& packet, uint16_t vlan);

  const Change& change_;
  const agent::Config& old_;
  const agent::Config& fresh_;
  std::size_t memoryLimit_;
  verify::Tick tick_;
  std::vector<ProofPlace> places_;
  std::unique_ptr<sim::System> chips_;
  std::array<std::unique_ptr<FamilySets>, 3> families_;
  std::map<TableKey, std::unique_ptr<TableSets>> tables_;
  std::vector<PlaceState> states_;                                       // by place
  std::map<UserKey, std::set<uint32_t>> users_;                          // the places that look up with an id
  std::map<std::pair<uint8_t, uint32_t>, std::vector<uint32_t>> byPort_; // chip and port
  std::map<std::pair<uint8_t, uint32_t>, std::vector<uint32_t>> byIngressKey_;
  std::map<std::pair<uint8_t, uint32_t>, std::vector<uint32_t>> byEgressKey_;
  WayProof ways_;
  std::vector<Judged> judged_;
  std::array<uint64_t, numPlaceVerdicts> counts_{};
  uint64_t unaffected_ = 0;
  std::optional<ProofFinding> finding_;
};

} // namespace tool
