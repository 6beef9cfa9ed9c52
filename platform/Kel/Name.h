#ifndef KEL_NAME_H
#define KEL_NAME_H

#include <iosfwd>
#include <string>

#include "Kel/String.h"

namespace Kel {

// The name of an entity: a string with a type of its own, so a name is never mistaken for data.
class Name {
 public:
  Name() = default;
  Name(const char* text) : string_(text) {}
  Name(const std::string& text) : string_(text) {}
  explicit Name(const String& text) : string_(text) {}
  // Parses the quoted representation written by valueToStrep(Name), advancing it past it.
  // Throws RangeException when the text is not a well-formed quoted name.
  Name(String::IteratorConst& it, const String::IteratorConst& end);

  const String& string() const { return string_; }
  const char* charPtr() const { return string_.charPtr(); }
  bool empty() const { return string_.empty(); }

  bool operator==(const Name& other) const { return string_ == other.string_; }
  bool operator<(const Name& other) const { return string_ < other.string_; }

 private:
  String string_;
};

std::ostream& operator<<(std::ostream& out, const Name& name);

// Quoted form: single quotes; a quote, a backslash and every byte outside printable ASCII are
// escaped (\', \\, \xHH), so any byte sequence round-trips through the parser.
String valueToStrep(const Name& name);

}  // namespace Kel

#endif
