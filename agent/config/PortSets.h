#pragma once

#include "agent/config/ConfigModel.h"

#include <cstdint>
#include <string>

// Arithmetic of port sets; every result is sorted, disjoint and not adjacent.

namespace agent {

// Sorts the ranges and joins those that overlap or touch; a range with low > high is dropped.
PortSet normalized(PortSet ports);
PortSet unionOf(const PortSet& a, const PortSet& b);
PortSet complementOf(const PortSet& ports);
// One range; empty when low > high.
PortSet portRange(uint32_t low, uint32_t high);

} // namespace agent
