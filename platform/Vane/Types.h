#pragma once

#include <cstdint>
#include <type_traits>

// Integer names, and how attributes pass and return their values.

// Marks what must be one object in the whole process even when a library that includes these
// headers hides its own symbols.
#define VANE_API __attribute__((visibility("default")))

namespace Vane {

using U8 = std::uint8_t;   // 8 bits without sign
using U16 = std::uint16_t; // 16 bits without sign
using U32 = std::uint32_t; // 32 bits without sign
using U64 = std::uint64_t; // 64 bits without sign

// How a value of type T is handed over: numbers and enumerations by value, the rest by reference.
template <typename T>
using Param = std::conditional_t<std::is_scalar_v<T>, T, const T&>;

} // namespace Vane
