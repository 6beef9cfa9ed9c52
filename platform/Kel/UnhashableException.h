#ifndef KEL_UNHASHABLEEXCEPTION_H
#define KEL_UNHASHABLEEXCEPTION_H

#include <string>

#include "Kel/TypeException.h"

namespace Kel {

// Asked for the hash of a value whose type refuses to be hashed through the generic interface.
class UnhashableException : public TypeException {
 public:
  explicit UnhashableException(const std::string& message) : TypeException(message) {}
};

}  // namespace Kel

#endif
