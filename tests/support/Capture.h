#ifndef TESTS_SUPPORT_CAPTURE_H
#define TESTS_SUPPORT_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

#include "Kel/Sink.h"

namespace MorvikTest {

// Records every trace line (TraceCapture) or log message (LogCapture) emitted while it lives, in
// place of the sink it replaced, which it puts back when it goes: captures nest. It enables no
// trace level: the test decides what is traced.
template <class Entry>
class Capture : public Kel::Sink<Entry> {
 public:
  Capture() : replaced_(Kel::exchangeSink(static_cast<Kel::Sink<Entry>*>(this))) {}
  ~Capture() override { Kel::exchangeSink(replaced_); }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  void entryIs(const Entry& entry) override {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.push_back(entry);
  }
  std::vector<Entry> entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_;
  }
  std::vector<std::string> texts() const {
    std::vector<std::string> texts;
    for (const Entry& entry : entries()) texts.push_back(entry.text);
    return texts;
  }
  void clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  // Last, so that the capture is whole before it is put in force.
  Kel::Sink<Entry>* const replaced_;
};

using TraceCapture = Capture<Kel::TraceEntry>;
using LogCapture = Capture<Kel::LogEntry>;

}  // namespace MorvikTest

#endif
