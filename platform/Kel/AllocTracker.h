#ifndef KEL_ALLOCTRACKER_H
#define KEL_ALLOCTRACKER_H

#include <cstddef>
#include <typeinfo>

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

}  // namespace Kel

#endif
