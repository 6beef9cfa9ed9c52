#include "MorvikLib/StreamCopy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

// Aligned whole lines stream, everything else falls back to memcpy: either way exactly the
// requested bytes change, whatever the alignment of either end.
TEST(StreamCopyTest, CopiesExactlyTheRangeAtEveryAlignmentAndSize) {
  const std::size_t sizes[] = {0, 16, 64, 100, 192, 4096, 4096 + 16, 65536};
  const std::size_t offsets[] = {0, 1, 8, 16, 64};
  for (std::size_t size : sizes) {
    for (std::size_t dstOffset : offsets) {
      for (std::size_t srcOffset : offsets) {
        SCOPED_TRACE(testing::Message()
                     << "size " << size << " dst +" << dstOffset << " src +" << srcOffset);
        alignas(64) static unsigned char from[65536 + 256], to[65536 + 256];
        for (std::size_t i = 0; i < sizeof from; ++i) from[i] = static_cast<unsigned char>(i * 13);
        std::fill(std::begin(to), std::end(to), 0xee);
        MorvikLib::streamCopy(to + dstOffset, from + srcOffset, size);
        std::vector<unsigned char> expected(sizeof to, 0xee);
        std::copy(from + srcOffset, from + srcOffset + size, expected.begin() + dstOffset);
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), std::begin(to)));
      }
    }
  }
}

}  // namespace
