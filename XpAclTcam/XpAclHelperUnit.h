#pragma once

#include "Vane/Vane.h"
#include "XpAclTcam/XpAclPlexAggregatorHelper.h"
#include "XpAclTcam/XpAclSdkCheck.h"

// What the files of the unit XpAclPlexAggregatorHelper share. Private to the library.

#define XPACL_UNIT_ASSERT(condition, text) XPACL_ASSERT_TEXT("XpAclPlexAggregatorHelper", condition, text)

#define XPACL_UNIT_CHECK(call, callText) XPACL_CHECK_SDK("XpAclPlexAggregatorHelper", call, callText)

// One statement to the ring and to the text trace: HELPER_TRACE(5, "blockIntf" << " intf " << intf).
#define HELPER_TRACE(level, pieces)                                                                          \
  VANE_TRACE(XpAcl::aggregatorHelperTrace(), level, "XpAclPlexAggregatorHelper", pieces)
