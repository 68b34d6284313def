#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "packet/HeaderTrace.h"
#include "packet/PacketText.h"

// The texts that describe packets: the input is read as a header trace and as one packet. What can be read
// must read the same again from its own text.

namespace {

void check(const packet::Packet& packet) {
  const std::string text = packet::toText(packet);
  if (packet::fromText(text) != packet) {
    std::fprintf(stderr, "the record differs after: %s\n", text.c_str());
    std::abort();
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  try {
    std::istringstream stream{std::string(input)};
    packet::HeaderTraceReader reader(stream, "input");
    for (packet::Packet packet; reader.next(packet);) {
      check(packet);
    }
  } catch (const packet::HeaderTraceError&) {
    // The first bad line ends the trace with its place.
  }
  try {
    check(packet::fromText(input));
  } catch (const packet::PacketTextError& error) {
    if (error.column() == 0 || error.column() > size + 1) {
      std::abort();
    }
  }
  return 0;
}
