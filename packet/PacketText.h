#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "packet/Packet.h"

// Packets as one line of text. Words are separated by blanks; letters may be of either case.
//
//   packet   := ip option* | "frame" option*
//   ip       := ("tcp" | "udp" | "sctp" | "icmp" | "icmp6" | "proto" NUMBER) end ">" end
//   end      := IPV4 | IPV4 ":" PORT | IPV6 | "[" IPV6 "]:" PORT
//   option   := "fin" | "syn" | "rst" | "psh" | "ack" | "urg" | "ece" | "cwr"    (tcp with ports)
//             | TYPE | TYPE "/" CODE                                            (icmp, icmp6)
//             | "fragment"            non-initial: no ports, no type
//             | "ttl" NUMBER          64 when absent
//             | "vlan" 1..4095        untagged when absent; 4095 is reserved, and no port carries it
//             | "src-mac" MAC | "dst-mac" MAC      zero when absent; aa:bb:cc:dd:ee:ff or aabb.ccdd.eeff
//             | "ethertype" NUMBER    that of the address family when absent; 0x prefix for hexadecimal
//             | "length" NUMBER       octets on the wire, 0 when absent
//
// Both ends have a port or neither has one. Without ports (ICMP: without a type) the packet has no L4
// header, as when it was cut. "frame" is a frame without an IP header. "icmp" is protocol 1 and "icmp6"
// protocol 58, in either family; "proto 6" and "tcp" are the same.
//
// fromText(toText(p)) == p for every record that dissection or a header trace makes.

namespace packet {

class PacketTextError : public std::runtime_error { // where and why a text is no packet
public:
  PacketTextError(std::size_t column, const std::string& message)
      : std::runtime_error("column " + std::to_string(column) + ": " + message), column_(column) {}
  std::size_t column() const { return column_; } // 1-based, octets

private:
  std::size_t column_;
};

// Throws PacketTextError, which says where the text stops being a packet and what was expected.
Packet fromText(std::string_view text);

} // namespace packet
