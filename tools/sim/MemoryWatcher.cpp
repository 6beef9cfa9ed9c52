#include "MemoryWatcher.h"

#include <bit>

#include "Kel/Allocate.h"
#include "Monitor.h"

namespace MorvikSim {

Kel::Ptr<MemoryWatcher> MemoryWatcher::create(Monitor& monitor, std::size_t feature,
                                              const Kel::Ptr<MorvikLib::MorvikMemory>& memory) {
  Kel::Ptr<MemoryWatcher> watcher = Kel::allocate<MemoryWatcher>(monitor, feature);
  watcher->notifierIs(memory);
  watcher->isRegisteredNotifieeIs(true);
  return watcher;
}

void MemoryWatcher::onReplicationStatusBitmap(const U64& key) {
  const auto memory = notifier();
  const U8* member = memory->replicationStatusBitmap().find(key);
  const U8 now = member != nullptr ? *member : 0;
  const auto it = seen_.find(key);
  const U8 before = it != seen_.end() ? it->second : 0;
  if (member != nullptr) {
    seen_[key] = now;
  } else if (it != seen_.end()) {
    seen_.erase(it);
  }
  const long delta = std::popcount(now) - std::popcount(before);
  if (delta != 0) monitor_.pendingChanged(feature_, delta, member == nullptr);
  if (member == nullptr) return;
  const U32 chunkSize = memory->remoteCopyChunkSize();
  for (U8 copied = static_cast<U8>(before & ~now); copied != 0; copied &= copied - 1) {
    const U64 chunk = key * 8 + static_cast<U64>(std::countr_zero(copied));
    monitor_.chunkCopied(feature_, chunk * chunkSize, chunkSize);
  }
}

}  // namespace MorvikSim
