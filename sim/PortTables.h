#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "XpXdk/Managers.h"

// The keyed tables of a chip, ingress port-VLAN and egress BD: entries live at hardware indexes, and the
// hardware finds them by a key of two 16-bit numbers. Index allocation takes the lowest free index.
//
// Invariants (audit()): every used index has a key that no other has, the key leads back to the index,
// and the indexes that are not used are exactly the free ones.

namespace sim {

// `Entry` is an SDK record; `keyOf(entry)` gives its 32-bit key.
template <typename Entry>
class KeyedTable {
public:
  explicit KeyedTable(uint32_t capacity) : capacity_(capacity) { slots_.reserve(capacity); }
  // A table as it was found, whatever stands in it: of entries with equal keys the first is met.
  explicit KeyedTable(std::vector<std::optional<Entry>> slots);

  uint32_t capacity() const { return capacity_; }
  uint32_t used() const { return used_; }

  // Status of the SDK: ok, statusTableFull or statusDuplicateKey.
  XpXdk::XP_STATUS add(const Entry& entry, uint32_t& index);
  // Status: ok, statusRowOutOfRange behind the end, statusInvalidArgument for an unused index, and
  // statusDuplicateKey when another index has the new key.
  XpXdk::XP_STATUS write(uint32_t index, const Entry& entry);
  XpXdk::XP_STATUS remove(uint32_t index);

  // The entry at an index, or null when it is not used or behind the end.
  const Entry* entry(uint32_t index) const;
  // The entry with this key, or null.
  const Entry* find(uint32_t key) const;
  // The index of a key, or nothing.
  std::optional<uint32_t> indexOf(uint32_t key) const;

  // Null when all invariants hold, else the first that is broken.
  const char* audit() const;

private:
  bool isUsed(uint32_t index) const { return index < slots_.size() && slots_[index].has_value(); }
  std::size_t placeOf(uint32_t key) const;
  std::size_t homeOf(uint32_t key) const;
  void enter(uint32_t key, uint32_t index);
  void leave(uint32_t key);

  uint32_t capacity_;
  // As far as indexes were ever used, in memory for all of them: what was never used is never touched, and
  // costs a process that starts no page.
  std::vector<std::optional<Entry>> slots_;
  // Where a key stands: indexes plus 1, 0 for none, from the place that the key's bits tell on. A power of
  // two of places, at most half of them taken.
  std::vector<uint32_t> places_;
  uint32_t used_ = 0; // keys
  // Indexes given back, kept as a heap with the lowest at the front; those from the end of slots_ on were
  // never used.
  std::vector<uint32_t> freed_;
};

constexpr uint32_t portVlanKey(uint16_t vif, uint16_t vlan) { // both in one word
  return uint32_t{vif} << 16 | vlan;
}
constexpr uint32_t keyOf(const XpXdk::xpPortVlanIvifEntry& entry) { // of an entry
  return portVlanKey(entry.keyIvif, entry.keyVlan);
}
constexpr uint32_t keyOf(const XpXdk::xpEgressBdEvifEntry& entry) { // of an entry
  return portVlanKey(entry.egressVif, entry.egressBd);
}

using PortVlanTable = KeyedTable<XpXdk::xpPortVlanIvifEntry>; // by VIF and VLAN
using EgressTable = KeyedTable<XpXdk::xpEgressBdEvifEntry>;   // by VIF and VLAN
extern template class KeyedTable<XpXdk::xpPortVlanIvifEntry>;
extern template class KeyedTable<XpXdk::xpEgressBdEvifEntry>;

} // namespace sim
