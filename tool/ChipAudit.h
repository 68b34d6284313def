#pragma once

#include "tool/Session.h"

#include <cstdint>
#include <string>
#include <vector>

// What the chips hold against what the library has recorded, row by row and entry by entry.

namespace tool {

enum class Damage : uint8_t {
  missing,     // recorded, but not valid in the chip (or no entry there)
  wrongKey,    // valid, but key or mask are not as recorded
  wrongAction, // valid with the right key, but the data word is not as recorded
  wrongEntry,  // an entry of a port table is not as recorded
  stale,       // not recorded, of an ACL id or a (VLAN, VIF) that nothing uses any more
  orphan,      // not recorded, although its ACL id is in use: packets may meet it
};
const char* damageText(Damage damage);

struct AuditFinding {
  Damage damage = Damage::missing;
  uint8_t chip = 0;
  std::string place;  // "ingressV4 row 5", "port Ethernet3", "port-VLAN index 2", "egress index 2"
  std::string detail; // what was recorded and what was found
  std::string line;   // the configured line, list or interface it belongs to
};

// Every difference; empty when there is none. The recorded rows are written, by the library itself, to tables
// that are put in the place of the chip's for the moment.
std::vector<AuditFinding> auditChips(Session& session);

} // namespace tool
