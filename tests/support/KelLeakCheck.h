#ifndef TESTS_SUPPORT_KELLEAKCHECK_H
#define TESTS_SUPPORT_KELLEAKCHECK_H

#include <gtest/gtest.h>

#include <cstdint>

#include "support/AllocCounts.h"

namespace KelTest {

// Fails the test when it leaves tracked objects behind. The baseline is taken before and the check
// made after the derived fixture's members, so objects held by fixture members count too.
class LeakCheckedTest : public ::testing::Test {
 protected:
  LeakCheckedTest() : liveAtStart_(KelTest::totalLive()) {}
  ~LeakCheckedTest() override {
    EXPECT_EQ(KelTest::totalLive(), liveAtStart_) << "tracked objects leaked";
  }

 private:
  std::int64_t liveAtStart_;
};

}  // namespace KelTest

#endif
