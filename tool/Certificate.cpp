#include "tool/Certificate.h"

#include "sim/ChipFile.h"
#include "tool/Common.h"

#include <nettle/sha2.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

namespace tool {

using agent::Direction;
using agent::Family;

namespace {

constexpr sim::Op writeOps[] = {
    sim::Op::writeKeyMask, sim::Op::writeData,     sim::Op::setEntryValid,  sim::Op::portConfigWrite,
    sim::Op::portVlanAdd,  sim::Op::portVlanWrite, sim::Op::portVlanRemove, sim::Op::egressAdd,
    sim::Op::egressWrite,  sim::Op::egressRemove,
};

std::string hexOf(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string hex;
  for (const char byte : bytes) {
    hex.push_back(digits[static_cast<uint8_t>(byte) >> 4]);
    hex.push_back(digits[static_cast<uint8_t>(byte) & 15]);
  }
  return hex;
}

std::string bytesOf(const std::string& hex) {
  const auto digit = [&](char c) -> unsigned {
    if (c >= '0' && c <= '9') {
      return static_cast<unsigned>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
      return static_cast<unsigned>(c - 'a' + 10);
    }
    throw BadCertificate("'" + hex + "' is not hexadecimal");
  };
  if (hex.size() % 2 != 0) {
    throw BadCertificate("'" + hex + "' has half a byte");
  }
  std::string bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(digit(hex[i]) << 4 | digit(hex[i + 1])));
  }
  return bytes;
}

// Members by name, with words for those that are not there.
const Json& member(const Json& json, const char* name) {
  if (!json.is_object() || !json.contains(name)) {
    throw BadCertificate(std::string("'") + name + "' is missing");
  }
  return json.at(name);
}

template <typename Value>
Value numberOf(const Json& json, const char* name) {
  const Json& value = member(json, name);
  if (!value.is_number_unsigned() || value.get<uint64_t>() > std::numeric_limits<Value>::max()) {
    throw BadCertificate(std::string("'") + name + "' is no number of its kind");
  }
  return value.get<Value>();
}

std::string textOf(const Json& json, const char* name) {
  const Json& value = member(json, name);
  if (!value.is_string()) {
    throw BadCertificate(std::string("'") + name + "' is no text");
  }
  return value.get<std::string>();
}

const Json& arrayOf(const Json& json, const char* name) {
  const Json& value = member(json, name);
  if (!value.is_array()) {
    throw BadCertificate(std::string("'") + name + "' is no array");
  }
  return value;
}

template <typename Value, typename Values, typename Text>
Value fromWord(const std::string& word, const Values& values, const Text& text, const char* what) {
  for (const Value value : values) {
    if (word == text(value)) {
      return value;
    }
  }
  throw BadCertificate("'" + word + "' is no " + what);
}

// ------------------------------------------------------------------------------------- writes

Json writeJson(const ChipWrite& write) {
  Json json{{"op", sim::opName(write.op)}, {"chip", write.chip}};
  if (isRowWrite(write.op)) {
    json["table"] = sim::tableText(write.table);
  }
  json["index"] = write.index;
  json["bytes"] = hexOf(write.bytes);
  return json;
}

ChipWrite writeFrom(const Json& json) {
  ChipWrite write;
  write.op = fromWord<sim::Op>(textOf(json, "op"), writeOps, sim::opName, "write");
  write.chip = numberOf<uint8_t>(json, "chip");
  if (isRowWrite(write.op)) {
    write.table = fromWord<XpXdk::IaclTableInfo>(
                      textOf(json, "table"), XpXdk::iaclTables,
                      [](const XpXdk::IaclTableInfo& info) { return info.name; }, "TCAM table")
                      .table;
  }
  write.index = numberOf<uint32_t>(json, "index");
  write.bytes = bytesOf(textOf(json, "bytes"));
  if (write.bytes.size() != numBytes(write.op, write.table)) {
    throw BadCertificate(std::string(sim::opName(write.op)) + " has " + std::to_string(write.bytes.size()) +
                         " bytes instead of " + std::to_string(numBytes(write.op, write.table)));
  }
  return write;
}

constexpr PlaceVerdict placeVerdicts[] = {PlaceVerdict::same,    PlaceVerdict::old,
                                          PlaceVerdict::fresh,   PlaceVerdict::between,
                                          PlaceVerdict::blocked, PlaceVerdict::neither};

