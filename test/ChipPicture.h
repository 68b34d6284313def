#pragma once

#include "sim/Device.h"

#include <cstdint>
#include <functional>
#include <string>

// What a chip does, without what its past left behind: which rows, ids, VIFs and indexes it chose. Two chips
// with the same policies at the same ports and (port, VLAN) entries give equal pictures, whatever the way
// that led there.

namespace test {

// `vifName` names a VIF by what it stands for ("Ethernet1").
std::string chipPicture(const sim::Device& device, const std::function<std::string(uint16_t)>& vifName);

} // namespace test
