#ifndef TESTS_SUPPORT_ALLOCCOUNTS_H
#define TESTS_SUPPORT_ALLOCCOUNTS_H

#include <cstdint>
#include <typeinfo>

// The books the test programs keep: how many objects of each type the framework's allocation
// tracker counted as made and how many of them are alive, and how many heap allocations
// (operator new, on any thread) were made.
namespace KelTest {

std::int64_t live(const std::type_info& type);
template <class T>
std::int64_t live() {
  return live(typeid(T));
}
std::int64_t totalLive();

std::uint64_t made(const std::type_info& type);
template <class T>
std::uint64_t made() {
  return made(typeid(T));
}

// Since the program started: a test takes the difference over what it measures.
std::uint64_t heapAllocations();

}  // namespace KelTest

#endif
