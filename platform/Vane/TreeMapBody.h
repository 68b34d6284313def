#pragma once

#include "Vane/NodePool.h"
#include "Vane/Types.h"

#include <functional>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

// Storage of RbTreeMap: a red-black tree whose nodes come from a pool. A pinned member that is
// deleted stays in the tree, marked, until its last iterator leaves; every operation steps over it,
// and inserting its key again brings it back as a new member.

namespace Vane {

template <typename K, typename V>
class TreeMapBody {
  struct Cell {
    V value;
    U64 number;
    U32 pins;
    bool deleted;
  };
  using Tree = std::map<K, Cell, std::less<K>, PoolAllocator<std::pair<const K, Cell>>>;

public:
  using Key = K;
  using Value = V;
  using Place = typename Tree::iterator;

  TreeMapBody() : tree_(PoolAllocator<std::pair<const K, Cell>>(&pool_)) {}

  void hold() { ++references_; }
  void drop() {
    if (--references_ == 0) {
      dispose();
    }
  }

  std::size_t size() const { return size_; }
  V* find(const K& key) {
    const Place place = tree_.find(key);
    return place == tree_.end() || place->second.deleted ? nullptr : &place->second.value;
  }

  std::pair<V*, bool> findOrInsert(const K& key, const V& value) {
    Place place = tree_.end();
    // Pools and rule lists mostly grow at the end, where no search is needed.
    if (!tree_.empty() && !(std::prev(place)->first < key)) {
      place = tree_.lower_bound(key);
      Cell& cell = place->second;
      if (!(key < place->first)) {
        if (!cell.deleted) {
          return {&cell.value, false};
        }
        cell.number = ++lastNumber_;
        cell.deleted = false;
        ++size_;
        cell.value = value;
        return {&cell.value, true};
      }
    }
    place = tree_.emplace_hint(place, key, Cell{value, ++lastNumber_, 0, false});
    ++size_;
    return {&place->second.value, true};
  }

  bool erase(const K& key) {
    const Place place = tree_.find(key);
    if (place == tree_.end() || place->second.deleted) {
      return false;
    }
    removed(place);
    return true;
  }

  void clear() {
    // Destroying a value may come back to this map; the pins keep every node in its place meanwhile.
    hold();
    std::vector<Place> places;
    places.reserve(tree_.size());
    for (Place place = tree_.begin(); place != tree_.end(); ++place) {
      pin(place);
      place->second.deleted = true;
      places.push_back(place);
    }
    size_ = 0;
    for (const Place place : places) {
      unpin(place);
    }
    drop();
  }

  Place first() { return tree_.begin(); }
  Place lowerBound(const K& key) { return tree_.lower_bound(key); }
  const K* lastKey() const {
    for (auto place = tree_.rbegin(); place != tree_.rend(); ++place) {
      if (!place->second.deleted) {
        return &place->first;
      }
    }
    return nullptr;
  }

  // What the iterator asks.
  U64 lastNumber() const { return lastNumber_; }
  bool isEnd(Place place) { return place == tree_.end(); }
  static bool isVisited(Place place, U64 limit) {
    return !place->second.deleted && place->second.number <= limit;
  }
  static Place next(Place place) { return std::next(place); }
  static const K& keyOf(Place place) { return place->first; }
  static const V& valueOf(Place place) { return place->second.value; }
  static void pin(Place place) { ++place->second.pins; }
  void unpin(Place place) {
    if (--place->second.pins == 0 && place->second.deleted) {
      destroy(place);
    }
  }

private:
  ~TreeMapBody() = default;

  // Out of line, because callers that drop twice in a row are seen as using freed memory otherwise.
  __attribute__((noinline)) void dispose() { delete this; }

  void removed(Place place) {
    place->second.deleted = true;
    --size_;
    if (place->second.pins == 0) {
      destroy(place);
    }
  }

  void destroy(Place place) {
    // The value goes after the tree is whole again: its destructor may come back to this map, or drop
    // the last reference to the map's owner.
    hold();
    {
      [[maybe_unused]] const V last = std::move(place->second.value);
      tree_.erase(place);
    }
    drop();
  }

  NodePool pool_;
  Tree tree_;
  std::size_t size_ = 0;
  U64 lastNumber_ = 0;
  U32 references_ = 1; // the map and every iterator
};

} // namespace Vane
