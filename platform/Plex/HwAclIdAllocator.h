#pragma once

#include "Acl/AclTypes.h"
#include "Vane/Vane.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>

// Allocation of hardware ACL ids: one allocator for each kind of id.

namespace XpAcl {

// The kinds of hardware ACL ids: port or routed, ingress or egress.
VANE_ENUM(XpAcl, AclIntfTypeAndDir, (portIngress, 0), (portEgress, 1), (routedIngress, 2), (routedEgress, 3))

} // namespace XpAcl

namespace Plex {

// A closed range; min > max raises "Range::min > Range::max not allowed".
class Range {
public:
  Range() = default;
  Range(Vane::U32 min, Vane::U32 max);
  Vane::U32 min() const { return min_; }
  Vane::U32 max() const { return max_; }
  bool contains(Vane::U32 value) const { return value >= min_ && value <= max_; } // both ends included

private:
  Vane::U32 min_ = 0;
  Vane::U32 max_ = 0;
};

// The activity manager's clock: seconds since it started.
class ActivityClock : public Vane::PtrInterface {
public:
  virtual double seconds() const;
};

// Hands out the lowest number of a range that is free; a released number can be handed out again
// when `expiryTime` seconds have passed.
class NumAllocator : public Vane::PtrInterface {
public:
  explicit NumAllocator(const Vane::Ptr<ActivityClock>& clock) : clock_(clock) {}
  void configIs(const Range& range, double expiryTime);
  // Empty when every number is taken.
  std::optional<Vane::U32> allocate();
  // Takes a given number; false when it is taken already or outside the range.
  bool take(Vane::U32 number);
  void release(Vane::U32 number);
  bool inUse(Vane::U32 number) const { return used_.count(number) != 0; }
  std::size_t numFree() const;

private:
  struct Released {
    double at;
    Vane::U32 number;
  };
  void expire();

  Vane::Ptr<ActivityClock> clock_;
  Range range_;
  double expiryTime_ = 0;
  std::set<Vane::U32> free_;
  std::set<Vane::U32> used_;
  std::deque<Released> released_;
};

// How many numbers an allocator has given out.
class HwAclIdAllocatorStatus : public Vane::PtrInterface {
public:
  VANE_ENTITY(Plex, HwAclIdAllocatorStatus, Vane::PtrInterface, SCALAR(Vane::U32, numUsed, NumUsed, 0))
};

class HwAclIdAllocator : public Vane::PtrInterface { // the ids of one kind of ACL
public:
  VANE_ENTITY(Plex, HwAclIdAllocator, Vane::PtrInterface, CONST(XpAcl::AclIntfTypeAndDir, kind),
              PTR(HwAclIdAllocatorStatus, status, Status), PTR(NumAllocator, numAllocator, NumAllocator))

  explicit HwAclIdAllocator(XpAcl::AclIntfTypeAndDir kind) : kind_(kind) {}

  // The range and expiry time (seconds) reach the number allocator when both are set.
  void configIs(const Range& range);
  void expiryTimeIs(double seconds);
  const Range& config() const { return range_; }

  // A free id of the range, or empty when all are in use.
  std::optional<Vane::U16> allocate();
  void release(Vane::U16 id);
  Vane::U32 numFree() const;
  // Hands the configuration to the number allocator; called by whoever has set all of it.
  void configured();

private:
  Range range_;
  double expiryTime_ = 0;
};

} // namespace Plex
