#ifndef KEL_ACTIVITYMANAGER_H
#define KEL_ACTIVITYMANAGER_H

// Time and the activity loop, the framework's second layer; it builds on the core (Kel.h).
//  - System::currentTime() is real monotonic time, or virtual time after
//    System::virtualTimeIs(true[, start]), under which the loop jumps to the next requested time
//    instead of sleeping. Time never moves backwards.
//  - Clock::NotifieeConst::timeMinIs(t) asks for one onTime() once the clock reaches t; a new
//    request replaces the earlier one. Only a listed notifiee is scheduled: leaving the list
//    (unregistering, re-pointing, turning zombie, going) withdraws the request, joining restores
//    it.
//  - A pass runs, once each and in order of (time, request order), the requests due when it
//    starts. A request made from inside onTime, even for "now", runs on a later pass: never
//    recursively, never lost. A request withdrawn by an earlier handler of the pass does not run.
//  - The loop: runPass() runs one pass at the current time; runNextPass() moves to the next
//    requested time and runs one pass there (0 when nothing is requested); runUntilRest(max) runs
//    passes at the current time until nothing more is due now. passes() counts the passes that
//    ran something.

#include <cstddef>
#include <cstdint>
#include <limits>

#include "Kel/Clock.h"
#include "Kel/Ptr.h"
#include "Kel/System.h"

namespace Kel {

// The process's single-threaded event loop; everything it runs comes from its clock's notifiees.
class ActivityManager {
 public:
  class Config {
   public:
    explicit Config(Ptr<Clock> clock) : clock_(std::move(clock)) {}
    const Ptr<Clock>& clock() const { return clock_; }

   private:
    Ptr<Clock> clock_;
  };

  ActivityManager();

  Config* config() { return &config_; }
  const Ptr<Clock>& clock() const { return config_.clock(); }

  std::size_t runPass();
  std::size_t runNextPass();
  // A notifiee that re-arms itself for "now" forever keeps this busy, as it would the real loop.
  std::size_t runUntilRest(std::uint64_t maxPasses = std::numeric_limits<std::uint64_t>::max());
  std::uint64_t passes() const { return passes_; }

 private:
  Config config_;
  std::uint64_t passes_ = 0;
};

ActivityManager* activityManager();

}  // namespace Kel

#endif
