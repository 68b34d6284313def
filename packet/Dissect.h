#pragma once

#include <cstdint>
#include <optional>

#include "packet/Packet.h"

// From the octets of a captured frame to the packet record.
//
// Settled where frames are odd:
//  - A frame whose IP header is malformed (wrong version, header shorter than 20 octets or longer than
//    what was captured, total length below the header length) has no layer 3; its MAC fields stand.
//  - An L4 header that is cut counts as absent: TCP needs 20 octets, UDP 8, SCTP 12, ICMP and ICMPv6 4.
//  - IPv6 extension headers are skipped: hop-by-hop 0, routing 43, destination options 60, fragment 44,
//    AH 51, mobility 135, HIP 139, shim6 140. A chain that is cut, or that ends in a non-initial
//    fragment, yields the last next-header value that was read, and no L4 header.
//  - IP inside LLC/SNAP gets no IP lookup; the length of an 802.3 frame stands as its EtherType.
//  - Tags are 802.1Q (0x8100), 802.1ad (0x88a8) and the older 0x9100. The outer VLAN counts; a tag with
//    VLAN 0 carries a priority only and is no tag. Any number of tags is skipped.
//  - Raw IP frames and Linux cooked frames have no destination MAC address; it reads as zero. Cooked
//    frames keep the sender's address when it has 6 octets.

namespace packet {

enum class LinkType : uint8_t { ethernet, rawIp, linuxCooked, linuxCooked2 }; // what a frame begins with

// The link type of a capture file's number (libpcap's DLT_ values), or nothing when it is unsupported.
std::optional<LinkType> linkTypeFromDlt(int dlt);

// Dissects the `capLen` captured octets of a frame that had `wireLen` octets on the wire. Reads nothing
// behind `bytes + capLen`; never fails: what cannot be read is absent from the record.
Packet dissect(LinkType linkType, const uint8_t* bytes, uint32_t capLen, uint32_t wireLen);

} // namespace packet
