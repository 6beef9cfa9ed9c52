#include "Kel/ActivityManager.h"

#include <time.h>

#include <cmath>

#include "Kel/Allocate.h"
#include "Kel/System.h"

namespace Kel {

ActivityManager::ActivityManager() : config_(allocate<Clock>(Name("activityManagerClock"))) {}

ActivityManager* activityManager() {
  // Never destroyed: reactors released by static destructors may still talk to the clock.
  static ActivityManager* manager = new ActivityManager;
  return manager;
}

std::size_t ActivityManager::countedPass() {
  std::size_t ran = clock()->runPass(System::currentTime());
  if (ran) ++passes_;
  return ran;
}

std::size_t ActivityManager::runPass() {
  return countedPass();
}

void ActivityManager::advanceTo(double t) {
  if (System::virtualTime()) {
    System::virtualTimeAdvanceTo(t);
    return;
  }
  for (double now = System::currentTime(); now < t; now = System::currentTime()) {
    double wait = t - now;
    timespec ts;
    ts.tv_sec = static_cast<time_t>(wait);
    ts.tv_nsec = static_cast<long>((wait - std::floor(wait)) * 1e9);
    nanosleep(&ts, nullptr);
  }
}

std::size_t ActivityManager::runNextPass() {
  if (clock()->idle()) return 0;
  advanceTo(clock()->nextTime());
  return countedPass();
}

std::size_t ActivityManager::runUntilRest(std::uint64_t maxPasses) {
  std::size_t ran = 0;
  for (std::uint64_t pass = 0; pass < maxPasses; ++pass) {
    if (clock()->idle() || clock()->nextTime() > System::currentTime()) break;
    ran += countedPass();
  }
  return ran;
}

}  // namespace Kel
