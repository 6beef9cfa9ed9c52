#ifndef OSTRA_OSTRAMAPPINGS_H
#define OSTRA_OSTRAMAPPINGS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace ostra {

// The process's live ostra_map results, so that an unmap can be checked before it touches memory.
class MappingRegistry {
 public:
  struct Mapping {
    std::string objectName;
    std::uint32_t length;
    void* base;  // the page-aligned start that mmap returned
    std::size_t mappedBytes;
  };

  static MappingRegistry& instance();

  void add(std::uintptr_t addr, Mapping mapping);
  // Unmaps and forgets the mapping at `addr` if it was made for `objectName` and `length`; false,
  // with nothing unmapped, otherwise.
  bool remove(const std::string& objectName, std::uintptr_t addr, std::uint32_t length);
  std::size_t size() const;

 private:
  MappingRegistry() = default;

  mutable std::mutex mutex_;
  std::map<std::uintptr_t, Mapping> mappings_;
};

}  // namespace ostra

#endif
