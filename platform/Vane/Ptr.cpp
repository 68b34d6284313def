#include "Vane/Ptr.h"

#include "Vane/Notification.h"
#include "Vane/Sanitizer.h"
#include "Vane/Type.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>

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
class ObjectBlocks {
public:
  void* take(std::size_t size) {
    const std::size_t sizeClass = (size + prefix + unit - 1) / unit;
    if (sizeClass >= classes) {
      auto* const block = static_cast<std::byte*>(::operator new(unit + size));
      return object(block + unit, 0);
    }
    const Guard guard(*this);
    if (free_[sizeClass] == nullptr) {
      grow(sizeClass);
    }
    Block* const block = free_[sizeClass];
    free_[sizeClass] = block->next;
    return block;
  }
  void give(void* memory) noexcept {
    U64 sizeClass = 0;
    std::memcpy(&sizeClass, static_cast<std::byte*>(memory) - prefix, prefix);
    if (sizeClass == 0) {
      ::operator delete(static_cast<std::byte*>(memory) - unit);
      return;
    }
    const Guard guard(*this);
    free_[sizeClass] = new (memory) Block{free_[sizeClass]};
  }

private:
  static constexpr std::size_t unit = alignof(std::max_align_t);
  static constexpr std::size_t prefix = sizeof(U64);
  static constexpr std::size_t classes = 32;
  static constexpr std::size_t chunkBytes = 8 * 1024;
  struct Block {
    Block* next;
  };
  // For pointers that are dropped on several threads.
  class Guard {
  public:
    explicit Guard(ObjectBlocks& blocks) : blocks_(VFPtrInterface::threadSafePointers ? &blocks : nullptr) {
      while (blocks_ != nullptr && blocks_->busy_.test_and_set(std::memory_order_acquire)) {
      }
    }
    ~Guard() {
      if (blocks_ != nullptr) {
        blocks_->busy_.clear(std::memory_order_release);
      }
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

  private:
    ObjectBlocks* blocks_;
  };

  static void* object(std::byte* at, U64 sizeClass) {
    std::memcpy(at - prefix, &sizeClass, prefix);
    return at;
  }
  // A chunk begins with the link to the one before it, and the word that goes before its first object.
  void grow(std::size_t sizeClass) {
    const std::size_t bytes = sizeClass * unit;
    const std::size_t count = chunkBytes / bytes;
    auto* const chunk = static_cast<std::byte*>(::operator new(unit + count * bytes));
    chunks_ = new (chunk) Block{chunks_};
    for (std::size_t i = count; i-- > 0;) {
      free_[sizeClass] = new (object(chunk + unit + i * bytes, sizeClass)) Block{free_[sizeClass]};
    }
  }

  std::array<Block*, classes> free_{};
  Block* chunks_ = nullptr; // all of them, for who looks for leaks
  std::atomic_flag busy_;
};

// Never destroyed: objects may die after everything else.
ObjectBlocks& objectBlocks() {
  static ObjectBlocks* const blocks = new ObjectBlocks;
  return *blocks;
}

} // namespace

void* PtrInterface::vaneMemAlloc(std::size_t size) {
  return objectBlocks().take(size);
}

void PtrInterface::vaneMemFree(void* memory) noexcept {
  objectBlocks().give(memory);
}

#endif

} // namespace Vane
