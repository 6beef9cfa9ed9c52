#include "Kel/AllocTracker.h"

#include <cxxabi.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <typeindex>

namespace Kel {

namespace {

struct Counts {
  std::int64_t live = 0;
  std::uint64_t allocated = 0;
};

// Never destroyed: objects may be released by static destructors after main returns.
struct Registry {
  std::mutex mutex;
  std::map<std::type_index, Counts> counts;
};

Registry& registry() {
  static Registry* r = new Registry;
  return *r;
}

std::string demangle(const char* name) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(name, nullptr, nullptr, &status),
                                              std::free);
  return status == 0 && text ? std::string(text.get()) : std::string(name);
}

}  // namespace

void AllocTracker::trackAllocation(const std::type_info& type, std::size_t) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  Counts& c = r.counts[std::type_index(type)];
  ++c.live;
  ++c.allocated;
}

void AllocTracker::trackDeallocation(const std::type_info& type) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  --r.counts[std::type_index(type)].live;
}

std::int64_t AllocTracker::live(const std::type_info& type) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.counts.find(std::type_index(type));
  return it == r.counts.end() ? 0 : it->second.live;
}

std::int64_t AllocTracker::totalLive() {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  std::int64_t total = 0;
  for (const auto& [type, c] : r.counts) total += c.live;
  return total;
}

std::vector<AllocTracker::Entry> AllocTracker::snapshot() {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  std::vector<Entry> out;
  for (const auto& [type, c] : r.counts)
    out.push_back({demangle(type.name()), c.live, c.allocated});
  return out;
}

}  // namespace Kel
