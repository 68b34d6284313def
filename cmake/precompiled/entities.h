// Precompiled for the rooms whose every file sees the shared state: the standard headers they use and
// the platform's entities. Speeds up builds only; each source file still includes what it names.
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
