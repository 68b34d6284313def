#include "tool/CheckCertificate.h"

#include "sim/ChipFile.h"

#include "tool/CertificateWays.h"
#include "tool/Command.h"
#include "tool/Commands.h"
#include "tool/JsonDocument.h"
#include "tool/SetCommands.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <tuple>

namespace tool {

using namespace XpXdk;
using sim::Op;
using verify::PacketSet;

namespace {

void expectStatus(XP_STATUS status) {
  if (status != statusOk) {
    throw BadWrite("the chip refuses it with status " + std::to_string(status));
  }
}

void expectIndex(const std::vector<uint32_t>& indexes, const ChipWrite& write) {
  if (indexes.size() != 1 || indexes.front() != write.index) {
    throw BadWrite("the chip puts the entry at another index than " + std::to_string(write.index));
  }
}

void playRow(xpIaclMgr& manager, const ChipWrite& write) {
  const auto byte = [&](std::size_t at) { return static_cast<uint8_t>(write.bytes.at(at)); };
  if (write.op == Op::setEntryValid) {
    expectStatus(manager.setEntryValid(write.chip, write.table, write.index, byte(0)));
  } else if (write.op == Op::writeData) {
    const uint32_t word = byte(1) | byte(2) << 8 | byte(3) << 16 | static_cast<uint32_t>(byte(4)) << 24;
    const xpIaclData_t data = xpIaclData_t::fromWord(word);
    if (data.word() != word) {
      throw BadWrite("no data word has these bits");
    }
    expectStatus(manager.writeData(write.chip, write.table, byte(0), write.index, &data));
  } else {
    const IaclKeyLayout& layout = *iaclKeyLayout(iaclTable(write.table)->keyType);
    xpIaclkeyFieldList key;
    key.keyType = layout.keyType;
    key.numFields = layout.numFields;
    key.length = layout.length;
    key.fields = layout.fields;
    for (std::size_t i = 0; i < layout.length; ++i) {
      key.value[i] = byte(i);
      key.mask[i] = byte(layout.length + i);
    }
    expectStatus(manager.writeKeyMask(write.chip, write.table, write.index, 1, &key));
  }
}

// What a row is made of, to see whether a write changed it.
struct RowContent {
  sim::TcamRow row;
  std::vector<uint32_t> data;
  bool operator==(const RowContent&) const = default;

  // Whether lookups with this id can hit it.
  bool isFor(xpIaclType_e table, uint8_t id) const {
    const IaclKeyLayout& layout = *iaclKeyLayout(iaclTable(table)->keyType);
    const uint8_t field = table == TACL_MAC_ACL ? uint8_t{IACL_MAC_ACL_ID} : uint8_t{IACL_IP_ACL_ID};
    const std::size_t low = iaclField(layout, field)->offset;
    return row.valid && ((row.value[low] ^ id) & ~row.mask[low]) == 0 &&
           (row.value[low + 1] & ~row.mask[low + 1]) == 0;
  }
};

RowContent rowContent(const sim::System& system, const ChipWrite& write) {
  RowContent content;
  const sim::Device* const device = system.device(write.chip);
  const sim::TcamTable* const table = device == nullptr ? nullptr : device->tcam(write.table);
  if (table != nullptr && write.index < table->numRows()) {
    content.row = table->row(write.index);
    for (unsigned copy = 0; copy < table->numCopies(); ++copy) {
      content.data.push_back(table->data(write.index, copy));
    }
  }
  return content;
}

// Follows the writes and judges the places, one space of sets a family.
class Playback {
public:
  Playback(const Change& change, const CertificateConfigs* configs, std::size_t memoryLimit)
      : change_(change), configs_(configs), places_(proofPlaces(change)),
        chips_(chipsOf(change.chips, change.start)) {
    for (const agent::Family family : {agent::Family::ipv4, agent::Family::ipv6, agent::Family::mac}) {
      spaces_.push_back(std::make_unique<verify::PacketSpace>(family, verify::Traffic::headers, memoryLimit));
    }
    for (const ProofPlace& place : places_) {
      states_.push_back(stateAt(*chips_, place));
    }
  }

