#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <vector>

// Memory set aside before a change begins to write, so that a change which has begun can be finished or taken
// back when the process runs out of memory meanwhile.
//
// While a MemoryReserve::Use lives, an allocation that fails is tried again after the reserve has been given
// to the heap: it stands behind the process's new-handler. Outside of a use, allocations fail as ever.
//
// For one thread: the handler is the process's, and whoever allocates first gets the reserve. It serves what
// is allocated by operator new. A process whose memory the system takes back (overcommitment) has no such
// reserve, because the pages were never touched; they are touched here.

namespace agent {

class MemoryReserve { // one at a time in a process
public:
  MemoryReserve() = default;
  MemoryReserve(const MemoryReserve&) = delete;
  MemoryReserve& operator=(const MemoryReserve&) = delete;

  // Sets aside so many bytes more. Raises std::bad_alloc and keeps what it had.
  void grow(std::size_t bytes);
  std::size_t bytes() const { return chunks_.size() * chunkBytes; }
  // Gives everything to the heap.
  void release() { chunks_.clear(); }

  // Uses nest; the innermost one's reserve serves.
  class Use {
  public:
    explicit Use(MemoryReserve& reserve);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

  private:
    MemoryReserve* before_;
    std::new_handler handlerBefore_;
  };

private:
  // Small enough to stay in the heap when given back, where small allocations find them.
  static constexpr std::size_t chunkBytes = std::size_t{32} << 10;
  static void serve();

  std::vector<std::unique_ptr<std::byte[]>> chunks_;
};

} // namespace agent
