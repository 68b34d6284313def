#pragma once

#include "Vane/CollectionBody.h"
#include "Vane/NodePool.h"
#include "Vane/Types.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

// Storage of RbTreeMap: nodes from a pool, linked in the order of their keys, and an index over them for
// look-ups: sorted runs of up to 64 keys, each beside its node. Appending at the end and taking the first
// away, which is what pools of rows and lists of rules mostly do, touch one run and no other node. Maps of
// a few members have no index and are searched along the links.
//
// A pinned member that is deleted keeps its node, marked, until its last iterator leaves; every operation
// steps over it, and inserting its key again brings it back as a new member.

namespace Vane {

template <typename K, typename V>
class TreeMapBody : public CollectionBody {
  struct Node {
    Node* next;
    U64 number;
    U32 pins;
    bool deleted;
    const K key;
    V value;
  };
  static constexpr U32 runKeys = 64;
  struct Run {
    U32 begin = 0;
    U32 end = 0;
    std::array<K, runKeys> keys;
    std::array<Node*, runKeys> nodes;
    U32 size() const { return end - begin; }
  };
  // Where a key is, or would be inserted: in runs_[run] at `at`, behind `previous` (null: first).
  struct Spot {
    std::size_t run = 0;
    U32 at = 0;
    Node* previous = nullptr;
    Node* node = nullptr; // the one with the key, if any
  };

public:
  using Key = K;
  using Value = V;
  using Place = Node*;

  TreeMapBody() { pool_.ownBlock(firstNode_); }

  void ownerLeaves() override {
    clear();
    drop();
  }

  std::size_t size() const { return size_; }
  V* find(const K& key) {
    Node* node = spotOf(key).node;
    return node == nullptr || node->deleted ? nullptr : &node->value;
  }

  std::pair<V*, bool> findOrInsert(const K& key, const V& value) {
    const Spot spot = spotOf(key);
    if (spot.node != nullptr && !spot.node->deleted) {
      return {&spot.node->value, false};
    }
    return {insertAt(spot, key, value), true};
  }

  // The same with a value that is made only for a key that is absent. Making it may come back to this map.
  template <typename Make>
  std::pair<V*, bool> findOrMake(const K& key, const Make& make) {
    const Spot spot = spotOf(key);
    if (spot.node != nullptr && !spot.node->deleted) {
      return {&spot.node->value, false};
    }
    const U64 number = lastNumber_;
    const std::size_t nodes = nodes_;
    const V value = make();
    if (lastNumber_ != number || nodes_ != nodes) {
      return findOrInsert(key, value);
    }
    return {insertAt(spot, key, value), true};
  }

  bool erase(const K& key) {
    const Spot spot = spotOf(key);
    if (spot.node == nullptr || spot.node->deleted) {
      return false;
    }
    spot.node->deleted = true;
    --size_;
    if (spot.node->pins == 0) {
      destroy(spot);
    }
    return true;
  }

  void clear() {
    if (references_ == 1) {
      clearUnwatched();
      return;
    }
    // Destroying a value may come back to this map; the pins keep every node in its place meanwhile.
    hold();
    std::vector<Node*> nodes;
    nodes.reserve(nodes_);
    for (Node* node = first_; node != nullptr; node = node->next) {
      pin(node);
      node->deleted = true;
      nodes.push_back(node);
    }
    size_ = 0;
    for (Node* node : nodes) {
      unpin(node);
    }
    drop();
  }

  Place first() const { return first_; }
  Place lowerBound(const K& key) const {
    if (runs_.empty()) {
      Node* node = first_;
      while (node != nullptr && node->key < key) {
        node = node->next;
      }
      return node;
    }
    const std::size_t run = runOf(key);
    if (run == runs_.size()) {
      return nullptr;
    }
    return runs_[run]->nodes[atIn(*runs_[run], key)];
  }
  const K* lastKey() const {
    if (runs_.empty()) {
      const K* last = nullptr;
      for (const Node* node = first_; node != nullptr; node = node->next) {
        last = node->deleted ? last : &node->key;
      }
      return last;
    }
    for (std::size_t run = runs_.size(); run-- > 0;) {
      for (U32 at = runs_[run]->end; at-- > runs_[run]->begin;) {
        if (!runs_[run]->nodes[at]->deleted) {
          return &runs_[run]->nodes[at]->key;
        }
      }
    }
    return nullptr;
  }

  // What the iterator asks.
  U64 lastNumber() const { return lastNumber_; }
  static bool isEnd(Place place) { return place == nullptr; }
  static bool isVisited(Place place, U64 limit) { return !place->deleted && place->number <= limit; }
  static Place next(Place place) { return place->next; }
  static const K& keyOf(Place place) { return place->key; }
  static const V& valueOf(Place place) { return place->value; }
  static void pin(Place place) { ++place->pins; }
  void unpin(Place place) {
    if (--place->pins == 0 && place->deleted) {
      unpinned(place);
    }
  }

private:
  static constexpr std::size_t scanned = 8; // nodes of a map without index

