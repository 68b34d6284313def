#include "Vane/BlockList.h"

#include <new>

namespace Vane {

void* BlockList::insert(std::size_t at, std::size_t bytes) {
  void* const block = ::operator new(bytes);
  try {
    blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(at), block);
  } catch (...) {
    ::operator delete(block);
    throw;
  }
  return block;
}

void BlockList::erase(std::size_t at) {
  ::operator delete(blocks_[at]);
  blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(at));
}

void BlockList::clear() {
  for (void* block : blocks_) {
    ::operator delete(block);
  }
  blocks_.clear();
}

} // namespace Vane
