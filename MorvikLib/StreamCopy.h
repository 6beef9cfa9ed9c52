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

// Chunks into a region up to this size are copied with plain stores. Measured with the copier
// itself (bench/, BM_Resync, one chunk per pass): plain stores won at 64 MiB (9.1 against 9.5 ms),
// streaming ones at 256 MiB (40.9 against 43.4 ms).
inline constexpr std::size_t kLargestPlainRegion = std::size_t{128} << 20;

// Whether a copy of `size` bytes into a region of `regionSize` bytes streams past the cache.
inline bool streams(std::size_t regionSize, std::size_t size) {
  return size >= kShortestStreamedCopy && regionSize > kLargestPlainRegion;
}

// Asks for a chunk's bytes ahead of the pass that copies it, so that memory fetches them while the
// loop does the rest of its work: the source to read, and, unless the copy streams, the destination
// to write. One page at most: past it the processor's own prefetchers have caught on.
inline void prefetchChunk(const void* src, void* dst, std::size_t size, bool streamed) {
  const auto* from = static_cast<const char*>(src);
  auto* to = static_cast<char*>(dst);
  for (std::size_t at = 0; at < size && at < 4096; at += 64) {
    __builtin_prefetch(from + at, 0, 3);
    if (!streamed) __builtin_prefetch(to + at, 1, 3);
  }
}

}  // namespace MorvikLib

#endif
