#ifndef KEL_STRING_H
#define KEL_STRING_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/Ptr.h"
#include "Kel/PtrInterface.h"

namespace Kel {

// An immutable, reference-counted byte string. Copies share one payload; any byte, NUL included,
// may appear inside it.
class String {
 public:
  using IteratorConst = const char*;

  String() = default;
  String(const char* text);
  String(const char* data, std::size_t length);
  String(const std::string& text) : String(text.data(), text.size()) {}

  const char* charPtr() const;
  std::string stdString() const { return std::string(charPtr(), size()); }
  std::string_view view() const { return std::string_view(charPtr(), size()); }
  std::size_t size() const;
  bool empty() const { return size() == 0; }
  IteratorConst begin() const { return charPtr(); }
  IteratorConst end() const { return charPtr() + size(); }

  String& operator+=(const String& tail);

  bool operator==(const String& other) const { return view() == other.view(); }
  bool operator<(const String& other) const { return view() < other.view(); }
  std::uint32_t hash() const;

 private:
  // The characters live right after the payload, in one block: a string costs one allocation.
  class Payload : public PtrInterface {
   public:
    static Ptr<Payload> make(const char* data, std::size_t length);
    char* chars() { return reinterpret_cast<char*>(this + 1); }
    std::size_t length() const { return length_; }

   private:
    explicit Payload(std::size_t length) : length_(length) {}
    std::size_t length_;
  };
  Ptr<Payload> payload_;
};

std::ostream& operator<<(std::ostream& out, const String& text);

// printf-style formatting into a framework string.
String format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Kel

#endif
