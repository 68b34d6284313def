#pragma once

#include "Vane/BlockList.h"
#include "Vane/CollectionBody.h"
#include "Vane/Hash.h"
#include "Vane/Sanitizer.h"
#include "Vane/Types.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

// Storage of HashMap2018: the members stand one behind the other in the order of insertion, and a table
// of slots finds them by their hash. Switches hold hundreds of thousands of small members, so what a
// member costs besides its key and value is one word of state and two or three slots of four bytes.
//
// Life of a position. A member takes the next position. Deleted, it leaves the map at once, but keeps
// its position, key and value until no iterator stands on it; its slot is `gone`. Positions are never used
// again while an iterator exists; without one, those behind the last member are taken anew, and an insertion
// or deletion that finds more dead positions than members closes the gaps. Maps of a few members have no
// slots and are searched from end to end.

namespace Vane {

// What of the storage depends on no type of key: the slots, and how positions stand in chunks.
class HashMapSlots : public CollectionBody {
protected:
  using Slots = std::unique_ptr<U32[]>; // a member's position + 1, 0, or `gone`

  static constexpr U32 gone = ~U32{0};
  static constexpr U32 scanned = 8;        // members of a map without slots
  static constexpr U32 chunkEntries = 256; // of a full-sized chunk

  // Chunks of 1, 1, 2, 4, .. 128 entries, then of 256 each. The first one is part of the map: sets of one
  // member are many, and should not take further memory.
  static unsigned chunkOf(U32 place) {
    return place < chunkEntries ? static_cast<unsigned>(std::bit_width(place)) : 8 + place / chunkEntries;
  }
  static U32 chunkSize(unsigned chunk) {
    return chunk == 0 ? 1 : chunk <= 8 ? 1u << (chunk - 1) : chunkEntries;
  }
  static U32 placeInChunk(U32 place) { // of those behind the first chunk
    return place < chunkEntries ? place - std::bit_floor(place) : place % chunkEntries;
  }

  // A power of two that leaves room for at least a quarter more members; 0 when a scan is quicker.
  static U32 slotsFor(U32 members) { return members <= scanned / 2 ? 0 : std::bit_ceil(2 * members); }

  // Takes the first slot that finds no member. Slots of the deleted are used again, so that a key which
  // comes and goes does not leave a trail.
  void enter(U32 hash, U32 place) {
    const U32 mask = slotCount_ - 1;
    U32 slot = hash & mask;
    while (slots_[slot] != 0 && slots_[slot] != gone) {
      slot = (slot + 1) & mask;
    }
    slotsUsed_ += slots_[slot] == 0 ? 1 : 0;
    slots_[slot] = place + 1;
  }
  // Takes over the empty `slots`.
  void takeSlots(Slots slots, U32 slotCount) {
    slots_ = std::move(slots);
    slotCount_ = slotCount;
    slotsUsed_ = 0;
  }
  void emptySlots() {
    if (slotCount_ != 0) {
      std::fill_n(slots_.get(), slotCount_, 0);
      slotsUsed_ = 0;
    }
  }

