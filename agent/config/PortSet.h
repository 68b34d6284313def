#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

namespace agent {

struct PortRange { // both ends included, host byte order
  uint16_t low = 0;
  uint16_t high = 65535;
  bool operator==(const PortRange&) const = default;
};

// Ranges of ports: sorted, disjoint, not adjacent, once normalized (PortSets.h). {0..65535} alone is "any";
// empty matches nothing ("lt 0", "gt 65535").
//
// Each line of a list has two of them, and nearly all of those are one range, which stands in the set itself:
// reading ten thousand lines takes twenty thousand allocations less than with vectors. Used like a vector;
// ranges move, and iterators end, when one is added.
class PortSet {
public:
  using value_type = PortRange;
  using iterator = PortRange*;
  using const_iterator = const PortRange*;

  PortSet() = default;
  PortSet(std::initializer_list<PortRange> ranges) : PortSet(ranges.begin(), ranges.end()) {}
  PortSet(const std::vector<PortRange>& ranges) : PortSet(ranges.data(), ranges.data() + ranges.size()) {}
  PortSet(const PortSet& other)
      : one_(other.one_), isOne_(other.isOne_),
        several_(other.several_ ? std::make_unique<std::vector<PortRange>>(*other.several_) : nullptr) {}
  PortSet(PortSet&& other) noexcept
      : one_(other.one_), isOne_(std::exchange(other.isOne_, false)), several_(std::move(other.several_)) {}
  PortSet& operator=(PortSet other) noexcept {
    one_ = other.one_;
    isOne_ = other.isOne_;
    several_.swap(other.several_);
    return *this;
  }
  ~PortSet() = default;

  std::size_t size() const { return several_ ? several_->size() : isOne_ ? 1 : 0; }
  bool empty() const { return size() == 0; }
  const_iterator begin() const { return several_ ? several_->data() : &one_; }
  const_iterator end() const { return begin() + size(); }
  iterator begin() { return several_ ? several_->data() : &one_; }
  iterator end() { return begin() + size(); }
  // `index` is below size(); front() and back() want a set that is not empty.
  const PortRange& operator[](std::size_t index) const { return begin()[index]; }
  const PortRange& front() const { return *begin(); }
  const PortRange& back() const { return end()[-1]; }
  PortRange& back() { return end()[-1]; }

  void push_back(const PortRange& range) {
    if (!several_ && !isOne_) {
      one_ = range;
      isOne_ = true;
      return;
    }
    if (!several_) {
      several_ = std::make_unique<std::vector<PortRange>>(1, one_);
    }
    several_->push_back(range);
  }
  void append(const PortSet& other) {
    for (const PortRange& range : other) {
      push_back(range);
    }
  }
  // Takes out the ranges of which `condition` holds.
  template <class Condition>
  void eraseIf(const Condition& condition) {
    if (several_) {
      std::erase_if(*several_, condition);
    } else if (isOne_) {
      isOne_ = !condition(one_);
    }
  }

  bool operator==(const PortSet& other) const {
    return std::equal(begin(), end(), other.begin(), other.end());
  }

private:
  PortSet(const PortRange* from, const PortRange* to) {
    for (; from != to; ++from) {
      push_back(*from);
    }
  }

  PortRange one_; // the range of a set of one
  bool isOne_ = false;
  std::unique_ptr<std::vector<PortRange>> several_; // null, or all ranges
};

inline PortSet anyPort() {
  return {PortRange{0, 65535}};
}
inline bool isAnyPort(const PortSet& ports) {
  return ports.size() == 1 && ports[0] == PortRange{0, 65535};
}

} // namespace agent
