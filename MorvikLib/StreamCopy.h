#ifndef MORVIKLIB_STREAMCOPY_H
#define MORVIKLIB_STREAMCOPY_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace MorvikLib {

#if defined(__x86_64__)
namespace detail {

// Whole 64-byte lines, two at a time, each loaded and then stored past the cache.
__attribute__((target("avx2"))) inline void streamLines(void* dst, const void* src,
                                                        std::size_t size) {
  auto* to = static_cast<__m256i*>(dst);
  const auto* from = static_cast<const __m256i*>(src);
  const std::size_t vectors = size / 32;
  std::size_t i = 0;
  for (; i + 4 <= vectors; i += 4) {
    const __m256i a = _mm256_load_si256(from + i), b = _mm256_load_si256(from + i + 1);
    const __m256i c = _mm256_load_si256(from + i + 2), d = _mm256_load_si256(from + i + 3);
    _mm256_stream_si256(to + i, a);
    _mm256_stream_si256(to + i + 1, b);
    _mm256_stream_si256(to + i + 2, c);
    _mm256_stream_si256(to + i + 3, d);
  }
  if (i < vectors) {
    const __m256i a = _mm256_load_si256(from + i), b = _mm256_load_si256(from + i + 1);
    _mm256_stream_si256(to + i, a);
    _mm256_stream_si256(to + i + 1, b);
  }
}

inline bool hasAvx2() {
  static const bool avx2 = __builtin_cpu_supports("avx2");
  return avx2;
}

}  // namespace detail
#endif

// Copies with stores that bypass the cache when the processor has AVX2, both ends are 32-byte
// aligned (a chunk of a mapped region always is) and the size is a whole number of 64-byte lines,
// and with memcpy otherwise. The fence at the end makes the bytes visible no later than plain
// stores would.
inline void streamCopy(void* dst, const void* src, std::size_t size) {
#if defined(__x86_64__)
  const auto aligned = [](const void* p) {
    return (reinterpret_cast<std::uintptr_t>(p) & 31) == 0;
  };
  if (aligned(dst) && aligned(src) && size % 64 == 0 && detail::hasAvx2()) {
    detail::streamLines(dst, src, size);
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
// itself (bench/, BM_Resync, one chunk per pass, medians of three, three runs each), in ms:
//   region     1 MiB        4 MiB        8 MiB        16 MiB       256 MiB
//   plain      0.058-0.075  0.229-0.291  0.855-1.01   2.16-2.49    45-46
//   streaming  0.106-0.110  0.428-0.490  0.889-1.01   1.96-2.23    30-34
// Once the two copies outgrow the caches, reading each destination line before writing it only
// costs; while they fit, streaming sends to memory what plain stores would have kept.
inline constexpr std::size_t kLargestPlainRegion = std::size_t{8} << 20;

// Whether a copy of `size` bytes into a region of `regionSize` bytes streams past the cache.
inline bool streams(std::size_t regionSize, std::size_t size) {
  return size >= kShortestStreamedCopy && regionSize > kLargestPlainRegion;
}

// Asks for a chunk's bytes ahead of the pass that copies it, so that memory fetches them while the
// loop does the rest of its work. One page at most: past it the processor's own prefetchers have
// caught on. Four lines at a time, so the last group may reach past `size`: a prefetch cannot
// fault. Written as volatile assembly: the compiler takes a function that only prefetches for one
// without effects, and drops the call.
inline void prefetchChunk(const void* src, std::size_t size) {
  const auto* from = static_cast<const char*>(src);
  const std::size_t end = size < 4096 ? size : 4096;
  for (std::size_t at = 0; at < end; at += 256) {
#if defined(__x86_64__)
    asm volatile("prefetcht0 %0\n\tprefetcht0 %1\n\tprefetcht0 %2\n\tprefetcht0 %3"
                 :
                 : "m"(from[at]), "m"(from[at + 64]), "m"(from[at + 128]), "m"(from[at + 192]));
#else
    for (std::size_t line = at; line < at + 256; line += 64) __builtin_prefetch(from + line, 0, 3);
#endif
  }
}

}  // namespace MorvikLib

#endif
