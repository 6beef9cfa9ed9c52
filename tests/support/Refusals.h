#ifndef TESTS_SUPPORT_REFUSALS_H
#define TESTS_SUPPORT_REFUSALS_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace MorvikTest {

// Operations that must each be refused with exception type E and exactly this message.
using Refusals = std::vector<std::pair<std::function<void()>, std::string>>;

template <class E>
void expectRefused(const Refusals& table) {
  for (const auto& [op, message] : table) {
    try {
      op();
      ADD_FAILURE() << "accepted: " << message;
    } catch (const E& e) {
      EXPECT_EQ(e.message(), message);
    }
  }
}

}  // namespace MorvikTest

#endif