Json judgedJson(const Judged& judged) {
  Json json = Json::array();
  for (const auto& [place, verdict] : judged) {
    json.push_back(Json::array({place, verdictWord(verdict)}));
  }
  return json;
}

Judged judgedFrom(const Json& json) {
  Judged judged;
  if (json.contains("places")) {
    for (const Json& pair : arrayOf(json, "places")) {
      if (!pair.is_array() || pair.size() != 2 || !pair[0].is_number_unsigned() || !pair[1].is_string()) {
        throw BadCertificate("'places' has something else than pairs of a place and a verdict");
      }
      judged.emplace_back(
          pair[0].get<uint32_t>(),
          fromWord<PlaceVerdict>(pair[1].get<std::string>(), placeVerdicts, verdictWord, "verdict"));
    }
  }
  if (textOf(json, "verdict") != summaryWord(judged)) {
    throw BadCertificate("the verdict '" + textOf(json, "verdict") + "' is not that of its places");
  }
  return judged;
}

// --------------------------------------------------------------------------- chips and topology

Json chipJson(uint8_t number, const sim::DeviceConfig& config) {
  Json rows = Json::object();
  for (std::size_t i = 0; i < XpXdk::iaclTables.size(); ++i) {
    rows[XpXdk::iaclTables[i].name] = config.tcamRows[i];
  }
  return {{"chip", number},
          {"rows", rows},
          {"dataWords", config.numTableCopies},
          {"ports", config.numPorts},
          {"portVlanEntries", config.portVlanCapacity},
          {"egressEntries", config.egressCapacity}};
}

void readChip(const Json& json, ChipSizes& chips) {
  sim::DeviceConfig config;
  for (std::size_t i = 0; i < XpXdk::iaclTables.size(); ++i) {
    config.tcamRows[i] = numberOf<uint32_t>(member(json, "rows"), XpXdk::iaclTables[i].name);
  }
  config.numTableCopies = numberOf<uint8_t>(json, "dataWords");
  config.numPorts = numberOf<uint32_t>(json, "ports");
  config.portVlanCapacity = numberOf<uint32_t>(json, "portVlanEntries");
  config.egressCapacity = numberOf<uint32_t>(json, "egressEntries");
  constexpr uint32_t enough = 1u << 24;
  const auto number = numberOf<uint8_t>(json, "chip");
  if (number > sim::maxDevice || config.numTableCopies == 0 || config.numPorts > enough ||
      config.portVlanCapacity > enough || config.egressCapacity > enough ||
      *std::max_element(config.tcamRows.begin(), config.tcamRows.end()) > agent::maxTableRows) {
    throw BadCertificate("there is no chip of the size that chip " + std::to_string(number) + " has");
  }
  chips[number] = config;
}

std::string listKey(Direction direction, Family family) {
  return std::string(directionName(direction)) + " " + familyName(family);
}

Json listsJson(const BoundLists& lists) {
  Json json = Json::object();
  for (const auto& [at, name] : lists) {
    json[listKey(at.first, at.second)] = name;
  }
  return json;
}

BoundLists listsFrom(const Json& json) {
  BoundLists lists;
  std::size_t read = 0;
  for (const Direction direction : {Direction::in, Direction::out}) {
    for (const Family family : {Family::ipv4, Family::ipv6, Family::mac}) {
      const std::string key = listKey(direction, family);
      if (json.contains(key)) {
        lists[{direction, family}] = textOf(json, key.c_str());
        ++read;
      }
    }
  }
  if (!json.is_object() || json.size() != read) {
    throw BadCertificate("'lists' has a direction or family that there is not");
  }
  return lists;
}

Json rangesJson(const std::vector<agent::PortRange>& ranges) {
  Json json = Json::array();
  for (const agent::PortRange& range : ranges) {
    json.push_back(Json::array({range.low, range.high}));
  }
  return json;
}

std::vector<agent::PortRange> rangesFrom(const Json& json) {
  std::vector<agent::PortRange> ranges;
  for (const Json& pair : json) {
    if (!pair.is_array() || pair.size() != 2 || !pair[0].is_number_unsigned() ||
        !pair[1].is_number_unsigned() || pair[0].get<uint64_t>() == 0 || pair[0] > pair[1] ||
        pair[1].get<uint64_t>() > lastVlan) {
      throw BadCertificate("'vlans' has something else than ranges of VLANs");
    }
    ranges.push_back({pair[0].get<uint16_t>(), pair[1].get<uint16_t>()});
  }
  return ranges;
}

