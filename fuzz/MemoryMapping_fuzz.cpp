#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "Kel/Exception.h"
#include "Kel/String.h"
#include "MorvikLib/MemoryMapping.h"

namespace {

using MorvikLib::MemoryMapping;

[[noreturn]] void fail(const char* what, const MemoryMapping& value) {
  std::fprintf(stderr, "%s: %s\n", what, MorvikLib::valueToStrep(value).charPtr());
  std::abort();
}

// Whatever parses must print back to text that parses to the same value, and to the same text.
void checkRoundTrip(const MemoryMapping& value) {
  const Kel::String text = MorvikLib::valueToStrep(value);
  Kel::String::IteratorConst it = text.begin();
  std::optional<MemoryMapping> again;
  try {
    again.emplace(it, text.end());
  } catch (const Kel::Exception&) {
    fail("printed form does not parse", value);
  }
  if (it != text.end()) fail("parser stopped inside the printed form", value);
  if (!(*again == value) || value < *again || *again < value) fail("round trip changed", value);
  if (!(MorvikLib::valueToStrep(*again) == text)) fail("printed form not stable", value);
}

void parsePrefix(const Kel::String& input) {
  Kel::String::IteratorConst it = input.begin();
  try {
    const MemoryMapping value(it, input.end());
    if (it < input.begin() || it > input.end()) fail("iterator left the input", value);
    checkRoundTrip(value);
  } catch (const Kel::Exception&) {
  }
}

void parseWhole(const Kel::String& input) {
  try {
    checkRoundTrip(MemoryMapping::fromStrRep(input));
  } catch (const Kel::Exception&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Kel::String input(reinterpret_cast<const char*>(data), size);
  parsePrefix(input);
  parseWhole(input);
  return 0;
}
