#include "Vane/Ptr.h"

#include "Vane/CollectionBody.h"
#include "Vane/Notification.h"
#include "Vane/Sanitizer.h"
#include "Vane/Type.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

bool VFPtrInterface::threadSafePointers = false;

namespace Vane {

namespace {
// While an object is destroyed, pointers to it may come and go without destroying it again.
constexpr U32 dying = 0x40000000;
} // namespace

const PtrInterface::NotifieeList PtrInterface::nobody_;

PtrInterface::~PtrInterface() {
  VANE_ASSERT_TEXT(notifieeList_ == nullptr, "notifieeList().empty()");
}

void PtrInterface::handleZeroRef() {
  references_ = dying;
  vaneDoZombieReactors(true);
  delete this;
}

void PtrInterface::hasNotificationActiveIs(bool active) {
  flagIs(flagNotificationActive, active);
}

void PtrInterface::vaneDoZombieReactors(bool zombie) {
  vaneMarkedForDeletionIs(zombie);
}

void PtrInterface::notifieeAdd(NotifieeConst* notifiee) const {
  if (notifieeList_ == nullptr) {
    notifieeList_ = std::make_unique<NotifieeList>();
  }
  notifieeList_->push_back(notifiee);
}

void PtrInterface::notifieeRemove(NotifieeConst* notifiee) const {
  std::erase(*notifieeList_, notifiee);
  if (notifieeList_->empty()) {
    notifieeList_.reset();
  }
}

const Type& PtrInterface::vaneType() {
  static const Type& type = Type::define("Vane::PtrInterface", typeid(PtrInterface), nullptr, [](Type&) {});
  return type;
}

const Type& PtrInterface::fwkType() const {
  return vaneType();
}

#ifdef VANE_SANITIZED

void* PtrInterface::vaneMemAlloc(std::size_t size) {
  return ::operator new(size);
}

void PtrInterface::vaneMemFree(void* memory) noexcept {
  ::operator delete(memory);
}

#else

namespace {

// Records of rows come and go by the ten thousand, most of them of two sizes: each size has blocks of its
// own, which are used again by objects of that size. A block begins with its class, the word before the
// object, and is no larger than that of the heap would be.
//
// Every thread has free blocks of its own, so that none waits for another; an object that dies on a thread
// other than where it was made leaves its block there. The free blocks of a thread that ends go to those who
// come later.
constexpr std::size_t unit = alignof(std::max_align_t);
constexpr std::size_t prefix = sizeof(U64);
constexpr std::size_t classes = 32;
constexpr std::size_t chunkBytes = 8 * 1024;

struct Block {
  Block* next;
};
using FreeBlocks = std::array<Block*, classes>; // by class

// Has no destructor: objects may die after everything else.
__thread FreeBlocks freeBlocks __attribute__((tls_model("initial-exec")));

// What is left by threads that ended, and all chunks, for who looks for leaks. Never destroyed, as above.
struct Leftovers {
  std::mutex mutex;
  FreeBlocks blocks{};
  Block* chunks = nullptr;
};
Leftovers& leftovers() {
  static Leftovers* const held = new Leftovers;
  return *held;
}

struct ThreadEnd {
  ~ThreadEnd() {
    Leftovers& left = leftovers();
    const std::lock_guard lock(left.mutex);
    for (std::size_t i = 0; i < classes; ++i) {
      while (Block* const block = freeBlocks[i]) {
        freeBlocks[i] = block->next;
        block->next = left.blocks[i];
        left.blocks[i] = block;
      }
    }
  }
};

void* object(std::byte* at, U64 sizeClass) {
  std::memcpy(at - prefix, &sizeClass, prefix);
  return at;
}

// Sees to it that the free blocks of this thread are left to others.
void ownBlocks() {
  thread_local const ThreadEnd end;
  static_cast<void>(&end);
}

// A chunk begins with the link to the one before it, and the word that goes before its first object.
void grow(std::size_t sizeClass) {
  ownBlocks();
  Leftovers& left = leftovers();
  const std::lock_guard lock(left.mutex);
  freeBlocks[sizeClass] = std::exchange(left.blocks[sizeClass], nullptr);
  if (freeBlocks[sizeClass] != nullptr) {
    return;
  }
  const std::size_t bytes = sizeClass * unit;
  const std::size_t count = chunkBytes / bytes;
  auto* const chunk = static_cast<std::byte*>(::operator new(unit + count * bytes));
  left.chunks = new (chunk) Block{left.chunks};
  for (std::size_t i = count; i-- > 0;) {
    freeBlocks[sizeClass] = new (object(chunk + unit + i * bytes, sizeClass)) Block{freeBlocks[sizeClass]};
  }
}

void* take(std::size_t size) {
  const std::size_t sizeClass = (size + prefix + unit - 1) / unit;
  if (sizeClass >= classes) {
    auto* const block = static_cast<std::byte*>(::operator new(unit + size));
    return object(block + unit, 0);
  }
  if (freeBlocks[sizeClass] == nullptr) {
    grow(sizeClass);
  }
  Block* const block = freeBlocks[sizeClass];
  freeBlocks[sizeClass] = block->next;
  return block;
}

void give(void* memory) noexcept {
  U64 sizeClass = 0;
  std::memcpy(&sizeClass, static_cast<std::byte*>(memory) - prefix, prefix);
  if (sizeClass == 0) {
    ::operator delete(static_cast<std::byte*>(memory) - unit);
    return;
  }
  if (freeBlocks[sizeClass] == nullptr) {
    ownBlocks();
  }
  freeBlocks[sizeClass] = new (memory) Block{freeBlocks[sizeClass]};
}

} // namespace

void* PtrInterface::vaneMemAlloc(std::size_t size) {
  return take(size);
}

void PtrInterface::vaneMemFree(void* memory) noexcept {
  give(memory);
}

#endif

void* CollectionBody::operator new(std::size_t size) {
  return PtrInterface::vaneMemAlloc(size);
}

void CollectionBody::operator delete(void* memory) noexcept {
  PtrInterface::vaneMemFree(memory);
}

} // namespace Vane
