#include "Tralux/Tsc.h"

#include <ratio>

namespace Tralux {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Long enough to swamp the cost of the clock reads, short enough not to be noticed at start-up.
constexpr auto kCalibrationSpan = std::chrono::milliseconds(2);

double measureCyclesPerNanosecond() {
#if defined(__x86_64__) || defined(__i386__)
  const auto startTime = SteadyClock::now();
  const std::uint64_t startCycles = readTsc();
  auto now = startTime;
  while (now - startTime < kCalibrationSpan) now = SteadyClock::now();
  const std::uint64_t endCycles = readTsc();
  const double nanoseconds = std::chrono::duration<double, std::nano>(now - startTime).count();
  const double rate = static_cast<double>(endCycles - startCycles) / nanoseconds;
  // A counter that stood still or ran backwards would make every figure meaningless; treat it
  // as a nanosecond clock instead of dividing by nonsense.
  return rate > 0.0 ? rate : 1.0;
#else
  // The fallback counter is steady_clock itself, so its rate is known exactly.
  using Period = SteadyClock::period;
  return static_cast<double>(Period::den) / (static_cast<double>(Period::num) * 1e9);
#endif
}

}  // namespace

double cyclesPerNanosecond() {
  static const double rate = measureCyclesPerNanosecond();
  return rate;
}

double cyclesToNanoseconds(double cycles) {
  return cycles / cyclesPerNanosecond();
}

}  // namespace Tralux
