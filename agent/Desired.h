#pragma once

#include "Plex/AclIdMapping.h"
#include "XpAclTcam/XpAclTcamTypes.h"
#include "agent/Aggregate.h"
#include "agent/config/ConfigModel.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

// What a configuration asks of the chips, before anything is done about it: which index key each
// interface and direction is to use, and which rows that takes where. `plan` prints it, `apply` makes it so;
// both read the same figures.

namespace agent {

// A list in one direction: what generations are counted for.
struct AclName {
  std::string name;
  Family family = Family::ipv4;
  Direction direction = Direction::in;
  auto operator<=>(const AclName&) const = default;
};

// The current generation of one list and direction.
struct AclGeneration {
  uint32_t generation = 0;
  std::shared_ptr<AggregatedAcl> acl;
  UniqueIds uniqueIds;
};

// All lists that are applied somewhere. Generations of a name only go up, also when the list went away and
// came back.
class AclRegistry {
public:
  // The generation that `list` has or would get, with everything needed to stage it. `registry` itself is
  // not changed.
  AclGeneration next(const AccessList& list, Direction direction, bool neighborDiscovery) const;
  void generationIs(const AclName& name, const AclGeneration& generation) { current_[name] = generation; }
  const AclGeneration* current(const AclName& name) const;
  const std::map<AclName, AclGeneration>& all() const { return current_; }

private:
  void idsOfLines(const AclGeneration& old, const Rules& rules, UniqueIds& ids) const;

  std::map<AclName, AclGeneration> current_;
  mutable uint64_t lastUniqueId_ = 0;
};

Plex::AclKey aclKey(const AclName& name, uint32_t generation); // the library's key of a list
AclName aclName(const Plex::AclKey& key);                      // the way back

// One interface and direction that has at least one list.
struct Attachment {
  Ovnet::IntfId intf;
  Acl::AclDirection direction = Acl::ingress;
  auto operator<=>(const Attachment& other) const {
    return std::tuple(intf.code(), unsigned{direction}) <=>
           std::tuple(other.intf.code(), unsigned{other.direction});
  }
  bool operator==(const Attachment& other) const = default;
};

struct Wanted { // an index key in use
  XpAcl::HwAclIndexKey indexKey;
  bool routed = false;
  std::set<uint8_t> chips; // where its rows must stand
};

struct Desired { // all that a configuration asks for
  std::map<Attachment, XpAcl::HwAclIndexKey> attachments;
  std::vector<Wanted> indexKeys; // each once, in the order of the first interface that uses it
  std::map<AclName, AclGeneration> lists;

  const Wanted* find(const XpAcl::HwAclIndexKey& key) const; // null: nobody asks for the key
};

// The interface's id: Ethernet and VLAN interfaces only.
Ovnet::IntfId intfId(const Interface& intf);

// The slot of an index key that a list of this family takes.
unsigned slotOf(Family family, bool routed);

// `chips`: those that are active; ports of other chips are left out, routed lists stand on every active one.
// `keep`: what an interface whose list was refused has now; its slots stay.
Desired desiredState(const Config& config, const std::set<uint8_t>& chips, const AclRegistry& registry,
                     bool neighborDiscovery, const std::map<Attachment, XpAcl::HwAclIndexKey>& keep);

// Chips 0 to n-1.
std::set<uint8_t> firstChips(unsigned n);

XpAcl::AclIntfTypeAndDir idKind(bool routed, Acl::AclDirection direction); // which allocator gives the ids
// The direction of an index key: that of the lists in it.
Acl::AclDirection directionOf(const XpAcl::HwAclIndexKey& key);
// The lists of an index key, default slots left out, in slot order.
std::vector<Plex::AclKey> members(const XpAcl::HwAclIndexKey& key);

} // namespace agent
