#include "sim/PortTables.h"

#include <algorithm>
#include <functional>

namespace sim {

using namespace XpXdk;

template <typename Entry>
KeyedTable<Entry>::KeyedTable(std::vector<std::optional<Entry>> slots) : slots_(std::move(slots)) {
  for (uint32_t index = 0; index < capacity(); ++index) {
    if (slots_[index]) {
      byKey_.emplace(keyOf(*slots_[index]), index);
      nextFresh_ = index + 1;
    }
  }
  for (uint32_t index = 0; index < nextFresh_; ++index) {
    if (!slots_[index]) {
      freed_.push_back(index); // ascending, which is a heap
    }
  }
}

template <typename Entry>
XP_STATUS KeyedTable<Entry>::add(const Entry& entry, uint32_t& index) {
  const uint32_t key = keyOf(entry);
  if (byKey_.contains(key)) {
    return statusDuplicateKey;
  }
  if (used() == capacity()) {
    return statusTableFull;
  }
  if (freed_.empty()) {
    index = nextFresh_++;
  } else {
    std::pop_heap(freed_.begin(), freed_.end(), std::greater<>());
    index = freed_.back();
    freed_.pop_back();
  }
  slots_[index] = entry;
  byKey_.emplace(key, index);
  return statusOk;
}

template <typename Entry>
XP_STATUS KeyedTable<Entry>::write(uint32_t index, const Entry& entry) {
  if (index >= capacity()) {
    return statusRowOutOfRange;
  }
  if (!slots_[index]) {
    return statusInvalidArgument;
  }
  const uint32_t oldKey = keyOf(*slots_[index]);
  const uint32_t newKey = keyOf(entry);
  if (oldKey != newKey) {
    if (!byKey_.emplace(newKey, index).second) {
      return statusDuplicateKey;
    }
    byKey_.erase(oldKey);
  }
  slots_[index] = entry;
  return statusOk;
}

template <typename Entry>
XP_STATUS KeyedTable<Entry>::remove(uint32_t index) {
  if (index >= capacity()) {
    return statusRowOutOfRange;
  }
  if (!slots_[index]) {
    return statusInvalidArgument;
  }
  byKey_.erase(keyOf(*slots_[index]));
  slots_[index].reset();
  freed_.push_back(index);
  std::push_heap(freed_.begin(), freed_.end(), std::greater<>());
  return statusOk;
}

template <typename Entry>
const Entry* KeyedTable<Entry>::entry(uint32_t index) const {
  return index < capacity() && slots_[index] ? &*slots_[index] : nullptr;
}

template <typename Entry>
const Entry* KeyedTable<Entry>::find(uint32_t key) const {
  const auto it = byKey_.find(key);
  return it == byKey_.end() ? nullptr : &*slots_[it->second];
}

template <typename Entry>
std::optional<uint32_t> KeyedTable<Entry>::indexOf(uint32_t key) const {
  const auto it = byKey_.find(key);
  return it == byKey_.end() ? std::nullopt : std::optional<uint32_t>(it->second);
}

template <typename Entry>
const char* KeyedTable<Entry>::audit() const {
  std::size_t used = 0;
  for (uint32_t index = 0; index < capacity(); ++index) {
    if (!slots_[index]) {
      continue;
    }
    ++used;
    if (indexOf(keyOf(*slots_[index])) != index) {
      return "the key of a used index does not lead back to it";
    }
  }
  if (used != byKey_.size()) {
    return "a key leads to an index that is not used";
  }
  std::vector<uint32_t> free = freed_;
  std::sort(free.begin(), free.end());
  const bool distinct = std::adjacent_find(free.begin(), free.end()) == free.end();
  const bool unused = std::none_of(free.begin(), free.end(), [this](uint32_t index) {
    return index >= nextFresh_ || slots_[index].has_value();
  });
  if (!distinct || !unused || used + free.size() != nextFresh_) {
    return "the free indexes are not exactly those that are not used";
  }
  return nullptr;
}

template class KeyedTable<xpPortVlanIvifEntry>;
template class KeyedTable<xpEgressBdEvifEntry>;

} // namespace sim
