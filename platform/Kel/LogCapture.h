#ifndef KEL_LOGCAPTURE_H
#define KEL_LOGCAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "Kel/LogSink.h"

namespace Kel {

// Records every emitted log message for as long as it lives, for tests.
class LogCapture : public LogSink {
 public:
  LogCapture();
  ~LogCapture() override;
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void entryIs(const Entry& entry) override;

  std::vector<Entry> entries() const;
  std::vector<std::string> messages() const;
  std::size_t size() const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

}  // namespace Kel

#endif