Json topologyJson(const Topology& topology) {
  Json ports = Json::array();
  for (const Topology::Port& port : topology.ports) {
    ports.push_back({{"name", port.name},
                     {"chip", port.chip},
                     {"port", port.number},
                     {"vif", port.vif},
                     {"accessVlan", port.accessVlan},
                     {"vlans", rangesJson(port.vlans)},
                     {"lists", listsJson(port.lists)}});
  }
  Json vlans = Json::array();
  for (const Topology::Vlan& vlan : topology.vlans) {
    vlans.push_back({{"name", vlan.name}, {"vlan", vlan.vlan}, {"lists", listsJson(vlan.lists)}});
  }
  return {{"ports", ports}, {"vlans", vlans}};
}

Topology topologyFrom(const Json& json, const ChipSizes& chips) {
  Topology topology;
  for (const Json& from : arrayOf(json, "ports")) {
    Topology::Port port;
    port.name = textOf(from, "name");
    port.chip = numberOf<uint8_t>(from, "chip");
    port.number = numberOf<uint32_t>(from, "port");
    const auto chip = chips.find(port.chip);
    if (chip == chips.end() || port.number >= chip->second.numPorts) {
      throw BadCertificate(port.name + " is at a chip or port that there is not");
    }
    port.vif = numberOf<uint16_t>(from, "vif");
    port.accessVlan = numberOf<uint16_t>(from, "accessVlan");
    port.vlans = rangesFrom(arrayOf(from, "vlans"));
    port.lists = listsFrom(member(from, "lists"));
    topology.ports.push_back(port);
  }
  for (const Json& from : arrayOf(json, "vlans")) {
    topology.vlans.push_back(
        {textOf(from, "name"), numberOf<uint16_t>(from, "vlan"), listsFrom(member(from, "lists"))});
  }
  return topology;
}

Json sideJson(const ConfigFile& file, const Topology& topology) {
  return {{"file", file.path}, {"sha256", file.sha256}, {"topology", topologyJson(topology)}};
}

// ------------------------------------------------------------------------------------- the whole

// What stands before the writes, without its hash.
Json headJson(const Certificate& certificate) {
  const Change& change = certificate.change;
  Json chips = Json::array();
  for (const auto& [number, config] : change.chips) {
    chips.push_back(chipJson(number, config));
  }
  Json content = Json::array();
  for (const ChipWrite& write : change.start) {
    content.push_back(writeJson(write));
  }
  return {{"format", certificateFormat},
          {"version", certificateVersion},
          {"tool", certificate.tool},
          {"old", sideJson(certificate.old, change.old)},
          {"new", sideJson(certificate.fresh, change.fresh)},
          {"chips", chips},
          {"places", certificate.places},
          {"start", {{"content", content}, {"image", certificate.startImage}}}};
}

// Each hash has the one before it in it, so that none can be left out or moved.
std::string chained(const std::string& before, const Json& next) {
  return sha256(before + "\n" + next.dump());
}

Json without(const Json& json, const char* name) {
  if (!json.is_object()) {
    throw BadCertificate("it is no object");
  }
  Json rest = json;
  rest.erase(name);
  return rest;
}

std::string headHash(const Json& json) {
  Json head = json;
  for (const char* const later : {"hash", "writes", "end"}) {
    head.erase(later);
  }
  const std::string hash = sha256(head.dump());
  if (textOf(json, "hash") != hash) {
    throw BadCertificate("what stands before the writes was changed: it has the hash " + hash + ", not " +
                         textOf(json, "hash"));
  }
  return hash;
}

} // namespace

std::string sha256(std::string_view bytes) {
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data()));
  std::array<uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&context, digest.size(), digest.data());
  return hexOf({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

std::string sha256OfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) {
    throw Exit(exitBadInput, path + ": cannot be read: " + std::strerror(errno));
  }
  return sha256(text.view());
}

std::string summaryWord(const Judged& judged) {
  if (judged.empty()) {
    return "unaffected";
  }
  const bool alike = std::all_of(judged.begin(), judged.end(),
                                 [&](const auto& other) { return other.second == judged.front().second; });
  return alike ? verdictWord(judged.front().second) : "several";
}

