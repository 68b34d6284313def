#include "agent/config/Diagnostics.h"

#include <algorithm>
#include <tuple>

namespace agent {

void Diagnostics::add(Finding finding, std::string list) {
  all_.push_back({strict_ ? Severity::error : finding.severity,
                  {file_, finding.line, finding.column},
                  std::move(finding.message),
                  std::move(list)});
}

void Diagnostics::addAll(std::vector<Finding> findings) {
  for (Finding& finding : findings)
    add(std::move(finding));
}

void Diagnostics::errorAt(const std::string& place, std::string message) {
  all_.push_back({Severity::error, {place, 0, 0}, std::move(message), {}});
}

std::vector<Diagnostic> Diagnostics::takeAll() {
  const auto key = [](const Diagnostic& diagnostic) {
    return std::tie(diagnostic.loc.line, diagnostic.loc.column, diagnostic.severity, diagnostic.message,
                    diagnostic.list);
  };
  std::stable_sort(all_.begin(), all_.end(),
                   [key](const Diagnostic& a, const Diagnostic& b) { return key(a) < key(b); });
  all_.erase(std::unique(all_.begin(), all_.end(),
                         [key](const Diagnostic& a, const Diagnostic& b) { return key(a) == key(b); }),
             all_.end());
  return std::move(all_);
}

} // namespace agent
