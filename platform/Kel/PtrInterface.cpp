#include "Kel/PtrInterface.h"

#include <new>
#include <typeinfo>

#include "Kel/AllocTracker.h"

namespace Kel {

bool VFPtrInterface::enableThreadSafePointers = false;

namespace {
std::atomic_ref<std::uint32_t> atomicWord(std::uint32_t& word) {
  return std::atomic_ref<std::uint32_t>(word);
}
}  // namespace

std::uint32_t PtrInterface::word() const {
  if (VFPtrInterface::enableThreadSafePointers) {
    return atomicWord(referenceWord_).load(std::memory_order_acquire);
  }
  return referenceWord_;
}

void PtrInterface::newRef() const {
  if (VFPtrInterface::enableThreadSafePointers) {
    atomicWord(referenceWord_).fetch_add(1, std::memory_order_relaxed);
  } else {
    ++referenceWord_;
  }
}

void PtrInterface::deleteRef() const {
  std::uint32_t after;
  if (VFPtrInterface::enableThreadSafePointers) {
    after = atomicWord(referenceWord_).fetch_sub(1, std::memory_order_acq_rel) - 1;
  } else {
    after = --referenceWord_;
  }
  if ((after & kCountMask) == 0) handleZeroRef();
}

void PtrInterface::handleZeroRef() const {
  auto* self = const_cast<PtrInterface*>(this);
  // Hold a reference of our own while notifiees hear of the end: a handler that copies and drops a
  // pointer to us must not start a second disposal, and one that keeps a pointer revives us.
  newRef();
  self->zeroReferencesIs(true);
  std::uint32_t after;
  if (VFPtrInterface::enableThreadSafePointers) {
    after = atomicWord(referenceWord_).fetch_sub(1, std::memory_order_acq_rel) - 1;
  } else {
    after = --referenceWord_;
  }
  if ((after & kCountMask) == 0) self->maybeDelete();
}

void PtrInterface::maybeDelete() {
  AllocTracker::trackDeallocation(typeid(*this));
  delete this;
}

void PtrInterface::hasNotificationActiveIs(bool active) {
  flagBitIs(kNotificationActiveBit, active);
}

void PtrInterface::zombieBitIs(bool zombie) {
  flagBitIs(kZombieBit, zombie);
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

void* PtrInterface::kelMemAlloc(std::size_t size) {
  return ::operator new(size);
}

void PtrInterface::kelMemFree(void* memory) {
  ::operator delete(memory);
}

}  // namespace Kel
