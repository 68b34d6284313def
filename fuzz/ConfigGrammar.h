#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Configurations made from bytes: each byte chooses what comes next, so that whatever the bytes are, most
// lines are such as an operator could write, and a fuzzer that turns a byte changes a word. Bytes that are
// used up read as 0, which ends everything soon.

namespace fuzzing {

class ConfigGrammar {
public:
  ConfigGrammar(const uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

  // Stanzas of text: groups, then lists, then the rest. Lists may stand in any order among themselves.
  struct Text {
    std::vector<std::string> groups;
    std::vector<std::string> lists;
    std::vector<std::string> rest; // VLANs, tables, interfaces
    std::string joined() const {
      std::string text;
      for (const std::vector<std::string>* const part : {&groups, &lists, &rest}) {
        for (const std::string& stanza : *part) {
          text += stanza;
        }
      }
      return text;
    }
  };

  Text text() {
    Text text;
    text.groups = groups();
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (!oneIn(4)) {
        text.lists.push_back(ipList(names[i]));
      }
      if (oneIn(2)) {
        text.lists.push_back(ip6List(names[i]));
      }
      if (oneIn(2)) {
        text.lists.push_back(macList(names[i]));
      }
    }
    text.rest.push_back(oneIn(4) ? "vlan 10,20-22\n" : "");
    for (unsigned port = 1; port <= 3; ++port) {
      text.rest.push_back(portStanza(port));
    }
    for (const char* const vlan : {"10", "20"}) {
      if (oneIn(2)) {
        text.rest.push_back(std::string("interface Vlan") + vlan + "\n" + bindings(false));
      }
    }
    return text;
  }

  uint8_t byte() { return at_ == end_ ? 0 : *at_++; }
  bool oneIn(unsigned n) { return byte() % n == 1 % n; }

private:
  static constexpr std::array<const char*, 3> names{"ALPHA", "BRAVO", "CHARLIE"};

  template <std::size_t N>
  std::string oneOf(const std::array<const char*, N>& words) {
    return words[byte() % N];
  }
  std::string number(unsigned below) { return std::to_string((byte() * 256u + byte()) % below); }
  std::string hex(unsigned digits) {
    std::string text;
    for (unsigned i = 0; i < digits; ++i) {
      text += "0123456789abcdef"[byte() % 16];
    }
    return text;
  }

  std::string v4() {
    static constexpr std::array<const char*, 4> nets{"10.0.", "10.1.", "192.168.", "172.16."};
    return oneOf(nets) + number(4) + "." + number(256);
  }
  std::string v4Match() {
    switch (byte() % 6) {
    case 0:
      return "any";
    case 1:
      return "host " + v4();
    case 2:
      return v4() + "/" + number(33);
    case 3:
      return v4() + " 0.0.0." + number(256);
    case 4:
      return grouped_ ? "object-group NET" : "any";
    default:
      return v4() + " 0." + number(256) + "." + number(256) + "." + number(256);
    }
  }
  std::string v6Match() {
    switch (byte() % 4) {
    case 0:
      return "any";
    case 1:
      return "host 2001:db8::" + hex(2);
    default:
      return "2001:db8:" + hex(3) + "::/" + number(129);
    }
  }
  std::string macMatch() {
    const std::string address = "0200.00" + hex(2) + "." + hex(4);
    switch (byte() % 3) {
    case 0:
      return "any";
    case 1:
      return "host " + address;
    default:
      return address + " 0000.00ff." + hex(4);
    }
  }
  std::string ports() {
    switch (byte() % 8) {
    case 0:
      return " eq " + number(65536);
    case 1:
      return " eq " + number(65536) + " " + number(65536);
    case 2:
      return " gt " + number(65536);
    case 3:
      return " lt " + number(65536);
    case 4:
      return " neq " + number(65536);
    case 5: {
      const unsigned low = (byte() * 256u + byte()) % 65536;
      return " range " + std::to_string(low) + " " +
             std::to_string(low + (byte() * 256u + byte()) % (65536 - low));
    }
    default:
      return "";
    }
  }

