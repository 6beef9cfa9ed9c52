#ifndef KEL_GENERICEXCEPTIONS_H
#define KEL_GENERICEXCEPTIONS_H

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

// A generic value, or a list of them, that does not fit what an operation declares: a wrong
// argument count, a wrong argument type, a number out of the declared type's range.
class TypeException : public Exception {
 public:
  explicit TypeException(const std::string& message)
      : Exception(message.c_str(), IdBitArray::bit(kTypeIdBit)) {}
};

// Asked for the hash of a value whose type refuses to be hashed through the generic interface.
class UnhashableException : public TypeException {
 public:
  using TypeException::TypeException;
};

}  // namespace Kel

#endif
