#include "ostra/ostra.h"

#include <sys/mman.h>

#include <map>
#include <mutex>
#include <string>

#include "ostra/OstraKey.h"
#include "ostra/OstraRegion.h"

namespace {

// The process's live ostra_map results, so that an unmap can be checked before it touches memory.
struct Mapping {
  std::string objectName;
  std::uint32_t length;
  void* base;  // the page-aligned start that mmap returned
  std::size_t mappedBytes;
};

struct Mappings {
  std::mutex mutex;
  std::map<std::uintptr_t, Mapping> byAddress;
};

Mappings& mappings() {
  // Never destroyed: a thread may still unmap while the process exits.
  static Mappings* const live = new Mappings;
  return *live;
}

std::uintptr_t mapRange(const ostra::RegionKey& key, const ostra::Region& region, bool writable,
                        std::uint32_t byteOffset, std::uint32_t length) {
  const std::uint64_t firstPage = byteOffset / ostra::pageBytes() * ostra::pageBytes();
  const std::uint64_t mappedBytes = std::uint64_t{byteOffset} + length - firstPage;
  const int prot = writable ? PROT_READ | PROT_WRITE : PROT_READ;
  const auto fileOffset = static_cast<off_t>(region.info().dataOffset + firstPage);
  void* base = mmap(nullptr, mappedBytes, prot, MAP_SHARED, region.fd(), fileOffset);
  if (base == MAP_FAILED) return 0;
  const auto addr = reinterpret_cast<std::uintptr_t>(base) + (byteOffset - firstPage);
  const std::lock_guard lock(mappings().mutex);
  mappings().byAddress.insert_or_assign(addr, Mapping{key.objectName, length, base, mappedBytes});
  return addr;
}

// Unmaps and forgets the mapping at `addr` if it was made for `objectName` and `length`.
bool unmapRange(const std::string& objectName, std::uintptr_t addr, std::uint32_t length) {
  // munmap happens under the lock: once it returns, mmap may hand the same address to another
  // thread, whose entry must not come before our erase.
  const std::lock_guard lock(mappings().mutex);
  const auto found = mappings().byAddress.find(addr);
  if (found == mappings().byAddress.end()) return false;
  const Mapping& mapping = found->second;
  if (mapping.objectName != objectName || mapping.length != length) return false;
  if (munmap(mapping.base, mapping.mappedBytes) != 0) return false;
  mappings().byAddress.erase(found);
  return true;
}

}  // namespace

extern "C" {

uintptr_t ostra_map(const char* name, int writable, uint32_t byteOffset, uint32_t length) {
  const auto key = ostra::currentKey(name);
  if (!key || length == 0) return 0;
  const ostra::Region region = ostra::Region::open(*key, writable != 0);
  if (!region.valid()) return 0;
  if (std::uint64_t{byteOffset} + length > region.info().length) return 0;
  return mapRange(*key, region, writable != 0, byteOffset, length);
}

int ostra_unmap(const char* name, uintptr_t addr, uint32_t length) {
  const auto key = ostra::currentKey(name);
  return key && unmapRange(key->objectName, addr, length) ? 0 : -1;
}

uint64_t ostra_alloc_func(const char* name, uint32_t length, const char* owner) {
  const auto key = ostra::currentKey(name);
  if (!key || length == 0) return 0;
  const ostra::Region region = ostra::Region::allocate(*key, length, owner != nullptr ? owner : "");
  return region.valid() ? region.info().paddr : 0;
}

uint32_t ostra_pa_to_dma(uint64_t paddr) {
  return static_cast<uint32_t>(paddr);
}

int ostra_free(const char* name) {
  const auto key = ostra::currentKey(name);
  if (!key) return -1;
  return shm_unlink(key->objectName.c_str()) == 0 ? 0 : -1;
}

}  // extern "C"
