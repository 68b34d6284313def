#pragma once

#include "Vane/Sanitizer.h"
#include "Vane/Types.h"

#include <cstddef>
#include <new>

namespace Vane {

// Equal-sized blocks of memory from chunks that grow with their number; given back blocks are used
// first. Everything returns to the heap when the pool dies. Under the address sanitizer every block
// comes from the heap itself, which then sees stale uses.
class VANE_API NodePool {
public:
  NodePool() = default;
  NodePool(const NodePool&) = delete;
  NodePool& operator=(const NodePool&) = delete;
  ~NodePool();

  // All calls on one pool pass one size (bytes); alignment as of operator new.
  void* take(std::size_t size) {
#ifdef VANE_SANITIZED
    return ::operator new(size);
#else
    if (free_ == nullptr) {
      grow(size);
    }
    Block* block = free_;
    free_ = block->next;
    return block;
#endif
  }
  // A block that belongs to the pool's owner and lives as long as the pool; it is taken first.
  void ownBlock([[maybe_unused]] void* memory) noexcept {
#ifndef VANE_SANITIZED
    give(memory);
#endif
  }
  void give(void* memory) noexcept {
#ifdef VANE_SANITIZED
    ::operator delete(memory);
#else
    free_ = new (memory) Block{free_};
#endif
  }

private:
  struct Block {
    Block* next;
  };
  void grow(std::size_t size);

  Block* free_ = nullptr;
  Block* chunks_ = nullptr; // each begins with the link to the one made before it
  std::size_t nextCount_ = 1;
};

} // namespace Vane
