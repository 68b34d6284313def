#pragma once

#include "Vane/Vane.h"

#include <array>
#include <bit>
#include <cstddef>
#include <memory>
#include <vector>

namespace XpLib {

// Keys by hardware index. The chip gives the lowest free index, so that the indexes in use stand close
// together: keys stand in pages of 64 indexes, which takes little more than the keys themselves. A page
// without keys is given back.
template <typename Key>
class IndexToKeyMap {
public:
  // What a walk hands out.
  class Member {
  public:
    Member(Vane::U32 index, const Key& key) : index_(index), key_(&key) {}
    Vane::U32 key() const { return index_; }
    const Key& value() const { return *key_; }

  private:
    Vane::U32 index_;
    const Key* key_;
  };

  std::size_t size() const { return size_; }
  // Null when the index has no key. Valid until that index gets another one.
  const Key* find(Vane::U32 index) const {
    const Page* const page = pageOf(index);
    return page != nullptr && page->has(index) ? &page->keys[index % pageKeys] : nullptr;
  }
  // True when the index had no key.
  bool insertOrAssign(Vane::U32 index, const Key& key) {
    Page& page = pageFor(index);
    const bool isNew = !page.has(index);
    page.keys[index % pageKeys] = key;
    page.used |= bitOf(index);
    size_ += isNew ? 1 : 0;
    return isNew;
  }
  // True when the index had a key.
  bool erase(Vane::U32 index) {
    Page* const page = pageOf(index);
    if (page == nullptr || !page->has(index)) {
      return false;
    }
    page->used &= ~bitOf(index);
    --size_;
    if (page->used == 0) {
      pages_.erase(index / pageKeys);
      last_ = nullptr;
    }
    return true;
  }
  // All members, as they are now.
  std::vector<Member> all() const {
    std::vector<Member> members;
    members.reserve(size_);
    for (const auto& entry : pages_.all()) {
      for (Vane::U64 used = entry.value()->used; used != 0; used &= used - 1) {
        const auto at = static_cast<Vane::U32>(std::countr_zero(used));
        members.emplace_back(entry.key() * pageKeys + at, entry.value()->keys[at]);
      }
    }
    return members;
  }

private:
  static constexpr Vane::U32 pageKeys = 64;
  static Vane::U64 bitOf(Vane::U32 index) { return Vane::U64{1} << (index % pageKeys); }

  struct Page {
    bool has(Vane::U32 index) const { return (used & bitOf(index)) != 0; }
    Vane::U64 used = 0; // a bit for each key
    std::array<Key, pageKeys> keys;
  };
  // Owned by the map, which copies its values while it inserts.
  using Held = std::shared_ptr<Page>;

  Page* pageOf(Vane::U32 index) const {
    const Vane::U32 number = index / pageKeys;
    if (last_ == nullptr || lastNumber_ != number) {
      const Held* const held = pages_.find(number);
      if (held == nullptr) {
        return nullptr;
      }
      last_ = held->get();
      lastNumber_ = number;
    }
    return last_;
  }
  Page& pageFor(Vane::U32 index) {
    if (Page* const page = pageOf(index)) {
      return *page;
    }
    const Held made = std::make_shared<Page>();
    pages_.insert(index / pageKeys, made);
    return *made;
  }

  Vane::HashMap2018<Vane::U32, Held> pages_; // by index / pageKeys
  std::size_t size_ = 0;
  // The page that was found last; most entries come one behind the other.
  mutable Page* last_ = nullptr;
  mutable Vane::U32 lastNumber_ = 0;
};

} // namespace XpLib
