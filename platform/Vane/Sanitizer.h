#pragma once

// Memory that a container holds but that no member uses is marked, so that the address sanitizer sees stale
// uses of it. Nothing is left of this in other builds.

#if defined(__SANITIZE_ADDRESS__)
#define VANE_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VANE_SANITIZED 1
#endif
#endif

#ifdef VANE_SANITIZED
#include <sanitizer/asan_interface.h>
#define VANE_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#define VANE_UNPOISON(address, size) ASAN_UNPOISON_MEMORY_REGION(address, size)
#else
#define VANE_POISON(address, size) static_cast<void>(0)
#define VANE_UNPOISON(address, size) static_cast<void>(0)
#endif
