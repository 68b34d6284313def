#pragma once

#include "Vane/Vane.h"

// Words of the agent's ACL model that every layer shares.

namespace Acl {

VANE_ENUM(Acl, AclDirection, (ingress, 0), (egress, 1)) // seen from the switch
VANE_ENUM(Acl, AclType, (ipv4, 0), (ipv6, 1), (mac, 2)) // the family of a list
VANE_ENUM(Acl, Action, (permit, 0), (deny, 1))          // what happens to a packet that a rule matches

// Names one configured rule. The agent keeps the number stable while the line is unchanged.
VANE_WRAPPER_VALUE(Acl, UniqueId, Vane::U64, 0)

} // namespace Acl
