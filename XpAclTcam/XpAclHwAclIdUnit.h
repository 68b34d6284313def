#pragma once

#include "Vane/Vane.h"
#include "XpAclTcam/XpAclHwAclIdSm.h"
#include "XpAclTcam/XpAclSdkCheck.h"

// What the files of the unit XpAclHwAclIdSm share. Private to the library.

namespace XpAcl {

// True when the status ends the step silently: the entry was not there (41), or stands already (42).
// Statuses 0 and 9 answer false; any other ends the process.
inline bool vifTableStepEnds(XpXdk::XP_STATUS status, unsigned line, const char* signature,
                             const char* callText) {
  if (status == XpXdk::statusNotFound || status == XpXdk::statusAlreadyExists) {
    return true;
  }
  if (!sdkStatusAccepted(status)) {
    sdkCallFailed("XpAclHwAclIdSm", line, signature, callText, status);
  }
  return false;
}

// The unit's trace handle, taken once.
inline const Vane::TraceHandle& hwAclIdTraceTaken = hwAclIdTrace();

} // namespace XpAcl

// One statement to the ring and to the text trace.
#define HWACLID_TRACE(pieces) VANE_TRACE(XpAcl::hwAclIdTraceTaken, 7, "XpAclHwAclIdSm", pieces)

// Leaves the function when the status ends the step silently. The line is the one that the check has always
// printed for this call, wherever it stands now.
#define HWACLID_CHECK_AT(line, call, callText)                                                               \
  do {                                                                                                       \
    if (XpAcl::vifTableStepEnds((call), line, __PRETTY_FUNCTION__, callText)) {                              \
      return;                                                                                                \
    }                                                                                                        \
  } while (false)
