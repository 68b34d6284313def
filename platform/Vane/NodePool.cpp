#include "Vane/NodePool.h"

#include <algorithm>
#include <utility>

namespace Vane {

NodePool::~NodePool() {
  while (chunks_ != nullptr) {
    ::operator delete(std::exchange(chunks_, chunks_->next));
  }
}

void NodePool::grow(std::size_t size) {
  constexpr std::size_t largestChunk = 64 * 1024; // bytes
  constexpr std::size_t header = alignof(std::max_align_t);
  const std::size_t count = std::max<std::size_t>(1, std::min(nextCount_, largestChunk / size));
  void* const chunk = ::operator new(header + count * size);
  nextCount_ = count * 2;
  chunks_ = new (chunk) Block{chunks_};
  auto* const first = static_cast<std::byte*>(chunk) + header;
  for (std::size_t block = count; block-- > 0;) {
    free_ = new (first + block * size) Block{free_};
  }
}

} // namespace Vane
