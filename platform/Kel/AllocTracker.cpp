#include "Kel/Allocate.h"

#include <atomic>

namespace Kel {

namespace {
std::atomic<AllocTracker::Recorder*> recorder{nullptr};
}  // namespace

void AllocTracker::recorderIs(Recorder* r) {
  recorder.store(r, std::memory_order_release);
}

void AllocTracker::trackAllocation(const std::type_info& type, std::size_t size) {
  if (Recorder* r = recorder.load(std::memory_order_acquire)) r->allocated(type, size);
}

void AllocTracker::trackDeallocation(const std::type_info& type) {
  if (Recorder* r = recorder.load(std::memory_order_acquire)) r->released(type);
}

}  // namespace Kel
