#ifndef KEL_PARSE_H
#define KEL_PARSE_H

#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

#include "Kel/Exception.h"
#include "Kel/String.h"

namespace Kel {

// Helpers for the parsing constructors of value types. They advance the iterator only past what
// they accepted.

// Consumes exactly `literal` or throws ParseException.
void needString(String::IteratorConst& it, const String::IteratorConst& end, const char* literal);

// Parses an unsigned decimal number of at most `max`; throws RangeException naming attrName.
std::uint64_t deserializeUnsigned(String::IteratorConst& it, const String::IteratorConst& end,
                                  std::uint64_t max, const char* attrName);

template <class T>
T deserializeAttr(String::IteratorConst& it, const String::IteratorConst& end,
                  const char* attrName) {
  static_assert(std::is_unsigned_v<T>, "only unsigned attributes are parsed here");
  return static_cast<T>(deserializeUnsigned(it, end, std::numeric_limits<T>::max(), attrName));
}

// Re-throws a nested value's parse failure with the attribute's name in front.
[[noreturn]] void rethrowFromDeserializeAttr(const RangeException& e, const char* attrName);

// Checks that nothing but the end of `text` remains at `it`.
void strepToValueEnd(const String& text, String::IteratorConst it);

// The framework's rendering of an unsigned number: plain decimal.
String valueToStrep(unsigned long long value);

}  // namespace Kel

#endif
