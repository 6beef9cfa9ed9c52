#include "Morvik/PhysicalAddress.h"

#include <cstdio>
#include <ostream>

namespace Morvik {

namespace {
std::ostream& hex0x(std::ostream& out, U64 value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return out << text;
}
}  // namespace

std::ostream& operator<<(std::ostream& out, PhysicalAddress address) {
  return hex0x(out, address);
}

std::ostream& operator<<(std::ostream& out, DmaAddress address) {
  return hex0x(out, address);
}

}  // namespace Morvik
