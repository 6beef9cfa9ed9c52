#include "Timer.h"

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"

namespace MorvikSim {

Kel::Ptr<Timer> Timer::create(std::function<void()> action) {
  Kel::Ptr<Timer> timer = Kel::allocate<Timer>(std::move(action));
  timer->notifierIs(Kel::activityManager()->clock());
  timer->isRegisteredNotifieeIs(true);
  return timer;
}

}  // namespace MorvikSim
