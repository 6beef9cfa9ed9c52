#ifndef TESTS_SUPPORT_TIMELINE_H
#define TESTS_SUPPORT_TIMELINE_H

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Kel/LogSink.h"
#include "Kel/System.h"
#include "Kel/TraceSink.h"

namespace MorvikTest {

// The trace lines that begin with a prefix, the emitted logs ("log NAME: message") and the test's
// own events, in the one order in which they happened, each with its framework time.
class Timeline : public Kel::TraceSink, public Kel::LogSink {
 public:
  explicit Timeline(std::string tracePrefix) : prefix_(std::move(tracePrefix)) {
    Kel::TraceSink::install(this);
    Kel::LogSink::install(this);
  }
  ~Timeline() override {
    Kel::LogSink::uninstall(this);
    Kel::TraceSink::uninstall(this);
  }
  void entryIs(const Kel::TraceSink::Entry& entry) override {
    if (entry.text.rfind(prefix_, 0) == 0) add(entry.text);
  }
  void entryIs(const Kel::LogSink::Entry& e) override { add("log " + e.name + ": " + e.message); }
  void add(const std::string& event) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.emplace_back(Kel::System::currentTime(), event);
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
  }
  // The events that begin with prefix, the prefix taken off, and their times.
  std::vector<std::string> of(const std::string& prefix = "") const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> found;
    for (const auto& [time, text] : events_)
      if (text.rfind(prefix, 0) == 0) found.push_back(text.substr(prefix.size()));
    return found;
  }
  std::vector<double> timesOf(const std::string& prefix) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<double> times;
    for (const auto& [time, text] : events_)
      if (text.rfind(prefix, 0) == 0) times.push_back(time);
    return times;
  }

 private:
  std::string prefix_;
  mutable std::mutex mutex_;
  std::vector<std::pair<double, std::string>> events_;
};

}  // namespace MorvikTest

#endif
