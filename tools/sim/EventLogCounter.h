#ifndef MORVIK_SIM_EVENTLOGCOUNTER_H
#define MORVIK_SIM_EVENTLOGCOUNTER_H

#include "Kel/Sink.h"

namespace MorvikSim {

class Monitor;

// Takes the library's operator event logs ("SSO_DATA_CHECKSUM_ERROR") while it lives: the
// report counts them, and they stay off the terminal, where they would tear the progress line.
class EventLogCounter : public Kel::LogSink {
 public:
  explicit EventLogCounter(Monitor& monitor);
  ~EventLogCounter() override;
  EventLogCounter(const EventLogCounter&) = delete;
  EventLogCounter& operator=(const EventLogCounter&) = delete;

  void entryIs(const Kel::LogEntry& entry) override;

 private:
  Monitor& monitor_;
  Kel::LogSink* const replaced_;
};

}  // namespace MorvikSim

#endif
