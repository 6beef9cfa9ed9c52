#ifndef OSTRA_OSTRAPAGES_H
#define OSTRA_OSTRAPAGES_H

#include <unistd.h>

#include <cstdint>

namespace ostra {

inline std::uint64_t pageBytes() {
  static const std::uint64_t bytes = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  return bytes;
}

inline std::uint64_t roundUpToPage(std::uint64_t bytes) {
  const std::uint64_t page = pageBytes();
  return (bytes + page - 1) / page * page;
}

}  // namespace ostra

#endif
