// The time-stamp counter and its rate, so that timed blocks cost a counter read at each end.
#pragma once

#include <chrono>
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace Tralux {

// Not serialising: a timed block may be off by a few cycles at each end, which is the price of
// keeping the hot path to one instruction.
inline std::uint64_t readTsc() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

// Counter ticks per nanosecond, measured against steady_clock on first use and then cached.
double cyclesPerNanosecond();

double cyclesToNanoseconds(double cycles);

}  // namespace Tralux
