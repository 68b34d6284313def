#include "agent/Desired.h"

#include "packet/PacketText.h"

#include "verify/ListDiff.h"

#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/Common.h"
#include "tool/DiffCapture.h"
#include "tool/JsonDocument.h"
#include "tool/SetCommands.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

namespace tool {

namespace {

struct DiffOptions : SetOptions {
  std::string before;
  std::string after;
  std::string pcap;
};

// An interface of either configuration; null where it is not configured.
struct Side {
  const agent::Interface* before = nullptr;
  const agent::Interface* after = nullptr;
  const agent::Interface& any() const { return after != nullptr ? *after : *before; }
};

bool isRefused(const agent::Interface* intf, agent::Direction direction, agent::Family family) {
  return intf != nullptr && std::any_of(intf->refusedBindings.begin(), intf->refusedBindings.end(),
                                        [&](const agent::Binding& binding) {
                                          return binding.direction == direction && binding.family == family;
                                        });
}

// VLANs whose frames pass at the interface.
agent::PortSet carried(const agent::Interface& intf) {
  if (intf.kind == agent::InterfaceKind::vlan) {
    return {{intf.vlan, intf.vlan}};
  }
  if (intf.accessVlan) {
    return {{*intf.accessVlan, *intf.accessVlan}};
  }
  return intf.trunk ? intf.allowedVlans : agent::PortSet{{1, lastVlan}};
}

// The VLAN of frames without a tag.
uint16_t untaggedVlan(const agent::Interface* intf) {
  return intf == nullptr                            ? uint16_t{1}
         : intf->kind == agent::InterfaceKind::vlan ? intf->vlan
                                                    : intf->accessVlan.value_or(1);
}

// One family in one direction of an interface.
struct DiffPlace {
  Side side;
  agent::Direction direction = agent::Direction::in;
  agent::Family family = agent::Family::ipv4;
  const agent::AccessList* before = nullptr;
  const agent::AccessList* after = nullptr;
  const verify::ListDiff* diff = nullptr;

  const std::string& interface() const { return side.any().name; }
};

std::string listName(const agent::AccessList* list) {
  return list == nullptr ? "none" : list->name;
}

// Computes each pair of lists once.
class FamilyDiffer {
public:
  FamilyDiffer(agent::Family family, verify::Traffic traffic, const SetOptions& options, verify::Tick tick)
      : space_(family, traffic, options.memoryBytes()), tick_(std::move(tick)) {}

  const verify::ListDiff& diff(const DiffPlace& place) {
    const agent::PortSet vlans =
        space_.family() == agent::Family::mac ? carried(place.side.any()) : agent::PortSet();
    std::vector<uint16_t> ends;
    for (const agent::PortRange& range : vlans) {
      ends.insert(ends.end(), {range.low, range.high});
    }
    const auto key = std::tuple(place.before, place.after, ends);
    const auto found = diffs_.find(key);
    if (found != diffs_.end()) {
      return found->second;
    }
    const verify::PacketSet preferred =
        space_.family() == agent::Family::mac
            ? space_.fromRow({verify::Condition::within(verify::Field::vlan, vlans)})
            : space_.all();
    return diffs_.emplace(key, verify::diff(space_, place.before, place.after, preferred, tick_))
        .first->second;
  }

  verify::PacketSet permitted(const agent::AccessList* list) {
    const auto found = permitted_.find(list);
    return found != permitted_.end()
               ? found->second
               : permitted_.emplace(list, verify::permitted(space_, list, tick_)).first->second;
  }

  std::size_t peakMemory() const { return space_.diagrams().peakMemory(); }

private:
  using Key = std::tuple<const agent::AccessList*, const agent::AccessList*, std::vector<uint16_t>>;

  verify::PacketSpace space_;
  verify::Tick tick_;
  std::map<Key, verify::ListDiff> diffs_;
  std::map<const agent::AccessList*, verify::PacketSet> permitted_;
};

class Differ {
public:
  Differ(const agent::Config& before, const agent::Config& after, const DiffOptions& options)
      : before_(before), after_(after), options_(options) {}

  int run() {
    findPlaces();
    for (const agent::Family family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
      differs_.emplace(family, makeDiffer(family));
    }
    progress_ = std::make_unique<Progress>("lines taken in:", lines());
    for (DiffPlace& place : places_) {
      place.diff = &differs_.at(place.family)->diff(place);
      changes_ += place.diff->isEmpty() ? 0 : 1;
    }
    if (!options_.pcap.empty()) {
      findCapturePlaces();
      progress_.reset();
      capture_ = countCapture(options_.pcap, capturePlaces_);
    }
    if (options_.json) {
      printJson();
    } else {
      printText();
    }
    return changes_ == 0 ? exitDone : exitNo;
  }

private:
  // Interfaces in the order of the old configuration, then those that only the new one has.
  std::vector<Side> sides() const {
    std::vector<Side> sides;
    std::map<uint64_t, std::size_t> places;
    const auto add = [&](const agent::Config& config, const agent::Interface* Side::*member) {
      for (const agent::Interface& intf : config.interfaces) {
        if (intf.kind == agent::InterfaceKind::ethernet || intf.kind == agent::InterfaceKind::vlan) {
          const auto [found, fresh] = places.try_emplace(agent::intfId(intf).code(), sides.size());
          if (fresh) {
            sides.emplace_back();
          }
          sides[found->second].*member = &intf;
        }
      }
    };
    add(before_, &Side::before);
    add(after_, &Side::after);
    return sides;
  }

