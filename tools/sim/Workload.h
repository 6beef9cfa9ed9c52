#ifndef MORVIK_SIM_WORKLOAD_H
#define MORVIK_SIM_WORKLOAD_H

#include <functional>
#include <vector>

#include "HotZones.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "Records.h"
#include "Rng.h"
#include "SimOptions.h"
#include "Timer.h"

namespace MorvikSim {

class Chassis;
class Monitor;

// The features at work: a Poisson stream of operations at the chosen rate, each on one feature
// picked at random in proportion to its size, through the library's own calls (doWrite, doSet,
// doCopy). Like real feature state, most of a feature is written rarely: most operations land in a
// hot eighth of it. It runs from the activity loop, so it follows virtual time. Everything it does
// is fixed by the seed.
class Workload {
 public:
  Workload(Chassis& chassis, Monitor& monitor, const SimOptions& options);
  ~Workload();
  Workload(const Workload&) = delete;
  Workload& operator=(const Workload&) = delete;

  // Starts the stream after t0. The first operation due at or after stopAt is the active's last:
  // right after it, onStop runs and the stream ends, leaving whatever that operation deferred.
  void start(double t0, double stopAt, std::function<void()> onStop);
  void stop();

 private:
  void tick();
  OpKind pick();
  std::size_t pickFeature();
  void run(OpKind kind, std::size_t feature);
  void smallWrite(std::size_t feature);
  void tableWrite(std::size_t feature);
  void fill(std::size_t feature);
  void move(std::size_t feature);
  void randomBytes(U32 size);
  U32 place(std::size_t feature, U32 size, U32 align);
  void done(OpKind kind, std::size_t feature, U32 offset, U32 size);

  Chassis& chassis_;
  Monitor& monitor_;
  Rng rng_;
  double meanGap_;
  MixWeights mix_;
  U32 smallMax_;
  double locality_;
  std::vector<HotZone> hot_;
  std::vector<U8> buffer_;
  Kel::Ptr<Timer> timer_;
  double next_ = 0.0;
  double stopAt_ = 0.0;
  std::function<void()> onStop_;
};

}  // namespace MorvikSim

#endif
