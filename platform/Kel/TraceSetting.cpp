#include "Kel/TraceSetting.h"

#include <charconv>

namespace Kel {

namespace {

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

// A level in 0..31 written as plain decimal digits, or -1.
int levelNumber(std::string_view text) {
  if (text.empty() || text.front() < '0' || text.front() > '9') return -1;
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return -1;
  return value < TraceSetting::kLevels ? static_cast<int>(value) : -1;
}

U32 levelRange(int low, int high) {
  const U32 upTo = high == 31 ? ~U32{0} : (U32{1} << (high + 1)) - 1;
  return upTo & ~((U32{1} << low) - 1);
}

}  // namespace

U32 TraceSetting::itemLevels(std::string_view item) {
  item = trimmed(item);
  if (item == "*") return ~U32{0};
  const auto dash = item.find('-');
  if (dash == std::string_view::npos) {
    const int level = levelNumber(item);
    return level < 0 ? 0 : U32{1} << level;
  }
  const int low = levelNumber(trimmed(item.substr(0, dash)));
  const int high = levelNumber(trimmed(item.substr(dash + 1)));
  if (low < 0 || high < low) return 0;
  return levelRange(low, high);
}

U32 TraceSetting::levels(std::string_view text, std::string_view name) {
  U32 result = 0;
  // Whether the part read last named this handle: later bare items belong to it.
  bool current = false;
  while (!text.empty()) {
    const auto cut = text.find_first_of(",;");
    const std::string_view part = trimmed(text.substr(0, cut));
    text = cut == std::string_view::npos ? std::string_view() : text.substr(cut + 1);
    const auto slash = part.find('/');
    std::string_view item = part;
    if (slash != std::string_view::npos) {
      const std::string_view partName = trimmed(part.substr(0, slash));
      current = !partName.empty() && (partName == name || partName == "*");
      item = part.substr(slash + 1);
    }
    if (current) result |= itemLevels(item);
  }
  return result;
}

}  // namespace Kel
