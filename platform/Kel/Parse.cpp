#include "Kel/Parse.h"

#include <cstring>

namespace Kel {

void needString(String::IteratorConst& it, const String::IteratorConst& end, const char* literal) {
  std::size_t length = std::strlen(literal);
  if (static_cast<std::size_t>(end - it) < length || std::memcmp(it, literal, length) != 0) {
    throw ParseException(std::string("expected \"") + literal + "\"");
  }
  it += length;
}

std::uint64_t deserializeUnsigned(String::IteratorConst& it, const String::IteratorConst& end,
                                  std::uint64_t max, const char* attrName) {
  String::IteratorConst at = it;
  std::uint64_t value = 0;
  while (at != end && *at >= '0' && *at <= '9') {
    std::uint64_t digit = static_cast<std::uint64_t>(*at - '0');
    if (digit > max || value > (max - digit) / 10) {
      throw RangeException(std::string(attrName) + ": number out of range");
    }
    value = value * 10 + digit;
    ++at;
  }
  if (at == it) throw RangeException(std::string(attrName) + ": expected an unsigned number");
  it = at;
  return value;
}

void rethrowFromDeserializeAttr(const RangeException& e, const char* attrName) {
  throw RangeException(std::string(attrName) + ": " + e.message());
}

void strepToValueEnd(const String& text, String::IteratorConst it) {
  if (it != text.end()) {
    throw ParseException("unexpected text after the value: \"" +
                         std::string(it, static_cast<std::size_t>(text.end() - it)) + "\"");
  }
}

String valueToStrep(unsigned long long value) {
  return String(std::to_string(value));
}

}  // namespace Kel
