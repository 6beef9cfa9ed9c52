#include "support/HeapCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<int> counting{0};
std::atomic<std::uint64_t> allocations{0};
}  // namespace

// The replaceable allocation functions, on malloc and free so that every other form (arrays, the
// sanitizers' own) stays paired with its counterpart.
void* operator new(std::size_t size) {
  if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace MorvikTest {

HeapCount::HeapCount() : start_(::allocations.load()) {
  counting.fetch_add(1);
}

HeapCount::~HeapCount() {
  counting.fetch_sub(1);
}

std::uint64_t HeapCount::allocations() const {
  return ::allocations.load() - start_;
}

}  // namespace MorvikTest
