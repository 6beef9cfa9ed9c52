#include "Kel/TraceSetting.h"

#include <charconv>

namespace Kel {

namespace {

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// A level in 0..31 written as plain decimal digits, or -1.
int levelNumber(std::string_view text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value > 31) return -1;
  return static_cast<int>(value);
}

// The bits one item stands for; 0 when the item does not read.
U32 itemLevels(std::string_view item) {
  item = trimmed(item);
  if (item == "*") return ~U32{0};
  const auto dash = item.find('-');
  const int low = levelNumber(trimmed(item.substr(0, dash)));
  const int high =
      dash == std::string_view::npos ? low : levelNumber(trimmed(item.substr(dash + 1)));
  if (low < 0 || high < low) return 0;
  return (~U32{0} >> (31 - high)) & (~U32{0} << low);
}

}  // namespace

U32 traceLevels(std::string_view text, std::string_view name) {
  U32 result = 0;
  // Whether the part read last named this handle: later bare items belong to it.
  bool current = false;
  while (!text.empty()) {
    const auto cut = text.find_first_of(",;");
    const std::string_view part = trimmed(text.substr(0, cut));
    text = cut == std::string_view::npos ? std::string_view() : text.substr(cut + 1);
    const auto slash = part.find('/');
    if (slash != std::string_view::npos) {
      const std::string_view partName = trimmed(part.substr(0, slash));
      current = !partName.empty() && (partName == name || partName == "*");
    }
    if (current)
      result |= itemLevels(slash == std::string_view::npos ? part : part.substr(slash + 1));
  }
  return result;
}

}  // namespace Kel
