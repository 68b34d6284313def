#include "packet/PacketText.h"

#include "packet/AddressText.h"
#include "packet/Words.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>
#include <vector>

namespace packet {

namespace {

constexpr uint8_t defaultTtl = 64;

// TCP flags by bit number (RFC 9293 section 3.1).
constexpr const char* tcpFlagNames[8] = {"fin", "syn", "rst", "psh", "ack", "urg", "ece", "cwr"};

struct ProtocolName {
  const char* name;
  uint8_t number;
};
constexpr ProtocolName protocolNames[] = {
    {"tcp", protoTcp}, {"udp", protoUdp}, {"sctp", protoSctp}, {"icmp", protoIcmp}, {"icmp6", protoIcmpV6}};

bool isIcmp(uint8_t protocol) {
  return protocol == protoIcmp || protocol == protoIcmpV6;
}

uint16_t etherTypeOf(L3 family) {
  return family == L3::ipv4 ? etherTypeIpv4 : family == L3::ipv6 ? etherTypeIpv6 : uint16_t{0};
}

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

std::string endText(L3 family, const std::array<uint8_t, 16>& address, std::optional<uint16_t> port) {
  const std::string ip = ipText(family, address);
  if (!port) {
    return ip;
  }
  std::string text = family == L3::ipv6 ? "[" : "";
  text += ip;
  text += family == L3::ipv6 ? "]:" : ":";
  return text += std::to_string(*port);
}

std::string ipPart(const Packet& packet) {
  std::string text;
  for (const ProtocolName& protocol : protocolNames) {
    if (protocol.number == packet.protocol) {
      text = protocol.name;
    }
  }
  if (text.empty()) {
    text = "proto " + std::to_string(packet.protocol);
  }
  const bool withPorts =
      packet.hasL4 && (!isIcmp(packet.protocol) || packet.srcPort != 0 || packet.dstPort != 0);
  const auto port = [&](uint16_t number) {
    return withPorts ? std::optional<uint16_t>(number) : std::nullopt;
  };
  text += " ";
  text += endText(packet.l3, packet.src, port(packet.srcPort));
  text += " > ";
  text += endText(packet.l3, packet.dst, port(packet.dstPort));
  if (packet.hasL4 && isIcmp(packet.protocol)) {
    text += " " + std::to_string(packet.icmpType) + "/" + std::to_string(packet.icmpCode);
  }
  for (unsigned bit = 0; bit < 8; ++bit) {
    if ((packet.tcpFlags & 1u << bit) != 0) {
      text += " ";
      text += tcpFlagNames[bit];
    }
  }
  if (packet.nonInitialFragment) {
    text += " fragment";
  }
  return text + " ttl " + std::to_string(packet.ttl);
}

// Reads one packet, word by word.
class Parser {
public:
  explicit Parser(std::string_view text) : reader_(text) { advance(); }

  Packet parse() {
    const std::string first = lower(word_.text);
    if (first == "frame") {
      advance();
    } else {
      parseProtocol(first);
      parseEnds();
    }
    packet_.etherType = etherTypeOf(packet_.l3);
    packet_.ttl = packet_.l3 == L3::none ? uint8_t{0} : defaultTtl;
    while (!atEnd()) {
      parseOption();
    }
    if (packet_.nonInitialFragment && packet_.hasL4) {
      fail("a non-initial fragment has no L4 header: leave out ports and type, or \"fragment\"");
    }
    return packet_;
  }

private:
  bool atEnd() const { return word_.text.empty(); }
  void advance() { reader_.next(word_); }
  [[noreturn]] void fail(const std::string& message) const { throw PacketTextError(word_.column, message); }
  [[noreturn]] void failExpected(const std::string& expected) const {
    fail(atEnd() ? "the text ends where " + expected + " was expected"
                 : "\"" + clipped(word_.text) + "\" stands where " + expected + " was expected");
  }

  uint64_t number(const std::string& what, uint64_t max) {
    uint64_t value = 0;
    if (atEnd() || !parseNumber(word_.text, max, value)) {
      failExpected(what + " up to " + std::to_string(max));
    }
    advance();
    return value;
  }

  void parseProtocol(const std::string& word) {
    for (const ProtocolName& protocol : protocolNames) {
      if (word == protocol.name) {
        packet_.protocol = protocol.number;
        advance();
        return;
      }
    }
    if (word != "proto") {
      failExpected("\"tcp\", \"udp\", \"sctp\", \"icmp\", \"icmp6\", \"proto N\" or \"frame\"");
    }
    advance();
    packet_.protocol = static_cast<uint8_t>(number("a protocol number", 255));
  }

  void parseEnds() {
    const std::optional<uint16_t> srcPort = parseEnd(packet_.src);
    if (word_.text != ">") {
      failExpected("\">\"");
    }
    advance();
    const L3 family = packet_.l3;
    const Word second = word_;
    const std::optional<uint16_t> dstPort = parseEnd(packet_.dst);
    if (family != packet_.l3) {
      throw PacketTextError(second.column, "the two addresses are of different families");
    }
    if (srcPort.has_value() != dstPort.has_value()) {
      throw PacketTextError(second.column, "one end has a port and the other has none: give both or neither");
    }
    if (srcPort) {
      packet_.hasL4 = true;
      packet_.srcPort = *srcPort;
      packet_.dstPort = *dstPort;
    }
  }

