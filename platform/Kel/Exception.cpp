#include "Kel/Exception.h"

#include <string.h>

namespace Kel {

ErrnoException::ErrnoException(int errnum, String context)
    : Exception(errorString(errnum).c_str(), IdBitArray::bit(kErrnoIdBit)),
      errnum_(errnum),
      context_(std::move(context)) {}

void throwRangeException(const char* message) {
  throw RangeException(message);
}

std::string errorString(int errnum) {
  char buffer[256];
  // The GNU form may return a static string instead of filling the buffer.
  const char* text = strerror_r(errnum, buffer, sizeof(buffer));
  return std::string(text);
}

}  // namespace Kel
