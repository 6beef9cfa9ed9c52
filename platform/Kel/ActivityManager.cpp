#include "Kel/ActivityManager.h"

#include <time.h>

#include <cmath>

#include "Kel/Allocate.h"

namespace Kel {

namespace {

// Virtual time jumps; real time is slept through.
void advanceTo(double t) {
  if (System::virtualTime()) return System::virtualTimeAdvanceTo(t);
  for (double now = System::currentTime(); now < t; now = System::currentTime()) {
    const double wait = t - now;
    timespec ts{static_cast<time_t>(wait), static_cast<long>((wait - std::floor(wait)) * 1e9)};
    nanosleep(&ts, nullptr);
  }
}

}  // namespace

ActivityManager::ActivityManager() : config_(allocate<Clock>(Name("activityManagerClock"))) {}

ActivityManager* activityManager() {
  // Never destroyed: reactors released by static destructors may still talk to the clock.
  static ActivityManager* manager = new ActivityManager;
  return manager;
}

std::size_t ActivityManager::runPass() {
  std::size_t ran = clock()->runPass(System::currentTime());
  if (ran) ++passes_;
  return ran;
}

std::size_t ActivityManager::runNextPass() {
  if (clock()->idle()) return 0;
  advanceTo(clock()->nextTime());
  return runPass();
}

std::size_t ActivityManager::runUntilRest(std::uint64_t maxPasses) {
  std::size_t ran = 0;
  for (std::uint64_t pass = 0; pass < maxPasses; ++pass) {
    if (clock()->idle() || clock()->nextTime() > System::currentTime()) break;
    ran += runPass();
  }
  return ran;
}

}  // namespace Kel
