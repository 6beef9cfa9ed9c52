#ifndef KEL_TRACESINK_H
#define KEL_TRACESINK_H

#include <mutex>
#include <string>

namespace Kel {

// Receives trace lines in place of the file or standard error, one entry per line. Sinks stack:
// the one installed last receives the lines, and removing it (in any order) uncovers the others.
class TraceSink {
 public:
  struct Entry {
    std::string handle;
    int level;
    std::string file;
    int line;
    std::string function;
    std::string text;
  };

  virtual ~TraceSink() = default;
  // Called with the output lock held, so entries arrive one at a time and in emission order. It
  // must not trace.
  virtual void entryIs(const Entry& entry) = 0;

  // The lock every trace line is written under.
  static std::mutex& outputMutex();
  // The sink in force, or null; read it with the output lock held.
  static TraceSink* installed();
  static void install(TraceSink* sink);
  static void uninstall(TraceSink* sink);
};

}  // namespace Kel

#endif
