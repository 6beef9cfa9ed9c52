#ifndef KEL_ALLOCATE_H
#define KEL_ALLOCATE_H

#include <new>
#include <typeinfo>
#include <utility>

#include "Kel/AllocTracker.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"

namespace Kel {

// Creates a reference-counted object the framework's way: tracked, constructed in framework
// memory, then notification switched on, in that order.
template <class T, class... Args>
Ptr<T> allocate(Args&&... args) {
  AllocTrackTypeInfo::trackAllocation(typeid(T), sizeof(T));
  void* memory = PtrInterface::kelMemAlloc(sizeof(T));
  T* object;
  try {
    object = new (memory) T(std::forward<Args>(args)...);
  } catch (...) {
    AllocTracker::trackDeallocation(typeid(T));
    PtrInterface::kelMemFree(memory);
    throw;
  }
  Ptr<T> result = Ptr<T>::adopt(object);
  object->hasNotificationActiveIs(true);
  return result;
}

}  // namespace Kel

#endif