  std::string action() {
    return (oneIn(3) ? std::to_string(10 * (1 + byte() % 30)) + " " : "") + (oneIn(2) ? "permit " : "deny ");
  }

  template <typename Match>
  std::string ipLine(bool v6, const Match& match) {
    static constexpr std::array<const char*, 6> protocols{"tcp", "udp", "sctp", "icmp", "47", "ip"};
    std::string protocol = oneOf(protocols);
    const bool hasPorts = protocol == "tcp" || protocol == "udp" || protocol == "sctp";
    if (v6 && protocol == "ip") {
      protocol = "ipv6";
    }
    std::string text = " " + action() + protocol + " " + match() + (hasPorts ? ports() : "");
    text += " " + match() + (hasPorts ? ports() : "");
    if (protocol == "icmp" && oneIn(2)) {
      text += " " + number(256) + (oneIn(2) ? " " + number(256) : "");
    }
    if (protocol == "tcp" && oneIn(4)) {
      text += " established";
    }
    if (!v6 && oneIn(8)) {
      text += " ttl eq " + number(256);
    }
    if (!v6 && oneIn(8)) {
      text += " fragments";
    }
    return text + (oneIn(8) ? " log" : "") + "\n";
  }

  std::string ipList(const std::string& name) {
    if (oneIn(8)) {
      std::string text = "ip access-list standard " + name + "\n";
      for (unsigned lines = 1 + byte() % 6; lines > 0; --lines) {
        text += " " + action() + v4Match() + "\n";
      }
      return text;
    }
    std::string text = "ip access-list extended " + name + "\n";
    for (unsigned lines = 1 + byte() % 8; lines > 0; --lines) {
      text += oneIn(16) ? " remark " + hex(6) + "\n" : ipLine(false, [this] { return v4Match(); });
    }
    return text;
  }
  std::string ip6List(const std::string& name) {
    std::string text = "ipv6 access-list " + name + "\n";
    for (unsigned lines = 1 + byte() % 6; lines > 0; --lines) {
      text += ipLine(true, [this] { return v6Match(); });
    }
    return text;
  }
  std::string macList(const std::string& name) {
    std::string text = "mac access-list extended " + name + "\n";
    for (unsigned lines = 1 + byte() % 5; lines > 0; --lines) {
      text += " " + action() + macMatch() + " " + macMatch() + (oneIn(2) ? " 0x" + hex(4) : "") +
              (oneIn(4) ? " vlan " + std::to_string(1 + byte()) : "") + "\n";
    }
    return text;
  }

  std::vector<std::string> groups() {
    std::vector<std::string> stanzas;
    grouped_ = oneIn(2);
    if (grouped_) {
      std::string text = "object-group ip address NET\n";
      for (unsigned lines = 1 + byte() % 4; lines > 0; --lines) {
        text += oneIn(2) ? " host " + v4() + "\n" : " " + v4() + " 0.0.0." + number(256) + "\n";
      }
      stanzas.push_back(text);
    }
    return stanzas;
  }

  std::string bindings(bool port) {
    std::string text;
    for (const char* const direction : {" in", " out"}) {
      if (oneIn(2)) {
        text += " ip access-group " + oneOf(names) + direction + "\n";
      }
      if (oneIn(3)) {
        text += " ipv6 traffic-filter " + oneOf(names) + direction + "\n";
      }
    }
    if (port && oneIn(3)) {
      text += " mac access-group " + oneOf(names) + " in\n";
    }
    return text;
  }
  std::string portStanza(unsigned port) {
    std::string text = "interface Ethernet" + std::to_string(port) + "\n";
    switch (byte() % 4) {
    case 0:
      text += " switchport access vlan 10\n";
      break;
    case 1:
      text += " switchport trunk allowed vlan 10,20\n";
      break;
    default:
      text += " switchport trunk allowed vlan 1-" + std::to_string(1 + byte() % 30) + "\n";
      break;
    }
    return text + bindings(true);
  }

  const uint8_t* at_;
  const uint8_t* end_;
  bool grouped_ = false;
};

} // namespace fuzzing
