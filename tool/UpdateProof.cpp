#include "tool/UpdateProof.h"

#include "agent/config/VlanSets.h"
#include "packet/PacketText.h"
#include "sim/Key.h"
#include "tool/Common.h"

#include <algorithm>

namespace tool {

using namespace XpXdk;
using sim::Op;
using verify::PacketSet;

namespace {

const agent::AccessList* listOf(const agent::Config& config, const ProofPlace& place, const PlaceSide& side) {
  return side.list.empty() ? nullptr : config.list(place.family, side.list);
}

} // namespace

const char* verdictWord(PlaceVerdict verdict) {
  static constexpr const char* words[] = {"same", "old", "new", "between", "blocked", "neither"};
  return words[static_cast<std::size_t>(verdict)];
}

PacketSet strays(const PacketSet& permitted, const PacketSet& old, const PacketSet& fresh, bool blocked) {
  const PacketSet tooMany = permitted - (old | fresh);
  return blocked ? tooMany : tooMany | ((old & fresh) - permitted);
}

PlaceVerdict judgedAs(const PacketSet& permitted, const PacketSet& old, const PacketSet& fresh, bool blocked,
                      const PacketSet& entering) {
  if (!(strays(permitted, old, fresh, blocked) & entering).isEmpty()) {
    return PlaceVerdict::neither;
  }
  if (blocked) {
    return PlaceVerdict::blocked;
  }
  if (permitted == old) {
    return old == fresh ? PlaceVerdict::same : PlaceVerdict::old;
  }
  return permitted == fresh ? PlaceVerdict::fresh : PlaceVerdict::between;
}

PacketSet enteringAt(verify::PacketSpace& space, const ProofPlace& place) {
  if (place.family != agent::Family::mac) {
    return space.all();
  }
  // What is carried before and what is carried after may overlap.
  const agent::PortSet vlans = agent::rangesOf(agent::vlansOf(place.vlans));
  return space.fromRow({verify::Condition::within(verify::Field::vlan, vlans)});
}

packet::Packet witnessAt(const PacketSet& set, const ProofPlace& place) {
  packet::Packet witness = set.witness();
  if (place.family == agent::Family::mac) {
    return witness;
  }
  // Frames without a tag are in the access VLAN, or in VLAN 1.
  const uint16_t untagged = place.accessVlan != 0 ? place.accessVlan : uint16_t{1};
  const bool fits = std::any_of(place.vlans.begin(), place.vlans.end(), [&](const agent::PortRange& range) {
    return untagged >= range.low && untagged <= range.high;
  });
  if (!fits && !place.vlans.empty()) {
    witness.vlan = place.vlans.front().low;
  }
  return witness;
}

uint16_t vlanAt(const packet::Packet& packet, const ProofPlace& place) {
  return packet.vlan != 0        ? packet.vlan
         : place.vlan != 0       ? place.vlan
         : place.accessVlan != 0 ? place.accessVlan
                                 : uint16_t{1};
}

UpdateProof::UpdateProof(const Change& change, const agent::Config& old, const agent::Config& fresh,
                         std::size_t memoryLimit)
    : change_(change), old_(old), fresh_(fresh), memoryLimit_(memoryLimit), places_(proofPlaces(change)),
      chips_(chipsOf(change.chips, change.start)), states_(places_.size()),
      ways_(
          change, places_,
          [this](uint32_t place) {
            return PlaceSets{&chipSet(place), &listSet(places_[place], false),
                             &listSet(places_[place], true)};
          },
          [this](agent::Family of) -> verify::PacketSpace& { return family(of).space; }) {
  listEntries();
}

// Which places an entry concerns, and which look up with which id.
void UpdateProof::listEntries() {
  for (uint32_t i = 0; i < places_.size(); ++i) {
    const ProofPlace& place = places_[i];
    if (place.isPortEntry()) {
      byPort_[{place.chip, place.port}].push_back(i);
    } else {
      auto& byKey = place.direction == agent::Direction::in ? byIngressKey_ : byEgressKey_;
      byKey[{place.chip, sim::portVlanKey(place.vif, place.vlan)}].push_back(i);
    }
    moveTo(i, stateAt(*chips_, place));
  }
}

void UpdateProof::moveTo(uint32_t place, const PlaceState& state) {
  const ProofPlace& at = places_[place];
  if (states_[place].enabled) {
    users_[{at.chip, at.table(), states_[place].aclId}].erase(place);
  }
  states_[place] = state;
  if (state.enabled) {
    users_[{at.chip, at.table(), state.aclId}].insert(place);
  }
}

UpdateProof::FamilySets& UpdateProof::family(agent::Family family) {
  std::unique_ptr<FamilySets>& sets = families_[static_cast<std::size_t>(family)];
  if (!sets) {
    sets = std::make_unique<FamilySets>(family, memoryLimit_);
  }
  return *sets;
}

TableSets& UpdateProof::table(uint8_t chip, xpIaclType_e number) {
  std::unique_ptr<TableSets>& sets = tables_[{chip, number}];
  if (!sets) {
    sets = std::make_unique<TableSets>(*chips_->device(chip)->tcam(number), number,
                                       family(familyOf(number)).sets);
  }
  return *sets;
}

const PacketSet& UpdateProof::listSet(const ProofPlace& place, bool fresh) {
  const agent::AccessList* const list =
      fresh ? listOf(fresh_, place, place.fresh) : listOf(old_, place, place.old);
  FamilySets& sets = family(place.family);
  const PacketSet*& set = sets.lists[list];
  if (set == nullptr) {
    set = &listPermitted(sets.sets, list, tick_);
  }
  return *set;
}

const PacketSet& UpdateProof::chipSet(uint32_t place) {
  const ProofPlace& at = places_[place];
  if (!states_[place].enabled) {
    return listPermitted(family(at.family).sets, nullptr, {});
  }
  return table(at.chip, at.table()).permitted(lookupAt(at, states_[place].aclId), tick_);
}

bool UpdateProof::run() {
  if (!judgeEnds(ProofFinding::When::before)) {
    return false;
  }
  for (uint32_t i = 0; i < places_.size(); ++i) {
    if (places_[i].isLasting()) {
      ways_.placeMoves(i);
    }
  }
  for (const ChipWrite& write : change_.writes) {
    Judged judged;
    bool good = true;
    for (const uint32_t place : execute(write)) {
      good = good && judge(place, judged);
    }
    unaffected_ += judged.empty() ? 1 : 0;
    good = good && judgeWays(judged);
    judged_.push_back(std::move(judged));
    if (!good) {
      return false;
    }
    if (tick_) {
      tick_();
    }
  }
  return judgeEnds(ProofFinding::When::after);
}

bool UpdateProof::judgeEnds(ProofFinding::When when) {
  const bool before = when == ProofFinding::When::before;
  for (uint32_t i = 0; i < places_.size(); ++i) {
    const ProofPlace& place = places_[i];
    if (!(before ? place.old : place.fresh).there) {
      continue;
    }
    const PacketSet& lines = listSet(place, !before);
    const PacketSet& chip = chipSet(i);
    if (chip == lines) {
      continue;
    }
    const PacketSet wrong = ((chip - lines) | (lines - chip)) & enteringAt(family(place.family).space, place);
    if (!wrong.isEmpty()) {
      find(when, i, wrong);
      return false;
    }
  }
  return true;
}

bool UpdateProof::judge(uint32_t place, Judged& judged) {
  const ProofPlace& at = places_[place];
  if (!at.isLasting()) {
    return true;
  }
  FamilySets& sets = family(at.family);
  const PacketSet& chip = chipSet(place);
  const PacketSet& old = listSet(at, false);
  const PacketSet& fresh = listSet(at, true);
  const bool blocked = states_[place].blocked();
  const auto [known, added] =
      sets.verdicts.try_emplace({chip.diagram().root(), old.diagram().root(), fresh.diagram().root(), blocked,
                                 at.family == agent::Family::mac ? place : 0});
  if (added) {
    known->second = judgedAs(chip, old, fresh, blocked, enteringAt(sets.space, at));
  }
  judged.emplace_back(place, known->second);
  ++counts_[static_cast<std::size_t>(known->second)];
  if (known->second == PlaceVerdict::neither) {
    find(ProofFinding::When::during, place, strays(chip, old, fresh, blocked) & enteringAt(sets.space, at));
    return false;
  }
  return true;
}

// Requires that each place by itself is between its lists.
bool UpdateProof::judgeWays(const Judged& judged) {
  if (judged.empty()) {
    return true;
  }
  for (const auto& [place, verdict] : judged) {
    ways_.placeMoves(place);
  }
  const std::optional<WayProof::Finding> found = ways_.check();
  if (!found) {
    return true;
  }
  ProofFinding finding;
  finding.write = judged_.size() + 1;
  finding.witness = found->witness;
  finding.vlan = found->vlan;
  finding.from = found->way.in->name;
  finding.to = found->way.out == nullptr ? std::string() : found->way.out->name;
  for (const uint32_t place : found->way.places()) {
    const ProofPlace& at = places_[place];
    // The others let everything through at any time.
    if (states_[place].enabled || !at.old.list.empty() || !at.fresh.list.empty()) {
      finding.steps.push_back(stepAt(place, finding.witness, finding.vlan));
    }
  }
  finding_ = finding;
  return false;
}

std::set<uint32_t> UpdateProof::execute(const ChipWrite& write) {
  return isRowWrite(write.op) ? executeRow(write) : executeEntry(write);
}

void UpdateProof::addUsers(std::set<uint32_t>& places, uint8_t chip, xpIaclType_e number, int id) const {
  for (const auto& [key, users] : users_) {
    const auto& [userChip, userTable, userId] = key;
    if (userChip == chip && userTable == number && (id == TableSets::anyId || id == userId)) {
      places.insert(users.begin(), users.end());
    }
  }
}

std::set<uint32_t> UpdateProof::executeRow(const ChipWrite& write) {
  const sim::Device* const device = chips_->device(write.chip);
  const sim::TcamTable* const rows = device == nullptr ? nullptr : device->tcam(write.table);
  if (rows == nullptr || write.index >= rows->numRows()) {
    applyWrite(*chips_, write); // says what is wrong
    return {};
  }
  TableSets& sets = table(write.chip, write.table);
  const auto content = [&] {
    std::vector<uint32_t> data;
    for (unsigned copy = 0; copy < rows->numCopies(); ++copy) {
      data.push_back(rows->data(write.index, copy));
    }
    return std::pair(rows->row(write.index), data);
  };
  const auto before = content();
  const int idBefore = sets.rowLeaves(write.index);
  applyWrite(*chips_, write);
  const int idAfter = sets.rowEnters(write.index);
  std::set<uint32_t> places;
  if (content() != before) {
    addUsers(places, write.chip, write.table, idBefore);
    addUsers(places, write.chip, write.table, idAfter);
  }
  return places;
}

std::set<uint32_t> UpdateProof::executeEntry(const ChipWrite& write) {
  std::set<uint32_t> near;
  const auto addAll = [&](const auto& map, uint32_t key) {
    const auto found = map.find({write.chip, key});
    if (found != map.end()) {
      near.insert(found->second.begin(), found->second.end());
    }
  };
  const auto addKeyed = [&] {
    const sim::Device* const device = chips_->device(write.chip);
    const bool ingress =
        write.op == Op::portVlanAdd || write.op == Op::portVlanWrite || write.op == Op::portVlanRemove;
    if (device == nullptr || write.op == Op::portConfigWrite) {
      return;
    }
    if (ingress) {
      const auto* const entry = device->portVlan().entry(write.index);
      addAll(byIngressKey_, entry == nullptr ? 0 : sim::keyOf(*entry));
    } else {
      const auto* const entry = device->egress().entry(write.index);
      addAll(byEgressKey_, entry == nullptr ? 0 : sim::keyOf(*entry));
    }
  };
  addKeyed();
  applyWrite(*chips_, write);
  addKeyed();
  if (write.op == Op::portConfigWrite) {
    addAll(byPort_, write.index);
  }
  std::set<uint32_t> places;
  for (const uint32_t place : near) {
    const PlaceState state = stateAt(*chips_, places_[place]);
    if (!(state == states_[place])) {
      moveTo(place, state);
      places.insert(place);
    }
  }
  return places;
}

ProofStep UpdateProof::stepAt(uint32_t place, const packet::Packet& packet, uint16_t vlan) {
  const ProofPlace& at = places_[place];
  ProofStep step;
  step.place = place;
  step.blocked = states_[place].blocked();
  step.lookup = states_[place].enabled;
  step.now = chipSet(place).contains(packet, vlan);
  step.old = listSet(at, false).contains(packet, vlan);
  step.fresh = listSet(at, true).contains(packet, vlan);
  if (step.lookup) {
    const uint32_t row = chips_->device(at.chip)
                             ->tcam(at.table())
                             ->lookup(sim::buildKey(at.table(), packet, states_[place].aclId, at.role, vlan));
    if (row != sim::TcamTable::noRow) {
      step.row = row;
    }
  }
  return step;
}

void UpdateProof::find(ProofFinding::When when, uint32_t place, const PacketSet& wrong) {
  ProofFinding finding;
  finding.when = when;
  finding.write = judged_.size() + (when == ProofFinding::When::during ? 1 : 0);
  finding.witness = witnessAt(wrong, places_[place]);
  finding.vlan = vlanAt(finding.witness, places_[place]);
  finding.steps.push_back(stepAt(place, finding.witness, finding.vlan));
  finding_ = finding;
}

bool ProofFinding::now() const {
  return std::all_of(steps.begin(), steps.end(), [](const ProofStep& step) { return step.now; });
}

bool ProofFinding::old() const {
  return std::all_of(steps.begin(), steps.end(), [](const ProofStep& step) { return step.old; });
}

bool ProofFinding::fresh() const {
  return std::all_of(steps.begin(), steps.end(), [](const ProofStep& step) { return step.fresh; });
}

std::string UpdateProof::findingText() const {
  using When = ProofFinding::When;
  const ProofFinding& finding = *finding_;
  std::string text;
  switch (finding.when) {
  case When::before:
    text = "before the first write the chips do not do what the old configuration says\n";
    break;
  case When::during:
    text = "after write " + std::to_string(finding.write) + " of " + std::to_string(change_.writes.size()) +
           " (" + writeText(change_.writes[finding.write - 1]) + ")\n";
    break;
  case When::after:
    text = "after the last write the chips do not do what the new configuration says\n";
    break;
  }
  if (finding.isWay()) {
    text += "  a packet that enters at " + finding.from + " in VLAN " + std::to_string(finding.vlan) +
            (finding.to.empty() ? "" : " and leaves at " + finding.to) + "\n  " +
            packet::toText(finding.witness) + "\n  now " + permitWord(finding.now()) + "; old " +
            permitWord(finding.old()) + "; new " + permitWord(finding.fresh());
  }
  for (const ProofStep& step : finding.steps) {
    const ProofPlace& place = places_[step.place];
    text += std::string(finding.isWay() ? "\n" : "") + "  " + place.text() + " (" + place.entryText() + ")" +
            (finding.isWay() ? ": " : "\n  " + packet::toText(finding.witness) + "\n  ") + "now " +
            permitWord(step.now) + ", " +
            (!step.lookup ? "the chip makes no lookup"
             : step.row   ? "row " + std::to_string(*step.row)
                          : "no row hits") +
            (step.blocked ? ", the interface is blocked" : "");
    if (finding.when != When::after) {
      text += "; old " + std::string(permitWord(step.old)) + ", " +
              (place.old.list.empty() ? "no list" : place.old.list);
    }
    if (finding.when != When::before) {
      text += "; new " + std::string(permitWord(step.fresh)) + ", " +
              (place.fresh.list.empty() ? "no list" : place.fresh.list);
    }
  }
  return text;
}

uint64_t UpdateProof::numJudged() const {
  uint64_t sum = 0;
  for (const uint64_t count : counts_) {
    sum += count;
  }
  return sum;
}

std::size_t UpdateProof::numItems() const {
  std::size_t sum = 0;
  for (const auto& sets : families_) {
    sum += sets ? sets->sets.numItems() : 0;
  }
  return sum;
}

std::size_t UpdateProof::numCombined() const {
  std::size_t sum = 0;
  for (const auto& sets : families_) {
    sum += sets ? sets->sets.numCombined() : 0;
  }
  return sum;
}

std::size_t UpdateProof::nodes() const {
  std::size_t sum = 0;
  for (const auto& sets : families_) {
    sum += sets ? sets->space.diagrams().numNodes() : 0;
  }
  return sum;
}

std::size_t UpdateProof::peakMemory() const {
  std::size_t sum = 0;
  for (const auto& sets : families_) {
    sum += sets ? sets->space.diagrams().peakMemory() : 0;
  }
  return sum;
}

} // namespace tool
