#include "agent/MemoryReserve.h"

namespace agent {

namespace {
constexpr std::size_t pageBytes = 4096; // the smallest there is
MemoryReserve* serving = nullptr;
std::new_handler outer = nullptr; // of before the outermost use
} // namespace

void MemoryReserve::grow(std::size_t bytes) {
  const std::size_t more = (bytes + chunkBytes - 1) / chunkBytes;
  const std::size_t held = chunks_.size();
  try {
    chunks_.reserve(held + more);
    for (std::size_t i = 0; i < more; ++i) {
      chunks_.push_back(std::make_unique_for_overwrite<std::byte[]>(chunkBytes));
      // A byte of each page makes the system give it, and costs nothing where it has already.
      volatile std::byte* const chunk = chunks_.back().get();
      for (std::size_t at = 0; at < chunkBytes; at += pageBytes) {
        chunk[at] = std::byte{0xA5};
      }
      chunk[chunkBytes - 1] = std::byte{0xA5};
    }
  } catch (const std::bad_alloc&) {
    chunks_.resize(held);
    throw;
  }
}

// A new-handler: returns when there is more memory than before, so that the allocation is tried again.
void MemoryReserve::serve() {
  if (serving != nullptr && serving->bytes() != 0) {
    serving->release();
  } else if (outer != nullptr) {
    outer();
  } else {
    throw std::bad_alloc();
  }
}

MemoryReserve::Use::Use(MemoryReserve& reserve)
    : before_(serving), handlerBefore_(std::set_new_handler(&MemoryReserve::serve)) {
  if (before_ == nullptr) {
    outer = handlerBefore_;
  }
  serving = &reserve;
}

MemoryReserve::Use::~Use() {
  serving = before_;
  std::set_new_handler(handlerBefore_);
}

} // namespace agent
