#pragma once

#include "Acl/AclTypes.h"
#include "Ovnet/IntfId.h"
#include "Plex/AclKey.h"
#include "Vane/Vane.h"

#include <cstdint>

// Which ACLs each interface and direction uses, and which hardware ACL id that combination has.

namespace XpAcl {

// A hardware ACL id; 0: none assigned.
VANE_WRAPPER_VALUE(XpAcl, AclId, Vane::U16, 0)

// Port ACLs are selected by the port (role 0), routed ACLs by the VLAN interface (role 1).
constexpr uint32_t aclKeyTypePort = 0;
constexpr uint32_t aclKeyTypeRouted = 1;

// One hardware version of an ACL.
class AclKeyInfo {
public:
  VANE_VALUE(XpAcl, AclKeyInfo, (Plex::AclKey, aclKey, Plex::AclKey()), (Vane::U16, aclId, 0),
             (Vane::U32, type, 0))
};

class IntfIdDirection { // an interface and one of its directions
public:
  VANE_VALUE(XpAcl, IntfIdDirection, (Ovnet::IntfId, intfId, Ovnet::IntfId()),
             (Acl::AclDirection, direction, Acl::ingress))
};

// The set of ACLs that together select one hardware ACL id: ten slots, one for each kind of ACL that
// can be attached to one interface and direction. A slot without an ACL holds the default key.
class HwAclIndexKey {
public:
  VANE_VALUE(XpAcl, HwAclIndexKey, (Plex::AclKey, slot0, Plex::AclKey()),
             (Plex::AclKey, slot1, Plex::AclKey()), (Plex::AclKey, slot2, Plex::AclKey()),
             (Plex::AclKey, slot3, Plex::AclKey()), (Plex::AclKey, slot4, Plex::AclKey()),
             (Plex::AclKey, slot5, Plex::AclKey()), (Plex::AclKey, slot6, Plex::AclKey()),
             (Plex::AclKey, slot7, Plex::AclKey()), (Plex::AclKey, slot8, Plex::AclKey()),
             (Plex::AclKey, slot9, Plex::AclKey()))

  static constexpr unsigned numSlots = 10;
  // The ACL of slot `index` (0 to 9).
  const Plex::AclKey& slot(unsigned index) const;
  void slotIs(unsigned index, const Plex::AclKey& key);
  bool isDefault() const;
};

// Slots as the agent fills them; the others stay default.
constexpr unsigned slotPortV4 = 0;
constexpr unsigned slotPortV6 = 1;
constexpr unsigned slotRoutedV4 = 2;
constexpr unsigned slotRoutedV6 = 3;
constexpr unsigned slotPortMac = 4;

// The agent-wide instance is written by the generic ACL layer; each chip has a copy of its own.
class AclIdMapping : public Vane::PtrInterface {
public:
  VANE_ENTITY(XpAcl, AclIdMapping, Vane::PtrInterface,
              MAP(IntfIdDirection, HwAclIndexKey, intfDirectionToIndexKey, IntfDirectionToIndexKey),
              MAP(HwAclIndexKey, AclId, keyToAclIdMapping, KeyToAclIdMapping))
};
VANE_FACTORY_DECLARED(AclIdMapping, aclIdMappingFactory)

} // namespace XpAcl
