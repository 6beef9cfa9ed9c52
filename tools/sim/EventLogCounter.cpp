#include "EventLogCounter.h"

#include "Monitor.h"

namespace MorvikSim {

EventLogCounter::EventLogCounter(Monitor& monitor) : monitor_(monitor) {
  Kel::LogSink::install(this);
}

EventLogCounter::~EventLogCounter() {
  Kel::LogSink::uninstall(this);
}

void EventLogCounter::entryIs(const Entry&) {
  monitor_.eventLog();
}

}  // namespace MorvikSim
