#pragma once

#include "Vane/Hash.h"
#include "Vane/NodePool.h"
#include "Vane/Types.h"

#include <algorithm>
#include <utility>
#include <vector>

// Storage of HashMap2018: chained buckets for look-up, and one list in the order of insertion for
// walks, which growing the table therefore never disturbs.

namespace Vane {

template <typename K, typename V>
class HashMapBody {
  struct Node {
    Node* chain;
    Node* previous;
    Node* next;
    U64 number;
    U32 hash;
    U32 pins;
    bool deleted;
    const K key;
    V value;
  };

public:
  using Key = K;
  using Value = V;
  using Place = Node*;

  HashMapBody() : buckets_(initialBuckets, nullptr) {}

  void hold() { ++references_; }
  void drop() {
    if (--references_ == 0) {
      dispose();
    }
  }

  std::size_t size() const { return size_; }
  V* find(const K& key) {
    Node* node = findNode(key, hashOf(key));
    return node == nullptr ? nullptr : &node->value;
  }

  std::pair<V*, bool> findOrInsert(const K& key, const V& value) {
    const U32 hash = hashOf(key);
    if (Node* node = findNode(key, hash)) {
      return {&node->value, false};
    }
    if (size_ >= buckets_.size()) {
      rehash(buckets_.size() * 2);
    }
    void* memory = pool_.take(sizeof(Node));
    Node*& bucket = bucketOf(hash);
    Node* node = new (memory) Node{bucket, last_, nullptr, ++lastNumber_, hash, 0, false, key, value};
    bucket = node;
    (last_ == nullptr ? first_ : last_->next) = node;
    last_ = node;
    ++size_;
    return {&node->value, true};
  }

  bool erase(const K& key) {
    const U32 hash = hashOf(key);
    for (Node** link = &bucketOf(hash); *link != nullptr; link = &(*link)->chain) {
      Node* node = *link;
      if (node->hash == hash && node->key == key) {
        *link = node->chain;
        removed(node);
        return true;
      }
    }
    return false;
  }

  void clear() {
    // Destroying a value may come back to this map; the pins keep every node in its place meanwhile.
    hold();
    const U64 limit = lastNumber_;
    std::fill(buckets_.begin(), buckets_.end(), nullptr);
    for (Node* node = first_; node != nullptr; node = node->next) {
      pin(node);
      node->deleted = true;
    }
    size_ = 0;
    for (Node* node = first_; node != nullptr;) {
      Node* next = node->next;
      if (next != nullptr && next->number > limit) {
        next = nullptr; // inserted since, and not pinned
      }
      unpin(node);
      node = next;
    }
    drop();
  }

  // What the iterator asks.
  U64 lastNumber() const { return lastNumber_; }
  Place first() const { return first_; }
  static bool isEnd(Place place) { return place == nullptr; }
  static bool isVisited(Place place, U64 limit) { return !place->deleted && place->number <= limit; }
  static Place next(Place place) { return place->next; }
  static const K& keyOf(Place place) { return place->key; }
  static const V& valueOf(Place place) { return place->value; }
  static void pin(Place place) { ++place->pins; }
  void unpin(Place place) {
    if (--place->pins == 0 && place->deleted) {
      destroy(place);
    }
  }

private:
  static constexpr std::size_t initialBuckets = 8; // a power of two, as every size after it

  ~HashMapBody() = default;

  // Out of line, because callers that drop twice in a row are seen as using freed memory otherwise.
  __attribute__((noinline)) void dispose() { delete this; }

  Node*& bucketOf(U32 hash) { return buckets_[hash & (buckets_.size() - 1)]; }
  Node* findNode(const K& key, U32 hash) {
    for (Node* node = bucketOf(hash); node != nullptr; node = node->chain) {
      if (node->hash == hash && node->key == key) {
        return node;
      }
    }
    return nullptr;
  }

  void rehash(std::size_t count) {
    buckets_.assign(count, nullptr);
    for (Node* node = first_; node != nullptr; node = node->next) {
      if (!node->deleted) {
        Node*& bucket = bucketOf(node->hash);
        node->chain = bucket;
        bucket = node;
      }
    }
  }

  // A node that left its bucket: no longer a member.
  void removed(Node* node) {
    node->deleted = true;
    --size_;
    if (node->pins == 0) {
      destroy(node);
    }
  }

  void destroy(Node* node) {
    (node->previous == nullptr ? first_ : node->previous->next) = node->next;
    (node->next == nullptr ? last_ : node->next->previous) = node->previous;
    // The value's destructor may drop the last reference to the owner of this map.
    hold();
    node->~Node();
    pool_.give(node);
    drop();
  }

  NodePool pool_;
  std::vector<Node*> buckets_;
  Node* first_ = nullptr;
  Node* last_ = nullptr;
  std::size_t size_ = 0;
  U64 lastNumber_ = 0;
  U32 references_ = 1; // the map and every iterator
};

} // namespace Vane