  void handleUnpinned(void* place) override { destroy(spotOf(static_cast<Place>(place)->key)); }

  // Without iterators nothing is pinned: the map is empty at once, whatever destroying a value does to it,
  // and nothing has to be taken out of the index.
  void clearUnwatched() {
    hold();
    runs_.clear();
    nodes_ = size_ = 0;
    for (Node* node = std::exchange(first_, nullptr); node != nullptr;) {
      Node* const next = node->next;
      node->~Node();
      pool_.give(node);
      node = next;
    }
    drop();
  }

  // The first run whose last key is not below `key`, or the number of runs.
  std::size_t runOf(const K& key) const {
    if (lastIn(*runs_.back()) < key) {
      return runs_.size();
    }
    for (std::size_t run = lastRun_; run < runs_.size() && run < lastRun_ + 2; ++run) {
      if (!(lastIn(*runs_[run]) < key) && (run == 0 || lastIn(*runs_[run - 1]) < key)) {
        return lastRun_ = run;
      }
    }
    const auto found =
        std::partition_point(runs_.begin(), runs_.end(), [&](const auto& run) { return lastIn(*run) < key; });
    return lastRun_ = static_cast<std::size_t>(found - runs_.begin());
  }
  static const K& lastIn(const Run& run) { return run.keys[run.end - 1]; }
  // The first place of the run whose key is not below `key`.
  U32 atIn(const Run& run, const K& key) const {
    if (!(run.keys[run.begin] < key)) {
      return lastAt_ = run.begin;
    }
    const U32 next = lastAt_ + 1;
    if (next > run.begin && next < run.end && run.keys[lastAt_] < key && !(run.keys[next] < key)) {
      return lastAt_ = next;
    }
    const auto found = std::lower_bound(run.keys.begin() + run.begin, run.keys.begin() + run.end, key);
    return lastAt_ = static_cast<U32>(found - run.keys.begin());
  }

  Spot spotOf(const K& key) const {
    Spot spot;
    if (runs_.empty()) {
      Node* node = first_;
      for (; node != nullptr && node->key < key; node = node->next) {
        spot.previous = node;
      }
      spot.node = node == nullptr || key < node->key ? nullptr : node;
      return spot;
    }
    spot.run = runOf(key);
    if (spot.run == runs_.size()) { // behind all: at the end of the last run
      --spot.run;
      spot.at = runs_.back()->end;
    } else {
      spot.at = atIn(*runs_[spot.run], key);
    }
    const Run& run = *runs_[spot.run];
    if (spot.at < run.end && !(key < run.keys[spot.at])) {
      spot.node = run.nodes[spot.at];
    }
    if (spot.at > run.begin) {
      spot.previous = run.nodes[spot.at - 1];
    } else if (spot.run > 0) {
      const Run& before = *runs_[spot.run - 1];
      spot.previous = before.nodes[before.end - 1];
    }
    return spot;
  }

  // Of a key that no member has; `spot` is where it belongs.
  V* insertAt(Spot spot, const K& key, const V& value) {
    if (Node* node = spot.node) {
      node->value = value;
      node->number = ++lastNumber_;
      node->deleted = false;
      ++size_;
      return &node->value;
    }
    // All memory is taken before anything changes.
    if (runs_.empty() && nodes_ >= scanned) {
      makeIndex();
      spot = spotOf(key);
    }
    Node* const node = newNode(key, value);
    if (!runs_.empty()) {
      try {
        makeRoom(spot);
      } catch (...) {
        node->~Node();
        pool_.give(node);
        throw;
      }
      enter(spot, node);
    }
    Node*& link = spot.previous == nullptr ? first_ : spot.previous->next;
    node->next = link;
    link = node;
    ++lastNumber_;
    ++nodes_;
    ++size_;
    return &node->value;
  }

  Node* newNode(const K& key, const V& value) {
    void* memory = pool_.take(sizeof(Node));
    try {
      return new (memory) Node{nullptr, lastNumber_ + 1, 0, false, key, value};
    } catch (...) {
      pool_.give(memory);
      throw;
    }
  }

  void makeIndex() {
    auto run = std::make_unique<Run>();
    for (Node* node = first_; node != nullptr; node = node->next) {
      run->keys[run->end] = node->key;
      run->nodes[run->end++] = node;
    }
    runs_.push_back(std::move(run));
  }

