#pragma once

#include "XpAclTcam/XpAclTcamTypes.h"
#include "agent/Desired.h"
#include "agent/config/ConfigModel.h"

#include <cstdint>
#include <string>
#include <vector>

// Does a configuration fit, and what does each list and line of it cost? Computed from the configurations
// alone, with the same figures that a real change meets.

namespace agent {

constexpr uint32_t idsPerKind = 255; // hardware ACL ids have 8 bits in the chip's port tables; 0 is none

struct TablePlan { // rows of one table
  XpAcl::TcamType table = XpAcl::ingressV4;
  uint32_t rows = 0; // of the table, the default row included
  uint32_t used = 0; // by the new configuration, the default row left out
  uint32_t peak = 0; // while old and new versions stand side by side
  uint32_t capacity() const { return rows == 0 ? 0 : rows - 1; }
  uint32_t free() const { return used < capacity() ? capacity() - used : 0; }
  uint32_t lack() const { return peak > capacity() ? peak - capacity() : 0; }
};

struct ChipPlan { // the tables of one chip, in the order of TcamType
  uint8_t chip = 0;
  std::vector<TablePlan> tables; // in the order of TcamType
};

// One list in one direction and role.
struct AclPlan {
  std::string name;
  Family family = Family::ipv4;
  Direction direction = Direction::in;
  bool routed = false;
  uint32_t rules = 0;    // configured entries
  uint32_t rows = 0;     // of one version, the implicit rows included
  uint32_t versions = 0; // hardware ACL ids that it stands under
};

// One configured entry that takes more than one row.
struct LinePlan {
  std::string list;
  SourceLoc loc;
  std::string text;
  uint32_t rows = 0;
  std::string expansion; // what its ports expand to
};

struct Plan { // what a configuration takes, and whether that fits
  bool fits = true;
  std::vector<std::string> reasons; // why it does not fit
  std::vector<ChipPlan> chips;
  std::vector<TablePlan> fullest; // each table as on the chip where it is fullest
  std::vector<AclPlan> acls;
  std::vector<LinePlan> costliest; // descending by rows
};

// `from`: the configuration that is in force, or null for empty chips. Table sizes are those that the chips
// were started with: of `from` when given.
Plan plan(const Config& config, const Config* from);

// Ports of one condition as text: "1024-65535 = 1024/0xfc00 2048/0xf800 ...".
std::string expansionText(const PortSet& ports);

} // namespace agent
