#pragma once

#include "Vane/Vane.h"
#include "XpXdk/Status.h"

#include <string>

// The one check around every SDK call, and assertions that name their source unit rather than a file
// (a unit is spread over several files). There is no recovery around hardware writes: a status that
// is not accepted ends the process, because what the chip holds is then unknown.

namespace XpAcl {

// Statuses that count as success: 0, 9, 41 and 42.
constexpr bool sdkStatusAccepted(XpXdk::XP_STATUS status) {
  return status == XpXdk::statusOk || status == XpXdk::statusNotPresent || status == XpXdk::statusNotFound ||
         status == XpXdk::statusAlreadyExists;
}

// Writes "<unit>:<line> <call text> API ERROR <status>" to standard error and fails the assertion
// "!(true)" at that unit, line and function.
[[noreturn]] void sdkCallFailed(const char* unit, unsigned line, const char* signature,
                                const std::string& callText, XpXdk::XP_STATUS status);

} // namespace XpAcl

// Checks one SDK call made in `unit`. `callText` is evaluated only when the call has failed.
#define XPACL_CHECK_SDK(unit, call, callText)                                                                \
  do {                                                                                                       \
    const XpXdk::XP_STATUS xpaclStatus = (call);                                                             \
    if (!XpAcl::sdkStatusAccepted(xpaclStatus)) [[unlikely]] {                                               \
      XpAcl::sdkCallFailed(unit, __LINE__, __PRETTY_FUNCTION__, callText, xpaclStatus);                      \
    }                                                                                                        \
  } while (false)

// Always-on assertions that name the unit and the given text.
#define XPACL_ASSERT_TEXT(unit, condition, text)                                                             \
  do {                                                                                                       \
    if (!(condition)) [[unlikely]] {                                                                         \
      Vane::assertionFailed(unit, __LINE__, __PRETTY_FUNCTION__, text);                                      \
    }                                                                                                        \
  } while (false)
