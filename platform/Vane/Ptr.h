#pragma once

#include "Vane/Assert.h"
#include "Vane/Types.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

// Counted pointers and the base of every shared object.

// The process-wide switch of the reference counts.
struct VANE_API VFPtrInterface {
  // True: counts are changed by atomic operations, so that pointers may be copied and dropped on
  // several threads. Set before the second thread starts. Everything else stays with one thread.
  static bool threadSafePointers;
};

namespace Vane {

class Type;

// Counts one up or down; answers the new count.
inline U32 countInc(U32& count) {
  if (VFPtrInterface::threadSafePointers) {
    return std::atomic_ref<U32>(count).fetch_add(1, std::memory_order_relaxed) + 1;
  }
  return ++count;
}
inline U32 countDec(U32& count) {
  if (VFPtrInterface::threadSafePointers) {
    return std::atomic_ref<U32>(count).fetch_sub(1, std::memory_order_acq_rel) - 1;
  }
  return --count;
}

// Base of every shared object. Objects live on the heap, start with count 0 and die when the last
// reference is dropped; make them with their factory, which holds a reference from the start.
class VANE_API PtrInterface {
public:
  // Base of everything that is told of an object's changes (Vane/Notification.h).
  class NotifieeConst;
  using NotifieeList = std::vector<NotifieeConst*>;

  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  void referencesInc() const { countInc(references_); }
  void referencesDec() const {
    if (countDec(references_) == 0) {
      const_cast<PtrInterface*>(this)->handleZeroRef();
    }
  }
  U32 references() const { return references_; }

  // Whether reactors of this object (or this reactor itself) are told of changes. On at first.
  bool hasNotificationActive() const { return (flags_ & flagNotificationActive) != 0; }
  virtual void hasNotificationActiveIs(bool active);

  // The zombie bit: a reactor that carries it delivers nothing any more.
  bool vaneMarkedForDeletion() const { return (flags_ & flagMarkedForDeletion) != 0; }
  void vaneMarkedForDeletionIs(bool marked) { flagIs(flagMarkedForDeletion, marked); }
  // Makes the object's reactors zombies (or brings them back), then marks the object itself.
  virtual void vaneDoZombieReactors(bool zombie);

  // Who is told of changes of this object, in the order of registration.
  const NotifieeList& notifieeList() const { return notifieeList_ == nullptr ? nobody_ : *notifieeList_; }
  bool vaneHasNotifiees() const { return notifieeList_ != nullptr; }

  // The run-time type record of the object's class.
  static const Type& vaneType();
  virtual const Type& fwkType() const;

  // Memory of framework objects, kept for others of their size when they die; on every thread.
  static void* vaneMemAlloc(std::size_t size);
  static void vaneMemFree(void* memory) noexcept;
  static void* operator new(std::size_t size) { return vaneMemAlloc(size); }
  static void operator delete(void* memory) noexcept { vaneMemFree(memory); }

protected:
  PtrInterface() = default;
  virtual ~PtrInterface();

  // Runs when the last reference is gone: reactors become zombies while the object is still whole,
  // then it is destroyed.
  virtual void handleZeroRef();

private:
  static constexpr U32 flagNotificationActive = 1;
  static constexpr U32 flagMarkedForDeletion = 2;
  void flagIs(U32 flag, bool on) { flags_ = on ? flags_ | flag : flags_ & ~flag; }

  void notifieeAdd(NotifieeConst* notifiee) const;
  void notifieeRemove(NotifieeConst* notifiee) const;

  static const NotifieeList nobody_;

  mutable U32 references_ = 0;
  U32 flags_ = flagNotificationActive;
  // Null while nobody listens, so that a write to such an object costs one test.
  mutable std::unique_ptr<NotifieeList> notifieeList_;
};

// Owning pointer to a PtrInterface; Ptr<T const> gives read-only access.
template <typename T>
class Ptr {
public:
  using Pointee = T;

  Ptr() = default;
  Ptr(std::nullptr_t) {}
  Ptr(T* object) : object_(object) { hold(); }
  Ptr(const Ptr& other) : object_(other.object_) { hold(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <typename U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other) : object_(other.ptr()) { hold(); }
  template <typename U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}
  ~Ptr() { drop(); }

  // By value: the old object is dropped last, when this pointer already holds the new one.
  Ptr& operator=(Ptr other) noexcept {
    swap(other);
    return *this;
  }

  T* ptr() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }
  bool operator!() const { return object_ == nullptr; }
  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); } // counts stay
  // Gives up the pointer without dropping its reference.
  T* release() noexcept { return std::exchange(object_, nullptr); }

  // Pointers compare by identity.
  template <typename U>
  bool operator==(const Ptr<U>& other) const {
    return object_ == other.ptr();
  }
  bool operator==(std::nullptr_t) const { return object_ == nullptr; }
  bool operator<(const Ptr& other) const { return object_ < other.object_; }

private:
  void hold() const {
    if (object_ != nullptr) {
      object_->referencesInc();
    }
  }
  void drop() const {
    if (object_ != nullptr) {
      object_->referencesDec();
    }
  }

  T* object_ = nullptr;
};

template <typename T>
struct IsPtr : std::false_type {};
template <typename T>
struct IsPtr<Ptr<T>> : std::true_type {};

// Null when the object is not a T.
template <typename T, typename U>
Ptr<T> dynamicPtrCast(const Ptr<U>& pointer) {
  return Ptr<T>(dynamic_cast<T*>(pointer.ptr()));
}

// What the factories and the framework may reach of a class.
struct Access {
  // Allocates, holds a reference from then on, and runs vaneConstructed() on the finished object when
  // the class has it: the place to attach reactors and to make a first pass.
  template <typename T, typename... Args>
  static Ptr<T> make(Args&&... args) {
    Ptr<T> object(new T(std::forward<Args>(args)...));
    if constexpr (requires { object->vaneConstructed(); }) {
      object->vaneConstructed();
    }
    return object;
  }
};

} // namespace Vane