  // Sees to it that one more node fits at the spot, which may move to another run.
  void makeRoom(Spot& spot) {
    Run& run = *runs_[spot.run];
    if (run.size() < runKeys) {
      return;
    }
    auto right = std::make_unique<Run>();
    const bool append = spot.at == runKeys && spot.run + 1 == runs_.size();
    const U32 from = append ? runKeys : runKeys / 2;
    runs_.insert(runs_.begin() + static_cast<std::ptrdiff_t>(spot.run) + 1, nullptr);
    std::move(run.keys.begin() + from, run.keys.end(), right->keys.begin());
    std::move(run.nodes.begin() + from, run.nodes.end(), right->nodes.begin());
    right->end = runKeys - from;
    run.end = from;
    runs_[spot.run + 1] = std::move(right);
    if (spot.at > from || append) {
      ++spot.run;
      spot.at -= from;
    }
  }

  // Puts the node into its run, which has room: on the side that moves fewer keys.
  void enter(const Spot& spot, Node* node) {
    Run& run = *runs_[spot.run];
    const K key(node->key);
    U32 at = spot.at;
    if (run.end < runKeys && (run.begin == 0 || run.end - at <= at - run.begin)) {
      std::move_backward(run.keys.begin() + at, run.keys.begin() + run.end, run.keys.begin() + run.end + 1);
      std::move_backward(run.nodes.begin() + at, run.nodes.begin() + run.end,
                         run.nodes.begin() + run.end + 1);
      ++run.end;
    } else {
      std::move(run.keys.begin() + run.begin, run.keys.begin() + at, run.keys.begin() + run.begin - 1);
      std::move(run.nodes.begin() + run.begin, run.nodes.begin() + at, run.nodes.begin() + run.begin - 1);
      --run.begin;
      --at;
    }
    run.keys[at] = key;
    run.nodes[at] = node;
  }

  void leave(const Spot& spot) {
    Run& run = *runs_[spot.run];
    if (spot.at - run.begin < run.end - 1 - spot.at) {
      std::move_backward(run.keys.begin() + run.begin, run.keys.begin() + spot.at,
                         run.keys.begin() + spot.at + 1);
      std::move_backward(run.nodes.begin() + run.begin, run.nodes.begin() + spot.at,
                         run.nodes.begin() + spot.at + 1);
      run.keys[run.begin++] = K();
    } else {
      std::move(run.keys.begin() + spot.at + 1, run.keys.begin() + run.end, run.keys.begin() + spot.at);
      std::move(run.nodes.begin() + spot.at + 1, run.nodes.begin() + run.end, run.nodes.begin() + spot.at);
      run.keys[--run.end] = K();
    }
    if (run.size() == 0) {
      runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(spot.run));
    } else if (run.size() < runKeys / 4 && spot.run + 1 < runs_.size() &&
               run.size() + runs_[spot.run + 1]->size() <= runKeys / 2) {
      mergeWithNext(spot.run);
    }
  }

  // Two sparse neighbours become one run; the next one then starts at 0 with room behind.
  void mergeWithNext(std::size_t at) {
    Run& run = *runs_[at];
    Run& next = *runs_[at + 1];
    std::move(run.keys.begin() + run.begin, run.keys.begin() + run.end, run.keys.begin());
    std::move(run.nodes.begin() + run.begin, run.nodes.begin() + run.end, run.nodes.begin());
    run.end -= run.begin;
    run.begin = 0;
    std::move(next.keys.begin() + next.begin, next.keys.begin() + next.end, run.keys.begin() + run.end);
    std::move(next.nodes.begin() + next.begin, next.nodes.begin() + next.end, run.nodes.begin() + run.end);
    run.end += next.size();
    runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(at) + 1);
  }

  void destroy(const Spot& spot) {
    // The value goes after the map is whole again: its destructor may come back to this map, or drop the
    // last reference to the map's owner.
    hold();
    Node* node = spot.node;
    (spot.previous == nullptr ? first_ : spot.previous->next) = node->next;
    if (!runs_.empty()) {
      leave(spot);
    }
    --nodes_;
    node->~Node();
    pool_.give(node);
    drop();
  }

  // Many maps have one member: the sub-rules of a line that takes no more than one row.
  alignas(Node) std::byte firstNode_[sizeof(Node)];
  NodePool pool_;
  std::vector<std::unique_ptr<Run>> runs_;
  // Where the last search ended; the next one mostly goes to the same place or to the one behind it. They may
  // be anywhere, and are looked at before they are used.
  mutable std::size_t lastRun_ = 0;
  mutable U32 lastAt_ = 0;
  Node* first_ = nullptr;
  std::size_t nodes_ = 0; // the deleted ones included
  std::size_t size_ = 0;
  U64 lastNumber_ = 0;
};

} // namespace Vane
