#include "Morvik/ActiveSupeType.h"

#include <ostream>

namespace Morvik {

std::ostream& operator<<(std::ostream& out, ActiveSupeType value) {
  return out << static_cast<U32>(value);
}

}  // namespace Morvik
