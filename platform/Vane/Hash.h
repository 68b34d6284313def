#pragma once

#include "Vane/Types.h"

#include <array>
#include <concepts>
#include <cstddef>
#include <string_view>
#include <type_traits>

namespace Vane {

class Hash;

template <typename T>
concept MixesItself = requires(const T& value, Hash& hash) {
  value.vaneMix(hash);
};

template <typename T>
concept HasHash = requires(const T& value) {
  { value.hash() } -> std::convertible_to<U32>;
};

// Bob Jenkins's one-at-a-time hash (Dr. Dobb's Journal, September 1997) over a sequence of fields.
// Integers, booleans (one byte) and enumerations enter with their bytes, low byte first; byte arrays
// in their order; value types field by field, as if their fields stood in the sequence themselves;
// any other type that has a hash() with the four bytes of that.
class Hash {
public:
  template <typename T>
  constexpr void mix(const T& value) { // adds a value of any hashable type
    if constexpr (std::is_same_v<T, bool>) {
      mixByte(value ? 1 : 0);
    } else if constexpr (std::is_enum_v<T>) {
      mix(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_integral_v<T>) {
      const auto word = static_cast<std::make_unsigned_t<T>>(value);
      for (unsigned byte = 0; byte < sizeof(T); ++byte) {
        mixByte(static_cast<U8>(static_cast<U64>(word) >> (8 * byte)));
      }
    } else if constexpr (MixesItself<T>) {
      value.vaneMix(*this);
    } else {
      static_assert(HasHash<T>, "a hashed type has a hash()");
      mix(static_cast<U32>(value.hash()));
    }
  }

  template <std::size_t N>
  constexpr void mix(const std::array<U8, N>& bytes) { // adds bytes, in their order
    for (const U8 byte : bytes) {
      mixByte(byte);
    }
  }

  constexpr void mixBytes(std::string_view bytes) { // adds bytes, in their order
    for (const char byte : bytes) {
      mixByte(static_cast<U8>(byte));
    }
  }

  constexpr U32 result() const {
    U32 hash = hash_;
    hash += hash << 3;
    hash ^= hash >> 11;
    hash += hash << 15;
    return hash;
  }

private:
  constexpr void mixByte(U8 byte) {
    hash_ += byte;
    hash_ += hash_ << 10;
    hash_ ^= hash_ >> 6;
  }

  U32 hash_ = 0;
};

// The hash under which collections file a key: its own hash() when it has one.
template <typename T>
constexpr U32 hashOf(const T& value) {
  if constexpr (HasHash<T>) {
    return value.hash();
  } else {
    Hash hash;
    hash.mix(value);
    return hash.result();
  }
}

// ------------------------------------------------------------------------- places in hash maps

// A number that tells most values of a type apart, whatever its bits: a number itself, or what the type gives
// as value() or vaneNumber(); of a value type all fields together; of other types the hash.
template <typename T>
constexpr U64 slotNumber(const T& value) {
  if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    return static_cast<U64>(value);
  } else if constexpr (requires { requires std::is_integral_v<decltype(value.value())>; }) {
    return static_cast<U64>(value.value());
  } else if constexpr (requires { requires std::is_integral_v<decltype(value.vaneNumber())>; }) {
    return static_cast<U64>(value.vaneNumber());
  } else if constexpr (requires { T::vanePacks; }) {
    U64 mixed = 0;
    T::vaneEach(value, [&mixed](const auto& field) {
      mixed = (mixed ^ slotNumber(field)) * 0x9E3779B97F4A7C15u;
      mixed ^= mixed >> 32;
    });
    return mixed;
  } else {
    return hashOf(value);
  }
}

// The slots of a grid's keys: of a VLAN at a port, say, whose rows are mostly gone through from end to end.
// Eight neighbours of a row, from a multiple of eight on, have every other slot of sixteen, which is one line
// of the cache; the lines of a row follow each other with an odd factor, and rows begin 521 lines apart (a
// prime, where 4,096 columns take 512), so that neither full rows nor single columns meet.
constexpr U32 slotOfGrid(U32 row, U32 column) {
  const U32 line = (row * 521 + column / 8) * 0x9E3779B1u;
  return line << 4 | ((2 * (column % 8) + (line >> 28)) & 15);
}

// Whose lower bits choose the slot of a key: what vaneSlot(key) says where there is one, else cheaper than
// hashOf(), which many read. Numbers mostly come in long rows (of counters, of lines), odd ones perhaps: an
// odd factor gives each of a row its own slot and leaves free ones everywhere between them. The shifted parts
// spread numbers in steps of a power of two.
template <typename T>
constexpr U32 slotOf(const T& key) {
  if constexpr (requires { vaneSlot(key); }) {
    return vaneSlot(key);
  } else if constexpr (requires { T::vanePacks; }) {
    return static_cast<U32>(slotNumber(key));
  } else {
    const U64 number = slotNumber(key);
    return static_cast<U32>(number + (number >> 8) + (number >> 16)) * 0x9E3779B1u;
  }
}

} // namespace Vane
