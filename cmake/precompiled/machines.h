// Precompiled for those who drive the library: the standard headers they use, the platform's entities and the
// library's own classes. Speeds up builds only; each source file still includes what it names.
#pragma once
#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Plex/PlexAclAggregatorHelper.h"
#include "Plex/PlexCommonSmData.h"
#include "XpLib/AcmHelper.h"
#include "XpLib/KeyAndIndexMap.h"
#include "XpLib/TcamPartitionStatus.h"
#include "XpSystem/SystemStatus.h"
#include "XpVif/VifStatus.h"
#include "XpXdk/Managers.h"

#include "XpAclTcam/XpAclPlexAggregatorHelper.h"
#include "XpAclTcam/XpAclTcamHwAclIdSm.h"
