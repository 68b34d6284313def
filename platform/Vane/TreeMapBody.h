#pragma once

#include "Vane/BlockList.h"
#include "Vane/CollectionBody.h"
#include "Vane/NodePool.h"
#include "Vane/Types.h"

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
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

// `count` values that begin at `from` are moved to `to`, which may be among them or they among its. Here and
// not with the standard algorithms, of which each kind of key would compile a dozen functions.
template <typename T>
void moveWithin(T* from, T* to, std::size_t count) {
  if constexpr (std::is_trivially_copyable_v<T>) {
    std::memmove(static_cast<void*>(to), from, count * sizeof(T));
  } else if (to < from) {
    for (std::size_t i = 0; i < count; ++i) {
      to[i] = std::move(from[i]);
    }
  } else {
    for (std::size_t i = count; i-- > 0;) {
      to[i] = std::move(from[i]);
    }
  }
}

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
    K keys[runKeys];
    Node* nodes[runKeys];
    U32 size() const { return end - begin; }
  };
  static_assert(alignof(Run) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
  // Where a key is, or would be inserted: in the run of that number at `at`, behind `previous` (null: first).
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
  ~TreeMapBody() override { forgetRuns(); }

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
    const std::size_t found = runOf(key);
    return found == runs_.size() ? nullptr : run(found).nodes[atIn(run(found), key)];
  }
  const K* lastKey() const {
    if (runs_.empty()) {
      const K* last = nullptr;
      for (const Node* node = first_; node != nullptr; node = node->next) {
        last = node->deleted ? last : &node->key;
      }
      return last;
    }
    for (std::size_t i = runs_.size(); i-- > 0;) {
      for (U32 at = run(i).end; at-- > run(i).begin;) {
        if (!run(i).nodes[at]->deleted) {
          return &run(i).nodes[at]->key;
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
    forgetRuns();
    nodes_ = size_ = 0;
    for (Node* node = std::exchange(first_, nullptr); node != nullptr;) {
      Node* const next = node->next;
      node->~Node();
      pool_.give(node);
      node = next;
    }
    drop();
  }

  Run& run(std::size_t at) const { return *static_cast<Run*>(runs_[at]); }
  Run& newRun(std::size_t at) {
    static_assert(std::is_nothrow_default_constructible_v<Run>); // or the new block would have to go again
    return *new (runs_.insert(at, sizeof(Run))) Run;
  }
  void eraseRun(std::size_t at) {
    run(at).~Run();
    runs_.erase(at);
  }
  void forgetRuns() {
    for (std::size_t at = 0; at < runs_.size(); ++at) {
      run(at).~Run();
    }
    runs_.clear();
  }

  // The first run whose last key is not below `key`, or the number of runs.
  std::size_t runOf(const K& key) const {
    if (isLastBelow(runs_.size() - 1, key)) {
      return runs_.size();
    }
    for (std::size_t at = lastRun_; at < runs_.size() && at < lastRun_ + 2; ++at) {
      if (!isLastBelow(at, key) && (at == 0 || isLastBelow(at - 1, key))) {
        return lastRun_ = at;
      }
    }
    std::size_t begin = 0;
    std::size_t end = runs_.size() - 1; // whose last key is not below
    while (begin < end) {
      const std::size_t middle = begin + (end - begin) / 2;
      if (isLastBelow(middle, key)) {
        begin = middle + 1;
      } else {
        end = middle;
      }
    }
    return lastRun_ = begin;
  }
  bool isLastBelow(std::size_t at, const K& key) const { return run(at).keys[run(at).end - 1] < key; }
  // The first place of the run whose key is not below `key`.
  U32 atIn(const Run& run, const K& key) const {
    if (!(run.keys[run.begin] < key)) {
      return lastAt_ = run.begin;
    }
    const U32 next = lastAt_ + 1;
    if (next > run.begin && next < run.end && run.keys[lastAt_] < key && !(run.keys[next] < key)) {
      return lastAt_ = next;
    }
    U32 begin = run.begin + 1;
    U32 end = run.end;
    while (begin < end) {
      const U32 middle = begin + (end - begin) / 2;
      if (run.keys[middle] < key) {
        begin = middle + 1;
      } else {
        end = middle;
      }
    }
    return lastAt_ = begin;
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
      spot.at = run(spot.run).end;
    } else {
      spot.at = atIn(run(spot.run), key);
    }
    const Run& here = run(spot.run);
    if (spot.at < here.end && !(key < here.keys[spot.at])) {
      spot.node = here.nodes[spot.at];
    }
    if (spot.at > here.begin) {
      spot.previous = here.nodes[spot.at - 1];
    } else if (spot.run > 0) {
      const Run& before = run(spot.run - 1);
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
    Run& run = newRun(0);
    try {
      for (Node* node = first_; node != nullptr; node = node->next) {
        run.keys[run.end] = node->key;
        run.nodes[run.end++] = node;
      }
    } catch (...) { // half an index would hide members
      forgetRuns();
      throw;
    }
  }

  // Keys and nodes of a run, `count` of them from `from` on, go to `to`, of the same run or of another.
  static void moveMembers(Run& run, U32 from, Run& target, U32 to, U32 count) {
    if (count != 0) { // mostly it is 0: members come at the end and go at the beginning
      moveWithin(run.keys + from, target.keys + to, count);
      moveWithin(run.nodes + from, target.nodes + to, count);
    }
  }

  // Sees to it that one more node fits at the spot, which may move to another run.
  void makeRoom(Spot& spot) {
    Run& left = run(spot.run);
    if (left.size() < runKeys) {
      return;
    }
    const bool append = spot.at == runKeys && spot.run + 1 == runs_.size();
    const U32 from = append ? runKeys : runKeys / 2;
    Run& right = newRun(spot.run + 1);
    moveMembers(left, from, right, 0, runKeys - from);
    right.end = runKeys - from;
    left.end = from;
    if (spot.at > from || append) {
      ++spot.run;
      spot.at -= from;
    }
  }

  // Puts the node into its run, which has room: on the side that moves fewer keys.
  void enter(const Spot& spot, Node* node) {
    Run& here = run(spot.run);
    const K key(node->key);
    U32 at = spot.at;
    if (here.end < runKeys && (here.begin == 0 || here.end - at <= at - here.begin)) {
      moveMembers(here, at, here, at + 1, here.end - at);
      ++here.end;
    } else {
      moveMembers(here, here.begin, here, here.begin - 1, at - here.begin);
      --here.begin;
      --at;
    }
    here.keys[at] = key;
    here.nodes[at] = node;
  }

  void leave(const Spot& spot) {
    Run& here = run(spot.run);
    if (spot.at - here.begin < here.end - 1 - spot.at) {
      moveMembers(here, here.begin, here, here.begin + 1, spot.at - here.begin);
      here.keys[here.begin++] = K();
    } else {
      moveMembers(here, spot.at + 1, here, spot.at, here.end - 1 - spot.at);
      here.keys[--here.end] = K();
    }
    if (here.size() == 0) {
      eraseRun(spot.run);
    } else if (here.size() < runKeys / 4 && spot.run + 1 < runs_.size() &&
               here.size() + run(spot.run + 1).size() <= runKeys / 2) {
      mergeWithNext(spot.run);
    }
  }

  // Two sparse neighbours become one run; the next one then starts at 0 with room behind.
  void mergeWithNext(std::size_t at) {
    Run& here = run(at);
    Run& next = run(at + 1);
    moveMembers(here, here.begin, here, 0, here.size());
    here.end -= here.begin;
    here.begin = 0;
    moveMembers(next, next.begin, here, here.end, next.size());
    here.end += next.size();
    eraseRun(at + 1);
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
  BlockList runs_; // a Run each
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
