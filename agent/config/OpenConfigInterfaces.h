#pragma once

#include "agent/config/ConfigModel.h"
#include "agent/config/Diagnostics.h"
#include "agent/config/InterfaceNames.h"
#include "agent/config/OpenConfigLists.h"
#include "agent/config/OpenConfigTree.h"
#include "agent/config/PortDrafts.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

// The interfaces of a document: what is applied to them (openconfig-acl), which VLANs they carry
// (openconfig-interfaces with openconfig-if-ethernet, openconfig-if-aggregate and openconfig-vlan), and on
// which chip they are.

namespace agent::openconfig {

class InterfaceReader {
public:
  InterfaceReader(const TextLines& lines, Diagnostics& diagnostics)
      : lines_(lines), diagnostics_(diagnostics) {}

  // One entry of /acl/interfaces/interface.
  void readAcl(const JsonValue& value);
  // One entry of /interfaces/interface.
  void readPort(const JsonValue& value);
  // A port is on this chip.
  void chipIs(const std::string& interface, uint8_t chip, const Member& leaf, Problems& problems);

  std::set<SetKey> applied() const;
  bool isEmpty() const { return drafts_.empty(); }
  // Behind the lists, which stand in `config` already.
  void build(const SetTable& sets, bool keepGoing, Config& config);

private:
  struct Candidate { // one entry of ingress-acl-sets or egress-acl-sets
    SetKey set;
    Direction direction = Direction::in;
    const JsonValue* value = nullptr;
    std::string path;
    bool refused = false; // something is wrong with the interface
  };
  struct Draft : PortDraft {
    using PortDraft::PortDraft;
    const JsonValue* value = nullptr;
    std::vector<Candidate> candidates;
  };

  Draft* draftOf(const std::string& name, const JsonValue& value, const Place& place, Problems& problems);
  std::optional<std::string> nameOf(Container& interface, const std::string& id, Problems& problems);
  void readSets(Container& interface, const char* container, Direction direction,
                std::vector<Candidate>& candidates, Problems& problems);
  std::optional<SetKey> keyOf(Container& entry, Problems& problems);
  void readVlans(const Member& member, Draft& draft, Problems& problems);
  VlanSet trunkVlansOf(const Member& leaf, Problems& problems);
  void readEthernet(const Member& member, Draft& draft, Problems& problems);
  void spreadPortChannels();
  void apply(const SetTable& sets, bool keepGoing, const Draft& draft, const Config& config,
             Interface& interface);
  bool placeAllows(const Draft& draft, const Candidate& candidate);
  bool refuseSecond(const Draft& draft, size_t position, Family family);
  void refuseUndefined(const SetTable& sets, const Candidate& candidate);
  void refuse(const Candidate& candidate, const std::string& why);

  const TextLines& lines_;
  Diagnostics& diagnostics_;
  std::vector<Draft> drafts_;
  std::unordered_map<std::string, size_t> index_; // by identity
};

} // namespace agent::openconfig
