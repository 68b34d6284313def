#pragma once

#include <array>
#include <cstdint>
#include <string>

// What a frame says about itself, as far as an access list can ask: the headers of layers 2 to 4
// after dissection. The simulated chip builds its lookup keys from this record and the line
// evaluator reads it; neither looks at the frame again.

namespace packet {

using MacAddr = std::array<uint8_t, 6>; // as on the wire

enum class L3 : uint8_t { none, ipv4, ipv6 }; // the network layer

struct Packet { // numbers in host byte order, addresses as on the wire
  MacAddr dstMac{};
  MacAddr srcMac{};
  uint16_t vlan = 0;      // VLAN of the outer tag, 1..4095; 0: untagged or priority-tagged
  uint16_t etherType = 0; // behind the tags; for an 802.3 frame its length field

  L3 l3 = L3::none; // none also for a frame whose IP header is malformed
  // IPv4 addresses stand in the first four octets, most significant first.
  std::array<uint8_t, 16> src{};
  std::array<uint8_t, 16> dst{};
  uint8_t protocol = 0; // IPv6: upper-layer protocol behind the extension headers
  uint8_t ttl = 0;      // hop limit for IPv6
  bool nonInitialFragment = false;

  // The L4 header, when it is wholly there (TCP 20, UDP 8, SCTP 12, ICMP 4 octets) and the packet is
  // no non-initial fragment; else everything below is 0. Protocols other than these five have none.
  bool hasL4 = false;
  uint16_t srcPort = 0; // TCP, UDP, SCTP; header traces give ports to every protocol
  uint16_t dstPort = 0;
  uint8_t tcpFlags = 0; // TCP; RFC 9293 section 3.1: FIN 1, SYN 2, RST 4, PSH 8, ACK 16, URG 32
  uint8_t icmpType = 0; // ICMP, ICMPv6
  uint8_t icmpCode = 0;

  uint32_t length = 0; // octets on the wire

  uint32_t srcV4() const { return v4(src); }
  uint32_t dstV4() const { return v4(dst); }
  void srcV4Is(uint32_t a) { v4Is(src, a); }
  void dstV4Is(uint32_t a) { v4Is(dst, a); }
  // What stands where the chip looks for L4 ports: the destination port or the ICMP type, the source
  // port or the ICMP code, and 0 without an L4 header. At most one of the two ORed values is not 0.
  uint16_t l4Dst() const { return hasL4 ? static_cast<uint16_t>(dstPort | icmpType) : uint16_t{0}; }
  uint16_t l4Src() const { return hasL4 ? static_cast<uint16_t>(srcPort | icmpCode) : uint16_t{0}; }
  // TCP with ACK or RST (RFC 9293).
  bool established() const { return hasL4 && protocol == 6 && (tcpFlags & 0x14) != 0; }

  bool operator==(const Packet&) const = default;

private:
  static uint32_t v4(const std::array<uint8_t, 16>& a) {
    return (uint32_t{a[0]} << 24) | (uint32_t{a[1]} << 16) | (uint32_t{a[2]} << 8) | a[3];
  }
  static void v4Is(std::array<uint8_t, 16>& a, uint32_t v) {
    a = {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
         static_cast<uint8_t>(v)};
  }
};

// Protocol numbers (IANA) that the dissector and the access lists treat specially.
constexpr uint8_t protoIcmp = 1;
constexpr uint8_t protoTcp = 6;
constexpr uint8_t protoUdp = 17;
constexpr uint8_t protoIcmpV6 = 58;
constexpr uint8_t protoSctp = 132;

// EtherTypes (IEEE 802) that lead to layer 3.
constexpr uint16_t etherTypeIpv4 = 0x0800;
constexpr uint16_t etherTypeArp = 0x0806;
constexpr uint16_t etherTypeIpv6 = 0x86DD;

// One line of text: "tcp 10.1.2.3:1234 > 10.9.8.7:80 ack ttl 64 vlan 10". The grammar and the way
// back stand in packet/PacketText.h.
std::string toText(const Packet& packet);

} // namespace packet
