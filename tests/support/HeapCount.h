#ifndef TESTS_SUPPORT_HEAPCOUNT_H
#define TESTS_SUPPORT_HEAPCOUNT_H

#include <cstdint>

namespace MorvikTest {

// Counts the heap allocations (operator new) made on any thread while it lives; the test binary's
// operator new reports to it.
class HeapCount {
 public:
  HeapCount();
  ~HeapCount();
  HeapCount(const HeapCount&) = delete;
  HeapCount& operator=(const HeapCount&) = delete;

  std::uint64_t allocations() const;

 private:
  std::uint64_t start_;
};

}  // namespace MorvikTest

#endif
