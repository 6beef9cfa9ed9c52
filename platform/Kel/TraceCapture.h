#ifndef KEL_TRACECAPTURE_H
#define KEL_TRACECAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "Kel/TraceSink.h"

namespace Kel {

// Records every trace line for as long as it lives, for tests that check traces as behaviour.
// It enables no level: the test decides what is traced. Captures nest; the innermost one
// receives the lines.
class TraceCapture : public TraceSink {
 public:
  TraceCapture();
  ~TraceCapture() override;
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  void entryIs(const Entry& entry) override;

  std::vector<Entry> entries() const;
  std::vector<std::string> texts() const;
  std::size_t size() const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace Kel

#endif
