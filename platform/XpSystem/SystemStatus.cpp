#include "XpSystem/SystemStatus.h"

namespace XpSystem {

VANE_REGISTERED(SystemStatus)

} // namespace XpSystem