  const std::vector<ProofPlace>& places() const { return places_; }
  const sim::System& chips() const { return *chips_; }

  // What the lines say, or without them what the chips did at the start and do at the end.
  void findSides() {
    std::unique_ptr<sim::System> end;
    if (configs_ == nullptr) {
      end = chipsOf(change_.chips, change_.start);
      for (std::size_t i = 0; i < change_.writes.size(); ++i) {
        try {
          applyWrite(*end, change_.writes[i]);
        } catch (const BadWrite& error) {
          throw BadCertificate("write " + std::to_string(i + 1) + " (" + writeText(change_.writes[i]) +
                               "): " + error.what());
        }
      }
    }
    for (const ProofPlace& place : places_) {
      if (configs_ != nullptr) {
        old_.push_back(lines(configs_->old, place, place.old));
        fresh_.push_back(lines(configs_->fresh, place, place.fresh));
      } else {
        old_.push_back(madeOf(*chips_, place, started_));
        fresh_.push_back(madeOf(*end, place, ended_));
      }
    }
  }

  // Every place that has packets then does what it is to do.
  bool isAt(bool end, uint32_t& place) {
    for (place = 0; place < places_.size(); ++place) {
      const ProofPlace& at = places_[place];
      const PacketSet& wanted = (end ? fresh_ : old_)[place];
      const PacketSet now = setAt(place);
      if ((end ? at.fresh : at.old).there &&
          !(((now - wanted) | (wanted - now)) & enteringAt(spaceOf(at), at)).isEmpty()) {
        return false;
      }
    }
    return true;
  }

  Judged play(const ChipWrite& write) {
    const RowContent before = rowContent(*chips_, write);
    playWrite(*chips_, write);
    const RowContent after = rowContent(*chips_, write);
    const bool rowChanged = isRowWrite(write.op) && !(before == after);
    if (rowChanged) {
      forget(write, before, after);
    }
    Judged judged;
    for (uint32_t i = 0; i < places_.size(); ++i) {
      const ProofPlace& place = places_[i];
      const PlaceState state = stateAt(*chips_, place);
      const bool touched = rowChanged && state.enabled && place.chip == write.chip &&
                           place.table() == write.table &&
                           (before.isFor(write.table, state.aclId) || after.isFor(write.table, state.aclId));
      const bool moved = !(state == states_[i]);
      states_[i] = state;
      if ((touched || moved) && place.isLasting()) {
        judged.emplace_back(i, judge(i));
      }
    }
    return judged;
  }

  // A packet that passes several places by an old list here and a new one there, as text; empty: none does.
  std::string strayOnAWay() {
    if (!isMixed()) {
      return {};
    }
    if (!ways_) {
      ways_ = std::make_unique<CertificateWays>(change_, places_);
    }
    for (const CertificateWays::Way& way : ways_->ways()) {
      verify::PacketSpace& frameSpace = *spaces_[static_cast<std::size_t>(agent::Family::mac)];
      WaySets packets = everything(*spaces_[static_cast<std::size_t>(way.family)]);
      WaySets frames = everything(frameSpace);
      frames.now = framesWith(frameSpace, way);
      for (const uint32_t place : way.places) {
        WaySets& sets = places_[place].family == agent::Family::mac ? frames : packets;
        sets.now = sets.now & setAt(place);
        sets.old = sets.old & old_[place];
        sets.fresh = sets.fresh & fresh_[place];
      }
      const std::string stray = strayText(packets, frames);
      if (!stray.empty()) {
        return stray + ", " + way.text;
      }
    }
    return {};
  }