  BlockList chunks_; // all but the first
  Slots slots_;
  U32 slotCount_ = 0; // 0 (a map of few positions), or a power of two
  U32 slotsUsed_ = 0; // those of dead positions included
  U32 end_ = 0;       // positions taken
  U32 size_ = 0;
};

template <typename K, typename V>
class HashMapBody : public HashMapSlots {
  struct Entry {
    union {
      K key;
    };
    U32 state = 0; // 0: dead; else `held`, perhaps `live`, and the pins; between a short key and a pointer
    union {
      V value;
    };
    Entry() {}  // NOLINT(modernize-use-equals-default): deleted, as the unions have no constructor
    ~Entry() {} // NOLINT(modernize-use-equals-default)
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
  };
  static_assert(alignof(Entry) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
  static constexpr U32 live = 1;
  static constexpr U32 held = 2; // key and value exist
  static constexpr U32 onePin = 4;

public:
  using Key = K;
  using Value = V;
  using Place = U32;

  HashMapBody() { poison(first_); }

  void ownerLeaves() override {
    clear();
    drop();
  }

  std::size_t size() const { return size_; }
  V* find(const K& key) {
    Entry* entry = findEntry(key);
    return entry == nullptr ? nullptr : &entry->value;
  }

  // Has the processor fetch the member of `next`, whose slot it has fetched already, and the slot of `later`.
  // Changes nothing; neither key need be there. Always in place: a call would be dropped as one without
  // effect.
  [[gnu::always_inline]] void expect(const K& next, const K& later) const {
    if (slotCount_ != 0) {
      const U32 mask = slotCount_ - 1;
      __builtin_prefetch(&slots_[slotOf(later) & mask]);
      if (const U32 place = slots_[slotOf(next) & mask]; place != 0 && place != gone) {
        __builtin_prefetch(&at(place - 1));
      }
    }
  }

  std::pair<V*, bool> findOrInsert(const K& key, const V& value) {
    const U32 hash = slotCount_ == 0 ? 0 : slotOf(key);
    if (Entry* entry = findEntry(key, hash)) {
      return {&entry->value, false};
    }
    return {insert(key, value, hash), true};
  }

  // The same with a value that is made only for a key that is absent. Making it may come back to this map.
  template <typename Make>
  std::pair<V*, bool> findOrMake(const K& key, const Make& make) {
    const U32 hash = slotCount_ == 0 ? 0 : slotOf(key);
    if (Entry* entry = findEntry(key, hash)) {
      return {&entry->value, false};
    }
    const U32 end = end_;
    const U32 slotCount = slotCount_;
    const V value = [&] {
      const Hold kept(*this); // no position is used again meanwhile
      return make();
    }();
    if (end_ != end || slotCount_ != slotCount) {
      return findOrInsert(key, value);
    }
    return {insert(key, value, hash), true};
  }

  bool erase(const K& key) {
    Entry* entry = nullptr;
    if (slotCount_ == 0) {
      entry = scan(key);
    } else if (const U32 slot = probe(key, slotOf(key)); slots_[slot] != 0) {
      entry = &at(slots_[slot] - 1);
      slots_[slot] = gone; // whoever looks for another key goes on behind it
    }
    if (entry == nullptr) {
      return false;
    }
    hold();
    entry->state &= ~live;
    --size_;
    if (entry->state < onePin) {
      destroy(*entry);
    }
    dropAndTidy();
    return true;
  }

  void clear() {
    // Destroying a value may come back to this map; the pins keep every member in its place meanwhile.
    hold();
    emptySlots();
    const U32 limit = end_;
    for (U32 place = 0; place < limit; ++place) {
      Entry& entry = at(place);
      if ((entry.state & held) != 0) {
        entry.state = (entry.state & ~live) + onePin;
      }
    }
    size_ = 0;
    for (U32 place = 0; place < limit; ++place) {
      if ((at(place).state & held) != 0) {
        unpin(place);
      }
    }
    dropAndTidy();
  }

  // What the iterator asks. A walk visits the positions that were taken when it began.
  U64 lastNumber() const { return end_; }
  Place first() const { return 0; }
  bool isEnd(Place place) const { return place >= end_; }
  bool isVisited(Place place, U64 limit) const { return place < limit && (at(place).state & live) != 0; }
  static Place next(Place place) { return place + 1; }
  const K& keyOf(Place place) const { return at(place).key; }
  const V& valueOf(Place place) const { return at(place).value; }
  void pin(Place place) { at(place).state += onePin; }
  void unpin(Place place) {
    Entry& entry = at(place);
    entry.state -= onePin;
    if (entry.state == held) {
      unpinned(&entry);
    }
  }

private:
  void handleUnpinned(void* place) override { destroy(*static_cast<Entry*>(place)); }

  Entry& at(U32 place) const {
    if (place == 0) {
      return first_;
    }
    return static_cast<Entry*>(chunks_[chunkOf(place) - 1])[placeInChunk(place)];
  }
  void chunkFor(U32 place) {
    const unsigned chunk = chunkOf(place);
    if (chunk <= chunks_.size()) {
      return;
    }
    const U32 size = chunkSize(chunk);
    auto* const entries = static_cast<Entry*>(chunks_.insert(chunks_.size(), size * sizeof(Entry)));
    for (U32 i = 0; i < size; ++i) {
      poison(*new (entries + i) Entry);
    }
  }

  // Of a key that is absent; `hash` is its hash when there are slots.
  V* insert(const K& key, const V& value, U32 hash) {
    // All memory is taken before anything changes; key and value may be those of another member, so
    // members move only behind the insertion.
    const bool full = slotCount_ == 0 ? end_ >= scanned : slotsUsed_ >= slotCount_ / 8 * 5;
    Slots slots;
    U32 slotCount = 0;
    if (full) {
      // Gaps that an iterator keeps open are too many to scan.
      slotCount = slotsFor(references_ == 1 ? size_ + 1 : std::max(size_ + 1, scanned));
      slots = slotCount == 0 ? nullptr : std::make_unique<U32[]>(slotCount);
    }
    chunkFor(end_);
    Entry& entry = at(end_);
    VANE_UNPOISON(&entry.key, sizeof entry.key);
    VANE_UNPOISON(&entry.value, sizeof entry.value);
    new (&entry.key) K(key);
    try {
      new (&entry.value) V(value);
    } catch (...) {
      entry.key.~K();
      throw;
    }
    entry.state = held | live;
    ++end_;
    ++size_;
    if (full) {
      reindex(std::move(slots), slotCount);
    } else if (slotCount_ != 0) {
      enter(hash, end_ - 1);
    }
    return &at(end_ - 1).value;
  }

  // Keeps the map, and members in their positions.
  class Hold {
  public:
    explicit Hold(HashMapBody& body) : body_(body) { body_.hold(); }
    ~Hold() { body_.drop(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

  private:
    HashMapBody& body_;
  };

  Entry* findEntry(const K& key) { return findEntry(key, slotCount_ == 0 ? 0 : slotOf(key)); }
  Entry* findEntry(const K& key, U32 hash) {
    if (slotCount_ == 0) {
      return scan(key);
    }
    const U32 slot = probe(key, hash);
    return slots_[slot] == 0 ? nullptr : &at(slots_[slot] - 1);
  }
  Entry* scan(const K& key) {
    for (U32 place = 0; place < end_; ++place) {
      Entry& entry = at(place);
      if ((entry.state & live) != 0 && entry.key == key) {
        return &entry;
      }
    }
    return nullptr;
  }
  // The slot of the member, or the empty one where the search for it ends.
  U32 probe(const K& key, U32 hash) const {
    const U32 mask = slotCount_ - 1;
    U32 slot = hash & mask;
    while (slots_[slot] != 0 && (slots_[slot] == gone || !(at(slots_[slot] - 1).key == key))) {
      slot = (slot + 1) & mask;
    }
    return slot;
  }
  // Takes over the empty `slots`, and closes the gaps when nobody would notice.
  void reindex(Slots slots, U32 slotCount) {
    if (references_ == 1) {
      closeGaps();
    }
    takeSlots(std::move(slots), slotCount);
    for (U32 place = 0; slotCount_ != 0 && place < end_; ++place) {
      if ((at(place).state & live) != 0) {
        enter(slotOf(at(place).key), place);
      }
    }
  }

  void closeGaps() {
    U32 to = 0;
    for (U32 from = 0; from < end_; ++from) {
      Entry& source = at(from);
      if (source.state == 0) {
        continue;
      }
      if (from != to) {
        Entry& target = at(to);
        VANE_UNPOISON(&target.key, sizeof target.key);
        VANE_UNPOISON(&target.value, sizeof target.value);
        new (&target.key) K(std::move(source.key));
        new (&target.value) V(std::move(source.value));
        target.state = source.state;
        release(source);
      }
      ++to;
    }
    end_ = to;
    while (!chunks_.empty() && (end_ == 0 || chunks_.size() > chunkOf(end_ - 1))) {
      chunks_.erase(chunks_.size() - 1);
    }
  }

  static void poison([[maybe_unused]] Entry& entry) {
    VANE_POISON(&entry.key, sizeof entry.key);
    VANE_POISON(&entry.value, sizeof entry.value);
  }

  static void release(Entry& entry) {
    entry.state = 0;
    entry.value.~V();
    entry.key.~K();
    poison(entry);
  }

  // The value's destructor may come back to this map, or drop the last reference to the map's owner.
  void destroy(Entry& entry) {
    hold();
    release(entry);
    drop();
  }

  // Gives up the caller's hold. Without iterators, positions behind the last member are free again (what
  // comes and goes is mostly what came last), more gaps than members are closed, and slots become fewer when
  // most are empty.
  void dropAndTidy() {
    if (references_ == 2) {
      while (end_ != 0 && at(end_ - 1).state == 0) {
        --end_;
      }
      const bool gaps = end_ > scanned && end_ - size_ > size_ + scanned;
      if (gaps || slotCount_ / 8 > std::max(size_, scanned)) {
        const U32 slotCount = slotsFor(size_);
        Slots slots(slotCount == 0 ? nullptr : new (std::nothrow) U32[slotCount]());
        if (slotCount == 0 || slots != nullptr) {
          --references_;
          reindex(std::move(slots), slotCount);
          return;
        }
      }
    }
    drop();
  }

  mutable Entry first_;
};

} // namespace Vane
