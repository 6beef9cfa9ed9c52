#include "Tralux/MsgDesc.h"

#include <cstdio>
#include <cstdlib>

#include "Tralux/CallSites.h"
#include "Tralux/TraceFile.h"

namespace Tralux {

namespace {

[[noreturn]] void failAssertion(const char* condition) {
  std::fprintf(stderr, "Tralux assertion failed: %s\n", condition);
  std::abort();
}

}  // namespace

MsgDesc::MsgDesc(TraceFile* traceFile, std::uint32_t* messageId, const char* file, int line,
                 bool enabled)
    : traceFile_(traceFile),
      messageIdOut_(messageId),
      file_(file ? file : ""),
      line_(line),
      enabled_(enabled) {}

MsgDesc::~MsgDesc() {
  if (finished()) detail::unregisterCallSite(this);
}

MsgDesc& MsgDesc::operator<<(const char* piece) {
  return *this << std::string_view(piece ? piece : "");
}

MsgDesc& MsgDesc::operator<<(std::string_view piece) {
  if (finished()) failAssertion("!finished()");
  text_.append(piece);
  return *this;
}

// Runs once, inside the call site's static initialisation, so it needs no guard of its own.
void MsgDesc::finish() {
  if (finished()) return;
  messageId_ = detail::nextMessageId();
  if (messageIdOut_ != nullptr) *messageIdOut_ = messageId_;
  if (traceFile_ != nullptr) traceFile_->messageDeclared();
  detail::registerCallSite(this);
}

}  // namespace Tralux
