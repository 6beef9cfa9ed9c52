#include "Kel/String.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <ostream>
#include <typeinfo>
#include <vector>

#include "Kel/Allocate.h"

namespace Kel {

Ptr<String::Payload> String::Payload::make(const char* data, std::size_t length) {
  AllocTracker::trackAllocation(typeid(Payload), sizeof(Payload) + length + 1);
  void* memory = kelMemAlloc(sizeof(Payload) + length + 1);
  auto* p = new (memory) Payload(length);
  if (length) std::memcpy(p->chars(), data, length);
  p->chars()[length] = '\0';
  return Ptr<Payload>::adopt(p);
}

String::String(const char* text) : String(text, text ? std::strlen(text) : 0) {}

String::String(const char* data, std::size_t length) {
  if (length) payload_ = Payload::make(data, length);
}

const char* String::charPtr() const {
  return payload_ ? payload_.ptr()->chars() : "";
}

std::size_t String::size() const {
  return payload_ ? payload_->length() : 0;
}

String& String::operator+=(const String& tail) {
  if (tail.empty()) return *this;
  std::string joined = stdString();
  joined.append(tail.charPtr(), tail.size());
  *this = String(joined);
  return *this;
}

std::uint32_t String::hash() const {
  // FNV-1a: cheap, stable across processes, good enough for framework tables.
  std::uint32_t h = 2166136261u;
  for (char c : view()) h = (h ^ static_cast<unsigned char>(c)) * 16777619u;
  return h;
}

std::ostream& operator<<(std::ostream& out, const String& text) {
  return out.write(text.charPtr(), static_cast<std::streamsize>(text.size()));
}

String format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  int length = std::vsnprintf(nullptr, 0, fmt, args);
  va_end(args);
  std::vector<char> buffer(static_cast<std::size_t>(length > 0 ? length : 0) + 1);
  std::vsnprintf(buffer.data(), buffer.size(), fmt, again);
  va_end(again);
  return String(buffer.data(), buffer.size() - 1);
}

}  // namespace Kel