  // Of all pairs of lists, each once. Where they differ, lines are taken in again.
  uint64_t lines() const {
    std::set<std::pair<const agent::AccessList*, const agent::AccessList*>> pairs;
    for (const DiffPlace& place : places_) {
      pairs.insert({place.before, place.after});
    }
    uint64_t lines = 0;
    for (const auto& [before, after] : pairs) {
      lines += (before == nullptr ? 0 : before->rules.size()) + (after == nullptr ? 0 : after->rules.size());
    }
    return lines;
  }

  void findPlaces() {
    for (const Side& side : sides()) {
      for (const agent::Direction direction : {agent::Direction::in, agent::Direction::out}) {
        for (const agent::Family family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
          DiffPlace place{side,    direction, family, listAt(before_, side.before, direction, family),
                          nullptr, nullptr};
          // Where the new list is refused, the old one stays.
          place.after = isRefused(side.after, direction, family)
                            ? place.before
                            : listAt(after_, side.after, direction, family);
          if (place.before != nullptr || place.after != nullptr) {
            places_.push_back(place);
          }
        }
      }
    }
  }

  std::unique_ptr<FamilyDiffer> makeDiffer(agent::Family family) {
    verify::Traffic traffic = verify::Traffic::wire;
    for (const DiffPlace& place : places_) {
      if (place.family == family && (verify::trafficOf(place.before) == verify::Traffic::headers ||
                                     verify::trafficOf(place.after) == verify::Traffic::headers)) {
        traffic = verify::Traffic::headers;
      }
    }
    return std::make_unique<FamilyDiffer>(family, traffic, options_, [this] { progress_->at(++done_); });
  }

  // Those whose packets may change; families that do not change take part, because they may deny before and
  // after.
  void findCapturePlaces() {
    for (const DiffPlace& place : places_) {
      if (capturePlaces_.empty() || capturePlaces_.back().interface != place.interface() ||
          capturePlaces_.back().direction != place.direction) {
        CapturePlace made{place.interface(),
                          place.direction,
                          place.direction == agent::Direction::in ? carried(place.side.any())
                                                                  : agent::PortSet{{1, lastVlan}},
                          untaggedVlan(place.side.before != nullptr ? place.side.before : place.side.after),
                          untaggedVlan(&place.side.any()),
                          {}};
        capturePlaces_.push_back(std::move(made));
      }
      FamilyDiffer& differ = *differs_.at(place.family);
      capturePlaces_.back().families.push_back(
          {place.family, {differ.permitted(place.before), differ.permitted(place.after)}});
    }
  }

  // Frames of a VLAN that the interface carries.
  static std::string witnessText(packet::Packet witness, const DiffPlace& place) {
    const agent::Interface& intf = place.side.any();
    if (witness.vlan == 0 && intf.kind == agent::InterfaceKind::ethernet && !intf.accessVlan && intf.trunk &&
        !intf.allowedVlans.empty() && intf.allowedVlans.front().low != 1) {
      witness.vlan = intf.allowedVlans.front().low;
    }
    return packet::toText(witness);
  }

  // ------------------------------------------------------------------------------------------ JSON

  static Json judgementJson(const verify::Judgement& judgement, const agent::AccessList* list) {
    const agent::Rule* const rule = ruleOf(judgement, list);
    Json json{{"acl", list == nullptr ? Json(nullptr) : Json(list->name)}};
    json["file"] = rule == nullptr ? Json(nullptr) : Json(rule->loc.file);
    json["line"] = rule == nullptr ? Json(nullptr) : Json(rule->loc.line);
    json["rule"] = judgementText(judgement, list);
    return json;
  }

  static Json changeJson(const verify::VerdictChange& change, const DiffPlace& place) {
    if (change.packets.isEmpty()) {
      return nullptr;
    }
    Json json{{"packets", change.packets.count()},
              {"witness", witnessText(change.witness, place)},
              {"lines", Json::array()}};
    for (const verify::LineChange& line : change.lines) {
      json["lines"].push_back({{"old", judgementJson(line.before, place.before)},
                               {"new", judgementJson(line.after, place.after)},
                               {"packets", line.packets},
                               {"witness", witnessText(line.witness, place)}});
    }
    return json;
  }

