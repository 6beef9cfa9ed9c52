#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Kel/Allocate.h"
#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"
#include "support/AllocCounts.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 200000;

class Shared : public Kel::PtrInterface {
 public:
  static inline std::atomic<int> destroyed{0};

 protected:
  ~Shared() override { destroyed.fetch_add(1); }
};

// Copies and drops pointers in every way a handler would: copy, move, assign, convert.
void churn(const Kel::Ptr<Shared>& source) {
  for (int i = 0; i < kRounds; ++i) {
    Kel::Ptr<Shared> copy(source);
    Kel::Ptr<Shared> moved(std::move(copy));
    Kel::Ptr<Kel::PtrInterface const> root = moved;
    moved = source;
    root = nullptr;
  }
}

TEST(ThreadSafePointers, ConcurrentCopiesKeepTheCountExactAndDestroyOnce) {
  Kel::VFPtrInterface::enableThreadSafePointers = true;
  Shared::destroyed = 0;
  Kel::Ptr<Shared> shared = Kel::allocate<Shared>();
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back([&shared] { churn(shared); });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(shared->referenceWord(), Kel::PtrInterface::kNotificationActiveBit | 1u);
  EXPECT_EQ(Shared::destroyed.load(), 0);

  // Each worker owns a reference and the main thread lets go first, so whichever worker finishes
  // last destroys the object.
  threads.clear();
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([mine = shared]() mutable {
      churn(mine);
      mine = nullptr;
    });
  }
  shared = nullptr;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(Shared::destroyed.load(), 1);
  EXPECT_EQ(KelTest::live<Shared>(), 0);
  Kel::VFPtrInterface::enableThreadSafePointers = false;
}

}  // namespace
