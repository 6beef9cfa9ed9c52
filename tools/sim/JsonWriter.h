#ifndef MORVIK_SIM_JSONWRITER_H
#define MORVIK_SIM_JSONWRITER_H

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Types.h"

namespace MorvikSim {

// Writes JSON as it goes, indented with one member per line, so that scripts can also pick a field
// out with line tools. Not finite doubles are written as null.
class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& out) : out_(out) {}

  JsonWriter& beginObject();
  JsonWriter& endObject();
  JsonWriter& beginArray();
  JsonWriter& endArray();
  JsonWriter& key(std::string_view name);

  JsonWriter& value(std::string_view text);
  JsonWriter& value(const char* text) { return value(std::string_view(text)); }
  JsonWriter& value(const std::string& text) { return value(std::string_view(text)); }
  JsonWriter& value(bool flag);
  JsonWriter& value(U64 number);
  JsonWriter& value(U32 number) { return value(static_cast<U64>(number)); }
  JsonWriter& value(int number);
  JsonWriter& value(double number);

  template <class T>
  JsonWriter& field(std::string_view name, const T& v) {
    key(name);
    return value(v);
  }

  // The JSON string literal for text, quotes included.
  static std::string quote(std::string_view text);

 private:
  void beforeValue();
  void newline();
  JsonWriter& open(char bracket, bool object);
  JsonWriter& close(char bracket);

  struct Level {
    bool object;
    std::size_t members;
  };

  std::ostream& out_;
  std::vector<Level> levels_;
  bool afterKey_ = false;
};

}  // namespace MorvikSim

#endif
