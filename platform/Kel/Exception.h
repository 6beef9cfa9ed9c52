#ifndef KEL_EXCEPTION_H
#define KEL_EXCEPTION_H

#include <cstdint>
#include <exception>
#include <string>

#include "Kel/String.h"

namespace Kel {

// The framework's exception base. The id bits classify an exception for handlers that catch the
// base; see the constants below for the bits this stand-in uses.
class Exception : public std::exception {
 public:
  class IdBitArray {
   public:
    IdBitArray() = default;
    static IdBitArray bit(unsigned n) { return IdBitArray(std::uint32_t{1} << n); }
    std::uint32_t bits() const { return bits_; }
    bool test(unsigned n) const { return (bits_ >> n) & 1u; }

   private:
    explicit IdBitArray(std::uint32_t bits) : bits_(bits) {}
    std::uint32_t bits_ = 0;
  };

  static constexpr unsigned kRangeIdBit = 3;
  static constexpr unsigned kParseIdBit = 4;
  static constexpr unsigned kTypeIdBit = 5;
  static constexpr unsigned kOpNotSupportedIdBit = 6;
  static constexpr unsigned kErrnoIdBit = 29;

  Exception(const char* message, IdBitArray ids) : message_(message ? message : ""), ids_(ids) {}
  const char* what() const noexcept override { return message_.c_str(); }
  const std::string& message() const { return message_; }
  IdBitArray ids() const { return ids_; }

 private:
  std::string message_;
  IdBitArray ids_;
};

// A failed system call: the message is the system's text for the errno.
class ErrnoException : public Exception {
 public:
  ErrnoException(int errnum, String context);
  int errnum() const { return errnum_; }
  const String& context() const { return context_; }

 private:
  int errnum_;
  String context_;
};

class RangeException : public Exception {
 public:
  explicit RangeException(const std::string& message)
      : Exception(message.c_str(), IdBitArray::bit(kRangeIdBit)) {}
};

// A text that does not follow a representation.
class ParseException : public Exception {
 public:
  explicit ParseException(const std::string& message)
      : Exception(message.c_str(), IdBitArray::bit(kParseIdBit)) {}
};

[[noreturn]] void throwRangeException(const char* message);

// The system's message for errnum, from the GNU strerror_r with a 256-byte buffer.
std::string errorString(int errnum);

}  // namespace Kel

#endif
