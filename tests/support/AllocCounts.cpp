#include "support/AllocCounts.h"

#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>
#include <typeindex>

#include "Kel/Allocate.h"

namespace {
std::atomic<std::uint64_t> heapAllocationCount{0};
}  // namespace

// The replaceable allocation functions, on malloc and free so that every other form (arrays, the
// sanitizers' own) stays paired with its counterpart. Not inlined: the compiler would take the free
// of this file's own map nodes for a mismatch.
void* operator new(std::size_t size) {
  heapAllocationCount.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace KelTest {

namespace {

struct Counts {
  std::int64_t live = 0;
  std::uint64_t made = 0;
};

class Books : public Kel::AllocTracker::Recorder {
 public:
  Books() { Kel::AllocTracker::recorderIs(this); }
  void allocated(const std::type_info& type, std::size_t) override {
    const std::lock_guard lock(mutex_);
    Counts& c = counts_[type];
    ++c.live;
    ++c.made;
  }
  void released(const std::type_info& type) override {
    const std::lock_guard lock(mutex_);
    --counts_[type].live;
  }
  Counts of(const std::type_info& type) {
    const std::lock_guard lock(mutex_);
    auto it = counts_.find(type);
    return it == counts_.end() ? Counts() : it->second;
  }
  std::int64_t totalLive() {
    const std::lock_guard lock(mutex_);
    std::int64_t total = 0;
    for (const auto& [type, c] : counts_) total += c.live;
    return total;
  }

 private:
  std::mutex mutex_;
  std::map<std::type_index, Counts> counts_;
};

// Installed before main and never destroyed: objects are released by static destructors too.
Books& books = *new Books;

}  // namespace

std::int64_t live(const std::type_info& type) {
  return books.of(type).live;
}

std::int64_t totalLive() {
  return books.totalLive();
}

std::uint64_t made(const std::type_info& type) {
  return books.of(type).made;
}

std::uint64_t heapAllocations() {
  return heapAllocationCount.load();
}

}  // namespace KelTest
