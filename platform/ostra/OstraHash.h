#ifndef OSTRA_OSTRAHASH_H
#define OSTRA_OSTRAHASH_H

#include <cstdint>
#include <string_view>

namespace ostra {

inline constexpr std::uint64_t kFnvBasis = 0xcbf29ce484222325ull;

// FNV-1a: stable across processes, builds and runs, which std::hash does not promise.
constexpr std::uint64_t fnv1a(std::string_view text, std::uint64_t hash = kFnvBasis) {
  for (unsigned char byte : text) {
    hash ^= byte;
    hash *= 0x100000001b3ull;
  }
  return hash;
}

}  // namespace ostra

#endif
