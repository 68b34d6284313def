#include "XpVif/PortVlanMatrix.h"

#include <algorithm>
#include <bit>

namespace XpVif {

Vane::U32 PortVlanMatrix::placeOf(Vane::U32 port) const {
  if (lastPlace_ == none || lastPort_ != port) {
    const auto found = places_.find(port);
    if (found == places_.end()) {
      return none;
    }
    lastPort_ = port;
    lastPlace_ = found->second;
  }
  return lastPlace_;
}

// All memory is taken before the place is.
Vane::U32 PortVlanMatrix::placeFor(Vane::U32 port) {
  if (const Vane::U32 place = placeOf(port); place != none) {
    return place;
  }
  if (freePlaces_.empty()) {
    const auto place = static_cast<Vane::U32>(ports_.size());
    if (place / groupPorts == groups_.size()) {
      groups_.push_back(std::make_unique<Group>());
    }
    if (ports_.size() == ports_.capacity()) {
      ports_.reserve(2 * ports_.size() + 1);
    }
    freePlaces_.reserve(ports_.capacity()); // a port that leaves must not need memory
    places_.emplace(port, place);
    ports_.emplace_back();
    return place;
  }
  const Vane::U32 place = freePlaces_.back();
  places_.emplace(port, place);
  freePlaces_.pop_back();
  return place;
}

void PortVlanMatrix::pairIs(Vane::U32 port, Vane::U16 vlan) {
  const Vane::U32 place = placeFor(port);
  Vane::U64& word = wordOf(place, vlan);
  if ((word & bitOf(place)) != 0) {
    return;
  }
  word |= bitOf(place);
  Port& held = ports_[place];
  held.code = port;
  ++held.count;
  held.low = std::min(held.low, vlan);
  held.high = std::max(held.high, vlan);
}

void PortVlanMatrix::pairDel(Vane::U32 port, Vane::U16 vlan) {
  const Vane::U32 place = placeOf(port);
  if (place == none || (wordOf(place, vlan) & bitOf(place)) == 0) {
    return;
  }
  wordOf(place, vlan) &= ~bitOf(place);
  if (--ports_[place].count == 0) {
    ports_[place] = Port();
    places_.erase(port);
    freePlaces_.push_back(place);
    lastPlace_ = none;
  }
}

std::vector<Vane::U16> PortVlanMatrix::vlansOf(Vane::U32 port) const {
  std::vector<Vane::U16> found;
  const Vane::U32 place = placeOf(port);
  if (place != none) {
    const Port& held = ports_[place];
    const Group& group = *groups_[place / groupPorts];
    found.reserve(held.count);
    for (Vane::U32 vlan = held.low; vlan <= held.high && found.size() < held.count; ++vlan) {
      if ((group[vlan] & bitOf(place)) != 0) {
        found.push_back(static_cast<Vane::U16>(vlan));
      }
    }
  }
  return found;
}

std::vector<Vane::U32> PortVlanMatrix::portsOf(Vane::U16 vlan) const {
  std::vector<Vane::U32> found;
  for (Vane::U32 group = 0; group < groups_.size(); ++group) {
    for (Vane::U64 word = (*groups_[group])[vlan]; word != 0; word &= word - 1) {
      found.push_back(ports_[group * groupPorts + static_cast<Vane::U32>(std::countr_zero(word))].code);
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

} // namespace XpVif
