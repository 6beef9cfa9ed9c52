#include "Kel/System.h"

#include <time.h>

#include <atomic>

namespace Kel {

namespace {
std::atomic<bool> virtualOn{false};
std::atomic<double> virtualNow{0.0};

double monotonicNow() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}
}  // namespace

double System::currentTime() {
  return virtualOn.load(std::memory_order_relaxed) ? virtualNow.load(std::memory_order_relaxed)
                                                   : monotonicNow();
}

bool System::virtualTime() {
  return virtualOn.load();
}

void System::virtualTimeIs(bool on) {
  if (on == virtualOn.load()) return;
  if (on) virtualNow.store(monotonicNow());
  virtualOn.store(on);
}

void System::virtualTimeIs(bool on, double start) {
  virtualNow.store(start);
  virtualOn.store(on);
}

void System::virtualTimeAdvanceTo(double t) {
  double now = virtualNow.load();
  while (t > now && !virtualNow.compare_exchange_weak(now, t)) {
  }
}

}  // namespace Kel
