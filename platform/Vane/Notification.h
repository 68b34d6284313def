#pragma once

#include "Vane/Ptr.h"
#include "Vane/Type.h"
#include "Vane/Types.h"

#include <cstddef>
#include <exception>
#include <new>
#include <tuple>
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

  template <typename Key>
  void push(PtrInterface::NotifieeConst& notifiee, Notification::Deliver deliver, const Key& key) {
    static_assert(alignof(Key) <= unit, "keys are stored at the chunk's alignment");
    if constexpr (sizeof(Key) > largestKey) {
      push(notifiee, deliverHeld<Key>, std::pair<Notification::Deliver, Held<Key>>(deliver, key));
    } else {
      Entry* entry = reserve(sizeof(Key));
      new (entry + 1) Key(key);
      commit(entry, notifiee, deliver, std::is_trivially_destructible_v<Key> ? nullptr : destroyKey<Key>);
    }
  }
  void push(PtrInterface::NotifieeConst& notifiee, Notification::Deliver deliver) {
    commit(reserve(0), notifiee, deliver, nullptr);
  }

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

  static constexpr std::size_t unit = 16;         // bytes; entries and keys are aligned to it
  static constexpr std::size_t chunkSize = 16384; // bytes
  static constexpr std::size_t largestKey = 2048; // bytes; larger ones go to the heap

  struct alignas(unit) Entry {
    PtrInterface::NotifieeConst* notifiee;
    Notification::Deliver deliver;
    void (*destroy)(void* key);
    U32 epoch;
    U32 size; // bytes, this record and its key
  };
  struct Chunk;

  template <typename Key>
  struct Held {
    explicit Held(const Key& key) : copy(new Key(key)) {}
    Held(const Held& other) : copy(new Key(*other.copy)) {}
    ~Held() { delete copy; }
    Key* copy;
  };
  template <typename Key>
  static void deliverHeld(PtrInterface::NotifieeConst& notifiee, const void* stored) {
    const auto& [deliver, held] = *static_cast<const std::pair<Notification::Deliver, Held<Key>>*>(stored);
    deliver(notifiee, held.copy);
  }
  template <typename Key>
  static void destroyKey(void* key) {
    static_cast<Key*>(key)->~Key();
  }

  NotificationQueue();
  ~NotificationQueue();
  static NotificationQueue& make();

  Entry* reserve(std::size_t keySize);
  void commit(Entry* entry, PtrInterface::NotifieeConst& notifiee, Notification::Deliver deliver,
              void (*destroy)(void*));
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

// Calls `On` of the notifiee, with the stored key if it takes one.
template <auto On, typename Key>
void callReaction(PtrInterface::NotifieeConst& to, const void* stored) {
  using Notifiee = typename MemberClass<decltype(On)>::Of;
  (static_cast<Notifiee&>(to).*On)(*static_cast<const Key*>(stored));
}
template <auto On>
void callReaction(PtrInterface::NotifieeConst& to, const void*) {
  using Notifiee = typename MemberClass<decltype(On)>::Of;
  (static_cast<Notifiee&>(to).*On)();
}

// Sends `On`(key...) to every notifiee of `object` that reacts to attributes of `type`.
template <auto On, typename... Key>
void notifyAll(const PtrInterface& object, const Type& type, const Key&... key) {
  static_assert(sizeof...(Key) <= 1);
  const PtrInterface::NotifieeList& notifiees = object.notifieeList();
  NotificationQueue& queue = NotificationQueue::current();
  if (notifiees.size() == 1 && queue.idle() && queue.empty()) {
    PtrInterface::NotifieeConst& only = *notifiees.front();
    if (only.vaneWatches(type)) {
      // Copied, because the handler may remove the member that the key belongs to.
      [[maybe_unused]] const std::tuple<Key...> copy(key...);
      const void* stored = nullptr;
      if constexpr (sizeof...(Key) == 1) {
        stored = &std::get<0>(copy);
      }
      queue.deliverNow(only, Notification(callReaction<On, Key...>, stored));
    }
    return;
  }
  for (PtrInterface::NotifieeConst* notifiee : notifiees) {
    if (notifiee->vaneWatches(type)) {
      queue.push(*notifiee, callReaction<On, Key...>, key...);
    }
  }
  queue.drainIfOutermost();
}

// The same for an attribute that Class declares.
template <auto On, typename Class, typename Key>
void notifyKeyed(const Class& object, const Key& key) {
  if (object.vaneHasNotifiees()) {
    notifyAll<On, Key>(object, Class::vaneType(), key);
  }
}
template <auto On, typename Class>
void notifyPlain(const Class& object) {
  if (object.vaneHasNotifiees()) {
    notifyAll<On>(object, Class::vaneType());
  }
}

} // namespace Vane
