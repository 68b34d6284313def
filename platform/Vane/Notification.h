#pragma once

#include "Vane/Ptr.h"
#include "Vane/Type.h"
#include "Vane/Types.h"

#include <cstddef>
#include <exception>
#include <new>
#include <type_traits>
#include <utility>

// Delivery of notifications.
//
// Each thread has one queue. A write to an attribute puts one entry per notifiee into it, in the
// order of registration; the outermost write delivers until the queue is empty, then returns. A
// write made by a reactor only appends: its notifications are delivered after that reactor has
// returned, so reactors run to completion and never nest. Nothing is coalesced, and a reactor reads
// the state as it is at delivery.
//
// An entry holds a reference on its reactor. It is dropped at delivery when the reactor was detached
// since, is inactive, or is marked for deletion. An exception in a reactor consumes its notification;
// the others are delivered, then the first exception reaches the outermost writer.

namespace Vane {

// One notification on its way: calls the reactor's onFoo with the key (null without a key).
class Notification {
public:
  using Deliver = void (*)(PtrInterface::NotifieeConst& notifiee, const void* key);

  Notification(Deliver deliver, const void* key) : deliver_(deliver), key_(key) {}
  void deliverTo(PtrInterface::NotifieeConst& notifiee) const { deliver_(notifiee, key_); } // runs it

private:
  Deliver deliver_;
  const void* key_;
};

// How the queue keeps copies of keys of one type. What is passed around of a key is its address; of one that
// is too large for the queue, the address of a pointer to it.
struct NotificationKey {
  static constexpr std::size_t alignment = 16; // bytes; of the memory that copies are kept in
  static constexpr std::size_t largest = 2048; // bytes; a copy of a larger key stands on the heap

  std::size_t size;                            // bytes that a copy takes in the queue
  void (*copy)(void* memory, const void* key); // makes one
  void (*destroy)(void* copy);                 // ends it; null: nothing to do
};
template <typename Key>
inline constexpr bool isPointedTo = sizeof(Key) > NotificationKey::largest;
template <typename Key>
inline constexpr NotificationKey notificationKey = [] {
  if constexpr (isPointedTo<Key>) {
    return NotificationKey{sizeof(Key*),
                           [](void* memory, const void* key) {
                             new (memory) Key*(new Key(**static_cast<const Key* const*>(key)));
                           },
                           [](void* copy) { delete *static_cast<Key**>(copy); }};
  } else {
    static_assert(alignof(Key) <= NotificationKey::alignment);
    return NotificationKey{
        sizeof(Key), [](void* memory, const void* key) { new (memory) Key(*static_cast<const Key*>(key)); },
        std::is_trivially_destructible_v<Key> ? nullptr
                                              : +[](void* copy) { static_cast<Key*>(copy)->~Key(); }};
  }
}();

// Base of every class that is told of an object's changes. Each entity type T has a T::NotifieeConst
// with one virtual onFoo for each of its attributes; derive from it, make the object with `new`, hold
// it in a Ptr, and attach it with notifierIs. Detaches itself when it dies.
class VANE_API PtrInterface::NotifieeConst : public PtrInterface {
public:
  ~NotifieeConst() override;

  // The watched object, or null.
  Ptr<PtrInterface const> notifier() const { return notifier_; }
  const PtrInterface* vaneNotifier() const { return notifier_.ptr(); } // the same, not held
  // Attaches to an object (null: detaches), and registers.
  void notifierIs(const Ptr<PtrInterface const>& notifier) { vaneNotifierIs(notifier); }

  // Whether the object tells this one of its changes.
  bool isRegisteredNotifiee() const { return registered_; }
  void isRegisteredNotifieeIs(bool registered);

  // Runs one notification; everything that is delivered passes here.
  virtual void handleNotification(const Notification& notification) { notification.deliverTo(*this); }
  // A reactor of this notifiee threw. True: dealt with. False: the outermost writer gets it.
  virtual bool onNotificationException(const std::exception_ptr& exception);
  // The last reference is gone; the object is destroyed next.
  virtual void onZeroReferences() {}

  // Changes whenever the notifiee leaves an object, so that queued entries know that they are stale.
  U32 vaneEpoch() const { return epoch_; }
  // True when this notifiee reacts to attributes that `type` declares.
  bool vaneWatches(const Type& type) const {
    return watched_ == &type || (watched_ != nullptr && watched_->isA(type));
  }

protected:
  NotifieeConst() = default;
  void handleZeroRef() override;

  // What notifierIs does. Attaching twice to the same object changes nothing.
  virtual void vaneNotifierIs(const Ptr<PtrInterface const>& notifier) { vaneAttach(notifier); }
  // Leaves the old notifier and registers with the new one; false when it is the one held already.
  bool vaneAttach(const Ptr<PtrInterface const>& notifier);
  // Each level of NotifieeConst names the type that it watches; the last one counts.
  void vaneWatchedTypeIs(const Type& type) { watched_ = &type; }
  // True while a first pass over `notifier` may go on.
  bool vaneStillOn(const Ptr<PtrInterface const>& notifier) const {
    return notifier_ == notifier && !vaneMarkedForDeletion();
  }

private:
  Ptr<PtrInterface const> notifier_;
  const Type* watched_ = nullptr;
  U32 epoch_ = 0;
  bool registered_ = false;
};

// The queue of one thread. Keys are stored in its chunks, so that a notification allocates nothing.
class VANE_API NotificationQueue {
public:
  // Of the calling thread.
  static NotificationQueue& current() { return current_ != nullptr ? *current_ : make(); }
  static bool running() { return current_ != nullptr && current_->running_; }