  void printJson() const {
    Json json{{"equal", changes_ == 0}, {"places", Json::array()}, {"changes", Json::array()}};
    for (const DiffPlace& place : places_) {
      Json where{{"interface", place.interface()},
                 {"direction", directionName(place.direction)},
                 {"family", familyName(place.family)},
                 {"old", place.before == nullptr ? Json(nullptr) : Json(place.before->name)},
                 {"new", place.after == nullptr ? Json(nullptr) : Json(place.after->name)}};
      if (!place.diff->isEmpty()) {
        Json change = where;
        change["permitToDeny"] = changeJson(place.diff->denied, place);
        change["denyToPermit"] = changeJson(place.diff->permitted, place);
        json["changes"].push_back(std::move(change));
      }
      where["equal"] = place.diff->isEmpty();
      json["places"].push_back(std::move(where));
    }
    if (capture_) {
      json["capture"] = toJson(*capture_, capturePlaces_);
    }
    json["memory"] = memory();
    tool::printJson("diff", std::move(json));
  }

  // ------------------------------------------------------------------------------------------ text

  static std::string changeText(const verify::ListDiff& diff) {
    const bool denied = !diff.denied.packets.isEmpty();
    const bool permitted = !diff.permitted.packets.isEmpty();
    return denied && permitted ? "denies and permits more"
           : denied            ? "denies more"
           : permitted         ? "permits more"
                               : "equal";
  }

  static void printChange(const char* what, const verify::VerdictChange& change, const DiffPlace& place) {
    constexpr std::size_t shown = 10;
    if (change.packets.isEmpty()) {
      return;
    }
    std::cout << "\n"
              << bold(place.interface() + " " + directionName(place.direction) + " " +
                      familyName(place.family))
              << ", " << what << ": " << packetsText(change.packets.count()) << " packets\n";
    for (std::size_t i = 0; i < change.lines.size() && i < shown; ++i) {
      const verify::LineChange& line = change.lines[i];
      std::cout << "  " << packetsText(line.packets) << ", such as " << witnessText(line.witness, place)
                << "\n"
                << "    old  " << judgementText(line.before, place.before) << "\n"
                << "    new  " << judgementText(line.after, place.after) << "\n";
    }
    if (change.lines.size() > shown) {
      std::cout << "  and " << change.lines.size() - shown
                << " more pairs of lines with fewer packets; --json has them all\n";
    }
  }

  void printText() const {
    std::vector<std::vector<std::string>> rows{
        {"INTERFACE", "DIRECTION", "FAMILY", "OLD LIST", "NEW LIST", "ANSWER"}};
    for (const DiffPlace& place : places_) {
      rows.push_back({place.interface(), directionName(place.direction), familyName(place.family),
                      listName(place.before), listName(place.after), changeText(*place.diff)});
    }
    if (!places_.empty()) {
      std::cout << columns(rows);
    }
    for (const DiffPlace& place : places_) {
      printChange("from permit to deny", place.diff->denied, place);
      printChange("from deny to permit", place.diff->permitted, place);
    }
    std::cout << "\n";
    if (capture_ && !capturePlaces_.empty()) {
      std::cout << captureText(*capture_, capturePlaces_) << "\n";
    }
    if (changes_ == 0) {
      std::cout << green("nothing changes: both configurations judge every packet alike at every interface");
    } else {
      std::cout << red(std::to_string(changes_) + " of " + std::to_string(places_.size()) +
                       (places_.size() == 1 ? " place judges" : " places judge") + " packets differently");
    }
    std::cout << "; " << memoryText(memory()) << " of memory\n";
  }

  std::size_t memory() const {
    std::size_t most = 0;
    for (const auto& [family, differ] : differs_) {
      most = std::max(most, differ->peakMemory());
    }
    return most;
  }

  const agent::Config& before_;
  const agent::Config& after_;
  const DiffOptions& options_;
  std::unique_ptr<Progress> progress_;
  uint64_t done_ = 0;
  std::map<agent::Family, std::unique_ptr<FamilyDiffer>> differs_; // hold what the places point to
  std::vector<DiffPlace> places_;
  std::size_t changes_ = 0;
  std::vector<CapturePlace> capturePlaces_;
  std::optional<CaptureAnswer> capture_;
};

int runDiff(const DiffOptions& options) {
  const agent::Config before = loadConfig(options.before, options);
  const agent::Config after = loadConfig(options.after, options);
  return Differ(before, after, options).run();
}

} // namespace

void addDiff(Command program, Run& run) {
  auto options = std::make_shared<DiffOptions>();
  const Command command =
      program.subcommand("diff", "Which packets two configurations judge differently, and by which lines");
  command.option("OLD", options->before, "The configuration in force").required();
  command.option("NEW", options->after, "The configuration to change to").required();
  command.option("--pcap", options->pcap, "Count the packets and flows of this capture that change");
  addSetOptions(command, *options);
  command.footer(
      "Compares what the lists of each interface, direction and family permit; where there is no list,\n"
      "everything is permitted. The packets shown are in the words of trace. Needs no chip.\n\n"
      "Examples:\n"
      "  xpacl diff old.conf new.conf\n"
      "  xpacl diff old.conf new.conf --pcap lan.pcap --json\n\n"
      "Exit status 0: no packet at all changes its verdict; 1: some do; 2: bad input.");
  command.runs(run, [options] { return runDiff(*options); });
}

} // namespace tool