Json placeJson(const ProofPlace& place, std::size_t number) {
  const auto side = [](const PlaceSide& says) {
    return !says.there ? Json("no packets") : says.list.empty() ? Json(nullptr) : Json{{"list", says.list}};
  };
  Json json{{"place", number},
            {"interface", place.interface},
            {"direction", directionName(place.direction)},
            {"family", familyName(place.family)},
            {"role", place.role == sim::Role::routed ? "routed" : "port"},
            {"chip", place.chip},
            {"port", place.port}};
  if (!place.isPortEntry()) {
    json["vif"] = place.vif;
    json["vlan"] = place.vlan;
  }
  json["old"] = side(place.old);
  json["new"] = side(place.fresh);
  return json;
}

std::string Certificate::text() const {
  Json head = headJson(*this);
  std::string hash = sha256(head.dump());
  head["hash"] = hash;
  std::string text = "{\n";
  for (const auto& [name, value] : head.items()) {
    text += Json(name).dump() + ": " + value.dump() + ",\n";
  }
  text += "\"writes\": [";
  for (std::size_t i = 0; i < change.writes.size(); ++i) {
    Json write = writeJson(change.writes[i]);
    write["verdict"] = summaryWord(judged[i]);
    if (!judged[i].empty()) {
      write["places"] = judgedJson(judged[i]);
    }
    hash = chained(hash, write);
    write["hash"] = hash;
    text += (i == 0 ? "\n" : ",\n") + write.dump();
  }
  Json end{{"writes", change.writes.size()}, {"image", endImage}};
  end["hash"] = chained(hash, end);
  return text + "\n],\n\"end\": " + end.dump() + "\n}\n";
}

Certificate Certificate::fromJson(const Json& json) {
  std::string hash = headHash(json);
  Certificate certificate;
  certificate.tool = textOf(json, "tool");
  certificate.old = {textOf(member(json, "old"), "file"), textOf(member(json, "old"), "sha256")};
  certificate.fresh = {textOf(member(json, "new"), "file"), textOf(member(json, "new"), "sha256")};
  Change& change = certificate.change;
  for (const Json& chip : arrayOf(json, "chips")) {
    readChip(chip, change.chips);
  }
  change.old = topologyFrom(member(member(json, "old"), "topology"), change.chips);
  change.fresh = topologyFrom(member(member(json, "new"), "topology"), change.chips);
  certificate.places = arrayOf(json, "places");
  certificate.startImage = textOf(member(json, "start"), "image");
  for (const Json& write : arrayOf(member(json, "start"), "content")) {
    change.start.push_back(writeFrom(write));
  }
  for (const Json& write : arrayOf(json, "writes")) {
    const std::string name = "write " + std::to_string(change.writes.size() + 1) + ": ";
    try {
      hash = chained(hash, without(write, "hash"));
      if (textOf(write, "hash") != hash) {
        throw BadCertificate("its hash does not follow from it and what stands before it; it was changed, "
                             "moved, or one before it was left out");
      }
      change.writes.push_back(writeFrom(write));
      certificate.judged.push_back(judgedFrom(write));
    } catch (const BadCertificate& error) {
      throw BadCertificate(name + error.what());
    }
  }
  const Json& end = member(json, "end");
  const std::string whole = chained(hash, without(end, "hash"));
  if (textOf(end, "hash") != whole) {
    throw BadCertificate("the end was changed, or writes before it were left out: its hash does not follow "
                         "from them");
  }
  if (numberOf<uint64_t>(end, "writes") != change.writes.size()) {
    throw BadCertificate("there are " + std::to_string(change.writes.size()) +
                         " writes, not as many as the "
                         "end says");
  }
  certificate.endImage = textOf(end, "image");
  return certificate;
}

Certificate certificateOf(const Change& change, const UpdateProof& proof, ConfigFile old, ConfigFile fresh) {
  Certificate certificate;
  certificate.tool = "xpacl " XPACL_VERSION;
  certificate.old = std::move(old);
  certificate.fresh = std::move(fresh);
  certificate.change = change;
  certificate.places = Json::array();
  for (std::size_t i = 0; i < proof.places().size(); ++i) {
    certificate.places.push_back(placeJson(proof.places()[i], i));
  }
  certificate.startImage = sha256(sim::chipImage(*chipsOf(change.chips, change.start)));
  certificate.endImage = sha256(sim::chipImage(proof.chips()));
  certificate.judged = proof.judged();
  return certificate;
}

} // namespace tool
