#ifndef MORVIK_SIM_FAULTPLAYER_H
#define MORVIK_SIM_FAULTPLAYER_H

#include <map>
#include <vector>

#include "Fault.h"
#include "Kel/Ptr.h"
#include "Rng.h"
#include "SimOptions.h"
#include "Timer.h"

namespace MorvikSim {

class Chassis;
class CorruptionTracker;
class Monitor;

// Plays the fault schedule on the activity loop, and injects a corruption on request. A fault
// that lasts (a silent standby, the standby's memory away) schedules its own end. Each fault
// tells the monitor (timeline, resyncs) and the corruption tracker (what may heal what).
class FaultPlayer {
 public:
  FaultPlayer(Chassis& chassis, Monitor& monitor, CorruptionTracker& tracker,
              const SimOptions& options, const std::vector<Fault>& schedule);
  ~FaultPlayer();
  FaultPlayer(const FaultPlayer&) = delete;
  FaultPlayer& operator=(const FaultPlayer&) = delete;

  void start(double t0);
  void stop();
  // One corruption now, in a feature and at an offset drawn from the seed.
  void corruptNow();

 private:
  enum class Step { corrupt, silentStart, silentEnd, awayStart, awayEnd, chunk };
  struct Action {
    Step step;
    Fault fault;
  };

  void queue(double at, Step step, const Fault& fault);
  void fire();
  void apply(const Action& action, double now);
  void corrupt(const Fault& fault, double now);
  void silent(const Fault& fault, bool on, double now);
  void away(const Fault& fault, double now);
  void back();
  void chunk(const Fault& fault);
  std::size_t featureOf(const Fault& fault);

  Chassis& chassis_;
  Monitor& monitor_;
  CorruptionTracker& tracker_;
  const SimOptions& options_;
  std::vector<Fault> schedule_;
  Rng rng_;
  std::size_t nextChunk_ = 1;
  std::multimap<double, Action> queue_;
  Kel::Ptr<Timer> timer_;
};

}  // namespace MorvikSim

#endif
