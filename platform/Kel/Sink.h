#ifndef KEL_SINK_H
#define KEL_SINK_H

#include <mutex>
#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace Kel {

// Where trace lines and log messages go: to a trace file or standard error, or, while one is in
// force, to a sink of their kind instead. One sink of each kind is in force at a time; tests put
// one in to capture what is emitted.
template <class Entry>
class Sink {
 public:
  virtual ~Sink() = default;
  // Called with the output lock held, so entries arrive one at a time and in emission order. It
  // must neither trace nor log.
  virtual void entryIs(const Entry& entry) = 0;
};

struct TraceEntry {
  std::string handle;
  int level;
  std::string file;
  int line;
  std::string function;
  std::string text;
};

struct LogEntry {
  std::string name;
  int severity;
  std::string text;
  int count;
  U32 hash;
};

using TraceSink = Sink<TraceEntry>;
using LogSink = Sink<LogEntry>;

// Puts sink in force (null: none) and gives back the one it replaces.
TraceSink* exchangeSink(TraceSink* sink);
LogSink* exchangeSink(LogSink* sink);

// The lock every line is emitted under, so that lines of different threads never interleave.
std::mutex& outputMutex();
// The sinks in force, or null; read them with the output lock held.
TraceSink* traceSink();
LogSink* logSink();
// Writes all of text. Output must never take the process down: a full disk loses the text,
// nothing more.
void writeAll(int fd, std::string_view text);

}  // namespace Kel

#endif
