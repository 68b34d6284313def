#include "sim/PortTables.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "Vane/Hash.h"

namespace sim {

using namespace XpXdk;

template <typename Entry>
std::size_t KeyedTable<Entry>::homeOf(uint32_t key) const {
  return Vane::slotOfGrid(key >> 16, key & 0xFFFF) & (places_.size() - 1);
}

// The place where the key stands, or the free one where the search for it ends. Requires places.
template <typename Entry>
std::size_t KeyedTable<Entry>::placeOf(uint32_t key) const {
  std::size_t place = homeOf(key);
  while (places_[place] != 0 && keyOf(*slots_[places_[place] - 1]) != key) {
    place = (place + 1) & (places_.size() - 1);
  }
  return place;
}

// Of a key that stands nowhere; its entry is in the slot.
template <typename Entry>
void KeyedTable<Entry>::enter(uint32_t key, uint32_t index) {
  constexpr std::size_t fewest = 16;
  if (2 * (std::size_t{used_} + 1) > places_.size()) {
    const std::vector<uint32_t> before =
        std::exchange(places_, std::vector<uint32_t>(std::max(fewest, 2 * places_.size())));
    for (const uint32_t place : before) {
      if (place != 0) {
        places_[placeOf(keyOf(*slots_[place - 1]))] = place;
      }
    }
  }
  places_[placeOf(key)] = index + 1;
  ++used_;
}

// Those behind it that were kept from their own place by it move up.
template <typename Entry>
void KeyedTable<Entry>::leave(uint32_t key) {
  const std::size_t mask = places_.size() - 1;
  std::size_t hole = placeOf(key);
  if (places_[hole] == 0) {
    return;
  }
  for (std::size_t at = (hole + 1) & mask; places_[at] != 0; at = (at + 1) & mask) {
    const std::size_t home = homeOf(keyOf(*slots_[places_[at] - 1]));
    if (((at - home) & mask) >= ((at - hole) & mask)) {
      places_[hole] = places_[at];
      hole = at;
    }
  }
  places_[hole] = 0;
  --used_;
}

template <typename Entry>
KeyedTable<Entry>::KeyedTable(std::vector<std::optional<Entry>> slots)
    : capacity_(static_cast<uint32_t>(slots.size())), slots_(std::move(slots)) {
  while (!slots_.empty() && !slots_.back()) {
    slots_.pop_back();
  }
  for (uint32_t index = 0; index < slots_.size(); ++index) {
    if (slots_[index]) {
      if (!indexOf(keyOf(*slots_[index]))) {
        enter(keyOf(*slots_[index]), index);
      }
    }
  }
  for (uint32_t index = 0; index < slots_.size(); ++index) {
    if (!slots_[index]) {
      freed_.push_back(index); // ascending, which is a heap
    }
  }
}

template <typename Entry>
XP_STATUS KeyedTable<Entry>::add(const Entry& entry, uint32_t& index) {
  const uint32_t key = keyOf(entry);
  if (indexOf(key)) {
    return statusDuplicateKey;
  }
  if (freed_.empty() && slots_.size() == capacity()) {
    return statusTableFull;
  }
  if (freed_.empty()) {
    index = static_cast<uint32_t>(slots_.size());
    slots_.emplace_back(entry);
  } else {
    std::pop_heap(freed_.begin(), freed_.end(), std::greater<>());
    index = freed_.back();
    freed_.pop_back();
    slots_[index] = entry;
  }
  enter(key, index);
  return statusOk;
}

template <typename Entry>
XP_STATUS KeyedTable<Entry>::write(uint32_t index, const Entry& entry) {
  if (index >= capacity()) {
    return statusRowOutOfRange;
  }
  if (!isUsed(index)) {
    return statusInvalidArgument;
  }
  const uint32_t oldKey = keyOf(*slots_[index]);
  const uint32_t newKey = keyOf(entry);
  if (oldKey == newKey) {
    slots_[index] = entry;
    return statusOk;
  }
  if (indexOf(newKey)) {
    return statusDuplicateKey;
  }
  leave(oldKey);
  slots_[index] = entry;
  enter(newKey, index);
  return statusOk;
}

template <typename Entry>
XP_STATUS KeyedTable<Entry>::remove(uint32_t index) {
  if (index >= capacity()) {
    return statusRowOutOfRange;
  }
  if (!isUsed(index)) {
    return statusInvalidArgument;
  }
  leave(keyOf(*slots_[index]));
  slots_[index].reset();
  freed_.push_back(index);
  std::push_heap(freed_.begin(), freed_.end(), std::greater<>());
  return statusOk;
}

template <typename Entry>
const Entry* KeyedTable<Entry>::entry(uint32_t index) const {
  return isUsed(index) ? &*slots_[index] : nullptr;
}

template <typename Entry>
const Entry* KeyedTable<Entry>::find(uint32_t key) const {
  const std::optional<uint32_t> index = indexOf(key);
  return index ? &*slots_[*index] : nullptr;
}

template <typename Entry>
std::optional<uint32_t> KeyedTable<Entry>::indexOf(uint32_t key) const {
  const uint32_t found = places_.empty() ? 0 : places_[placeOf(key)];
  return found == 0 ? std::nullopt : std::optional<uint32_t>(found - 1);
}

template <typename Entry>
const char* KeyedTable<Entry>::audit() const {
  std::size_t used = 0;
  for (uint32_t index = 0; index < slots_.size(); ++index) {
    if (!slots_[index]) {
      continue;
    }
    ++used;
    if (indexOf(keyOf(*slots_[index])) != index) {
      return "the key of a used index does not lead back to it";
    }
  }
  if (used != used_) {
    return "a key leads to an index that is not used";
  }
  std::vector<uint32_t> free = freed_;
  std::sort(free.begin(), free.end());
  const bool distinct = std::adjacent_find(free.begin(), free.end()) == free.end();
  const bool unused = std::none_of(free.begin(), free.end(), [this](uint32_t index) {
    return index >= slots_.size() || slots_[index].has_value();
  });
  if (!distinct || !unused || slots_.size() > capacity_ || used + free.size() != slots_.size()) {
    return "the free indexes are not exactly those that are not used";
  }
  return nullptr;
}

template class KeyedTable<xpPortVlanIvifEntry>;
template class KeyedTable<xpEgressBdEvifEntry>;

} // namespace sim
