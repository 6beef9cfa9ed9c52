#include "Morvik/PhysicalAddress.h"

#include <cstdio>
#include <ostream>

namespace Morvik {

std::ostream& operator<<(std::ostream& out, PhysicalAddress address) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(address.value()));
  return out << text;
}

}  // namespace Morvik
