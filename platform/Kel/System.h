#ifndef KEL_SYSTEM_H
#define KEL_SYSTEM_H

namespace Kel {

// The framework's time. Two sources stand behind currentTime(): the real monotonic clock, and a
// virtual clock that only moves when the activity loop (or a test) moves it, so that tests and the
// simulator can run hours of chassis time without sleeping.
class System {
 public:
  static double currentTime();

  static bool virtualTime();
  // Switching to virtual time starts it at the real clock's current reading, so times already
  // handed out stay in the past.
  static void virtualTimeIs(bool on);
  // Starts (or restarts) virtual time at a chosen reading: tests want the same times on every run.
  static void virtualTimeIs(bool on, double start);
  // Moves virtual time forward; a request to move it backwards is ignored (time never runs back).
  static void virtualTimeAdvanceTo(double t);
};

}  // namespace Kel

#endif
