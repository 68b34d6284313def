#include "Vane/Notification.h"

#include "Vane/Assert.h"

#include <algorithm>
#include <cstddef>

namespace Vane {

// -------------------------------------------------------------------------------------- notifiees

PtrInterface::NotifieeConst::~NotifieeConst() {
  vaneAttach(nullptr);
}

void PtrInterface::NotifieeConst::handleZeroRef() {
  onZeroReferences();
  PtrInterface::handleZeroRef();
}

bool PtrInterface::NotifieeConst::onNotificationException(const std::exception_ptr&) {
  return false;
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_ || (registered && !notifier_)) {
    return;
  }
  registered_ = registered;
  if (registered) {
    notifier_->notifieeAdd(this);
  } else {
    ++epoch_;
    notifier_->notifieeRemove(this);
  }
}

bool PtrInterface::NotifieeConst::vaneAttach(const Ptr<PtrInterface const>& notifier) {
  if (notifier == notifier_) {
    return false;
  }
  VANE_ASSERT_TEXT(!notifier || watched_ == nullptr || notifier->fwkType().isA(*watched_),
                   "notifier->fwkType().isA( watchedType )");
  isRegisteredNotifieeIs(false);
  // The old notifier may die here, when nothing points to it any more.
  const Ptr<PtrInterface const> old = std::exchange(notifier_, notifier);
  isRegisteredNotifieeIs(true);
  return true;
}

// ------------------------------------------------------------------------------------------ queue

struct NotificationQueue::Chunk {
  Chunk* next = nullptr;
  U32 readAt = 0;
  U32 writeAt = 0;
  alignas(unit) std::byte bytes[chunkSize];
};

__thread NotificationQueue* NotificationQueue::current_ = nullptr;

// Ends a thread's queue with the thread.
struct QueueOwner {
  NotificationQueue queue;
  ~QueueOwner() { NotificationQueue::current_ = nullptr; }
};

NotificationQueue& NotificationQueue::make() {
  thread_local QueueOwner owner;
  current_ = &owner.queue;
  return owner.queue;
}

NotificationQueue::NotificationQueue() : head_(new Chunk), tail_(head_) {}

NotificationQueue::~NotificationQueue() {
  for (Entry* entry = front(); entry != nullptr; entry = front()) {
    pop(*entry);
  }
  delete head_;
  delete spare_;
}

void NotificationQueue::push(PtrInterface::NotifieeConst& notifiee, Notification::Deliver deliver,
                             const NotificationKey* kind, const void* key) {
  const std::size_t keySize = kind == nullptr ? 0 : kind->size;
  const std::size_t size = sizeof(Entry) + (keySize + unit - 1) / unit * unit;
  if (tail_->writeAt + size > chunkSize) {
    Chunk* chunk = spare_ != nullptr ? std::exchange(spare_, nullptr) : new Chunk;
    tail_->next = chunk;
    tail_ = chunk;
  }
  Entry* entry = new (tail_->bytes + tail_->writeAt) Entry;
  entry->size = static_cast<U32>(size);
  entry->destroy = nullptr;
  if (kind != nullptr) {
    kind->copy(entry + 1, key);
    entry->destroy = kind->destroy;
  }
  notifiee.referencesInc();
  entry->notifiee = &notifiee;
  entry->deliver = deliver;
  entry->epoch = notifiee.vaneEpoch();
  tail_->writeAt += entry->size;
  ++pending_;
}

NotificationQueue::Entry* NotificationQueue::front() {
  while (head_->readAt == head_->writeAt) {
    if (head_->next == nullptr) {
      head_->readAt = head_->writeAt = 0;
      return nullptr;
    }
    Chunk* done = std::exchange(head_, head_->next);
    if (spare_ == nullptr) {
      done->next = nullptr;
      done->readAt = done->writeAt = 0;
      spare_ = done;
    } else {
      delete done;
    }
  }
  return std::launder(reinterpret_cast<Entry*>(head_->bytes + head_->readAt));
}

void NotificationQueue::pop(const Entry& entry) {
  PtrInterface::NotifieeConst* notifiee = entry.notifiee;
  if (entry.destroy != nullptr) {
    entry.destroy(const_cast<Entry*>(&entry) + 1);
  }
  head_->readAt += entry.size;
  --pending_;
  // Last, because the notifiee may die and its destructor may write.
  notifiee->referencesDec();
}

void NotificationQueue::failed(PtrInterface::NotifieeConst& notifiee) {
  std::exception_ptr exception = std::current_exception();
  try {
    if (notifiee.onNotificationException(exception)) {
      return;
    }
  } catch (...) {
    exception = std::current_exception();
  }
  if (failure_ == nullptr) {
    failure_ = exception;
  }
}

void NotificationQueue::deliverPending() {
  for (Entry* entry = front(); entry != nullptr; entry = front()) {
    PtrInterface::NotifieeConst& notifiee = *entry->notifiee;
    if (notifiee.isRegisteredNotifiee() && notifiee.vaneEpoch() == entry->epoch &&
        notifiee.hasNotificationActive() && !notifiee.vaneMarkedForDeletion()) {
      deliver(notifiee, Notification(entry->deliver, entry + 1));
    }
    pop(*entry);
  }
}

void notifyAll(const PtrInterface& object, const Type& type, Notification::Deliver deliver,
               const NotificationKey* kind, const void* key) {
  const PtrInterface::NotifieeList& notifiees = object.notifieeList();
  NotificationQueue& queue = NotificationQueue::current();
  if (notifiees.size() != 1 || !queue.idle() || !queue.empty()) {
    for (PtrInterface::NotifieeConst* notifiee : notifiees) {
      if (notifiee->vaneWatches(type)) {
        queue.push(*notifiee, deliver, kind, key);
      }
    }
    queue.drainIfOutermost();
    return;
  }
  PtrInterface::NotifieeConst& only = *notifiees.front();
  if (only.vaneWatches(type)) {
    queue.deliverNow(only, Notification(deliver, key));
  }
}

} // namespace Vane
