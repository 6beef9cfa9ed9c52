#ifndef KEL_ACTIVITYMANAGER_H
#define KEL_ACTIVITYMANAGER_H

#include <cstddef>
#include <cstdint>
#include <limits>

#include "Kel/Clock.h"
#include "Kel/Ptr.h"

namespace Kel {

// The process's single-threaded event loop. Everything it runs comes from its clock's notifiees.
// Under virtual time (System::virtualTimeIs) the loop jumps straight to the next requested time,
// so nothing ever sleeps; under real time it sleeps until then.
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

  // One pass at the current time: runs what is due now, moving no time. Returns how many ran.
  std::size_t runPass();
  // Waits for (or, under virtual time, jumps to) the next requested time and runs one pass there.
  // Returns 0 at once when nothing is requested.
  std::size_t runNextPass();
  // Runs passes at the current time until nothing more is due now (the copier coming to rest,
  // say); time does not move.
  std::size_t runUntilRest(std::uint64_t maxPasses = std::numeric_limits<std::uint64_t>::max());

  // Passes that ran something, since the process started.
  std::uint64_t passes() const { return passes_; }

 private:
  void advanceTo(double t);
  std::size_t countedPass();

  Config config_;
  std::uint64_t passes_ = 0;
};

ActivityManager* activityManager();

}  // namespace Kel

#endif
