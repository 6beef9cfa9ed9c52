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
// whole number of 64-byte lines, and with memcpy otherwise. The copier uses it for regions larger
// than the cache: one chunk per pass would otherwise pay a read-for-ownership of every destination
// line and evict the loop's own state, which a whole-region memcpy avoids by streaming.
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
    // Streaming stores are weakly ordered: fence so the copy is visible like any other store.
    _mm_sfence();
    return;
  }
#endif
  std::memcpy(dst, src, size);
}

}  // namespace MorvikLib

#endif
