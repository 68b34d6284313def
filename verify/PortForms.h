#pragma once

#include "agent/config/ConfigModel.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

// How many rows a set of ports takes, and the cheapest way of saying the same where not every port matters.
//
// A row compares a port as an aligned block of 2^k ports. With lines in front that take some ports out, the
// blocks behind them may be larger: "not 80" is one row for 80 and one for all ports, instead of sixteen.

namespace verify {

// The fewest aligned blocks that make up the set.
std::size_t blocksOf(const agent::PortSet& ports);

constexpr std::size_t numPorts = 65536;
using PortFlags = std::vector<bool>; // by port, numPorts of them

struct PortNeeds {
  PortFlags needed;     // the line must match these
  PortFlags harmful;    // the line must not match these
  PortFlags excludable; // a line in front with the other action may match these
};

struct PortForm {
  std::size_t blocks = 0;  // of both sets
  agent::PortSet ports;    // of the line itself
  agent::PortSet excluded; // of a line in front of it with the other action; usually none
};

// The form with the fewest blocks. No port is both needed and harmful, or both needed and excludable.
PortForm cheapestForm(const PortNeeds& needs);

} // namespace verify
