#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "packet/Capture.h"
#include "packet/Dissect.h"
#include "packet/PacketText.h"

// Captures from anywhere: the input is read once as a capture file and once, without its first octet, as a
// single frame of the link type that this octet names. Every record must survive its text.

namespace {

void check(const packet::Packet& packet) {
  const std::string text = packet::toText(packet);
  if (packet::fromText(text) != packet) {
    std::fprintf(stderr, "the record differs after: %s\n", text.c_str());
    std::abort();
  }
}

void readAsCapture(const uint8_t* data, size_t size) {
  FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
  if (!stream) {
    return;
  }
  try {
    packet::CaptureReader reader(stream, "input");
    for (packet::Frame frame; reader.next(frame);) {
      check(reader.dissect(frame));
    }
  } catch (const packet::CaptureError&) {
    // A damaged file is told, not survived in silence; nothing more is asked of it.
  }
}

void readAsFrame(const uint8_t* data, size_t size) {
  // A copy of exactly this size lets the sanitizer see a read behind the end.
  const std::vector<uint8_t> frame(data + 1, data + size);
  const auto linkType = static_cast<packet::LinkType>(data[0] % 4);
  check(packet::dissect(linkType, frame.data(), static_cast<uint32_t>(frame.size()),
                        static_cast<uint32_t>(frame.size())));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 0) {
    readAsCapture(data, size);
    readAsFrame(data, size);
  }
  return 0;
}
