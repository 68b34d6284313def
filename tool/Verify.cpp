#include "packet/PacketText.h"

#include "sim/ChipFile.h"
#include "sim/Key.h"

#include "verify/LineEvaluator.h"
#include "verify/ListSets.h"

#include "tool/ChipSets.h"
#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/JsonDocument.h"
#include "tool/Session.h"
#include "tool/SetCommands.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <tuple>

namespace tool {

namespace {

struct VerifyOptions : SetOptions {
  std::string config;
  std::string chipDump;
};

// A packet that the chip and the lines judge differently.
struct Difference {
  packet::Packet witness;
  double packets = 0; // that differ, counted by the fields that rows compare
  bool chipPermits = false;
  std::optional<uint32_t> row; // empty: none hit, or no lookup
  std::string rowText;
  verify::Judgement line;
};

struct Comparison {
  ChipPlace place;
  std::size_t rows = 0;
  std::size_t lines = 0;
  std::size_t nodes = 0;
  std::optional<Difference> difference;
};

// All comparisons of one family. What was computed for one place serves every other that has the same rows
// or the same list.
class FamilyVerifier {
public:
  FamilyVerifier(Session& session, agent::Family family, const SetOptions& options, const verify::Tick& tick)
      : session_(session), space_(family, verify::Traffic::headers, options.memoryBytes()), tick_(tick) {}

  Comparison compare(const ChipPlace& place) {
    Comparison comparison;
    comparison.place = place;
    comparison.lines = place.list == nullptr ? 0 : place.list->rules.size();
    const verify::PacketSet& lines = listSet(place.list);
    const ChipSet& chip = chipSet(place);
    comparison.rows = chip.rows;
    comparison.nodes = space_.diagrams().size(lines.diagram());
    if (!(chip.permitted == lines)) {
      comparison.difference = difference(place, chip.permitted, lines);
    }
    return comparison;
  }

  const verify::Diagrams& diagrams() const { return space_.diagrams(); }

private:
  struct ChipSet {
    verify::PacketSet permitted;
    std::size_t rows = 0;
  };

  const verify::PacketSet& listSet(const agent::AccessList* list) {
    const auto found = lists_.find(list);
    return found != lists_.end() ? found->second
                                 : lists_.emplace(list, verify::permitted(space_, list, tick_)).first->second;
  }

  const ChipSet& chipSet(const ChipPlace& place) {
    const sim::Device& device = *session_.system().device(place.chip);
    const ChipLookup& lookup = place.lookup;
    const auto key = std::tuple(place.enabled, place.chip, lookup.table, lookup.aclId, lookup.role,
                                lookup.ingressPort % device.config().numTableCopies);
    auto found = chips_.find(key);
    if (found == chips_.end()) {
      ChipSet made{space_.all(), 0};
      if (place.enabled) {
        made.permitted = chipPermitted(space_, device, lookup, &made.rows, tick_);
      }
      found = chips_.emplace(key, std::move(made)).first;
    }
    return found->second;
  }

  Difference difference(const ChipPlace& place, const verify::PacketSet& chip,
                        const verify::PacketSet& lines) {
    Difference difference;
    const verify::PacketSet differing = (chip - lines) | (lines - chip);
    difference.packets = differing.count();
    difference.witness = witnessAt(differing, place);
    const uint16_t vlan = vlanOf(difference.witness, place);
    difference.chipPermits = chip.contains(difference.witness, vlan);
    difference.line = place.list == nullptr ? verify::Judgement{true, verify::Decider::noList, 0}
                                            : verify::evaluate(*place.list, difference.witness, vlan);
    if (!place.enabled) {
      difference.rowText = "the chip makes no lookup";
      return difference;
    }
    const sim::TcamTable& table = *session_.system().device(place.chip)->tcam(place.lookup.table);
    const uint32_t row = table.lookup(
        sim::buildKey(place.lookup.table, difference.witness, place.lookup.aclId, place.lookup.role, vlan));
    if (row == sim::TcamTable::noRow) {
      difference.rowText = "no row hits";
      return difference;
    }
    difference.row = row;
    difference.rowText = rowOwnerText(place, row);
    return difference;
  }

