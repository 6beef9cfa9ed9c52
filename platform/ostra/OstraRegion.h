#ifndef OSTRA_OSTRAREGION_H
#define OSTRA_OSTRAREGION_H

#include <cstdint>
#include <string_view>
#include <utility>

#include "ostra/OstraFd.h"
#include "ostra/OstraKey.h"
#include "ostra/OstraRegionHeader.h"

namespace ostra {

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
