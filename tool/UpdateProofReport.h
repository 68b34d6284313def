#pragma once

#include "agent/config/ConfigModel.h"
#include "tool/SetCommands.h"

#include <string>

namespace tool {

struct ProofOptions : SetOptions {
  std::string from; // files
  std::string to;
  std::string certificate; // file to write; empty: none
};

// Proves the change from one configuration to the other, prints what was found and writes the certificate.
// Answers the exit status; 1 when some packet gets another verdict, and then there is no certificate. Ends
// the command with status 1 when the change does not fit.
int proveUpdate(const agent::Config& from, const agent::Config& to, const ProofOptions& options);

} // namespace tool
