#ifndef KEL_TYPEEXCEPTION_H
#define KEL_TYPEEXCEPTION_H

#include <string>

#include "Kel/Exception.h"

namespace Kel {

// A generic value, or a list of them, that does not fit what an operation declares: a wrong
// argument count, a wrong argument type, a number out of the declared type's range.
class TypeException : public Exception {
 public:
  explicit TypeException(const std::string& message)
      : Exception(message.c_str(), IdBitArray::bit(kTypeIdBit)) {}
};

}  // namespace Kel

#endif