  // Frames of a VLAN that the port carries, where there are such.
  packet::Packet witnessAt(const verify::PacketSet& differing, const ChipPlace& place) {
    const sim::PortAttachment& attachment = session_.system().device(place.chip)->attachment(place.port);
    if (space_.family() != agent::Family::mac) {
      packet::Packet witness = differing.witness();
      // Frames without a tag are in the access VLAN, or in VLAN 1, which may not be the one of the entry.
      if (place.kind == agent::InterfaceKind::ethernet && attachment.accessVlan() == 0) {
        witness.vlan = place.vlan;
        for (uint16_t vlan = 1; witness.vlan == 0 && !attachment.carries(1) && vlan < 4095; ++vlan) {
          witness.vlan = attachment.carries(vlan) ? vlan : uint16_t{0};
        }
      }
      return witness;
    }
    agent::PortSet carried;
    for (uint16_t vlan = 1; vlan < 4095; ++vlan) {
      if (attachment.carries(vlan)) {
        carried.push_back({vlan, vlan});
      }
    }
    const verify::PacketSet entering =
        differing & space_.fromRow({verify::Condition::within(verify::Field::vlan, carried)});
    return entering.isEmpty() ? differing.witness() : entering.witness();
  }

  uint16_t vlanOf(const packet::Packet& packet, const ChipPlace& place) const {
    return packet.vlan != 0 ? packet.vlan : place.vlan != 0 ? place.vlan : uint16_t{1};
  }

  std::string rowOwnerText(const ChipPlace& place, uint32_t row) const {
    const agent::RowOwner* const owner =
        session_.agent().rowOwner(place.chip, tcamType(place.lookup.table), row);
    if (owner == nullptr) {
      return "the default row, or none of the library's";
    }
    const agent::Rule* const rule = owner->rule();
    return owner->acl->source.name + " " + (rule == nullptr ? "" : rule->loc.text() + " ") +
           owner->acl->textOf(owner->origin);
  }

  using ChipKey = std::tuple<bool, uint8_t, XpXdk::xpIaclType_e, uint8_t, sim::Role, uint32_t>;

  Session& session_;
  verify::PacketSpace space_;
  verify::Tick tick_;
  std::map<const agent::AccessList*, verify::PacketSet> lists_;
  std::map<ChipKey, ChipSet> chips_;
};

std::string listName(const ChipPlace& place) {
  return place.list == nullptr ? "none" : place.list->name;
}

Json differenceJson(const Comparison& comparison) {
  const Difference& difference = *comparison.difference;
  const ChipPlace& place = comparison.place;
  const agent::Rule* const rule = ruleOf(difference.line, place.list);
  return {{"interface", place.interface},
          {"direction", directionName(place.direction)},
          {"family", familyName(familyOf(place.lookup.table))},
          {"list", place.list == nullptr ? Json(nullptr) : Json(place.list->name)},
          {"witness", packet::toText(difference.witness)},
          {"packets", difference.packets},
          {"chip", permitWord(difference.chipPermits)},
          {"lines", permitWord(difference.line.permit)},
          {"row", difference.row ? Json(*difference.row) : Json(nullptr)},
          {"rowRule", difference.rowText},
          {"line", rule == nullptr ? Json(nullptr) : Json(rule->loc.line)},
          {"rule", judgementText(difference.line, place.list)}};
}

Json comparisonJson(const Comparison& comparison) {
  const ChipPlace& place = comparison.place;
  return {{"interface", place.interface},
          {"direction", directionName(place.direction)},
          {"family", familyName(familyOf(place.lookup.table))},
          {"list", place.list == nullptr ? Json(nullptr) : Json(place.list->name)},
          {"chip", place.chip},
          {"table", sim::tableText(place.lookup.table)},
          {"lookup", place.enabled},
          {"aclId", place.lookup.aclId},
          {"role", place.lookup.role == sim::Role::routed ? "routed" : "port"},
          {"rows", comparison.rows},
          {"lines", comparison.lines},
          {"nodes", comparison.nodes},
          {"equal", !comparison.difference}};
}

class Verifier {
public:
  Verifier(Session& session, const VerifyOptions& options)
      : session_(session), options_(options), places_(chipPlaces(session)),
        progress_("rows and lines taken in:", steps(session, places_)) {}

  int run() {
    for (const agent::Family family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
      FamilyVerifier verifier(session_, family, options_, [this] { progress_.at(++done_); });
      for (const ChipPlace& place : places_) {
        if (familyOf(place.lookup.table) == family) {
          comparisons_.push_back(verifier.compare(place));
        }
      }
      memory_ = std::max(memory_, verifier.diagrams().peakMemory());
    }
    differences_ = static_cast<std::size_t>(
        std::count_if(comparisons_.begin(), comparisons_.end(),
                      [](const Comparison& comparison) { return comparison.difference.has_value(); }));
    if (options_.json) {
      printJson();
    } else {
      printText();
    }
    return differences_ == 0 ? exitDone : exitNo;
  }

private:
  // About as many as there will be: every list once, and every row.
  static uint64_t steps(Session& session, const std::vector<ChipPlace>& places) {
    std::set<const agent::AccessList*> lists;
    std::set<std::tuple<uint8_t, XpXdk::xpIaclType_e>> tables;
    uint64_t steps = 0;
    for (const ChipPlace& place : places) {
      if (place.list != nullptr && lists.insert(place.list).second) {
        steps += place.list->rules.size();
      }
      if (place.enabled && tables.insert({place.chip, place.lookup.table}).second) {
        steps += session.system().device(place.chip)->tcam(place.lookup.table)->numValid();
      }
    }
    return steps;
  }

