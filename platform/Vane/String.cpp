#include "Vane/String.h"

#include "Vane/Assert.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <string>

namespace Vane {

const char String::noText_[1] = {'\0'};

String::Body* String::newBody(std::size_t size) {
  VANE_ASSERT(size <= std::numeric_limits<U32>::max());
  void* memory = PtrInterface::vaneMemAlloc(sizeof(Body) + size + 1);
  Body* body = new (memory) Body{1, static_cast<U32>(size), 0};
  body->chars()[size] = '\0';
  return body;
}

void String::freeBody(Body* body) noexcept {
  PtrInterface::vaneMemFree(body);
}

String::String(std::string_view text) {
  if (!text.empty()) {
    body_ = newBody(text.size());
    std::memcpy(body_->chars(), text.data(), text.size());
  }
}

String String::concatenated(std::string_view a, std::string_view b) {
  String result;
  if (!a.empty() || !b.empty()) {
    result.body_ = newBody(a.size() + b.size());
    a.copy(result.body_->chars(), a.size());
    b.copy(result.body_->chars() + a.size(), b.size());
  }
  return result;
}

String& String::operator+=(const String& other) {
  if (empty()) {
    return *this = other;
  }
  if (!other.empty()) {
    *this = concatenated(view(), other.view());
  }
  return *this;
}

U32 String::hash() const {
  if (body_ == nullptr) {
    return 0;
  }
  // Two threads that share the string compute the same value, so either store may win.
  std::atomic_ref<U32> cached(body_->hash);
  U32 value = cached.load(std::memory_order_relaxed);
  if (value == 0) {
    Hash hash;
    hash.mixBytes(view());
    value = hash.result();
    cached.store(value, std::memory_order_relaxed);
  }
  return value;
}

String format(const char* fmt, ...) {
  char small[256];
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  const int size = std::vsnprintf(small, sizeof small, fmt, args);
  va_end(args);
  String result;
  if (size >= 0 && static_cast<std::size_t>(size) < sizeof small) {
    result = String(std::string_view(small, static_cast<std::size_t>(size)));
  } else if (size >= 0) {
    std::string large(static_cast<std::size_t>(size) + 1, '\0');
    std::vsnprintf(large.data(), large.size(), fmt, again);
    large.pop_back();
    result = String(std::string_view(large));
  }
  va_end(again);
  return result;
}

} // namespace Vane
