#include "Kel/LogSink.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <string_view>
#include <vector>

namespace Kel {

namespace {

// Both never destroyed: a log handle may still emit from a static destructor at exit.
std::mutex& outputMutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

std::vector<LogSink*>& sinks() {
  static auto* stack = new std::vector<LogSink*>;
  return *stack;
}

std::string formatLine(const LogSink::Entry& entry) {
  std::string line = entry.name + " (severity " + std::to_string(entry.severity) + "): ";
  line += entry.message;
  if (entry.count > 1) line += " (" + std::to_string(entry.count) + " times)";
  line += '\n';
  return line;
}

void writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

void LogSink::install(LogSink* sink) {
  std::lock_guard<std::mutex> lock(outputMutex());
  sinks().push_back(sink);
}

void LogSink::uninstall(LogSink* sink) {
  std::lock_guard<std::mutex> lock(outputMutex());
  auto& stack = sinks();
  const auto found = std::find(stack.rbegin(), stack.rend(), sink);
  if (found != stack.rend()) stack.erase(std::next(found).base());
}

void LogSink::deliver(const Entry& entry) {
  std::lock_guard<std::mutex> lock(outputMutex());
  if (!sinks().empty()) {
    sinks().back()->entryIs(entry);
    return;
  }
  writeAll(STDERR_FILENO, formatLine(entry));
}

}  // namespace Kel
