#pragma once

#include "agent/config/ConfigReader.h"
#include "agent/config/Diagnostics.h"

#include <string_view>

namespace agent {

// Filter sets in ClassBench form, one filter a line:
//
//   @src/len <blank> dst/len <blank> lo : hi <blank> lo : hi <blank> proto/mask [<blank> flags/mask]
//
// They become the IPv4 list "classbench", in which every filter permits, applied to Ethernet1 inbound. Ports
// are compared whatever the protocol is, as the form has it. Flags are ignored. Empty lines and lines that
// start with '#' are skipped.
void readClassBench(std::string_view text, Diagnostics& diagnostics, Config& config);

// Whether a text is of this form, by its first line that is not empty.
bool looksLikeClassBench(std::string_view text);

constexpr const char* classBenchListName = "classbench";

} // namespace agent
