#ifndef KEL_OPNOTSUPPORTEDEXCEPTION_H
#define KEL_OPNOTSUPPORTEDEXCEPTION_H

#include <string>

#include "Kel/Exception.h"

namespace Kel {

// An operation the generic interface does not offer on that type or attribute: an unknown name, a
// set of a read-only attribute, a comparison the type does not define.
class OpNotSupportedException : public Exception {
 public:
  explicit OpNotSupportedException(const std::string& message)
      : Exception(message.c_str(), IdBitArray::bit(kOpNotSupportedIdBit)) {}
};

}  // namespace Kel

#endif