  std::size_t peakMemory() const {
    std::size_t sum = 0;
    for (const auto& space : spaces_) {
      sum += space->diagrams().peakMemory();
    }
    return sum;
  }

private:
  // Chip, table, id, role, copy of the data words.
  using View = std::tuple<uint8_t, xpIaclType_e, uint8_t, sim::Role, unsigned>;
  using Views = std::map<View, PacketSet>;

  verify::PacketSpace& spaceOf(const ProofPlace& place) {
    return *spaces_[static_cast<std::size_t>(place.family)];
  }

  PacketSet lines(const agent::Config& config, const ProofPlace& place, const PlaceSide& side) {
    const agent::AccessList* const list = side.list.empty() ? nullptr : config.list(place.family, side.list);
    const auto found = lines_.find({list, place.family});
    return found != lines_.end()
               ? found->second
               : lines_.emplace(std::pair(list, place.family), verify::permitted(spaceOf(place), list))
                     .first->second;
  }

  // From the rows as they stand.
  PacketSet madeOf(const sim::System& system, const ProofPlace& place, Views& known) {
    const PlaceState state = stateAt(system, place);
    if (!state.enabled) {
      return spaceOf(place).all();
    }
    const sim::Device& device = *system.device(place.chip);
    const View view{place.chip, place.table(), state.aclId, place.role,
                    place.port % device.config().numTableCopies};
    const auto found = known.find(view);
    return found != known.end()
               ? found->second
               : known.emplace(view, chipPermitted(spaceOf(place), device, lookupAt(place, state.aclId)))
                     .first->second;
  }

  PacketSet setAt(uint32_t place) { return madeOf(*chips_, places_[place], views_); }

  void forget(const ChipWrite& write, const RowContent& before, const RowContent& after) {
    for (auto at = views_.begin(); at != views_.end();) {
      const auto& [chip, table, id, role, copy] = at->first;
      const bool touched =
          chip == write.chip && table == write.table && (before.isFor(table, id) || after.isFor(table, id));
      at = touched ? views_.erase(at) : std::next(at);
    }
  }

  static WaySets everything(verify::PacketSpace& space) { return {space.all(), space.all(), space.all()}; }

  // The frames that carry a packet of the way's family, in its VLAN where that is asked.
  static PacketSet framesWith(verify::PacketSpace& space, const CertificateWays::Way& way) {
    const uint16_t carried =
        way.family == agent::Family::ipv4 ? packet::etherTypeIpv4 : packet::etherTypeIpv6;
    const PacketSet frames =
        space.fromRow({verify::Condition::equals(verify::Field::etherType, carried, 16)});
    return way.macVlan == 0
               ? frames
               : frames & space.fromRow({verify::Condition::equals(verify::Field::vlan, way.macVlan, 12)});
  }

  // Some place permits what its old list denies, and some place what its new one denies.
  bool isMixed() {
    bool ahead = false;
    bool behind = false;
    for (uint32_t i = 0; i < places_.size() && !(ahead && behind); ++i) {
      if (places_[i].isLasting()) {
        const PacketSet now = setAt(i);
        ahead = ahead || !(now - old_[i]).isEmpty();
        behind = behind || !(now - fresh_[i]).isEmpty();
      }
    }
    return ahead && behind;
  }

  PlaceVerdict judge(uint32_t place) {
    const ProofPlace& at = places_[place];
    return judgedAs(setAt(place), old_[place], fresh_[place], states_[place].blocked(),
                    enteringAt(spaceOf(at), at));
  }

