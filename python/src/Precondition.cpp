#include "Precondition.h"

#include <cstdio>

namespace morvikpy {

namespace {
bool checking = true;
}  // namespace

void refuse(const std::string& call, const std::string& why, const char* assertion) {
  std::string text = call + ": " + why;
  if (assertion) text += "; the library would fail \"" + std::string(assertion) + "\"";
  throw PreconditionFailure(text);
}

bool checksOn() {
  return checking;
}

void checksOnIs(bool on) {
  checking = on;
}

std::string hex(U64 value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string decimal(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

std::string byteRange(U64 start, U64 size) {
  const unsigned __int128 end = static_cast<unsigned __int128>(start) + size;
  std::string endText = end > ~U64{0} ? "2^64 + " + std::to_string(static_cast<U64>(end))
                                      : std::to_string(static_cast<U64>(end));
  return "[" + std::to_string(start) + ", " + endText + ")";
}

}  // namespace morvikpy
