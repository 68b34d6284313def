#pragma once

#include "Vane/Hash.h"
#include "Vane/Ptr.h"
#include "Vane/Types.h"

#include <compare>
#include <cstddef>
#include <iterator>
#include <ostream>
#include <string_view>
#include <utility>

namespace Vane {

// Immutable character string; copies share the characters.
class VANE_API String {
public:
  // A place in a string. A class of its own, so that a pair of places is never taken for two texts.
  class Iter {
  public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Iter() = default;
    explicit Iter(const char* at) : at_(at) {}
    reference operator*() const { return *at_; }
    pointer operator->() const { return at_; }
    reference operator[](difference_type n) const { return at_[n]; }
    Iter& operator++() { return ++at_, *this; }
    Iter operator++(int) { return Iter(at_++); }
    Iter& operator--() { return --at_, *this; }
    Iter operator--(int) { return Iter(at_--); }
    Iter& operator+=(difference_type n) { return at_ += n, *this; }
    Iter& operator-=(difference_type n) { return at_ -= n, *this; }
    friend Iter operator+(Iter iter, difference_type n) { return Iter(iter.at_ + n); }
    friend Iter operator+(difference_type n, Iter iter) { return Iter(iter.at_ + n); }
    friend Iter operator-(Iter iter, difference_type n) { return Iter(iter.at_ - n); }
    friend difference_type operator-(Iter a, Iter b) { return a.at_ - b.at_; }
    auto operator<=>(const Iter&) const = default;

  private:
    const char* at_ = nullptr;
  };
  using const_iterator = Iter;

  String() = default;
  String(const char* text) : String(std::string_view(text)) {}
  String(std::string_view text);
  String(const String& other) : body_(other.body_) { hold(); }
  String(String&& other) noexcept : body_(std::exchange(other.body_, nullptr)) {}
  ~String() { drop(); }
  String& operator=(const String& other) {
    String(other).swap(*this);
    return *this;
  }
  String& operator=(String&& other) noexcept {
    String(std::move(other)).swap(*this);
    return *this;
  }

  // Zero-terminated; valid while a copy of the string lives.
  const char* charPtr() const { return body_ == nullptr ? noText_ : body_->chars(); }
  std::size_t size() const { return body_ == nullptr ? 0 : body_->size; }
  bool empty() const { return body_ == nullptr; }
  std::string_view view() const { return {charPtr(), size()}; }
  Iter begin() const { return Iter(charPtr()); }
  Iter end() const { return Iter(charPtr() + size()); }

  String& operator+=(const String& other);
  friend String operator+(const String& a, const String& b) { return concatenated(a.view(), b.view()); }

  bool operator==(const String& other) const {
    return body_ == other.body_ || (hash() == other.hash() && view() == other.view());
  }
  bool operator<(const String& other) const { return view() < other.view(); }
  bool operator==(const char* other) const { return view() == other; }

  // Over the characters; computed once.
  U32 hash() const;

  void swap(String& other) noexcept { std::swap(body_, other.body_); }

private:
  struct Body {
    U32 references;
    U32 size;
    U32 hash; // 0: not computed yet
    char* chars() { return reinterpret_cast<char*>(this + 1); }
  };
  // From the blocks that objects come from: a label for each counter comes and goes.
  static Body* newBody(std::size_t size);
  static void freeBody(Body* body) noexcept;
  static String concatenated(std::string_view a, std::string_view b);
  void hold() const {
    if (body_ != nullptr) {
      countInc(body_->references);
    }
  }
  void drop() const {
    if (body_ != nullptr && countDec(body_->references) == 0) {
      freeBody(body_);
    }
  }

  // One address for all empty strings, so that begin() and end() agree wherever they are compiled.
  static const char noText_[1];

  Body* body_ = nullptr; // null: the empty string
};

using Name = String;

// Builds a string as printf does.
__attribute__((format(printf, 1, 2))) VANE_API String format(const char* fmt, ...);

inline std::ostream& operator<<(std::ostream& out, const String& text) {
  return out << text.view();
}

} // namespace Vane
