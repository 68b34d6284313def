#pragma once

#include "Vane/Types.h"

#include <cstddef>
#include <new>
#include <vector>

// Under the address sanitizer pools hand every block to the heap, which then sees stale uses.
#if defined(__SANITIZE_ADDRESS__)
#define VANE_POOLS_USE_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VANE_POOLS_USE_HEAP 1
#endif
#endif

namespace Vane {

// Equal-sized blocks of memory from chunks that grow with their number; given back blocks are used
// first. Everything returns to the heap when the pool dies.
class VANE_API NodePool {
public:
  NodePool() = default;
  NodePool(const NodePool&) = delete;
  NodePool& operator=(const NodePool&) = delete;
  ~NodePool();

  // All calls on one pool pass one size (bytes); alignment as of operator new.
  void* take(std::size_t size) {
#ifdef VANE_POOLS_USE_HEAP
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
  void give(void* memory) noexcept {
#ifdef VANE_POOLS_USE_HEAP
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
  std::vector<void*> chunks_;
  std::size_t nextCount_ = 4;
};

// Lets a standard container take its nodes from a pool.
template <typename T>
class PoolAllocator {
public:
  using value_type = T;

  explicit PoolAllocator(NodePool* pool) : pool_(pool) {}
  template <typename U>
  PoolAllocator(const PoolAllocator<U>& other) : pool_(other.pool()) {}
  T* allocate(std::size_t count) {
    return static_cast<T*>(count == 1 ? pool_->take(sizeof(T)) : ::operator new(count * sizeof(T)));
  }
  void deallocate(T* memory, std::size_t count) noexcept {
    count == 1 ? pool_->give(memory) : ::operator delete(memory);
  }
  NodePool* pool() const { return pool_; }
  template <typename U>
  bool operator==(const PoolAllocator<U>& other) const {
    return pool_ == other.pool();
  }

private:
  NodePool* pool_;
};

} // namespace Vane
