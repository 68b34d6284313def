#pragma once

#include "Vane/Types.h"

#include <cstddef>

namespace Vane {

// What the storage of every keyed collection has: a count of those who use it, the map and its iterators.
//
// The end of a life is virtual, and is asked for here, so that a file which sees a map as a member of a class
// with a destructor, or walks it, does not compile what the map does then.
class CollectionBody {
public:
  CollectionBody(const CollectionBody&) = delete;
  CollectionBody& operator=(const CollectionBody&) = delete;

  // From the blocks that objects come from: a rule has a collection of a member or two.
  VANE_API static void* operator new(std::size_t size);
  VANE_API static void operator delete(void* memory) noexcept;

  void hold() { ++references_; }
  void drop() {
    if (--references_ == 0) {
      dispose();
    }
  }
  // What the map does last: all members leave.
  virtual void ownerLeaves() = 0;

protected:
  CollectionBody() = default;
  virtual ~CollectionBody() = default;
  // The last iterator has left a deleted member; `place` is where the body keeps it.
  void unpinned(void* place) { handleUnpinned(place); }

  U32 references_ = 1; // the map and every iterator

private:
  virtual void handleUnpinned(void* place) = 0;
  // Out of line, because callers that drop twice in a row are seen as using freed memory otherwise.
  __attribute__((noinline)) void dispose() { delete this; }
};

} // namespace Vane
