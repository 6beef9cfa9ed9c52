#ifndef TESTS_SUPPORT_ALLOCCOUNTS_H
#define TESTS_SUPPORT_ALLOCCOUNTS_H

#include <cstdint>
#include <typeinfo>

// The books the framework's allocation tracker keeps for the test programs: how many counted
// objects of each type were made and how many of them are alive.
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

}  // namespace KelTest

#endif
