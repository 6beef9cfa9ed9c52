#ifndef KEL_ALLOCTRACKER_H
#define KEL_ALLOCTRACKER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

namespace Kel {

// Counts live reference-counted objects per type. Tests read it to prove that releasing the last
// pointer destroys an object and that a scenario leaks nothing.
class AllocTracker {
 public:
  struct Entry {
    std::string typeName;
    std::int64_t live;
    std::uint64_t allocated;
  };

  static void trackAllocation(const std::type_info& type, std::size_t size);
  static void trackDeallocation(const std::type_info& type);

  static std::int64_t live(const std::type_info& type);
  template <class T>
  static std::int64_t live() {
    return live(typeid(T));
  }
  static std::int64_t totalLive();
  static std::vector<Entry> snapshot();
};

// The framework's name for the allocation hook.
struct AllocTrackTypeInfo {
  static void trackAllocation(const std::type_info& type, std::size_t size) {
    AllocTracker::trackAllocation(type, size);
  }
};

}  // namespace Kel

#endif
