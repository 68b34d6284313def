#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace agent {

// A value for each row of a table. Most rows of most tables are never used: the memory for their values is
// taken at the start, so that none is needed when a row is, but it is not touched before, and so costs a
// process that starts no page of its own.
template <typename Value>
class RowArray {
public:
  RowArray() = default;
  // Of `rows` rows without value. Raises std::bad_alloc.
  explicit RowArray(uint32_t rows) : made_(rows), memory_(allocate(rows)) {}
  RowArray(RowArray&& other) noexcept { swap(other); }
  RowArray& operator=(RowArray other) noexcept {
    swap(other);
    return *this;
  }
  ~RowArray() {
    for (uint32_t row = 0; row < size(); ++row) {
      valueDel(row);
    }
  }

  uint32_t size() const { return static_cast<uint32_t>(made_.size()); }
  // The value of a row below size(); a default one for a row without.
  const Value& operator[](uint32_t row) const { return made_[row] ? *at(row) : none(); }
  // Rows are below size().
  void valueIs(uint32_t row, Value&& value) {
    if (made_[row]) {
      *at(row) = std::move(value);
    } else {
      new (at(row)) Value(std::move(value));
      made_[row] = true;
    }
  }
  void valueDel(uint32_t row) {
    if (made_[row]) {
      made_[row] = false;
      std::destroy_at(at(row));
    }
  }

private:
  struct Free {
    void operator()(void* memory) const { ::operator delete(memory); }
  };

  static void* allocate(uint32_t rows) {
    static_assert(alignof(Value) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    return ::operator new (std::size_t{rows} * sizeof(Value));
  }
  static const Value& none() {
    static const Value value;
    return value;
  }
  Value* at(uint32_t row) const { return static_cast<Value*>(memory_.get()) + row; }
  void swap(RowArray& other) noexcept {
    made_.swap(other.made_);
    memory_.swap(other.memory_);
  }

  std::vector<bool> made_; // by row
  std::unique_ptr<void, Free> memory_;
};

} // namespace agent
