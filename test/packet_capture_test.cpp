#include "packet/Capture.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <iostream>
#include <pcap/pcap.h>
#include <unistd.h>

#include "packet/PacketText.h"
#include "test/Shared.h"

namespace {

namespace fs = std::filesystem;

class CaptureTest : public testing::Test {
protected:
  CaptureTest() : folder_(fs::temp_directory_path() / ("xpacl-capture-" + std::to_string(getpid()))) {
    fs::create_directories(folder_);
  }
  ~CaptureTest() override { fs::remove_all(folder_); }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  // Messages begin with the file's name; tests leave out the folder.
  std::string shortened(std::string message) const {
    const std::string prefix = folder_.string() + "/";
    if (message.starts_with(prefix)) {
      message.erase(0, prefix.size());
    }
    return message;
  }
  void fileIs(const std::string& name, const std::string& bytes) {
    std::ofstream(path(name), std::ios::binary) << bytes;
  }
  std::string file(const std::string& name) const {
    std::ifstream stream(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  // Every frame as "number time capLen/wireLen text", or the error behind the frames before it.
  std::string read(const std::string& name) const {
    std::string text;
    try {
      packet::CaptureReader reader(path(name));
      for (packet::Frame frame; reader.next(frame);) {
        text += std::to_string(frame.number) + " " + std::to_string(frame.timeNs) + " " +
                std::to_string(frame.capLen) + "/" + std::to_string(frame.wireLen) + " " +
                packet::toText(reader.dissect(frame)) + "\n";
      }
    } catch (const packet::CaptureError& error) {
      text += shortened(error.what());
    }
    return text;
  }
  // Two raw IPv4 packets.
  void captureIs(const std::string& name, bool nanoseconds) {
    packet::CaptureWriter writer(path(name), DLT_RAW, nanoseconds);
    const uint8_t udp[] = {0x45, 0, 0,  28, 0, 0, 0, 0, 9, 17, 0, 0, 10, 0,
                           0,    1, 10, 0,  0, 2, 0, 1, 0, 2,  0, 8, 0,  0};
    writer.write({1, 1'000'000'000'000'000'001, 28, 28, udp});
    writer.write({2, 1'000'000'000'123'456'789, 1400, 28, udp});
    writer.close();
  }

  fs::path folder_;
};

std::string le32(uint32_t v) {
  return {static_cast<char>(v), static_cast<char>(v >> 8), static_cast<char>(v >> 16),
          static_cast<char>(v >> 24)};
}
std::string pcapHeader(uint32_t linkType) {
  return le32(0xA1B2C3D4) + std::string("\x02\0\x04\0", 4) + le32(0) + le32(0) + le32(65535) + le32(linkType);
}
std::string block(uint32_t type, std::string body) {
  body.resize((body.size() + 3) / 4 * 4);
  const uint32_t length = static_cast<uint32_t>(body.size()) + 12;
  return le32(type) + le32(length) + body + le32(length);
}

const std::string udpText = "udp 10.0.0.1:1 > 10.0.0.2:2 ttl 9";

TEST_F(CaptureTest, WritesAndReadsBack) {
  captureIs("nano.pcap", true);
  EXPECT_EQ(read("nano.pcap"), "1 1000000000000000001 28/28 " + udpText + " length 28\n" +
                                   "2 1000000000123456789 28/1400 " + udpText + " length 1400\n");
  captureIs("micro.pcap", false);
  EXPECT_EQ(read("micro.pcap"), "1 1000000000000000000 28/28 " + udpText + " length 28\n" +
                                    "2 1000000000123456000 28/1400 " + udpText + " length 1400\n");
  EXPECT_TRUE(packet::CaptureReader(path("nano.pcap")).nanoseconds());
  EXPECT_FALSE(packet::CaptureReader(path("micro.pcap")).nanoseconds());
}

TEST_F(CaptureTest, ReadsPcapng) {
  const std::string ip("\x45\0\0\x1c\0\0\0\0\x09\x11\0\0\x0a\0\0\x01\x0a\0\0\x02\0\x01\0\x02\0\x08\0\0", 28);
  const std::string section =
      block(0x0A0D0D0A, le32(0x1A2B3C4D) + std::string("\x01\0\0\0", 4) + le32(~0u) + le32(~0u));
  const std::string raw = block(1, std::string("\x65\0\0\0", 4) + le32(0));
  const std::string ethernet = block(1, std::string("\x01\0\0\0", 4) + le32(0));
  const auto enhanced = [&](uint32_t interface) {
    return block(6, le32(interface) + le32(0) + le32(1500000) + le32(28) + le32(28) + ip);
  };
  fileIs("raw.pcapng", section + raw + enhanced(0));
  EXPECT_EQ(read("raw.pcapng"), "1 1500000000 28/28 " + udpText + " length 28\n");
  fileIs("two.pcapng", section + raw + ethernet + enhanced(0) + enhanced(1));
  EXPECT_EQ(read("two.pcapng").substr(0, 27), "two.pcapng: packet 1: an in");
}

TEST_F(CaptureTest, ErrorsNameTheFile) {
  EXPECT_EQ(read("missing.pcap"), "missing.pcap: cannot be opened: No such file or directory");
  fs::create_directory(folder_ / "folder");
  EXPECT_EQ(read("folder"), "folder: is a directory, not a capture file");
  fileIs("empty.pcap", "");
  EXPECT_EQ(read("empty.pcap").substr(0, 50), "empty.pcap: is no capture file that can be read: t");
  fileIs("text.pcap", "ip access-list extended A\n permit ip any any\n");
  EXPECT_EQ(read("text.pcap"), "text.pcap: is no capture file that can be read: unknown file format");
  fileIs("wifi.pcap", pcapHeader(105));
  EXPECT_EQ(read("wifi.pcap"),
            "wifi.pcap: unsupported link type 105 (802.11): only Ethernet, raw IP and Linux cooked "
            "captures can be read");
  fileIs("none.pcap", pcapHeader(1));
  EXPECT_EQ(read("none.pcap"), "");
}

TEST_F(CaptureTest, TruncationIsFoundAtItsPacket) {
  captureIs("whole.pcap", false);
  const std::string whole = file("whole.pcap");
  const std::string first = "1 1000000000000000000 28/28 " + udpText + " length 28\n";
  for (std::size_t size = 24; size < whole.size(); ++size) {
    fileIs("cut.pcap", whole.substr(0, size));
    const std::string text = read("cut.pcap");
    const std::size_t firstEnd = 24 + 16 + 28;
    if (size == 24) {
      EXPECT_EQ(text, "");
    } else if (size < firstEnd) {
      EXPECT_EQ(text.substr(0, 30), "cut.pcap: packet 1: truncated ") << size;
    } else if (size == firstEnd) {
      EXPECT_EQ(text, first);
    } else {
      EXPECT_EQ(text.substr(0, first.size() + 30), first + "cut.pcap: packet 2: truncated ") << size;
    }
  }
}

TEST_F(CaptureTest, AHugeLengthIsNoReasonToAllocate) {
  fileIs("huge.pcap", pcapHeader(1) + le32(0) + le32(0) + le32(0xFFFFFFF0) + le32(0xFFFFFFF0) + "abc");
  EXPECT_EQ(read("huge.pcap").substr(0, 21), "huge.pcap: packet 1: ");
}

TEST_F(CaptureTest, WriterSaysWhatItCannotWrite) {
  EXPECT_THROW(packet::CaptureWriter(path("no/such/folder.pcap"), DLT_RAW), packet::CaptureError);
  EXPECT_THROW(packet::CaptureWriter(folder_.string(), DLT_RAW), packet::CaptureError);
}

// -------------------------------------------------------------------------- the shared real captures

// The counts that a folder's manifest gives for one file, as "ARP" -> 22. One manifest line holds
// "| file | origin | licence | bytes | frames | ARP 22; IPv4 3814; ... |".
std::map<std::string, uint64_t> manifestCounts(const std::string& line, std::string& fileName) {
  std::vector<std::string> cells;
  std::istringstream stream(line);
  for (std::string cell; std::getline(stream, cell, '|');) {
    const std::size_t begin = cell.find_first_not_of(' ');
    const std::size_t end = cell.find_last_not_of(' ');
    cells.push_back(begin == std::string::npos ? "" : cell.substr(begin, end - begin + 1));
  }
  std::map<std::string, uint64_t> counts;
  if (cells.size() < 7 || !cells[1].ends_with(".pcap")) {
    return counts;
  }
  fileName = cells[1];
  counts["frames"] = std::stoull(cells[5]);
  std::istringstream content(cells[6]);
  for (std::string item; std::getline(content, item, ';');) {
    const std::size_t begin = item.find_first_not_of(' ');
    const std::size_t blank = item.rfind(' ');
    counts[item.substr(begin, blank - begin)] = std::stoull(item.substr(blank + 1));
  }
  return counts;
}

// What the packet records can tell of a file, under the manifest's names. Names with a count of 0 are absent.
std::map<std::string, uint64_t> recordCounts(const std::string& fileName) {
  std::map<std::string, uint64_t> counts;
  packet::CaptureReader reader(fileName);
  for (packet::Frame frame; reader.next(frame);) {
    const packet::Packet p = reader.dissect(frame);
    const bool v4 = p.l3 == packet::L3::ipv4;
    const bool v6 = p.l3 == packet::L3::ipv6;
    const auto count = [&](const char* name, bool holds) {
      if (holds) {
        ++counts[name];
      }
    };
    const bool syn = (p.tcpFlags & 2) != 0;
    count("frames", true);
    count("ARP", p.etherType == packet::etherTypeArp);
    count("IPv4", v4);
    count("IPv6", v6);
    count("TCP/4", v4 && p.hasL4 && p.protocol == packet::protoTcp);
    count("UDP/4", v4 && p.hasL4 && p.protocol == packet::protoUdp);
    count("ICMP", v4 && p.hasL4 && p.protocol == packet::protoIcmp);
    count("TCP/6", v6 && p.hasL4 && p.protocol == packet::protoTcp);
    count("UDP/6", v6 && p.hasL4 && p.protocol == packet::protoUdp);
    count("ICMPv6", v6 && p.hasL4 && p.protocol == packet::protoIcmpV6);
    count("of them non-first", v4 && p.nonInitialFragment);
    count("v6 non-first fragments", v6 && p.nonInitialFragment);
    count("TTL<2", v4 && p.ttl < 2);
    count("SYN only", p.hasL4 && syn && !p.established());
    count("ACK or RST", p.established());
    count("multicast DA", (p.dstMac[0] & 1) != 0);
    count("1 tag", p.vlan != 0);
    count("802.3/LLC", frame.capLen >= 14 && p.etherType <= 1500);
    count("proto 2", v4 && p.protocol == 2);
    count("proto 103", v4 && p.protocol == 103);
    count("proto (v6) 89", v6 && p.protocol == 89);
    count("proto 17 (non-first)", v4 && p.nonInitialFragment && p.protocol == 17);
  }
  return counts;
}

TEST(SharedCaptures, CountsAgreeWithTheManifest) {
  const auto data = test::sharedData();
  if (!data) {
    std::cout << "the folder of real captures is not here; nothing to run\n";
    return;
  }
  const char* const compared[] = {"frames",
                                  "ARP",
                                  "IPv4",
                                  "IPv6",
                                  "TCP/4",
                                  "UDP/4",
                                  "ICMP",
                                  "TCP/6",
                                  "UDP/6",
                                  "ICMPv6",
                                  "SYN only",
                                  "ACK or RST",
                                  "1 tag",
                                  "802.3/LLC",
                                  "multicast DA",
                                  "proto 2",
                                  "proto 103",
                                  "TTL<2",
                                  "of them non-first",
                                  "v6 non-first fragments",
                                  "proto (v6) 89",
                                  "proto 17 (non-first)"};
  std::ifstream manifest(*data / "MANIFEST.md");
  unsigned files = 0;
  for (std::string line; std::getline(manifest, line);) {
    std::string fileName;
    std::map<std::string, uint64_t> expected = manifestCounts(line, fileName);
    if (expected.empty()) {
      continue;
    }
    ++files;
    std::map<std::string, uint64_t> seen = recordCounts((*data / "pcaps" / fileName).string());
    for (const char* name : compared) {
      EXPECT_EQ(seen[name], expected[name]) << fileName << ": " << name;
    }
  }
  EXPECT_GT(files, 0u);
}

// A capture copied frame by frame is the same file.
TEST_F(CaptureTest, CopiesOfSharedCapturesAreEqual) {
  const auto data = test::sharedData();
  if (!data) {
    std::cout << "the folder of real captures is not here; nothing to run\n";
    return;
  }
  for (const auto& entry : fs::directory_iterator(*data / "pcaps")) {
    packet::CaptureReader reader(entry.path().string());
    packet::CaptureWriter writer(path("copy.pcap"), reader.dlt(), reader.nanoseconds());
    for (packet::Frame frame; reader.next(frame);) {
      writer.write(frame);
    }
    writer.close();
    std::ifstream stream(entry.path(), std::ios::binary);
    const std::string original{std::istreambuf_iterator<char>(stream), {}};
    // The file header holds a snap length, which is the writer's own.
    EXPECT_EQ(file("copy.pcap").substr(24), original.substr(24)) << entry.path();
  }
}

} // namespace
