#include "Vane/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Vane {

void assertionFailed(const char* file, unsigned line, const char* signature, const char* exprText) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s:%u: %s: Assertion \"%s\" failed.\n", file, line, signature, exprText);
  std::fflush(stderr);
  std::abort();
}

} // namespace Vane
