#include "Morvik/DmaAddress.h"

#include <cstdio>
#include <ostream>

namespace Morvik {

std::ostream& operator<<(std::ostream& out, DmaAddress address) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(address.value()));
  return out << text;
}

}  // namespace Morvik
