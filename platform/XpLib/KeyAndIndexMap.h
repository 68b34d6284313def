#pragma once

#include "Vane/Vane.h"
#include "XpLib/IndexToKeyMap.h"

#include <cstddef>
#include <vector>

namespace XpLib {

// Which hardware table index holds which key, in both directions. The first of the indexes that an
// entry occupies is the one that later writes use.
template <typename Key>
class KeyAndIndexMap : public Vane::PtrInterface {
public:
  // Records the indexes of a new entry. Requires at least one (assertion "numIndices != 0").
  void newKeyAndIndexList(const Key& key, const std::vector<Vane::U32>& indexList) {
    const std::size_t numIndices = indexList.size();
    VANE_ASSERT(numIndices != 0);
    keyToIndex_.insertOrAssign(key, indexList.front());
    indexToKey_.insertOrAssign(indexList.front(), key);
  }

  // Null when the key has no entry.
  const Vane::U32* index(const Key& key) const { return keyToIndex_.find(key); }
  const Key* key(Vane::U32 index) const { return indexToKey_.find(index); }
  std::size_t count() const { return keyToIndex_.size(); }

  // Erases both directions; the reverse one only when it still points back to the key.
  void keyDel(const Key& key) {
    const Vane::U32* held = keyToIndex_.find(key);
    if (held == nullptr) {
      return;
    }
    const Vane::U32 index = *held;
    const Key* back = indexToKey_.find(index);
    if (back != nullptr && *back == key) {
      indexToKey_.erase(index);
    }
    keyToIndex_.erase(key);
  }

  const Vane::HashMap2018<Key, Vane::U32>& keyToIndex() const { return keyToIndex_; }
  const IndexToKeyMap<Key>& indexToKey() const { return indexToKey_; }

private:
  Vane::HashMap2018<Key, Vane::U32> keyToIndex_;
  IndexToKeyMap<Key> indexToKey_;
};

} // namespace XpLib
