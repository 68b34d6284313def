#include "Vane/NodePool.h"

#include <algorithm>

namespace Vane {

NodePool::~NodePool() {
  for (void* chunk : chunks_) {
    ::operator delete(chunk);
  }
}

void NodePool::grow(std::size_t size) {
  constexpr std::size_t largestChunk = 64 * 1024; // bytes
  const std::size_t count = std::max<std::size_t>(1, std::min(nextCount_, largestChunk / size));
  nextCount_ = count * 2;
  chunks_.push_back(nullptr);
  chunks_.back() = ::operator new(count* size);
  auto* const first = static_cast<std::byte*>(chunks_.back());
  for (std::size_t block = count; block-- > 0;) {
    free_ = new (first + block * size) Block{free_};
  }
}

} // namespace Vane
