#include "Tralux/MsgDesc.h"

#include <cstdio>
#include <cstdlib>

namespace Tralux {

std::atomic<MsgDesc::Recorder> MsgDesc::recorder_{nullptr};

MsgDesc::MsgDesc(TraceFile*, std::uint32_t* messageId, const char*, int, bool enabled)
    : messageIdOut_(messageId), enabled_(enabled) {}

MsgDesc& MsgDesc::operator<<(std::string_view piece) {
  if (messageId_ != 0) {
    std::fprintf(stderr, "Tralux assertion failed: %s\n", "!finished()");
    std::abort();
  }
  text_.append(piece);
  return *this;
}

// Runs once, inside the call site's static initialisation, so it needs no guard of its own.
void MsgDesc::finish() {
  if (messageId_ != 0) return;
  static std::atomic<std::uint32_t> lastId{0};
  messageId_ = lastId.fetch_add(1, std::memory_order_relaxed) + 1;
  if (messageIdOut_ != nullptr) *messageIdOut_ = messageId_;
}

}  // namespace Tralux
