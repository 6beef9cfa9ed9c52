#include "Kel/Name.h"

#include <ostream>

#include "Kel/Exception.h"

namespace Kel {

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

char unescape(String::IteratorConst& it, const String::IteratorConst& end) {
  if (it == end) throw RangeException("unterminated escape in name");
  char c = *it++;
  if (c == '\\' || c == '\'') return c;
  if (c != 'x') throw RangeException(std::string("unknown escape \\") + c + " in name");
  if (end - it < 2) throw RangeException("short \\x escape in name");
  int hi = hexDigit(it[0]);
  int lo = hexDigit(it[1]);
  if (hi < 0 || lo < 0) throw RangeException("bad \\x escape in name");
  it += 2;
  return static_cast<char>(hi * 16 + lo);
}

}  // namespace

Name::Name(String::IteratorConst& it, const String::IteratorConst& end) {
  String::IteratorConst at = it;
  if (at == end || *at != '\'') throw RangeException("expected a quoted name");
  ++at;
  std::string text;
  for (;;) {
    if (at == end) throw RangeException("unterminated quoted name");
    char c = *at++;
    if (c == '\'') break;
    text.push_back(c == '\\' ? unescape(at, end) : c);
  }
  string_ = String(text);
  it = at;
}

std::ostream& operator<<(std::ostream& out, const Name& name) {
  return out << name.string();
}

String valueToStrep(const Name& name) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out = "'";
  for (char c : name.string().view()) {
    auto byte = static_cast<unsigned char>(c);
    if (c == '\'' || c == '\\') {
      out += '\\';
      out += c;
    } else if (byte < 0x20 || byte >= 0x7f) {
      out += "\\x";
      out += kDigits[byte >> 4];
      out += kDigits[byte & 15];
    } else {
      out += c;
    }
  }
  out += '\'';
  return String(out);
}

}  // namespace Kel
