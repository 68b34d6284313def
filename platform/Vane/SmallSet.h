#pragma once

#include "Vane/CollectionBody.h"
#include "Vane/Collections.h"
#include "Vane/HashMapBody.h"
#include "Vane/Types.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace Vane {

// A set, as HashMap2018<K, bool> is one, that takes one word while it has one member with the value true. Of
// the entries that (port, VLAN) pairs use there are hundreds of thousands, and nearly all have one user.
//
// The word is 0 (empty), the member's fields behind a low bit of 1, or the address of a map's body, which has
// a low bit of 0. A second member, the value false, and a walk (which keeps deleted members in their places)
// need a body; it stays until the set's end.
template <typename K>
class SmallSet {
  using Body = HashMapBody<K, bool>;

public:
  using Key = K;
  using Value = bool;
  using Iterator = CollectionIterator<Body>;

  SmallSet() = default;
  SmallSet(const SmallSet&) = delete;
  SmallSet& operator=(const SmallSet&) = delete;
  ~SmallSet() {
    if (Body* const held = body()) {
      static_cast<CollectionBody*>(held)->ownerLeaves();
    }
  }

  std::size_t size() const { return isOne() ? 1 : word_ == 0 ? 0 : body()->size(); }
  bool empty() const { return size() == 0; }
  bool has(const K& key) const { return find(key) != nullptr; } // whether the key is there
  // The value in place, or null. Valid until something is inserted or deleted.
  const bool* find(const K& key) const {
    static constexpr bool yes = true;
    if (Body* const held = body()) {
      return held->find(key);
    }
    return isOne() && word_ == wordOf(key) ? &yes : nullptr;
  }
  // The value, or false.
  bool valueOrDefault(const K& key) const {
    const bool* const value = find(key);
    return value != nullptr && *value;
  }

  // Inserts or replaces; true when the key was absent or its value differed.
  bool assign(const K& key, bool value) {
    if (word_ == 0 && value) {
      word_ = wordOf(key);
      return true;
    }
    if (isOne() && value && word_ == wordOf(key)) {
      return false;
    }
    const auto [held, inserted] = bodyNeeded().findOrInsert(key, value);
    const bool changed = inserted || *held != value;
    *held = value;
    return changed;
  }
  // True when the key was present.
  bool erase(const K& key) {
    if (Body* const held = body()) {
      return held->erase(key);
    }
    if (!isOne() || word_ != wordOf(key)) {
      return false;
    }
    word_ = 0;
    return true;
  }

  Iterator iteratorConst() const {
    if (word_ == 0) {
      return Iterator();
    }
    Body& held = bodyNeeded();
    return Iterator(&held, held.first());
  }
  Walk<Iterator> all() const { return Walk<Iterator>(iteratorConst()); }
  Iterator begin() const { return iteratorConst(); }
  WalkEnd end() const { return {}; }

private:
  static constexpr U64 one = 1;
  static constexpr unsigned keyAt = 16; // bits

  // The fields of the key, one behind the other above `keyAt`.
  static U64 wordOf(const K& key) {
    U64 word = one;
    unsigned at = keyAt;
    K::vaneEach(key, [&](const auto& field) {
      using Field = std::remove_cvref_t<decltype(field)>;
      static_assert(std::has_unique_object_representations_v<Field> && sizeof(Field) <= sizeof(U64));
      U64 bits = 0;
      std::memcpy(&bits, &field, sizeof field);
      word |= bits << at;
      at += 8 * sizeof field;
    });
    return word;
  }
  static K keyOf(U64 word) {
    static_assert(keyAt + 8 * K::vaneFixedBytes <= 8 * sizeof(U64), "a key has at most six bytes");
    K key;
    unsigned at = keyAt;
    K::vaneEach(key, [&](auto& field) {
      const U64 bits = word >> at;
      std::memcpy(static_cast<void*>(&field), &bits, sizeof field);
      at += 8 * sizeof field;
    });
    return key;
  }

  bool isOne() const { return (word_ & one) != 0; }
  Body* body() const { return isOne() ? nullptr : reinterpret_cast<Body*>(word_); }
  Body& bodyNeeded() const {
    if (Body* const held = body()) {
      return *held;
    }
    Body* const made = new Body;
    if (isOne()) {
      made->findOrInsert(keyOf(word_), true); // the first member needs no memory
    }
    word_ = reinterpret_cast<U64>(made);
    return *made;
  }

  static_assert(sizeof(Body*) == sizeof(U64));
  mutable U64 word_ = 0;
};

} // namespace Vane
