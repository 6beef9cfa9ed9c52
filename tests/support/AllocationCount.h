#ifndef TESTS_SUPPORT_ALLOCATIONCOUNT_H
#define TESTS_SUPPORT_ALLOCATIONCOUNT_H

#include <cstdint>

namespace MorvikTest {

// Counts the heap allocations (operator new) made on any thread while it lives; the test binary's
// operator new reports to it.
class AllocationCount {
 public:
  AllocationCount();
  ~AllocationCount();
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;

  std::uint64_t allocations() const;

 private:
  std::uint64_t start_;
};

}  // namespace MorvikTest

#endif
