#ifndef MORVIKLIB_STREAMCOPY_H
#define MORVIKLIB_STREAMCOPY_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace MorvikLib {

// Copies with stores that bypass the cache when both ends are 16-byte aligned and the size is a
// whole number of 64-byte lines, and with memcpy otherwise. The fence at the end makes the bytes
// visible no later than plain stores would.
inline void streamCopy(void* dst, const void* src, std::size_t size) {
#if defined(__SSE2__)
  const auto aligned = [](const void* p) {
    return (reinterpret_cast<std::uintptr_t>(p) & 15) == 0;
  };
  if (aligned(dst) && aligned(src) && size % 64 == 0) {
    auto* to = static_cast<__m128i*>(dst);
    const auto* from = static_cast<const __m128i*>(src);
    for (std::size_t i = 0; i < size / 16; i += 4) {
      const __m128i a = _mm_load_si128(from + i), b = _mm_load_si128(from + i + 1);
      const __m128i c = _mm_load_si128(from + i + 2), d = _mm_load_si128(from + i + 3);
      _mm_stream_si128(to + i, a);
      _mm_stream_si128(to + i + 1, b);
      _mm_stream_si128(to + i + 2, c);
      _mm_stream_si128(to + i + 3, d);
    }
    _mm_sfence();
    return;
  }
#endif
  std::memcpy(dst, src, size);
}

// Below this a copy never streams: a 4000-byte write with streaming stores took four times as long
// as memcpy, and a write's bytes are read again at once by its mirror copy.
inline constexpr std::size_t kShortestStreamedCopy = 4096;

// Regions up to this size stay plain: while the destination fits in the last-level cache, plain
// stores land in cache and beat streaming ones, which always go to memory (bench/ measures both,
// BM_ChunkCopy). The cache's size is the machine's; 64 MiB where the system does not say.
std::size_t largestCachedRegion();

// Whether a copy of `size` bytes into a region of `regionSize` bytes streams past the cache.
inline bool streams(std::size_t regionSize, std::size_t size) {
  return size >= kShortestStreamedCopy && regionSize > largestCachedRegion();
}

}  // namespace MorvikLib

#endif
