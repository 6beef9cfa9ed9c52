#ifndef OSTRA_OSTRAREGIONHEADER_H
#define OSTRA_OSTRAREGIONHEADER_H

#include <cstdint>
#include <string_view>

#include "ostra/OstraKey.h"

namespace ostra {

// What every process needs to know about a region, as read from its header.
struct RegionInfo {
  std::uint64_t length = 0;
  std::uint64_t paddr = 0;
  std::uint64_t dataOffset = 0;  // file offset of the region's first byte, a page multiple
  // The process that created the region, and when it started (so that a reused id is told apart).
  std::uint64_t creatorPid = 0;
  std::uint64_t creatorStart = 0;
};

enum class HeaderState { ready, pending, bad };

// Sizes a freshly created object and fills its header; the header is published (its magic
// stored) last, so readers never see half of it.
bool writeRegionHeader(int fd, const RegionKey& key, std::uint32_t length, std::string_view owner);

// pending while the creator has not published the header yet; bad when the object is not a
// region of `key` (another layout, a hash collision, a truncated object).
HeaderState readRegionHeader(int fd, const RegionKey& key, RegionInfo& info);

}  // namespace ostra

#endif
