#pragma once

#include "packet/Capture.h"
#include "test/ToolUnderTest.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// A small switch, captures for it, and scenarios.

namespace test {

class RunUnderTest : public ToolUnderTest {
protected:
  struct Sent {
    uint64_t timeNs = 0;
    uint16_t port = 0; // TCP, destination
  };

  // TCP segments without data from 10.0.0.1 to 10.0.0.2, as raw IP (RFC 791, RFC 9293).
  std::string capture(const std::string& name, const std::vector<Sent>& packets) {
    constexpr int rawIp = 12;
    std::string path = (folder_ / name).string();
    packet::CaptureWriter writer(path, rawIp, true);
    for (const Sent& sent : packets) {
      std::array<uint8_t, 40> bytes{0x45, 0, 0, 40, 0, 1, 0, 0, 64, 6, 0, 0, 10, 0, 0, 1, 10, 0, 0, 2};
      bytes[22] = static_cast<uint8_t>(sent.port >> 8);
      bytes[23] = static_cast<uint8_t>(sent.port);
      bytes[32] = 0x50;
      bytes[33] = 2; // SYN
      packet::Frame frame;
      frame.timeNs = sent.timeNs;
      frame.capLen = frame.wireLen = static_cast<uint32_t>(bytes.size());
      frame.bytes = bytes.data();
      writer.write(frame);
    }
    writer.close();
    return path;
  }

  // Ports 1 to 5, of which the list of the small switch permits 1 to 3.
  std::string fivePorts() { return capture("five.pcap", {{1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}}); }

  // Runs a scenario; its outputs with the name of the folder taken out.
  Outcome scenario(const std::string& text, const std::string& options = "") {
    Outcome outcome = run("run " + file("s", text) + options);
    outcome.out = withoutFolder(outcome.out);
    outcome.err = withoutFolder(outcome.err);
    return outcome;
  }

  std::string withoutFolder(std::string text) const {
    const std::string folder = folder_.string() + "/";
    for (std::size_t at = text.find(folder); at != std::string::npos; at = text.find(folder)) {
      text.erase(at, folder.size());
    }
    return text;
  }

  static constexpr const char* smallSwitch = "hardware tcam ingressV4 16\n"
                                             "vlan 10,20\n"
                                             "ip access-list extended A\n"
                                             " 10 permit tcp any any range 1 3\n"
                                             " 20 deny ip any any log\n"
                                             "ip access-list extended G\n"
                                             " permit ip any any\n"
                                             "interface Ethernet1\n"
                                             " ip access-group A in\n"
                                             "interface Ethernet2\n"
                                             " switchport access vlan 10\n"
                                             "interface Vlan10\n"
                                             " ip access-group G out\n"
                                             "interface Port-Channel5\n"
                                             "interface Ethernet3\n"
                                             " channel-group 5\n"
                                             "interface Loopback0\n";
  // The same with another list, ports and a second chip.
  static constexpr const char* nextSwitch = "hardware tcam ingressV4 16\n"
                                            "vlan 10,20\n"
                                            "ip access-list extended A\n"
                                            " 10 permit tcp any any range 1 4\n"
                                            " 20 deny ip any any log\n"
                                            "interface Ethernet1\n"
                                            " ip access-group A in\n"
                                            "interface Ethernet300\n"
                                            " ip access-group A in\n"
                                            "hardware chip 1 interface Ethernet300\n";
};

} // namespace test
