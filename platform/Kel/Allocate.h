#ifndef KEL_ALLOCATE_H
#define KEL_ALLOCATE_H

#include <cstddef>
#include <new>
#include <typeinfo>
#include <utility>

#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"

namespace Kel {

// The framework's allocation tracker: allocate reports every counted object it makes, disposal
// every one it ends. The stand-in keeps no books of its own; a process that wants them (a test's
// leak check) installs a recorder before it makes objects.
class AllocTracker {
 public:
  class Recorder {
   public:
    virtual void allocated(const std::type_info& type, std::size_t size) = 0;
    virtual void released(const std::type_info& type) = 0;

   protected:
    ~Recorder() = default;
  };

  static void recorderIs(Recorder* recorder);
  static void trackAllocation(const std::type_info& type, std::size_t size);
  static void trackDeallocation(const std::type_info& type);
};

// The framework's name for the allocation hook.
using AllocTrackTypeInfo = AllocTracker;

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
