#include "Kel/TraceSink.h"

#include <algorithm>
#include <vector>

namespace Kel {

namespace {
// Guarded by the output lock; never destroyed, like the lock.
std::vector<TraceSink*>& sinks() {
  static auto* stack = new std::vector<TraceSink*>;
  return *stack;
}
}  // namespace

std::mutex& TraceSink::outputMutex() {
  // Never destroyed: static destructors may still trace while the process exits.
  static auto* mutex = new std::mutex;
  return *mutex;
}

TraceSink* TraceSink::installed() {
  return sinks().empty() ? nullptr : sinks().back();
}

void TraceSink::install(TraceSink* sink) {
  std::lock_guard<std::mutex> lock(outputMutex());
  sinks().push_back(sink);
}

void TraceSink::uninstall(TraceSink* sink) {
  std::lock_guard<std::mutex> lock(outputMutex());
  auto& stack = sinks();
  const auto found = std::find(stack.rbegin(), stack.rend(), sink);
  if (found != stack.rend()) stack.erase(std::next(found).base());
}

}  // namespace Kel