  const Change& change_;
  const CertificateConfigs* configs_;
  std::vector<ProofPlace> places_;
  std::unique_ptr<sim::System> chips_;
  std::vector<std::unique_ptr<verify::PacketSpace>> spaces_; // by family
  std::vector<PlaceState> states_;
  std::vector<PacketSet> old_; // by place
  std::vector<PacketSet> fresh_;
  std::map<std::pair<const agent::AccessList*, agent::Family>, PacketSet> lines_;
  Views views_; // of the state that the chips are in
  Views started_;
  Views ended_;
  std::unique_ptr<CertificateWays> ways_; // when they are needed
};

std::string judgedText(const Judged& judged, const std::vector<ProofPlace>& places) {
  if (judged.empty()) {
    return "unaffected";
  }
  std::string text;
  for (const auto& [place, verdict] : judged) {
    const std::string name = place < places.size() ? places[place].text()
                                                   : "place " + std::to_string(place) + " that there is not";
    text += (text.empty() ? "" : ", ") + name + " " + verdictWord(verdict);
  }
  return text;
}

void checkPlaces(const Certificate& certificate, const std::vector<ProofPlace>& places) {
  if (certificate.places.size() != places.size()) {
    throw BadCertificate("it names " + std::to_string(certificate.places.size()) +
                         " places, but packets are judged at " + std::to_string(places.size()));
  }
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (certificate.places[i] != placeJson(places[i], i)) {
      throw BadCertificate("place " + std::to_string(i) + " is not what it says: it is " +
                           placeJson(places[i], i).dump());
    }
  }
}

void checkImage(const sim::System& chips, const std::string& said, const char* when) {
  const std::string image = sha256(sim::chipImage(chips));
  if (image != said) {
    throw BadCertificate(std::string("the chips ") + when + " have the hash " + image + ", not " + said);
  }
}

} // namespace

void playWrite(sim::System& system, const ChipWrite& write) {
  if (write.bytes.size() != numBytes(write.op, write.table)) {
    throw BadWrite(std::string(sim::opName(write.op)) + " has " + std::to_string(write.bytes.size()) +
                   " bytes instead of " + std::to_string(numBytes(write.op, write.table)));
  }
  xpIfPl& ports = system.ifPl();
  std::vector<uint32_t> indexes;
  if (isRowWrite(write.op)) {
    playRow(*system.aclPl().iaclMgr(0), write);
  } else if (write.op == Op::portConfigWrite) {
    const xpPortConfigEntry entry = portConfigOf(write);
    expectStatus(ports.portConfigMgr()->writeEntry(write.chip, write.index, &entry));
  } else if (write.op == Op::portVlanAdd) {
    const xpPortVlanIvifEntry entry = portVlanOf(write);
    expectStatus(ports.portVlanIvifMgr()->addEntry(write.chip, 0, &entry, indexes));
    expectIndex(indexes, write);
  } else if (write.op == Op::portVlanWrite) {
    const xpPortVlanIvifEntry entry = portVlanOf(write);
    expectStatus(ports.portVlanIvifMgr()->writeEntry(write.chip, 0, write.index, &entry));
  } else if (write.op == Op::portVlanRemove) {
    expectStatus(ports.portVlanIvifMgr()->removeEntry(write.chip, write.index));
  } else if (write.op == Op::egressAdd) {
    const xpEgressBdEvifEntry entry = egressOf(write);
    expectStatus(ports.egressBdEvifMgr()->addEntry(write.chip, &entry, indexes));
    expectIndex(indexes, write);
  } else if (write.op == Op::egressWrite) {
    const xpEgressBdEvifEntry entry = egressOf(write);
    expectStatus(ports.egressBdEvifMgr()->writeEntry(write.chip, write.index, &entry));
  } else {
    expectStatus(ports.egressBdEvifMgr()->removeEntry(write.chip, write.index));
  }
}

CertificateChecker::CertificateChecker(const Certificate& certificate, const CertificateConfigs* configs,
                                       std::size_t memoryLimit)
    : certificate_(certificate), configs_(configs), memoryLimit_(memoryLimit) {}

