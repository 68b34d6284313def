// Precompiled for those who drive the library: the entities and the library's own classes.
#pragma once
#include "entities.h"

#include "XpAclTcam/XpAclPlexAggregatorHelper.h"
#include "XpAclTcam/XpAclTcamHwAclIdSm.h"
