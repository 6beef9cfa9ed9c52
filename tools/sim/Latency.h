#ifndef MORVIK_SIM_LATENCY_H
#define MORVIK_SIM_LATENCY_H

#include "CycleFigures.h"
#include "Report.h"

namespace MorvikSim {

// Times doWrite for as long as it lives: the block timer on doWrite's call site hands it every
// call's elapsed cycles. One at a time, on the activity thread.
class LatencyRecorder {
 public:
  LatencyRecorder();
  ~LatencyRecorder();
  LatencyRecorder(const LatencyRecorder&) = delete;
  LatencyRecorder& operator=(const LatencyRecorder&) = delete;

  // The figures so far, in nanoseconds.
  LatencyFigures doWrite() const;

 private:
  CycleFigures cycles_;
};

}  // namespace MorvikSim

#endif