// The ports lead where the certificate says, found out by an agent that is given the same configurations.
void CertificateChecker::checkConfigs() const {
  const auto checkFile = [](const ConfigFile& said, const ConfigFile& given, const char* which) {
    if (said.sha256 != given.sha256) {
      throw BadCertificate(given.path + " is not the " + which +
                           " configuration that it is about: that was " + said.path + " with the hash " +
                           said.sha256 + ", this has " + given.sha256);
    }
  };
  checkFile(certificate_.old, configs_->oldFile, "old");
  checkFile(certificate_.fresh, configs_->freshFile, "new");
  Session session(configs_->old, CommonOptions(), {&configs_->fresh});
  const auto checkTopology = [&](const Topology& said, const std::string& path) {
    if (!(topologyOf(session) == said)) {
      throw BadCertificate("ports, VLANs or lists are not where " + path + " has them");
    }
  };
  checkTopology(certificate_.change.old, configs_->oldFile.path);
  session.apply(configs_->fresh);
  checkTopology(certificate_.change.fresh, configs_->freshFile.path);
}

void CertificateChecker::run() {
  if (configs_ != nullptr) {
    checkConfigs();
  }
  const Change& change = certificate_.change;
  Playback playback(change, configs_, memoryLimit_);
  numPlaces_ = playback.places().size();
  checkImage(playback.chips(), certificate_.startImage, "before the first write");
  checkPlaces(certificate_, playback.places());
  playback.findSides();
  uint32_t place = 0;
  if (!playback.isAt(false, place)) {
    throw BadCertificate("before the first write " + playback.places()[place].text() +
                         " does not do what the old configuration says");
  }
  for (std::size_t i = 0; i < change.writes.size(); ++i) {
    const std::string name = "write " + std::to_string(i + 1) + " (" + writeText(change.writes[i]) + "): ";
    Judged judged;
    try {
      judged = playback.play(change.writes[i]);
    } catch (const BadWrite& error) {
      throw BadCertificate(name + error.what());
    }
    numJudged_ += judged.size();
    if (judged != certificate_.judged[i]) {
      throw BadCertificate(name + "says '" + judgedText(certificate_.judged[i], playback.places()) +
                           "', but is '" + judgedText(judged, playback.places()) + "'");
    }
    for (const auto& [number, verdict] : judged) {
      if (verdict == PlaceVerdict::neither) {
        throw BadCertificate(name + "at " + playback.places()[number].text() +
                             " some packet meets neither the old nor the new list");
      }
    }
    const std::string stray = judged.empty() ? std::string() : playback.strayOnAWay();
    if (!stray.empty()) {
      throw BadCertificate(std::string(name).append("a packet passes that neither configuration permits: ") +
                           stray);
    }
    if (tick_) {
      tick_();
    }
  }
  if (!playback.isAt(true, place)) {
    throw BadCertificate("after the last write " + playback.places()[place].text() +
                         " does not do what the new configuration says");
  }
  checkImage(playback.chips(), certificate_.endImage, "after the last write");
  memory_ = playback.peakMemory();
}

namespace {

struct CheckOptions : SetOptions {
  std::string certificate;
  std::string from;
  std::string to;
};

Json readCertificate(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw Exit(exitBadInput, path + ": cannot be read: " + std::strerror(errno));
  }
  Json json;
  try {
    json = Json::parse(file);
  } catch (const nlohmann::json::parse_error& error) {
    // Behind the library's own mark: "[json.exception.parse_error.101] ".
    const std::string why = error.what();
    const std::size_t mark = why.find("] ");
    throw Exit(exitBadInput, path + ": is no certificate, and no JSON: " +
                                 (mark == std::string::npos ? why : why.substr(mark + 2)));
  }
  if (!json.is_object() || !json.contains("format") || json["format"] != certificateFormat) {
    throw Exit(exitBadInput, path + ": is no certificate: its 'format' is not '" + certificateFormat + "'");
  }
  if (!json.contains("version") || json["version"] != certificateVersion) {
    throw Exit(exitBadInput, path + ": has another version than " + std::to_string(certificateVersion) +
                                 ", the one that this tool reads");
  }
  return json;
}

