#include "Kel/LogCapture.h"

namespace Kel {

LogCapture::LogCapture() {
  install(this);
}

LogCapture::~LogCapture() {
  uninstall(this);
}

void LogCapture::entryIs(const Entry& entry) {
  std::lock_guard<std::mutex> lock(mutex_);
  entries_.push_back(entry);
}

std::vector<LogSink::Entry> LogCapture::entries() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_;
}

std::vector<std::string> LogCapture::messages() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> result;
  result.reserve(entries_.size());
  for (const Entry& entry : entries_) result.push_back(entry.message);
  return result;
}

std::size_t LogCapture::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  entries_.clear();
}

}  // namespace Kel
