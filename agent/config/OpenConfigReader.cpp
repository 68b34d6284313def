#include "agent/config/OpenConfigReader.h"

#include "agent/config/InterfaceNames.h"
#include "agent/config/OpenConfigInterfaces.h"
#include "agent/config/OpenConfigJson.h"
#include "agent/config/OpenConfigLists.h"
#include "agent/config/OpenConfigNames.h"
#include "agent/config/OpenConfigSets.h"
#include "agent/config/OpenConfigText.h"
#include "agent/config/OpenConfigTree.h"
#include "agent/config/VlanSets.h"

#include <algorithm>
#include <map>
#include <vector>

namespace agent {

namespace {

using namespace openconfig;

class DocumentReader {
public:
  DocumentReader(const TextLines& lines, const ReadOptions& options, Diagnostics& diagnostics)
      : options_(options), diagnostics_(diagnostics), problems_(lines), sets_(lines, diagnostics),
        interfaces_(lines, diagnostics) {}

  void read(const JsonValue& root, Config& config);

private:
  void readMember(const JsonValue& member);
  void readAcl(const JsonValue& acl);
  void readSets(const Member& sets);
  void readSetList(const JsonValue& list);
  void readInterfaces(const Member& interfaces, bool ofAcl);
  void readVlans(const JsonValue& container);
  void readNetworkInstances(const JsonValue& container);
  void readHardware(const JsonValue& container);
  void readTable(const JsonValue& value, const Place& place);
  void readChip(const JsonValue& value, const Place& place);
  void warnOfName(const JsonValue& member);

