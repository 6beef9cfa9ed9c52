#ifndef OSTRA_OSTRAREGION_H
#define OSTRA_OSTRAREGION_H

#include <unistd.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "ostra/OstraFd.h"
#include "ostra/OstraKey.h"

namespace ostra {

inline std::uint64_t pageBytes() {
  static const std::uint64_t bytes = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  return bytes;
}

inline std::uint64_t roundUpToPage(std::uint64_t bytes) {
  return (bytes + pageBytes() - 1) / pageBytes() * pageBytes();
}

// What every process needs to know about a region, as read from the header in front of its bytes.
struct RegionInfo {
  std::uint64_t length = 0;
  std::uint64_t paddr = 0;
  std::uint64_t dataOffset = 0;  // file offset of the region's first byte, a page multiple
  // The process that created the region, and when it started (so that a reused id is told apart).
  std::uint64_t creatorPid = 0;
  std::uint64_t creatorStart = 0;
  std::string owner;  // the agent that allocated it
};

// An open region object whose header has been read; invalid when it could not be had.
class Region {
 public:
  // Creates the region of `key` or finds the existing one, which must hold at least `length`.
  static Region allocate(const RegionKey& key, std::uint32_t length, std::string_view owner);
  // Opens an existing region, for read-write mappings when `writable`.
  static Region open(const RegionKey& key, bool writable);

  bool valid() const { return fd_.valid(); }
  int fd() const { return fd_.get(); }
  const RegionInfo& info() const { return info_; }

 private:
  Region() = default;
  Region(UniqueFd fd, const RegionInfo& info) : fd_(std::move(fd)), info_(info) {}
  static Region create(UniqueFd fd, const RegionKey& key, std::uint32_t length,
                       std::string_view owner);
  static Region fromExisting(UniqueFd fd, const RegionKey& key);

  UniqueFd fd_;
  RegionInfo info_;
};

}  // namespace ostra

#endif
