#pragma once

#include "Vane/Types.h"

// Assertions guard invariants whose failure leaves nothing sensible to do. They are always on, also
// in release builds: what follows a failed one would write wrong rows into a chip.

namespace Vane {

// Flushes standard output, writes `file:line: signature: Assertion "exprText" failed.` and a newline
// to standard error, and stops the process with abort().
[[noreturn]] VANE_API void assertionFailed(const char* file, unsigned line, const char* signature,
                                           const char* exprText);

} // namespace Vane

// Reports a given place and text instead of the place where it stands.
#define VANE_ASSERT_AT(cond, text, file, line, signature)                                                    \
  (static_cast<bool>(cond) ? static_cast<void>(0) : ::Vane::assertionFailed(file, line, signature, text))

#define VANE_ASSERT_TEXT(cond, text) VANE_ASSERT_AT(cond, text, __FILE__, __LINE__, __PRETTY_FUNCTION__)

// The text is the expression as it is written.
#define VANE_ASSERT(...) VANE_ASSERT_TEXT((__VA_ARGS__), #__VA_ARGS__)
