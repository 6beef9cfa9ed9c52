#ifndef KEL_SYSTEM_H
#define KEL_SYSTEM_H

namespace Kel {

// The framework's time, in seconds: the real monotonic clock, or a virtual one that only moves
// when the activity loop (or a test) moves it, so hours of chassis time pass without sleeping.
class System {
 public:
  static double currentTime();
  static bool virtualTime();
  // Virtual time starts at the real clock's reading, so times already handed out stay in the past.
  static void virtualTimeIs(bool on);
  // Starts (or restarts) virtual time at a chosen reading, the same on every run.
  static void virtualTimeIs(bool on, double start);
  // Moves virtual time forward; time never moves backwards.
  static void virtualTimeAdvanceTo(double t);
};

}  // namespace Kel

#endif
