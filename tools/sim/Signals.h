#ifndef MORVIK_SIM_SIGNALS_H
#define MORVIK_SIM_SIGNALS_H

namespace MorvikSim {

// The run's answers to signals: SIGINT and SIGTERM ask for an early switchover, SIGUSR1 for a
// corruption now; the loop polls both. An abort (a failed assertion in the library) removes the
// run's shared memory on the way out, while the run owns it.
class Signals {
 public:
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  static bool stopRequested();
  // True once per SIGUSR1 received.
  static bool takeCorruptRequest();
  static void regionsOwnedIs(bool owned);
};

}  // namespace MorvikSim

#endif
