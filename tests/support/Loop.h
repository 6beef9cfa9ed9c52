#ifndef TESTS_SUPPORT_LOOP_H
#define TESTS_SUPPORT_LOOP_H

#include <cstddef>
#include <cstdint>
#include <limits>

#include "Kel/ActivityManager.h"
#include "Kel/System.h"

// How tests drive the activity loop on virtual time.
namespace KelTest {

// Runs every pass due up to time t, then leaves the time at t (it never moves backwards).
inline std::size_t runUntil(double t) {
  Kel::ActivityManager& manager = *Kel::activityManager();
  std::size_t ran = 0;
  while (!manager.clock()->idle() && manager.clock()->nextTime() <= t) ran += manager.runNextPass();
  Kel::System::virtualTimeAdvanceTo(t);
  return ran;
}

// Runs passes until nothing is requested any more, or maxPasses passes have run.
inline std::size_t runUntilIdle(
    std::uint64_t maxPasses = std::numeric_limits<std::uint64_t>::max()) {
  std::size_t ran = 0;
  for (std::uint64_t pass = 0; pass < maxPasses && !Kel::activityManager()->clock()->idle(); ++pass)
    ran += Kel::activityManager()->runNextPass();
  return ran;
}

}  // namespace KelTest

#endif