  // One address with or without port; also sets the family.
  std::optional<uint16_t> parseEnd(std::array<uint8_t, 16>& address) {
    std::string ip(word_.text);
    std::string_view portText;
    bool withPort = false;
    const std::size_t colon = ip.rfind(':');
    if (!ip.empty() && ip[0] == '[') {
      const std::size_t close = ip.find("]:");
      if (close == std::string::npos) {
        failExpected("an address such as [2001:db8::1]:80");
      }
      withPort = true;
      portText = word_.text.substr(close + 2);
      ip = ip.substr(1, close - 1);
    } else if (colon != std::string::npos && ip.find(':') == colon) {
      withPort = true;
      portText = word_.text.substr(colon + 1);
      ip.resize(colon);
    }
    const bool v6 = ip.find(':') != std::string::npos;
    if (v6 ? !parseIpv6(ip, address) : !parseIpv4(ip, address)) {
      failExpected("an IPv4 or IPv6 address");
    }
    packet_.l3 = v6 ? L3::ipv6 : L3::ipv4;
    uint64_t port = 0;
    if (withPort && !parseDecimal(portText, 65535, port)) {
      fail("\"" + clipped(portText) + "\" is no port: write a number up to 65535");
    }
    advance();
    return withPort ? std::optional<uint16_t>(static_cast<uint16_t>(port)) : std::nullopt;
  }

  void parseOption() {
    const std::string option = lower(word_.text);
    if (parseFlag(option) || parseIcmp(option)) {
      return;
    }
    once(option);
    const bool ip = packet_.l3 != L3::none;
    if (ip && option == "fragment") {
      packet_.nonInitialFragment = true;
      advance();
    } else if (ip && option == "ttl") {
      advance();
      packet_.ttl = static_cast<uint8_t>(number("a time to live", 255));
    } else if (option == "vlan") {
      advance();
      const Word word = word_;
      packet_.vlan = static_cast<uint16_t>(number("a VLAN", 4095));
      if (packet_.vlan == 0) {
        throw PacketTextError(word.column, "there is no VLAN 0: write 1 to 4094, or leave it out");
      }
    } else if (option == "src-mac" || option == "dst-mac") {
      advance();
      (option == "src-mac" ? packet_.srcMac : packet_.dstMac) = macAddress();
    } else if (option == "ethertype") {
      advance();
      packet_.etherType = static_cast<uint16_t>(number("an EtherType", 65535));
    } else if (option == "length") {
      advance();
      packet_.length = static_cast<uint32_t>(number("a length", 0xFFFFFFFF));
    } else {
      failExpected(
          ip ? "a TCP flag, an ICMP type, \"fragment\", \"ttl\", \"vlan\", \"src-mac\", \"dst-mac\", "
               "\"ethertype\" or \"length\""
             : "\"vlan\", \"src-mac\", \"dst-mac\", \"ethertype\" or \"length\"");
    }
  }

  void once(const std::string& option) {
    if (std::find(seen_.begin(), seen_.end(), option) != seen_.end()) {
      fail("\"" + clipped(option) + "\" stands twice");
    }
    seen_.push_back(option);
  }

  bool parseFlag(const std::string& option) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      if (option == tcpFlagNames[bit]) {
        if (packet_.protocol != protoTcp || !packet_.hasL4) {
          fail("\"" + option + "\" belongs to tcp with ports only");
        }
        packet_.tcpFlags |= static_cast<uint8_t>(1u << bit);
        advance();
        return true;
      }
    }
    return false;
  }

  bool parseIcmp(const std::string& option) {
    if (option.empty() || std::isdigit(static_cast<unsigned char>(option[0])) == 0) {
      return false;
    }
    if (packet_.l3 == L3::none || !isIcmp(packet_.protocol)) {
      fail("\"" + clipped(option) +
           "\" stands where an option was expected: only icmp and icmp6 have a type");
    }
    once("type");
    const std::size_t slash = option.find('/');
    uint64_t type = 0;
    uint64_t code = 0;
    if (!parseDecimal(std::string_view(option).substr(0, slash), 255, type) ||
        (slash != std::string::npos &&
         !parseDecimal(std::string_view(option).substr(slash + 1), 255, code))) {
      failExpected("an ICMP type or type/code up to 255");
    }
    packet_.hasL4 = true;
    packet_.icmpType = static_cast<uint8_t>(type);
    packet_.icmpCode = static_cast<uint8_t>(code);
    advance();
    return true;
  }

  MacAddr macAddress() {
    MacAddr mac{};
    if (!parseMac(word_.text, mac)) {
      failExpected("a MAC address such as 00:11:22:33:44:55");
    }
    advance();
    return mac;
  }

  WordReader reader_;
  Word word_;
  Packet packet_;
  std::vector<std::string> seen_;
};

} // namespace

std::string toText(const Packet& packet) {
  std::string text = packet.l3 == L3::none ? "frame" : ipPart(packet);
  if (packet.vlan != 0) {
    text += " vlan " + std::to_string(packet.vlan);
  }
  if (packet.srcMac != MacAddr{}) {
    text += " src-mac " + macText(packet.srcMac);
  }
  if (packet.dstMac != MacAddr{}) {
    text += " dst-mac " + macText(packet.dstMac);
  }
  if (packet.etherType != etherTypeOf(packet.l3)) {
    char hex[24];
    std::snprintf(hex, sizeof hex, " ethertype 0x%04x", packet.etherType);
    text += hex;
  }
  if (packet.length != 0) {
    text += " length " + std::to_string(packet.length);
  }
  return text;
}

Packet fromText(std::string_view text) {
  return Parser(text).parse();
}

} // namespace packet
