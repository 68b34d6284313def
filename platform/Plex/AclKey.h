#pragma once

#include "Acl/AclTypes.h"
#include "Ovnet/IntfId.h"
#include "Vane/Vane.h"

#include <cstdint>

// Keys of the generic ACL layer.

namespace Plex {

// One aggregated ACL: every edit of a list makes a new generation, so that all hardware versions of
// one key hold the same rules. The default key, named "aclGroupDefault", stands for "no ACL".
class AclKey {
public:
  VANE_VALUE(Plex, AclKey, (Vane::String, name, Vane::String("aclGroupDefault")),
             (Acl::AclDirection, direction, Acl::ingress), (Acl::AclType, aclType, Acl::ipv4),
             (Vane::U32, generation, 0))
};

// The interface that an operation concerns: the first one, or the second when the first is empty
// (a routed port has a port and a VLAN interface).
class IntfPairKey {
public:
  VANE_VALUE(Plex, IntfPairKey, (Ovnet::IntfId, first, Ovnet::IntfId()),
             (Ovnet::IntfId, second, Ovnet::IntfId()))

  const Ovnet::IntfId& intf() const { return first().isNone() ? second() : first(); }
};

// Why an ACL could not be created.
enum AclCreateError : unsigned {
  aclCreateErrorNone = 0,
  aclCreateErrorInvalid = 1,
  aclCreateErrorTcamExhaustion = 2
};

// The generic layer's record of one aggregated ACL.
class AclData : public Vane::PtrInterface {
public:
  VANE_ENTITY(Plex, AclData, Vane::PtrInterface, CONST(AclKey, aclKey),
              SCALAR(bool, installed, Installed, false),                         // its rows are in the chip
              SCALAR(bool, countersEnabled, CountersEnabled, false),             // it asks for hit counters
              SCALAR(bool, permitDuringAclUpdate, PermitDuringAclUpdate, false)) // action while it is updated

  explicit AclData(const AclKey& key) : aclKey_(key) {}
};
VANE_FACTORY_DECLARED(AclData, aclDataFactory)

} // namespace Plex
