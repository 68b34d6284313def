#include "agent/config/ConfigReader.h"
#include "packet/PacketText.h"
#include "sim/Key.h"
#include "test/Random.h"
#include "test/RandomLists.h"
#include "tool/UpdateCheck.h"
#include "tool/UpdateProof.h"
#include "verify/LineEvaluator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>

// Proofs of changes: they agree with packets that are sent between the writes, and with sets that are made
// anew after every write; and whatever is done to a sequence of writes, the packet that they name is one that
// the chip and the lines judge as they say.

namespace {

using agent::AccessList;
using agent::Direction;
using agent::Family;
using test::Random;
using test::RandomLists;
using tool::PlaceVerdict;
using tool::UpdateProof;

bool isLong() {
  return std::getenv("XPACL_LONG") != nullptr;
}

#ifdef __SANITIZE_ADDRESS__
constexpr unsigned fewer = 4;
#else
constexpr unsigned fewer = 1;
#endif

constexpr agent::Table tables[] = {agent::Table::ingressV4, agent::Table::ingressV6, agent::Table::egressV4,
                                   agent::Table::egressV6, agent::Table::ingressMac};

// Two ports, one of them in two VLANs, of which one has an interface.
class RandomChange {
public:
  RandomChange(Random& random, RandomLists& lists) : random_(random), lists_(lists) {
    const uint32_t rows = random.oneIn(3) ? 40 : 400;
    for (agent::Config* const config : {&old, &fresh}) {
      for (const agent::Table table : tables) {
        config->tcamRows[table] = rows;
      }
      addInterfaces(*config);
    }
    for (std::size_t i = 0; i < old.interfaces.size(); ++i) {
      bindLists(i);
    }
  }

  agent::Config old;
  agent::Config fresh;

private:
  void addInterfaces(agent::Config& config) {
    for (unsigned port = 1; port <= 2; ++port) {
      agent::Interface intf;
      intf.name = intf.portName = "Ethernet" + std::to_string(port);
      if (port == 1) {
        intf.accessVlan = 1;
      } else {
        intf.trunk = true;
        intf.allowedVlans.push_back({1, 2});
      }
      config.interfaces.push_back(intf);
    }
    agent::Interface intf;
    intf.name = "Vlan1";
    intf.kind = agent::InterfaceKind::vlan;
    intf.vlan = 1;
    config.interfaces.push_back(intf);
  }

  void bindLists(std::size_t at) {
    const bool vlan = old.interfaces[at].kind == agent::InterfaceKind::vlan;
    for (const Direction direction : {Direction::in, Direction::out}) {
      for (const Family family : {Family::ipv4, Family::ipv6, Family::mac}) {
        if (random_.oneIn(2) || (family == Family::mac && (vlan || direction == Direction::out))) {
          continue;
        }
        const AccessList before = lists_.list(name(), family, 5);
        const AccessList after = random_.oneIn(3) ? edited(before) : lists_.list(name(), family, 5);
        if (!random_.oneIn(4)) {
          bind(old, at, before, direction);
        }
        if (!random_.oneIn(4)) {
          bind(fresh, at, after, direction);
        }
      }
    }
  }

  AccessList edited(AccessList list) {
    if (!list.rules.empty()) {
      agent::Rule& rule = list.rules[random_.below(static_cast<unsigned>(list.rules.size()))];
      rule.permit = !rule.permit;
    }
    return list;
  }

  std::string name() { return "L" + std::to_string(++names_); }

  static void bind(agent::Config& config, std::size_t at, const AccessList& list, Direction direction) {
    if (!list.rules.empty()) {
      config.lists.push_back(list);
      config.interfaces[at].bindings.push_back({list.name, list.family, direction, {}});
    }
  }

  Random& random_;
  RandomLists& lists_;
  unsigned names_ = 0;
};

struct Recorded {
  tool::Change change;
  bool ok = false;
};

Recorded recorded(const agent::Config& old, const agent::Config& fresh) {
  Recorded made;
  try {
    tool::Session session(old, tool::CommonOptions(), {&fresh});
    agent::ApplyResult result;
    made.change = tool::recordChange(session, fresh, result);
    made.ok = result.ok;
  } catch (const tool::Exit&) {
    // The old configuration does not fit.
  }
  return made;
}

const AccessList* listOf(const agent::Config& config, const tool::ProofPlace& place,
                         const tool::PlaceSide& side) {
  return side.list.empty() ? nullptr : config.list(place.family, side.list);
}

// Everything anew after each write: no trees, nothing remembered, every place looked at.
class Anew {
public:
  Anew(const tool::Change& change, const agent::Config& old, const agent::Config& fresh)
      : change_(change), old_(old), fresh_(fresh), places_(tool::proofPlaces(change)),
        chips_(tool::chipsOf(change.chips, change.start)) {
    for (const Family family : {Family::ipv4, Family::ipv6, Family::mac}) {
      spaces_.emplace(family, std::make_unique<verify::PacketSpace>(family));
    }
  }

