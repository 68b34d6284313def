#pragma once

#include "Vane/Types.h"

#include <cstddef>
#include <vector>

namespace Vane {

// Blocks of raw memory that templates of containers keep their members in. What happens to the list of blocks
// is compiled once, here, and not again for every kind of member. Who keeps objects in a block ends their
// lives before the block goes.
class VANE_API BlockList {
public:
  BlockList() = default;
  BlockList(const BlockList&) = delete;
  BlockList& operator=(const BlockList&) = delete;
  ~BlockList() { clear(); }

  std::size_t size() const { return blocks_.size(); }
  bool empty() const { return blocks_.empty(); }
  void* operator[](std::size_t at) const { return blocks_[at]; }

  // A new block of so many bytes, aligned as of operator new, in front of the one at `at` (size(): behind
  // all). Raises std::bad_alloc, and then nothing has changed.
  void* insert(std::size_t at, std::size_t bytes);
  void erase(std::size_t at);
  void clear();

private:
  std::vector<void*> blocks_;
};

} // namespace Vane
