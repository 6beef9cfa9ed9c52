#include "ostra/OstraMappings.h"

#include <sys/mman.h>

#include <utility>

namespace ostra {

MappingRegistry& MappingRegistry::instance() {
  // Never destroyed: a thread may still unmap while the process exits.
  static MappingRegistry* const registry = new MappingRegistry;
  return *registry;
}

void MappingRegistry::add(std::uintptr_t addr, Mapping mapping) {
  const std::lock_guard lock(mutex_);
  mappings_.insert_or_assign(addr, std::move(mapping));
}

bool MappingRegistry::remove(const std::string& objectName, std::uintptr_t addr,
                             std::uint32_t length) {
  // munmap happens under the lock: once it returns, mmap may hand the same address to another
  // thread, whose add must not come before our erase.
  const std::lock_guard lock(mutex_);
  const auto found = mappings_.find(addr);
  if (found == mappings_.end()) return false;
  const Mapping& mapping = found->second;
  if (mapping.objectName != objectName || mapping.length != length) return false;
  if (munmap(mapping.base, mapping.mappedBytes) != 0) return false;
  mappings_.erase(found);
  return true;
}

std::size_t MappingRegistry::size() const {
  const std::lock_guard lock(mutex_);
  return mappings_.size();
}

}  // namespace ostra