  NotificationQueue(const NotificationQueue&) = delete;
  NotificationQueue& operator=(const NotificationQueue&) = delete;

  // Keeps a copy of `key` as `kind` says (both null: no key).
  void push(PtrInterface::NotifieeConst& notifiee, Notification::Deliver deliver, const NotificationKey* kind,
            const void* key);

  // True when the next write is an outermost one.
  bool idle() const { return !running_ && scopes_ == 0; }
  // Delivers everything, unless an outer write or a scope will.
  void drainIfOutermost() {
    if (idle()) {
      drain();
    }
  }
  bool empty() const { return pending_ == 0; }

  // What pushing one entry and draining does, without storing the entry. For an idle, empty queue; the
  // key (null without one) stays in place meanwhile.
  void deliverNow(PtrInterface::NotifieeConst& notifiee, const Notification& notification) {
    if (!notifiee.hasNotificationActive() || notifiee.vaneMarkedForDeletion()) {
      return;
    }
    running_ = true;
    notifiee.referencesInc();
    deliver(notifiee, notification);
    notifiee.referencesDec();
    drainRest();
  }

private:
  friend class NotificationScope;
  friend struct QueueOwner;

  static constexpr std::size_t unit = NotificationKey::alignment; // entries and keys are aligned to it
  static constexpr std::size_t chunkSize = 16384;                 // bytes

  struct alignas(unit) Entry {
    PtrInterface::NotifieeConst* notifiee;
    Notification::Deliver deliver;
    void (*destroy)(void* key);
    U32 epoch;
    U32 size; // bytes, this record and its key
  };
  struct Chunk;

  NotificationQueue();
  ~NotificationQueue();
  static NotificationQueue& make();

  void deliver(PtrInterface::NotifieeConst& notifiee, const Notification& notification) {
    try {
      notifiee.handleNotification(notification);
    } catch (...) {
      failed(notifiee);
    }
  }
  void failed(PtrInterface::NotifieeConst& notifiee);
  void drain() {
    running_ = true;
    drainRest();
  }
  void drainRest() {
    if (pending_ != 0) {
      deliverPending();
    }
    running_ = false;
    if (failure_ != nullptr) {
      std::rethrow_exception(std::exchange(failure_, nullptr));
    }
  }
  void deliverPending();
  Entry* front();
  void pop(const Entry& entry);

  static __thread NotificationQueue* current_ __attribute__((tls_model("initial-exec")));

  Chunk* head_; // delivered from
  Chunk* tail_; // appended to
  Chunk* spare_ = nullptr;
  std::size_t pending_ = 0;    // entries
  std::exception_ptr failure_; // the first of the running drain
  unsigned scopes_ = 0;
  bool running_ = false;
};

// True while notifications are delivered on this thread: a reactor is (or is about to be) running.
inline bool notificationDrainRunning() {
  return NotificationQueue::running();
}

// Holds delivery back while one operation makes several writes; close() delivers. A scope that is
// left by an exception delivers with the next write.
class VANE_API NotificationScope {
public:
  NotificationScope() : queue_(NotificationQueue::current()) { ++queue_.scopes_; }
  ~NotificationScope() {
    if (open_) {
      --queue_.scopes_;
    }
  }
  NotificationScope(const NotificationScope&) = delete;
  NotificationScope& operator=(const NotificationScope&) = delete;
  void close() { // delivers now; what reactors throw comes through
    open_ = false;
    --queue_.scopes_;
    queue_.drainIfOutermost();
  }

private:
  NotificationQueue& queue_;
  bool open_ = true;
};

template <typename T>
struct MemberClass;
template <typename Class, typename Result, typename... Args>
struct MemberClass<Result (Class::*)(Args...)> {
  using Of = Class;
};

// Calls `On` of the notifiee, with the key if it takes one.
template <auto On, typename Key>
void callReaction(PtrInterface::NotifieeConst& to, const void* key) {
  using Notifiee = typename MemberClass<decltype(On)>::Of;
  if constexpr (isPointedTo<Key>) {
    (static_cast<Notifiee&>(to).*On)(**static_cast<const Key* const*>(key));
  } else {
    (static_cast<Notifiee&>(to).*On)(*static_cast<const Key*>(key));
  }
}
template <auto On>
void callReaction(PtrInterface::NotifieeConst& to, const void*) {
  using Notifiee = typename MemberClass<decltype(On)>::Of;
  (static_cast<Notifiee&>(to).*On)();
}

// Sends a notification to every notifiee of `object` that reacts to attributes of `type`, with the key, which
// stays in place meanwhile, or with copies as `kind` says (both null: without a key).
VANE_API void notifyAll(const PtrInterface& object, const Type& type, Notification::Deliver deliver,
                        const NotificationKey* kind, const void* key);

// Sends `On`(key) for an attribute that Class declares.
template <auto On, typename Class, typename Key>
void notifyKeyed(const Class& object, const Key& key) {
  if (object.vaneHasNotifiees()) {
    // Copied, because the handler may remove the member that the key belongs to.
    const Key copy(key);
    const void* passed = &copy;
    notifyAll(object, Class::vaneType(), callReaction<On, Key>, &notificationKey<Key>,
              isPointedTo<Key> ? &passed : passed);
  }
}
template <auto On, typename Class>
void notifyPlain(const Class& object) {
  if (object.vaneHasNotifiees()) {
    notifyAll(object, Class::vaneType(), callReaction<On>, nullptr, nullptr);
  }
}

} // namespace Vane
