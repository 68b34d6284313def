#include "fuzz/ConfigFuzz.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzzing::checkConfig({reinterpret_cast<const char*>(data), size}, agent::InputFormat::classbench);
  return 0;
}
