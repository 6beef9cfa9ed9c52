#include "EventLogCounter.h"

#include "Monitor.h"

namespace MorvikSim {

EventLogCounter::EventLogCounter(Monitor& monitor)
    : monitor_(monitor), replaced_(Kel::exchangeSink(this)) {}

EventLogCounter::~EventLogCounter() {
  Kel::exchangeSink(replaced_);
}

void EventLogCounter::entryIs(const Kel::LogEntry&) {
  monitor_.eventLog();
}

}  // namespace MorvikSim