// The tables have the sizes that they had then, whatever is configured now.
agent::Config loadAt(const std::string& path, const CheckOptions& options, const ChipSizes& chips) {
  agent::Config config = loadConfig(path, options);
  if (!chips.empty()) {
    for (const XpAcl::TcamTableInfo& info : XpAcl::tcamTables) {
      sim::DeviceConfig sizes = chips.begin()->second;
      config.tcamRows[static_cast<agent::Table>(info.tcamType)] = sizes.rows(info.table);
    }
  }
  return config;
}

void printResult(const CheckOptions& options, const Certificate& certificate,
                 const CertificateChecker& checker, const std::string& refuted) {
  if (options.json) {
    printJson("check-certificate", {{"valid", refuted.empty()},
                                    {"reason", refuted.empty() ? Json(nullptr) : Json(refuted)},
                                    {"writes", certificate.change.writes.size()},
                                    {"places", checker.numPlaces()},
                                    {"judged", checker.numJudged()},
                                    {"memory", checker.peakMemory()}});
  } else if (!refuted.empty()) {
    std::cout << options.certificate << ": " << red("refuted") << ": " << refuted << "\n";
  } else {
    std::cout << options.certificate << ": " << green("valid") << "\n  " << certificate.old.path << " -> "
              << certificate.fresh.path << ", by " << certificate.tool << "\n  "
              << certificate.change.writes.size() << " writes played back, " << checker.numJudged()
              << " verdicts at " << checker.numPlaces() << " places found again; "
              << memoryText(checker.peakMemory()) << "\n  "
              << (options.from.empty()
                      ? "old and new are what the chips did at the start and at the end; name "
                        "both configurations to compare with their lines"
                      : "old and new are what the lines of the configurations say")
              << "\n";
  }
}

int runCheck(const CheckOptions& options) {
  if (options.from.empty() != options.to.empty()) {
    throw Exit(exitBadInput, "name both configurations, OLD and NEW, or none");
  }
  Certificate certificate;
  std::optional<CertificateConfigs> configs;
  std::string refuted;
  try {
    certificate = Certificate::fromJson(readCertificate(options.certificate));
    if (!options.from.empty()) {
      const ChipSizes& chips = certificate.change.chips;
      configs = CertificateConfigs{loadAt(options.from, options, chips),
                                   loadAt(options.to, options, chips),
                                   {options.from, sha256OfFile(options.from)},
                                   {options.to, sha256OfFile(options.to)}};
    }
  } catch (const BadCertificate& error) {
    refuted = error.what();
  }
  CertificateChecker checker(certificate, configs ? &*configs : nullptr, options.memoryBytes());
  if (refuted.empty()) {
    try {
      Progress progress("writes played back:", certificate.change.writes.size());
      uint64_t done = 0;
      checker.tickIs([&] { progress.at(++done); });
      checker.run();
    } catch (const BadCertificate& error) {
      refuted = error.what();
    } catch (const BadWrite& error) {
      refuted = std::string("what the chips held at the start cannot be: ") + error.what();
    }
  }
  printResult(options, certificate, checker, refuted);
  return refuted.empty() ? exitDone : exitNo;
}

} // namespace

void addCheckCertificate(Command program, Run& run) {
  auto options = std::make_shared<CheckOptions>();
  const Command command = program.subcommand(
      "check-certificate", "Play the writes of a proven change back, and find every verdict out again");
  command.option("FILE", options->certificate, "The certificate, as update --prove wrote it").required();
  command.option("OLD", options->from, "The old configuration: compare with its lines");
  command.option("NEW", options->to, "The new one");
  addSetOptions(command, *options);
  command.footer("Examples:\n"
                 "  xpacl check-certificate change.json\n"
                 "  xpacl check-certificate change.json old.conf new.conf\n\n"
                 "Exit status 1: the certificate does not hold, and why; 2: it cannot be read.");
  command.runs(run, [options] { return runCheck(*options); });
}

} // namespace tool