  const ReadOptions& options_;
  Diagnostics& diagnostics_;
  Problems problems_;
  SetTable sets_;
  DefinedSets definedSets_;
  InterfaceReader interfaces_;
  std::vector<const JsonValue*> aclInterfaces_; // read behind the ports, whose order gives them numbers
  VlanSet vlans_;
  std::map<Table, uint32_t> tcamRows_;
  unsigned numChips_ = 1;
};

void DocumentReader::read(const JsonValue& root, Config& config) {
  if (root.is(JsonKind::array))
    readSetList(root);
  else if (root.is(JsonKind::object))
    for (const JsonValue& member : root.children)
      readMember(member);
  else
    problems_.refuse(root, Place(""),
                     describe(root) + " is no configuration; the document is an object, or a list "
                                      "of acl-sets");
  for (const JsonValue* const value : aclInterfaces_)
    interfaces_.readAcl(*value);
  diagnostics_.addAll(problems_.takeAll());
  const bool nothing = sets_.isEmpty() && interfaces_.isEmpty() && vlans_.none();
  sets_.build(interfaces_.applied(), definedSets_, config.lists);
  interfaces_.build(sets_, options_.keepGoing, config);
  config.vlans = numbersOf(vlans_);
  config.tcamRows = tcamRows_;
  config.numChips = numChips_;
  if (nothing)
    diagnostics_.warn(1, 1,
                      "no access list and no interface stands in this document; is it one of the OpenConfig "
                      "models, with acl, acl-sets or a list of acl-sets?");
}

void DocumentReader::readMember(const JsonValue& member) {
  const std::string_view name = withoutModule(member.name);
  if (name == "acl")
    readAcl(member);
  else if (name == "acl-sets")
    readSets({name, &member, Place(setsPath)});
  else if (name == "acl-set")
    readSetList(member);
  else if (name == "interfaces")
    readInterfaces({name, &member, Place("interfaces")}, false);
  else if (name == "defined-sets")
    definedSets_.read({name, &member, Place("defined-sets")}, problems_);
  else if (name == "vlans")
    readVlans(member);
  else if (name == "network-instances")
    readNetworkInstances(member);
  else if (member.name == hardwareMember)
    readHardware(member);
  else
    warnOfName(member);
}

// Other models are passed over, but not what looks like a slip.
void DocumentReader::warnOfName(const JsonValue& member) {
  NearestWord nearest(withoutModule(member.name));
  for (const char* const known : {"acl", "acl-sets", "acl-set", "interfaces", "defined-sets", "vlans",
                                  "network-instances", hardwareMember})
    nearest.offer(known);
  if (!nearest.best().empty() && member.name.size() > 2)
    problems_.warn(member, Place(member.name.substr(0, 48)),
                   "this is none of the models that are read, and is passed over" + nearest.suggestion());
}

void DocumentReader::readAcl(const JsonValue& acl) {
  const Place place("acl");
  Container container(acl, place, problems_);
  if (const Member* const sets = container.take("acl-sets"))
    readSets(*sets);
  if (const Member* const interfaces = container.take("interfaces"))
    readInterfaces(*interfaces, true);
  if (container.isObject())
    container.refuseRest(
        "this is not known here, and without it the sets may mean something else; leave it out");
}

void DocumentReader::readSets(const Member& sets) {
  for (const JsonValue* const set : listEntries(&sets, "acl-set", problems_))
    sets_.read(*set);
}

void DocumentReader::readSetList(const JsonValue& list) {
  if (!list.is(JsonKind::array)) {
    problems_.refuse(list, Place(std::string(setsPath) + "/acl-set"),
                     describe(list) + " stands where a list is needed; write [ and ] around its entries");
    return;
  }
  for (const JsonValue& set : list.children)
    sets_.read(set);
}

// At the top of a document two models have a list of this name: entries of the one have an id, those of the
// other a name.
void DocumentReader::readInterfaces(const Member& interfaces, bool ofAcl) {
  for (const JsonValue* const value : listEntries(&interfaces, "interface", problems_)) {
    bool hasId = false;
    for (const JsonValue& child : value->children)
      hasId = hasId || withoutModule(child.name) == "id" || withoutModule(child.name) == "interface-ref";
    if (ofAcl || hasId)
      aclInterfaces_.push_back(value);
    else
      interfaces_.readPort(*value);
  }
}

void DocumentReader::readVlans(const JsonValue& container) {
  const Member vlans{"vlans", &container, Place("vlans")};
  for (const JsonValue* const value : listEntries(&vlans, "vlan", problems_)) {
    Problems ignored(problems_.lines());
    const Place place(vlans.place, "vlan");
    Container vlan(*value, place, ignored);
    if (const Member* const id = vlan.take("vlan-id"))
      if (const auto number = takeNumber(*id, "a VLAN", 1, maxVlan, problems_))
        vlans_.set(*number);
  }
}

// Of the instances only their VLANs are of interest.
void DocumentReader::readNetworkInstances(const JsonValue& container) {
  for (const JsonValue& list : container.children)
    for (const JsonValue& instance : list.children)
      for (const JsonValue& member : instance.children)
        if (withoutModule(member.name) == "vlans")
          readVlans(member);
}

void DocumentReader::readHardware(const JsonValue& container) {
  const Place place(hardwareMember);
  Container hardware(container, place, problems_);
  const auto entries = [this](const Member* list) {
    std::vector<const JsonValue*> values;
    if (list == nullptr)
      return values;
    if (!list->value->is(JsonKind::array))
      problems_.refuse(*list->value, list->place, describe(*list->value) + " stands where a list is needed");
    else
      for (const JsonValue& value : list->value->children)
        values.push_back(&value);
    return values;
  };
  const Member* const tables = hardware.take("tcam");
  for (const JsonValue* const value : entries(tables))
    readTable(*value, tables->place);
  const Member* const chips = hardware.take("interface");
  for (const JsonValue* const value : entries(chips))
    readChip(*value, chips->place);
  if (hardware.isObject())
    hardware.refuseRest("this is not known here; tcam and interface are");
}

void DocumentReader::readTable(const JsonValue& value, const Place& place) {
  Container entry(value, place, problems_);
  const Member* const table = entry.take("table");
  const Member* const rows = entry.take("rows");
  if (!entry.isObject())
    return;
  entry.refuseRest("this is not known here; table and rows are");
  const auto known = table == nullptr ? std::nullopt : tableFromName(table->value->text);
  if (!known || rows == nullptr) {
    problems_.refuse(table == nullptr ? value : *table->value, place,
                     "a table and its number of rows are needed here; the tables are ingressV4, ingressV6, "
                     "egressV4, egressV6 and ingressMac");
    return;
  }
  if (const auto number = takeNumber(*rows, "the number of rows of a table", 0, maxTableRows, problems_))
    tcamRows_[*known] = *number;
}

void DocumentReader::readChip(const JsonValue& value, const Place& place) {
  Container entry(value, place, problems_);
  const Member* const name = entry.take("name");
  const Member* const chip = entry.take("chip");
  if (!entry.isObject())
    return;
  entry.refuseRest("this is not known here; name and chip are");
  if (name == nullptr || chip == nullptr) {
    problems_.refuse(value, place, "the name of an interface and the number of its chip are needed here");
    return;
  }
  const auto text = takeText(*name, "the name of an interface", problems_);
  const auto number = takeNumber(*chip, "the number of a chip", 0, maxChip, problems_);
  if (!text || !number)
    return;
  interfaces_.chipIs(*text, static_cast<uint8_t>(*number), *name, problems_);
  numChips_ = std::max(numChips_, *number + 1);
}

} // namespace

void readOpenConfig(std::string_view text, const ReadOptions& options, Diagnostics& diagnostics,
                    Config& config) {
  const TextLines lines(text);
  JsonError error;
  const auto root = parseJson(text, error);
  if (!root) {
    config.readable = false;
    diagnostics.error(lines.line(error.offset), lines.column(error.offset),
                      "this is no JSON: " + error.message);
    return;
  }
  DocumentReader(lines, options, diagnostics).read(*root, config);
}

bool looksLikeOpenConfig(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  return first != std::string_view::npos && (text[first] == '{' || text[first] == '[');
}

} // namespace agent
