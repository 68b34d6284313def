#pragma once

#include "Vane/CollectionBody.h"
#include "Vane/Hash.h"
#include "Vane/HashMapBody.h"
#include "Vane/Ptr.h"
#include "Vane/TreeMapBody.h"
#include "Vane/Types.h"

#include <cstddef>
#include <utility>

// Keyed collections whose iterators survive every change.
//
// A handler that walks a collection may delete the member it stands on, any other member, and insert
// new ones. The rules that make this safe:
//
//  1. An iterator pins its member. A pinned member that is deleted leaves the collection at once (it
//     is no longer found or counted) but its key and value stay readable until the last pin goes.
//  2. Each insertion gets a number, and a walk visits only members that are older than the walk. So
//     every member that exists throughout is visited exactly once and every walk ends, however much
//     its handlers insert.
//  3. Iterators keep the storage alive; they may outlive the collection, which is then empty.
//
// HashMap2018 iterates in the order of insertion, RbTreeMap in ascending order of its keys.
// Collections belong to one thread.

namespace Vane {

// What a walk hands out: one member, valid while the walk stands on it.
template <typename K, typename V>
class Member {
public:
  Member(const K& key, const V& value) : key_(&key), value_(&value) {}
  const K& key() const { return *key_; }
  const V& value() const { return *value_; }
  // The child of a collection of objects.
  const V& ptr() const requires IsPtr<V>::value { return *value_; }

private:
  const K* key_;
  const V* value_;
};

struct WalkEnd {};

// Iterator of both kinds of collection. Body provides Place (where a member stands), and the
// operations named below.
template <typename Body>
class CollectionIterator {
public:
  using Key = typename Body::Key;
  using Value = typename Body::Value;

  CollectionIterator() = default;
  // At `place`, or at its first successor that is a member; `body` null: at the end.
  CollectionIterator(Body* body, typename Body::Place place) : body_(body), place_(place) {
    if (body_ != nullptr) {
      limit_ = body_->lastNumber();
      body->hold();
      settle();
      if (body_ == nullptr) {
        body->drop();
      }
    }
  }
  CollectionIterator(const CollectionIterator& other)
      : body_(other.body_), place_(other.place_), limit_(other.limit_) {
    if (body_ != nullptr) {
      body_->hold();
      body_->pin(place_);
    }
  }
  CollectionIterator(CollectionIterator&& other) noexcept
      : body_(std::exchange(other.body_, nullptr)), place_(other.place_), limit_(other.limit_) {}
  ~CollectionIterator() { leave(); }
  CollectionIterator& operator=(CollectionIterator other) noexcept {
    std::swap(body_, other.body_);
    std::swap(place_, other.place_);
    std::swap(limit_, other.limit_);
    return *this;
  }

  // False at the end.
  explicit operator bool() const { return body_ != nullptr; }
  bool operator==(WalkEnd) const { return body_ == nullptr; }
  const Key& key() const { return body_->keyOf(place_); }
  const Value& value() const { return body_->valueOf(place_); }
  const Value& ptr() const requires IsPtr<Value>::value { return value(); }
  Member<Key, Value> operator*() const { return {key(), value()}; }

  CollectionIterator& operator++() {
    const typename Body::Place left = place_;
    Body* body = body_;
    place_ = body->next(left);
    settle();
    // Settling at the end gave up this iterator's hold, so the last use of the body comes before.
    body->unpin(left);
    if (body_ == nullptr) {
      body->drop();
    }
    return *this;
  }

private:
  // Moves on to a member that the walk visits and pins it; at the end the body is forgotten.
  void settle() {
    while (!body_->isEnd(place_)) {
      if (body_->isVisited(place_, limit_)) {
        body_->pin(place_);
        return;
      }
      place_ = body_->next(place_);
    }
    body_ = nullptr;
  }
  void leave() {
    if (body_ != nullptr) {
      body_->unpin(place_);
      body_->drop();
    }
  }

  Body* body_ = nullptr;
  typename Body::Place place_{};
  U64 limit_ = 0;
};

// All members, for range-for.
template <typename Iterator>
class Walk {
public:
  explicit Walk(Iterator first) : first_(std::move(first)) {}
  Iterator begin() { return std::move(first_); }
  WalkEnd end() const { return {}; }

private:
  Iterator first_;
};

// What both kinds of map offer. An empty map is one null pointer.
template <typename Body>
class CollectionMap {
public:
  using Key = typename Body::Key;
  using Value = typename Body::Value;
  using Iterator = CollectionIterator<Body>;

