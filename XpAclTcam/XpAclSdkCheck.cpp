#include "XpAclTcam/XpAclSdkCheck.h"

#include <cstdio>

namespace XpAcl {

void sdkCallFailed(const char* unit, unsigned line, const char* signature, const std::string& callText,
                   XpXdk::XP_STATUS status) {
  std::fprintf(stderr, "%s:%u %s API ERROR %d\n", unit, line, callText.c_str(), status);
  std::fflush(stderr);
  Vane::assertionFailed(unit, line, signature, "!(true)");
}

} // namespace XpAcl
