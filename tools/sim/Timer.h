#ifndef MORVIK_SIM_TIMER_H
#define MORVIK_SIM_TIMER_H

#include <functional>

#include "Kel/Clock.h"
#include "Kel/Ptr.h"

namespace MorvikSim {

// A request on the activity manager's clock that runs a function at a chosen time: how the
// simulator's own activities (workload, faults, samples) share the library's activity loop, and
// so follow virtual time like everything else.
class Timer : public Kel::Clock::NotifieeConst {
 public:
  static Kel::Ptr<Timer> create(std::function<void()> action);

  // Runs the action once the clock reaches t; replaces an earlier request.
  void at(double t) { timeMinIs(t); }
  // Leaves the clock for good: no request of this timer runs any more.
  void stop() { kelDoZombieReactors(true); }

  void onTime() override { action_(); }

  explicit Timer(std::function<void()> action) : action_(std::move(action)) {}

 private:
  std::function<void()> action_;
};

}  // namespace MorvikSim

#endif