  // The verdict of every lasting place after each write, and at the ends whether they are as configured.
  std::vector<std::vector<PlaceVerdict>> run() {
    std::vector<std::vector<PlaceVerdict>> verdicts;
    startsRight_ = isRight(false);
    for (const tool::ChipWrite& write : change_.writes) {
      tool::applyWrite(*chips_, write);
      ofState_.clear();
      verdicts.emplace_back();
      for (const tool::ProofPlace& place : places_) {
        verdicts.back().push_back(place.isLasting() ? judged(place) : PlaceVerdict::same);
      }
    }
    endsRight_ = isRight(true);
    return verdicts;
  }

  bool startsRight() const { return startsRight_; }
  bool endsRight() const { return endsRight_; }

private:
  // Lists do not change; what rows permit is found out again in every state, once an id and copy.
  verify::PacketSet chipSet(const tool::ProofPlace& place) {
    verify::PacketSpace& space = *spaces_.at(place.family);
    const tool::PlaceState state = tool::stateAt(*chips_, place);
    if (!state.enabled) {
      return space.all();
    }
    const auto key = std::tuple(place.chip, place.table(), state.aclId, place.role);
    const auto found = ofState_.find(key);
    return found != ofState_.end()
               ? found->second
               : ofState_
                     .emplace(key, tool::chipPermitted(space, *chips_->device(place.chip),
                                                       tool::lookupAt(place, state.aclId)))
                     .first->second;
  }
  verify::PacketSet lines(const tool::ProofPlace& place, bool fresh) {
    const AccessList* const list =
        fresh ? listOf(fresh_, place, place.fresh) : listOf(old_, place, place.old);
    const auto found = lists_.find({place.family, list});
    return found != lists_.end() ? found->second
                                 : lists_
                                       .emplace(std::pair(place.family, list),
                                                verify::permitted(*spaces_.at(place.family), list))
                                       .first->second;
  }
  PlaceVerdict judged(const tool::ProofPlace& place) {
    return tool::judgedAs(chipSet(place), lines(place, false), lines(place, true),
                          tool::stateAt(*chips_, place).blocked(),
                          tool::enteringAt(*spaces_.at(place.family), place));
  }
  bool isRight(bool fresh) {
    return std::all_of(places_.begin(), places_.end(), [&](const tool::ProofPlace& place) {
      return !(fresh ? place.fresh : place.old).there || chipSet(place) == lines(place, fresh);
    });
  }

  const tool::Change& change_;
  const agent::Config& old_;
  const agent::Config& fresh_;
  std::vector<tool::ProofPlace> places_;
  std::unique_ptr<sim::System> chips_;
  std::map<Family, std::unique_ptr<verify::PacketSpace>> spaces_;
  std::map<std::tuple<uint8_t, XpXdk::xpIaclType_e, uint8_t, sim::Role>, verify::PacketSet> ofState_;
  std::map<std::pair<Family, const AccessList*>, verify::PacketSet> lists_;
  bool startsRight_ = false;
  bool endsRight_ = false;
};

// Compares what the proof says of its writes with sets made anew: the places that it looked at, and that the
// others stayed what they were.
std::string compared(const UpdateProof& proof, Anew& anew) {
  const std::vector<std::vector<PlaceVerdict>> verdicts = anew.run();
  std::string text;
  const std::size_t looked = proof.judged().size();
  for (std::size_t i = 0; i < looked; ++i) {
    std::vector<PlaceVerdict> known = i == 0 ? verdicts[0] : verdicts[i - 1];
    for (const auto& [place, verdict] : proof.judged()[i]) {
      if (verdicts[i][place] != verdict) {
        text += "write " + std::to_string(i + 1) + " " + proof.places()[place].text() + ": " +
                verdictWord(verdict) + ", anew " + verdictWord(verdicts[i][place]) + "\n";
      }
      known[place] = verdict;
    }
    if (i > 0 && known != verdicts[i] && !proof.finding()) {
      text += "write " + std::to_string(i + 1) + ": a place that was not looked at changed\n";
    }
  }
  return text;
}

TEST(UpdateProof, RandomChangesAreProvenAndAgreeWithSetsMadeAnew) {
  Random random(Random::seed("prove"));
  RandomLists lists(random);
  const unsigned changes = isLong() ? 1000 : 24 / fewer;
  uint64_t writes = 0;
  uint64_t judged = 0;
  unsigned refused = 0;
  for (unsigned i = 0; i < changes; ++i) {
    const RandomChange configs(random, lists);
    const Recorded made = recorded(configs.old, configs.fresh);
    if (!made.ok) {
      ++refused;
      continue;
    }
    UpdateProof proof(made.change, configs.old, configs.fresh);
    ASSERT_TRUE(proof.run()) << "change " << i << "\n" << proof.findingText();
    Anew anew(made.change, configs.old, configs.fresh);
    ASSERT_EQ(compared(proof, anew), "") << "change " << i;
    ASSERT_TRUE(anew.startsRight() && anew.endsRight());
    writes += made.change.writes.size();
    judged += proof.numJudged();
  }
  std::cout << changes << " changes, " << refused << " do not fit, " << writes << " writes, " << judged
            << " places judged\n";
  EXPECT_LT(refused, changes);
  EXPECT_GT(judged, 0u);
}

} // namespace
