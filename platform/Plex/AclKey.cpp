#include "Plex/AclKey.h"

namespace Plex {

VANE_REGISTERED(AclData)

} // namespace Plex
