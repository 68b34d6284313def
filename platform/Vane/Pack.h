#pragma once

#include "Vane/String.h"
#include "Vane/Types.h"

#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>

// Values as bytes in memory, for a while: kept cheaply, made again by whoever wants to see them. Plain bytes
// are kept as they are, a string by its length and its characters, a value type (Vane/Value.h) field by
// field.

namespace Vane {

template <typename T>
constexpr bool packsOf() {
  if constexpr (std::is_trivially_copyable_v<T> || std::is_same_v<T, String>) {
    return true;
  } else if constexpr (requires { T::vanePacks; }) {
    return T::vanePacks;
  } else {
    return false;
  }
}
// Whether a T can be kept so.
template <typename T>
inline constexpr bool packs = packsOf<T>();

template <typename T>
constexpr std::size_t fixedBytesOf() {
  if constexpr (std::is_same_v<T, String>) {
    return sizeof(U16);
  } else if constexpr (requires { T::vaneFixedBytes; }) {
    return T::vaneFixedBytes;
  } else {
    return sizeof(T);
  }
}
// What every T takes, whatever the characters of its strings.
template <typename T>
inline constexpr std::size_t fixedBytes = fixedBytesOf<T>();

template <typename T>
std::size_t packedSize(const T& value) { // bytes
  if constexpr (std::is_trivially_copyable_v<T>) {
    return sizeof(T);
  } else if constexpr (std::is_same_v<T, String>) {
    return sizeof(U16) + value.size();
  } else {
    std::size_t size = 0;
    T::vaneEach(value, [&size](const auto& field) { size += packedSize(field); });
    return size;
  }
}

// Writes the value to `at` and moves behind it. Strings have less than 65536 characters.
template <typename T>
void pack(std::byte*& at, const T& value) {
  if constexpr (std::is_trivially_copyable_v<T>) {
    std::memcpy(at, &value, sizeof(T));
    at += sizeof(T);
  } else if constexpr (std::is_same_v<T, String>) {
    pack(at, static_cast<U16>(value.size()));
    std::memcpy(at, value.charPtr(), value.size());
    at += value.size();
  } else {
    T::vaneEach(value, [&at](const auto& field) { pack(at, field); });
  }
}

// Reads what pack() wrote.
template <typename T>
void unpack(const std::byte*& at, T& value) {
  if constexpr (std::is_trivially_copyable_v<T>) {
    std::memcpy(&value, at, sizeof(T));
    at += sizeof(T);
  } else if constexpr (std::is_same_v<T, String>) {
    U16 size = 0;
    unpack(at, size);
    value = String(std::string_view(reinterpret_cast<const char*>(at), size));
    at += size;
  } else {
    T::vaneEach(value, [&at](auto& field) { unpack(at, field); });
  }
}

} // namespace Vane
