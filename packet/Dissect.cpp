#include "packet/Dissect.h"

#include <algorithm>
#include <pcap/pcap.h>

namespace packet {

namespace {

// The octets of a frame that are left to read. Every read asks first whether they are there.
class Octets {
public:
  Octets(const uint8_t* bytes, std::size_t size) : bytes_(bytes), size_(size) {}

  std::size_t size() const { return size_; }
  bool has(std::size_t count) const { return count <= size_; }
  uint8_t u8(std::size_t at) const { return bytes_[at]; }
  uint16_t u16(std::size_t at) const { return static_cast<uint16_t>(bytes_[at] << 8 | bytes_[at + 1]); }
  const uint8_t* at(std::size_t offset) const { return bytes_ + offset; }

  void skip(std::size_t count) {
    bytes_ += count;
    size_ -= count;
  }
  // Forgets what stands behind the first `size` octets: link padding, or nothing.
  void trim(std::size_t size) { size_ = std::min(size_, size); }

private:
  const uint8_t* bytes_;
  std::size_t size_;
};

constexpr uint8_t ipv6HopByHop = 0;
constexpr uint8_t ipv6Routing = 43;
constexpr uint8_t ipv6Fragment = 44;
constexpr uint8_t ipv6Auth = 51;
constexpr uint8_t ipv6DestOptions = 60;
constexpr uint8_t ipv6Mobility = 135;
constexpr uint8_t ipv6Hip = 139;
constexpr uint8_t ipv6Shim6 = 140;

bool isTag(uint16_t etherType) {
  return etherType == 0x8100 || etherType == 0x88A8 || etherType == 0x9100;
}

void readL4(Octets octets, Packet& packet) {
  if (packet.nonInitialFragment) {
    return;
  }
  switch (packet.protocol) {
  case protoTcp:
    packet.hasL4 = octets.has(20);
    break;
  case protoUdp:
    packet.hasL4 = octets.has(8);
    break;
  case protoSctp:
    packet.hasL4 = octets.has(12);
    break;
  case protoIcmp:
  case protoIcmpV6:
    packet.hasL4 = octets.has(4);
    if (packet.hasL4) {
      packet.icmpType = octets.u8(0);
      packet.icmpCode = octets.u8(1);
    }
    return;
  default:
    return;
  }
  if (packet.hasL4) {
    packet.srcPort = octets.u16(0);
    packet.dstPort = octets.u16(2);
    packet.tcpFlags = packet.protocol == protoTcp ? octets.u8(13) : uint8_t{0};
  }
}

// RFC 791. A header that breaks its rules, or is cut, leaves the packet without layer 3.
void readIpv4(Octets octets, Packet& packet) {
  if (!octets.has(20) || octets.u8(0) >> 4 != 4) {
    return;
  }
  const std::size_t headerLength = (octets.u8(0) & 15u) * std::size_t{4};
  const std::size_t totalLength = octets.u16(2);
  if (headerLength < 20 || !octets.has(headerLength) || totalLength < headerLength) {
    return;
  }
  packet.l3 = L3::ipv4;
  packet.nonInitialFragment = (octets.u16(6) & 0x1FFF) != 0;
  packet.ttl = octets.u8(8);
  packet.protocol = octets.u8(9);
  std::copy_n(octets.at(12), 4, packet.src.begin());
  std::copy_n(octets.at(16), 4, packet.dst.begin());
  octets.trim(totalLength);
  octets.skip(headerLength);
  readL4(octets, packet);
}

// Length of the extension header `type` in front of `octets`, 0 when `type` is none or it is not all there.
// RFC 8200 section 4, RFC 4302 (AH), RFC 6275 (mobility), RFC 7401 (HIP), RFC 5533 (shim6).
std::size_t extensionLength(uint8_t type, const Octets& octets) {
  std::size_t length = 0;
  switch (type) {
  case ipv6HopByHop:
  case ipv6Routing:
  case ipv6DestOptions:
  case ipv6Mobility:
  case ipv6Hip:
  case ipv6Shim6:
    length = octets.has(2) ? (octets.u8(1) + std::size_t{1}) * 8 : 0;
    break;
  case ipv6Fragment:
    length = 8;
    break;
  case ipv6Auth:
    length = octets.has(2) ? (octets.u8(1) + std::size_t{2}) * 4 : 0;
    break;
  default:
    break;
  }
  return octets.has(length) ? length : 0;
}

void readIpv6(Octets octets, Packet& packet) {
  if (!octets.has(40) || octets.u8(0) >> 4 != 6) {
    return;
  }
  packet.l3 = L3::ipv6;
  packet.protocol = octets.u8(6);
  packet.ttl = octets.u8(7);
  std::copy_n(octets.at(8), 16, packet.src.begin());
  std::copy_n(octets.at(24), 16, packet.dst.begin());
  const std::size_t payloadLength = octets.u16(4);
  // A jumbogram tells its length in a hop-by-hop option and has 0 here (RFC 2675).
  const bool jumbo = payloadLength == 0 && packet.protocol == ipv6HopByHop;
  octets.skip(40);
  if (!jumbo) {
    octets.trim(payloadLength);
  }
  while (const std::size_t length = extensionLength(packet.protocol, octets)) {
    packet.nonInitialFragment = packet.protocol == ipv6Fragment && octets.u16(2) >> 3 != 0;
    packet.protocol = octets.u8(0);
    if (packet.nonInitialFragment) {
      return;
    }
    octets.skip(length);
  }
  readL4(octets, packet);
}

void readL3(Octets octets, Packet& packet) {
  if (packet.etherType == etherTypeIpv4) {
    readIpv4(octets, packet);
  } else if (packet.etherType == etherTypeIpv6) {
    readIpv6(octets, packet);
  }
}

// From behind an EtherType: skips tags, the first of which with a VLAN names the frame's.
void readTagsAndL3(uint16_t etherType, Octets octets, Packet& packet) {
  packet.etherType = etherType;
  while (isTag(packet.etherType) && octets.has(4)) {
    const uint16_t vlan = octets.u16(0) & 0x0FFF;
    if (packet.vlan == 0) {
      packet.vlan = vlan;
    }
    packet.etherType = octets.u16(2);
    octets.skip(4);
  }
  readL3(octets, packet);
}

void readEthernet(Octets octets, Packet& packet) {
  if (octets.has(6)) {
    std::copy_n(octets.at(0), 6, packet.dstMac.begin());
  }
  if (octets.has(12)) {
    std::copy_n(octets.at(6), 6, packet.srcMac.begin());
  }
  if (octets.has(14)) {
    const uint16_t etherType = octets.u16(12);
    octets.skip(14);
    readTagsAndL3(etherType, octets, packet);
  }
}

void readRawIp(Octets octets, Packet& packet) {
  if (!octets.has(1)) {
    return;
  }
  switch (octets.u8(0) >> 4) {
  case 4:
    packet.etherType = etherTypeIpv4;
    break;
  case 6:
    packet.etherType = etherTypeIpv6;
    break;
  default:
    return;
  }
  readL3(octets, packet);
}

// Where the fields of a cooked header stand, which is all that its two versions differ in.
struct CookedLayout {
  std::size_t length;
  std::size_t protocol;
  std::size_t addressLength; // the octet, or the low one of two
  std::size_t address;
};
constexpr CookedLayout cooked1{16, 14, 5, 6};
constexpr CookedLayout cooked2{20, 0, 11, 12};

void readCooked(const CookedLayout& layout, Octets octets, Packet& packet) {
  if (!octets.has(layout.length)) {
    return;
  }
  if (octets.u8(layout.addressLength) == packet.srcMac.size()) {
    std::copy_n(octets.at(layout.address), packet.srcMac.size(), packet.srcMac.begin());
  }
  const uint16_t protocol = octets.u16(layout.protocol);
  octets.skip(layout.length);
  readTagsAndL3(protocol, octets, packet);
}

} // namespace

std::optional<LinkType> linkTypeFromDlt(int dlt) {
  switch (dlt) {
  case DLT_EN10MB:
    return LinkType::ethernet;
  case DLT_RAW:
  case DLT_IPV4:
  case DLT_IPV6:
    return LinkType::rawIp;
  case DLT_LINUX_SLL:
    return LinkType::linuxCooked;
  case DLT_LINUX_SLL2:
    return LinkType::linuxCooked2;
  default:
    return std::nullopt;
  }
}

Packet dissect(LinkType linkType, const uint8_t* bytes, uint32_t capLen, uint32_t wireLen) {
  Packet packet;
  packet.length = wireLen;
  const Octets octets(bytes, capLen);
  switch (linkType) {
  case LinkType::ethernet:
    readEthernet(octets, packet);
    break;
  case LinkType::rawIp:
    readRawIp(octets, packet);
    break;
  case LinkType::linuxCooked:
    readCooked(cooked1, octets, packet);
    break;
  case LinkType::linuxCooked2:
    readCooked(cooked2, octets, packet);
    break;
  }
  return packet;
}

} // namespace packet
