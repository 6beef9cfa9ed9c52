#include "Kel/TraceCapture.h"

namespace Kel {

TraceCapture::TraceCapture() {
  install(this);
}

TraceCapture::~TraceCapture() {
  uninstall(this);
}

void TraceCapture::entryIs(const Entry& entry) {
  std::lock_guard<std::mutex> lock(mutex_);
  entries_.push_back(entry);
}

std::vector<TraceSink::Entry> TraceCapture::entries() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_;
}

std::vector<std::string> TraceCapture::texts() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> result;
  result.reserve(entries_.size());
  for (const Entry& entry : entries_) result.push_back(entry.text);
  return result;
}

std::size_t TraceCapture::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

void TraceCapture::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  entries_.clear();
}

}  // namespace Kel
