#pragma once

#include "agent/config/Findings.h"
#include "agent/config/Names.h"
#include "agent/config/PortSets.h"

#include <cstdint>
#include <optional>
#include <string_view>

// Port expressions: "eq 80", "eq www 443", "neq telnet", "gt 1023", "lt 1024", "range 20 ftp".

namespace agent {

bool isPortOperator(std::string_view word);
// The port that a number or a service name means to all these protocols; 0 stands for "any that has it".
std::optional<uint16_t> portFromText(std::string_view word, PortProtocols protocols);
// Takes one port; refuses what is none.
std::optional<uint16_t> takePort(Cursor& cursor, PortProtocols protocols, Findings& findings);
// Takes an operator and its ports; the cursor stands at the operator.
std::optional<PortSet> takePortExpression(Cursor& cursor, PortProtocols protocols, Findings& findings);

} // namespace agent
