// Times the enclosing scope in counter cycles and records them into a call site's descriptor.
#pragma once

#include <cstdint>

#include "Tralux/MsgDesc.h"
#include "Tralux/Tsc.h"

namespace Tralux {

// Everything is inline: a timed block must cost two counter reads and a handful of plain stores.
// The destructor records on every way out of the scope, an exception included.
class BlockTimer {
 public:
  explicit BlockTimer(MsgDesc& desc) noexcept
      : desc_(desc.enabled() ? &desc : nullptr), start_(desc_ != nullptr ? readTsc() : 0) {}
  BlockTimer(const BlockTimer&) = delete;
  BlockTimer& operator=(const BlockTimer&) = delete;

  ~BlockTimer() {
    if (desc_ == nullptr) return;
    const std::uint64_t end = readTsc();
    // Counters of different cores may disagree after a migration; a negative span counts as 0
    // rather than as an absurdly long block.
    desc_->record(end >= start_ ? end - start_ : 0);
  }

 private:
  MsgDesc* const desc_;
  const std::uint64_t start_;
};

}  // namespace Tralux
