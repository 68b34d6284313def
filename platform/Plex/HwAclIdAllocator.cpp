#include "Plex/HwAclIdAllocator.h"

#include <chrono>

namespace Plex {

Range::Range(Vane::U32 min, Vane::U32 max) : min_(min), max_(max) {
  if (min > max) {
    throw Vane::RangeException("Range::min > Range::max not allowed");
  }
}

double ActivityClock::seconds() const {
  using namespace std::chrono;
  static const auto start = steady_clock::now();
  return duration<double>(steady_clock::now() - start).count();
}

void NumAllocator::configIs(const Range& range, double expiryTime) {
  range_ = range;
  expiryTime_ = expiryTime;
  free_.clear();
  used_.clear();
  released_.clear();
  for (Vane::U32 number = range.min(); number <= range.max(); ++number) {
    free_.insert(free_.end(), number);
  }
}

void NumAllocator::expire() {
  const double now = clock_->seconds();
  while (!released_.empty() && now - released_.front().at >= expiryTime_) {
    free_.insert(released_.front().number);
    released_.pop_front();
  }
}

std::optional<Vane::U32> NumAllocator::allocate() {
  expire();
  if (free_.empty()) {
    return std::nullopt;
  }
  // The node moves over: nothing is allocated between the two sets, so no number is lost to either.
  return *used_.insert(free_.extract(free_.begin())).position;
}

bool NumAllocator::take(Vane::U32 number) {
  expire();
  return used_.insert(free_.extract(number)).inserted;
}

void NumAllocator::release(Vane::U32 number) {
  if (inUse(number)) {
    released_.push_back({clock_->seconds(), number});
    used_.erase(number);
    expire();
  }
}

std::size_t NumAllocator::numFree() const {
  return free_.size();
}

void HwAclIdAllocator::configIs(const Range& range) {
  range_ = range;
}

void HwAclIdAllocator::expiryTimeIs(double seconds) {
  expiryTime_ = seconds;
}

void HwAclIdAllocator::configured() {
  if (numAllocator()) {
    numAllocator()->configIs(range_, expiryTime_);
  }
}

std::optional<Vane::U16> HwAclIdAllocator::allocate() {
  const auto number = numAllocator()->allocate();
  if (!number) {
    return std::nullopt;
  }
  status()->numUsedIs(status()->numUsed() + 1);
  return static_cast<Vane::U16>(*number);
}

void HwAclIdAllocator::release(Vane::U16 id) {
  if (numAllocator()->inUse(id)) {
    numAllocator()->release(id);
    status()->numUsedIs(status()->numUsed() - 1);
  }
}

Vane::U32 HwAclIdAllocator::numFree() const {
  return static_cast<Vane::U32>(numAllocator()->numFree());
}

} // namespace Plex
