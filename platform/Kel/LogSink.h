#ifndef KEL_LOGSINK_H
#define KEL_LOGSINK_H

#include <string>

#include "Kel/Types.h"

namespace Kel {

// Receives emitted log messages in place of standard error. Sinks stack like trace sinks: the
// one installed last receives the messages.
class LogSink {
 public:
  struct Entry {
    std::string name;
    int severity;
    std::string message;
    int count;
    U32 hash;
  };

  virtual ~LogSink() = default;
  // Called under the log output lock, one message at a time; it must not log.
  virtual void entryIs(const Entry& entry) = 0;

  static void install(LogSink* sink);
  static void uninstall(LogSink* sink);
  // Hands entry to the sink in force, or writes it to standard error.
  static void deliver(const Entry& entry);
};

}  // namespace Kel

#endif
