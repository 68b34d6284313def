#pragma once

#include "XpAclTcam/XpAclTcamTypes.h"
#include "tool/Session.h"

#include <cstdint>
#include <string>
#include <vector>

// What `xpacl show` prints, as JSON read from the simulated chips themselves. Each prints one document
// "xpacl/show/1" whose member "what" names the kind.

namespace tool {

// The valid rows of tables of one chip, with the line that each holds.
void showTcamJson(Session& session, uint8_t chip, const std::vector<XpAcl::TcamType>& tables);
// Entries of a port table that differ from zero. `what`: "ports", "vlans" or "egress".
void showPortTableJson(Session& session, uint8_t chip, const std::string& what);
// Lines of text, as the library says them. `what`: "state" or "trace".
void showLinesJson(const std::string& what, const std::vector<std::string>& lines);

} // namespace tool