  CollectionMap() = default;
  CollectionMap(CollectionMap&& other) noexcept : body_(other.body_) { other.body_ = nullptr; }
  CollectionMap& operator=(CollectionMap&& other) noexcept {
    std::swap(body_, other.body_);
    return *this;
  }
  CollectionMap(const CollectionMap&) = delete;
  CollectionMap& operator=(const CollectionMap&) = delete;
  ~CollectionMap() {
    if (body_ != nullptr) {
      static_cast<CollectionBody*>(body_)->ownerLeaves();
    }
  }

  std::size_t size() const { return body_ == nullptr ? 0 : body_->size(); }
  bool empty() const { return size() == 0; }
  bool has(const Key& key) const { return find(key) != nullptr; } // whether the key is there
  // The value in place, or null. Valid until something is inserted or deleted.
  const Value* find(const Key& key) const { return body_ == nullptr ? nullptr : body_->find(key); }
  Value* find(const Key& key) { return body_ == nullptr ? nullptr : body_->find(key); }
  // The value, or a default one.
  Value valueOrDefault(const Key& key) const {
    const Value* value = find(key);
    return value == nullptr ? Value{} : *value;
  }

  // Inserts or replaces; true when the key was absent or its value differed (needs Value's ==).
  bool assign(const Key& key, const Value& value) {
    const auto [held, inserted] = body().findOrInsert(key, value);
    if (inserted) {
      return true;
    }
    if (*held == value) {
      return false;
    }
    *held = value;
    return true;
  }
  // Inserts or replaces; true when the key was absent.
  bool insertOrAssign(const Key& key, const Value& value) {
    const auto [held, inserted] = body().findOrInsert(key, value);
    if (!inserted) {
      *held = value;
    }
    return inserted;
  }
  // The value in place and whether it is new: made by make() when the key was absent. make() may change the
  // map.
  template <typename Make>
  std::pair<Value*, bool> findOrMake(const Key& key, const Make& make) {
    return body().findOrMake(key, make);
  }
  // True when the key was absent; else nothing changes.
  bool insert(const Key& key, const Value& value) { return body().findOrInsert(key, value).second; }
  // True when the key was present.
  bool erase(const Key& key) { return body_ != nullptr && body_->erase(key); }
  void clear() { // destroys all members
    if (body_ != nullptr) {
      body_->clear();
    }
  }

  Iterator iteratorConst() const { return body_ == nullptr ? Iterator() : Iterator(body_, body_->first()); }
  Walk<Iterator> all() const { return Walk<Iterator>(iteratorConst()); }
  Iterator begin() const { return iteratorConst(); }
  WalkEnd end() const { return {}; }

protected:
  Body& body() {
    if (body_ == nullptr) {
      body_ = new Body;
    }
    return *body_;
  }

  Body* body_ = nullptr;
};

// Hash map from key to value, looked up by slotOf(key) and ==.
template <typename K, typename V>
class HashMap2018 : public CollectionMap<HashMapBody<K, V>> {
public:
  // For walks over keys in an order of their own, where every look-up waits for memory: has the processor
  // fetch what looking up `next` takes, which an earlier call named as its `later`, and begins with `later`.
  [[gnu::always_inline]] void expect(const K& next, const K& later) const {
    if (this->body_ != nullptr) {
      this->body_->expect(next, later);
    }
  }
};

// Hash map of owned objects.
template <typename K, typename Child>
class HashMap : public HashMap2018<K, Ptr<Child>> {};

// Ordered map. Appending above the largest key and removing the smallest are cheap.
template <typename K, typename V>
class RbTreeMap : public CollectionMap<TreeMapBody<K, V>> {
public:
  using Iterator = typename CollectionMap<TreeMapBody<K, V>>::Iterator;

  // The smallest key, or the end.
  Iterator first() const { return this->iteratorConst(); }
  // The smallest key that is not below `key`, or the end.
  Iterator lowerBound(const K& key) const {
    return this->body_ == nullptr ? Iterator() : Iterator(this->body_, this->body_->lowerBound(key));
  }
  // The largest key; null when empty. Valid until the member is deleted.
  const K* lastKey() const { return this->body_ == nullptr ? nullptr : this->body_->lastKey(); }
};

} // namespace Vane
