#include "Kel/PtrInterface.h"

#include <atomic>
#include <new>
#include <typeinfo>

#include "Kel/Allocate.h"

namespace Kel {

bool VFPtrInterface::enableThreadSafePointers = false;

namespace {
std::atomic_ref<std::uint32_t> atomicWord(std::uint32_t& word) {
  return std::atomic_ref<std::uint32_t>(word);
}
std::atomic<AllocTracker::Recorder*> recorder{nullptr};
}  // namespace

std::uint32_t PtrInterface::word() const {
  if (VFPtrInterface::enableThreadSafePointers) {
    return atomicWord(referenceWord_).load(std::memory_order_acquire);
  }
  return referenceWord_;
}

void PtrInterface::atomicAdd(std::uint32_t n) const {
  atomicWord(referenceWord_).fetch_add(n, std::memory_order_relaxed);
}

std::uint32_t PtrInterface::atomicDecrement() const {
  return atomicWord(referenceWord_).fetch_sub(1, std::memory_order_acq_rel) - 1;
}

void PtrInterface::handleZeroRef() const {
  auto* self = const_cast<PtrInterface*>(this);
  // Hold a reference of our own while notifiees hear of the end: a handler that copies and drops a
  // pointer to us must not start a second disposal, and one that keeps a pointer revives us.
  newRef();
  self->zeroReferencesIs(true);
  if ((decrement() & kCountMask) == 0) self->maybeDelete();
}

// The memory came from kelMemAlloc and goes back to it, whatever the object's size.
void PtrInterface::maybeDelete() {
  AllocTracker::trackDeallocation(typeid(*this));
  void* memory = dynamic_cast<void*>(this);
  this->~PtrInterface();
  kelMemFree(memory);
}

void PtrInterface::hasNotificationActiveIs(bool active) {
  flagBitIs(kNotificationActiveBit, active);
}

void PtrInterface::flagBitIs(std::uint32_t bit, bool set) {
  if (VFPtrInterface::enableThreadSafePointers) {
    if (set) {
      atomicWord(referenceWord_).fetch_or(bit, std::memory_order_relaxed);
    } else {
      atomicWord(referenceWord_).fetch_and(~bit, std::memory_order_relaxed);
    }
  } else if (set) {
    referenceWord_ |= bit;
  } else {
    referenceWord_ &= ~bit;
  }
}

void AllocTracker::recorderIs(Recorder* r) {
  recorder.store(r, std::memory_order_release);
}

void AllocTracker::trackAllocation(const std::type_info& type, std::size_t size) {
  if (Recorder* r = recorder.load(std::memory_order_acquire)) r->allocated(type, size);
}

void AllocTracker::trackDeallocation(const std::type_info& type) {
  if (Recorder* r = recorder.load(std::memory_order_acquire)) r->released(type);
}

void* PtrInterface::kelMemAlloc(std::size_t size) {
  return ::operator new(size);
}

void PtrInterface::kelMemFree(void* memory) {
  ::operator delete(memory);
}

}  // namespace Kel
