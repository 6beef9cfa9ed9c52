#include "Kel/TraceBuffer.h"

#include <cstring>

namespace Kel {

TraceBuffer::TraceBuffer() : storage_(kInitialCapacity, '\0') {
  clear();
}

void TraceBuffer::clear() {
  setp(storage_.data(), storage_.data() + storage_.size());
}

void TraceBuffer::trim() {
  if (storage_.size() <= kRetainedCapacity) return;
  storage_.assign(kInitialCapacity, '\0');
  storage_.shrink_to_fit();
  clear();
}

void TraceBuffer::reserve(std::size_t needed) {
  const std::size_t used = static_cast<std::size_t>(pptr() - pbase());
  if (needed <= storage_.size() - used) return;
  std::size_t capacity = storage_.size() * 2;
  while (capacity - used < needed) capacity *= 2;
  storage_.resize(capacity);
  char* base = storage_.data();
  setp(base, base + capacity);
  advance(used);
}

void TraceBuffer::advance(std::size_t count) {
  // pbump takes an int; no trace comes near 2 GiB, but a long one must not wrap it.
  while (count) {
    const int step = count > 0x40000000 ? 0x40000000 : static_cast<int>(count);
    pbump(step);
    count -= static_cast<std::size_t>(step);
  }
}

TraceBuffer::int_type TraceBuffer::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  reserve(1);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

std::streamsize TraceBuffer::xsputn(const char* text, std::streamsize count) {
  if (count <= 0) return 0;
  const auto size = static_cast<std::size_t>(count);
  reserve(size);
  std::memcpy(pptr(), text, size);
  advance(size);
  return count;
}

}  // namespace Kel
