#ifndef MORVIK_SIM_EVENTLOGCOUNTER_H
#define MORVIK_SIM_EVENTLOGCOUNTER_H

#include "Kel/LogSink.h"

namespace MorvikSim {

class Monitor;

// Takes the library's operator event logs ("SSO_DATA_CHECKSUM_ERROR") while it is installed: the
// report counts them, and they stay off the terminal, where they would tear the progress line.
class EventLogCounter : public Kel::LogSink {
 public:
  explicit EventLogCounter(Monitor& monitor);
  ~EventLogCounter() override;
  EventLogCounter(const EventLogCounter&) = delete;
  EventLogCounter& operator=(const EventLogCounter&) = delete;

  void entryIs(const Entry& entry) override;

 private:
  Monitor& monitor_;
};

}  // namespace MorvikSim

#endif
