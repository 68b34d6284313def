#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "sim/System.h"

// The tables of chips as a file, as if they had been read out over a debug port. All numbers little endian,
// without padding:
//
//   8 bytes   "XPCHIPS1"
//   u32       chips, then for each chip:
//     u8      device number
//     u8      data words a row
//     u32     ports; u32 capacity of the port-VLAN table; u32 capacity of the egress table
//     5 x u32 rows of each TCAM table, in the order of XpXdk::iaclTables
//     for each of these tables, for each row:
//       u8    1 valid, 0 not
//       key bytes (29 for IPv4, 41 for IPv6 or as long as the key type is), as many ignore-mask bytes,
//       u32   each data word
//     for each port: u8 PAclId, u8 aclEnBits, u8 macAclEn
//     u32     entries of the port-VLAN table, then each: u32 index, u16 VLAN, u16 VIF, u8 id, u8 enables
//     u32     entries of the egress table, then each: u32 index, u16 BD, u16 VIF, u8 port ACL id, u8 IPv4 and
//             u8 IPv6 enable, u8 routed ACL id, u8 IPv4 and u8 IPv6 enable
//     2 times (ingress, egress): u32 counters that are not 0, then each: u32 index, u64 count
//
// What the ports are attached to is not part of it.

namespace sim {

class ChipFileError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// The tables of every chip of the system.
std::string chipImage(const System& system);
// Makes the chips what the image says, damaged or not: entries may have equal keys. The image has the chips
// of the system, in their sizes. Raises ChipFileError, with the byte where it stopped, and changes nothing.
void chipImageIs(System& system, std::string_view image);

// The same by file. Raise ChipFileError for files that cannot be read or written.
void saveChips(const System& system, const std::string& path);
void loadChips(System& system, const std::string& path);

} // namespace sim