  void printJson() const {
    Json json{{"equal", differences_ == 0}, {"comparisons", Json::array()}, {"differences", Json::array()}};
    for (const Comparison& comparison : comparisons_) {
      json["comparisons"].push_back(comparisonJson(comparison));
      if (comparison.difference) {
        json["differences"].push_back(differenceJson(comparison));
      }
    }
    json["memory"] = memory_;
    tool::printJson("verify", std::move(json));
  }

  void printText() const {
    std::vector<std::vector<std::string>> rows{
        {"INTERFACE", "DIRECTION", "FAMILY", "LIST", "CHIP", "ID", "ROWS", "LINES", "NODES", "ANSWER"}};
    for (const Comparison& comparison : comparisons_) {
      const ChipPlace& place = comparison.place;
      rows.push_back({place.interface, directionName(place.direction),
                      familyName(familyOf(place.lookup.table)), listName(place), std::to_string(place.chip),
                      std::to_string(place.lookup.aclId), std::to_string(comparison.rows),
                      std::to_string(comparison.lines), std::to_string(comparison.nodes),
                      comparison.difference ? "differs" : "equal"});
    }
    if (!comparisons_.empty()) {
      std::cout << columns(rows);
    }
    for (const Comparison& comparison : comparisons_) {
      if (comparison.difference) {
        printDifference(comparison);
      }
    }
    std::cout << "\n";
    if (differences_ == 0) {
      std::cout << green("the chips judge every packet as the lines do");
    } else {
      std::cout << red(std::to_string(differences_) + " of " + std::to_string(comparisons_.size()) +
                       " places judge packets in another way than the lines");
    }
    std::cout << "; " << memoryText(memory_) << " of memory\n";
  }

  void printDifference(const Comparison& comparison) const {
    const ChipPlace& place = comparison.place;
    const Difference& difference = *comparison.difference;
    std::cout << "\n"
              << red("differs") << "  " << place.interface << " " << directionName(place.direction) << " "
              << familyName(familyOf(place.lookup.table)) << ", for " << packetsText(difference.packets)
              << " packets such as\n"
              << "  " << packet::toText(difference.witness) << "\n"
              << "  chip " << unsigned{place.chip} << ": " << permitWord(difference.chipPermits) << ", "
              << (difference.row ? "row " + std::to_string(*difference.row) + ", " : "") << difference.rowText
              << "\n"
              << "  lines:  " << permitWord(difference.line.permit) << ", "
              << judgementText(difference.line, place.list) << "\n";
  }

  Session& session_;
  const VerifyOptions& options_;
  std::vector<ChipPlace> places_;
  Progress progress_;
  uint64_t done_ = 0;
  std::vector<Comparison> comparisons_;
  std::size_t differences_ = 0;
  std::size_t memory_ = 0;
};

int runVerify(const VerifyOptions& options) {
  Session session(loadConfig(options.config, options), options);
  if (!options.chipDump.empty()) {
    try {
      sim::loadChips(session.system(), options.chipDump);
    } catch (const sim::ChipFileError& error) {
      throw Exit(exitBadInput, error.what());
    }
  }
  return Verifier(session, options).run();
}

} // namespace

void addVerify(Command program, Run& run) {
  auto options = std::make_shared<VerifyOptions>();
  const Command command = program.subcommand(
      "verify", "Prove that the rows in the chips and the configured lines judge every packet alike");
  command.option("CONFIG", options->config, "The configuration").required();
  command.option("--chip-dump", options->chipDump,
                 "Look at the chips in this file, as audit --save wrote it, instead of freshly "
                 "programmed ones");
  addSetOptions(command, *options);
  command.footer("Examples:\n"
                 "  xpacl verify campus.conf\n"
                 "  xpacl verify campus.conf --chip-dump chips.bin --json\n\n"
                 "Exit status 1: some packet is judged differently; one such packet is shown in the words of "
                 "trace.");
  command.runs(run, [options] { return runVerify(*options); });
}

} // namespace tool
