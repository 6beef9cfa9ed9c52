#include "Tralux/CallSites.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "Tralux/MsgDesc.h"

namespace Tralux {

namespace {

struct Registry {
  std::mutex mutex;
  std::vector<const MsgDesc*> sites;
};

// Never destroyed: descriptors that are function-local statics are torn down at exit in an order
// nobody controls, and each of them still unregisters itself.
Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

bool byMessageId(const MsgDesc* left, const MsgDesc* right) {
  return left->messageId() < right->messageId();
}

}  // namespace

std::vector<const MsgDesc*> registeredCallSites() {
  std::vector<const MsgDesc*> sites;
  {
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    sites = reg.sites;
  }
  // Two threads may finish descriptors in one order and register them in the other.
  std::sort(sites.begin(), sites.end(), byMessageId);
  return sites;
}

const MsgDesc* findCallSite(std::string_view text) {
  Registry& reg = registry();
  std::lock_guard<std::mutex> lock(reg.mutex);
  const MsgDesc* best = nullptr;
  for (const MsgDesc* desc : reg.sites) {
    if (desc->text() == text && (best == nullptr || byMessageId(desc, best))) best = desc;
  }
  return best;
}

namespace detail {

std::uint32_t nextMessageId() {
  static std::atomic<std::uint32_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

void registerCallSite(const MsgDesc* desc) {
  Registry& reg = registry();
  std::lock_guard<std::mutex> lock(reg.mutex);
  reg.sites.push_back(desc);
}

void unregisterCallSite(const MsgDesc* desc) {
  Registry& reg = registry();
  std::lock_guard<std::mutex> lock(reg.mutex);
  std::erase(reg.sites, desc);
}

}  // namespace detail

}  // namespace Tralux
