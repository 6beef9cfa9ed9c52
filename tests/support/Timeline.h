#ifndef TESTS_SUPPORT_TIMELINE_H
#define TESTS_SUPPORT_TIMELINE_H

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Sink.h"
#include "Kel/System.h"

namespace MorvikTest {

// The trace lines that begin with a prefix, the emitted logs ("log NAME: message") and the test's
// own events, in the one order in which they happened, each with its framework time.
class Timeline : public Kel::TraceSink, public Kel::LogSink {
 public:
  explicit Timeline(std::string tracePrefix)
      : prefix_(std::move(tracePrefix)),
        replacedTraces_(Kel::exchangeSink(static_cast<Kel::TraceSink*>(this))),
        replacedLogs_(Kel::exchangeSink(static_cast<Kel::LogSink*>(this))) {}
  ~Timeline() override {
    Kel::exchangeSink(replacedLogs_);
    Kel::exchangeSink(replacedTraces_);
  }
  void entryIs(const Kel::TraceEntry& entry) override {
    if (entry.text.rfind(prefix_, 0) == 0) add(entry.text);
  }
  void entryIs(const Kel::LogEntry& e) override { add("log " + e.name + ": " + e.text); }
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
  // Last, so that the timeline is whole before it is put in force.
  Kel::TraceSink* const replacedTraces_;
  Kel::LogSink* const replacedLogs_;
};

}  // namespace MorvikTest

#endif
