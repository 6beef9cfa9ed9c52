#include "JsonWriter.h"

#include <cmath>
#include <cstdio>

namespace MorvikSim {

std::string JsonWriter::quote(std::string_view text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (c < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

void JsonWriter::newline() {
  out_ << '\n' << std::string(2 * levels_.size(), ' ');
}

void JsonWriter::beforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (levels_.empty()) return;
  if (levels_.back().members++ > 0) out_ << ',';
  newline();
}

JsonWriter& JsonWriter::open(char bracket, bool object) {
  beforeValue();
  out_ << bracket;
  levels_.push_back({object, 0});
  return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
  const bool empty = levels_.back().members == 0;
  levels_.pop_back();
  if (!empty) newline();
  out_ << bracket;
  if (levels_.empty()) out_ << '\n';
  return *this;
}

JsonWriter& JsonWriter::beginObject() {
  return open('{', true);
}
JsonWriter& JsonWriter::endObject() {
  return close('}');
}
JsonWriter& JsonWriter::beginArray() {
  return open('[', false);
}
JsonWriter& JsonWriter::endArray() {
  return close(']');
}

JsonWriter& JsonWriter::key(std::string_view name) {
  beforeValue();
  out_ << quote(name) << ": ";
  afterKey_ = true;
  return *this;
}

JsonWriter& JsonWriter::value(std::string_view text) {
  beforeValue();
  out_ << quote(text);
  return *this;
}

JsonWriter& JsonWriter::value(bool flag) {
  beforeValue();
  out_ << (flag ? "true" : "false");
  return *this;
}

JsonWriter& JsonWriter::value(U64 number) {
  beforeValue();
  out_ << number;
  return *this;
}

JsonWriter& JsonWriter::value(int number) {
  beforeValue();
  out_ << number;
  return *this;
}

JsonWriter& JsonWriter::value(double number) {
  beforeValue();
  if (!std::isfinite(number)) {
    out_ << "null";
    return *this;
  }
  char text[40];
  std::snprintf(text, sizeof text, "%.9g", number);
  out_ << text;
  return *this;
}

}  // namespace MorvikSim
