// Times the enclosing scope in counter cycles and hands them to the recorder of its descriptor.
#pragma once

#include <cstdint>

#include "Tralux/MsgDesc.h"
#include "Tralux/Tsc.h"

namespace Tralux {

// Everything is inline: a timed block costs two counter reads and one load of the recorder, with
// no lock, no allocation and no formatting. The destructor records on every way out of the scope,
// an exception included.
class BlockTimer {
 public:
  explicit BlockTimer(const MsgDesc& desc) noexcept
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
  const MsgDesc* const desc_;
  const std::uint64_t start_;
};

}  // namespace Tralux
