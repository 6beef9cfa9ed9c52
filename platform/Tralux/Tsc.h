// The time-stamp counter, so that a timed block costs one counter read at each end.
#pragma once

#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#else
#include <chrono>
#endif

namespace Tralux {

// Not serialising: a timed block may be off by a few cycles at each end, which is the price of
// keeping the hot path to one instruction. Elsewhere steady_clock's ticks stand in for cycles.
inline std::uint64_t readTsc() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

}  // namespace Tralux
