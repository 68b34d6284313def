#pragma once

#include <cstddef>
#include <cstring>

namespace Vane {

// std::memcpy for what is mostly a field of one, two or four bytes: a call would cost more than the copy.
inline void copyNarrow(void* to, const void* from, std::size_t bytes) {
  switch (bytes) {
  case 1:
    std::memcpy(to, from, 1);
    return;
  case 2:
    std::memcpy(to, from, 2);
    return;
  case 4:
    std::memcpy(to, from, 4);
    return;
  default:
    std::memcpy(to, from, bytes);
  }
}

} // namespace Vane
