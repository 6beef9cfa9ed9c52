#include "Units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "UsageError.h"

namespace MorvikSim {

namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The length of the decimal number at the start of text, 0 when there is none: digits, and unless
// `whole`, a sign, a fraction and an exponent ("-1.5e3").
std::size_t numberLength(std::string_view t, bool whole) {
  std::size_t i = 0;
  const auto digits = [&] {
    const std::size_t start = i;
    while (i < t.size() && isDigit(t[i])) ++i;
    return i > start;
  };
  if (!whole && i < t.size() && (t[i] == '-' || t[i] == '+')) ++i;
  if (!digits()) return 0;
  if (whole) return i;
  if (i < t.size() && t[i] == '.') {
    ++i;
    if (!digits()) return 0;
  }
  if (i < t.size() && (t[i] == 'e' || t[i] == 'E')) {
    ++i;
    if (i < t.size() && (t[i] == '-' || t[i] == '+')) ++i;
    if (!digits()) return 0;
  }
  return i;
}

double decimal(std::string_view digits) {
  return std::strtod(std::string(digits).c_str(), nullptr);
}

std::string span(double min, double max) {
  char text[64];
  std::snprintf(text, sizeof text, "from %.15g to %.15g", min, max);
  return text;
}

}  // namespace

void refuse(std::string_view label, std::string_view text, const std::string& want) {
  throw UsageError(std::string(label) + " '" + shown(text) + "': want " + want);
}

// Longer values are cut, so that a runaway argument cannot flood the terminal.
std::string shown(std::string_view text, std::size_t most) {
  std::string out;
  for (const char c : text.substr(0, most)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7f) {
      out += c;
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      out += escaped;
    }
  }
  return text.size() > most ? out + "..." : out;
}

// CLI11's AsNumberWithUnit would do, but it writes its result back with six significant digits
// ("1234.5678s" would become 1234.57 s); seconds are scaled here instead.
double readSeconds(std::string_view label, std::string_view text, double min, double max) {
  const std::string want = "a time from " + formatSeconds(min) + " to " + formatSeconds(max) +
                           " (a decimal number, unit ms, s, m or h)";
  const std::size_t n = numberLength(text, false);
  if (n == 0) refuse(label, text, want);
  const std::string_view unit = text.substr(n);
  double scale = 1.0;
  if (unit == "ms") {
    scale = 1e-3;
  } else if (unit == "m") {
    scale = 60.0;
  } else if (unit == "h") {
    scale = 3600.0;
  } else if (!unit.empty() && unit != "s") {
    refuse(label, text, want);
  }
  const double value = decimal(text.substr(0, n)) * scale;
  // Also refuses what overflowed to infinity.
  if (!(value >= min && value <= max)) refuse(label, text, want);
  return value;
}

U64 readBytes(std::string_view label, std::string_view text, U64 min, U64 max) {
  const std::string want = "a size from " + formatBytes(static_cast<double>(min)) + " to " +
                           formatBytes(static_cast<double>(max)) +
                           " (a whole decimal number, suffix K, M or G)";
  const std::size_t n = numberLength(text, true);
  const std::string_view suffix = text.substr(n);
  if (n == 0 || !std::all_of(suffix.begin(), suffix.end(),
                             [](char c) { return std::isalpha(static_cast<unsigned char>(c)); })) {
    refuse(label, text, want);
  }
  // CLI11 reads the digits with base prefixes, so a leading 0 would make them octal.
  const std::size_t zeros = std::min(text.find_first_not_of('0'), n - 1);
  std::string value(text.substr(zeros));
  static const CLI::AsSizeValue scaled(false);
  try {
    if (!scaled(value).empty()) refuse(label, text, want);
  } catch (const CLI::Error&) {
    refuse(label, text, want);
  }
  U64 bytes = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), bytes);
  if (error != std::errc() || end != value.data() + value.size() || bytes < min || bytes > max) {
    refuse(label, text, want);
  }
  return bytes;
}

double readNumber(std::string_view label, std::string_view text, double min, double max) {
  const double value =
      numberLength(text, false) == text.size() && !text.empty() ? decimal(text) : std::nan("");
  if (!(value >= min && value <= max)) refuse(label, text, "a decimal number " + span(min, max));
  return value;
}

U64 readCount(std::string_view label, std::string_view text, U64 min, U64 max) {
  U64 value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (numberLength(text, true) != text.size() || error != std::errc() ||
      end != text.data() + text.size() || value < min || value > max) {
    refuse(label, text,
           "a whole decimal number from " + std::to_string(min) + " to " + std::to_string(max));
  }
  return value;
}

std::string formatBytes(double bytes) {
  static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  int unit = 0;
  while (std::fabs(bytes) >= 1024.0 && unit < 4) {
    bytes /= 1024.0;
    ++unit;
  }
  char text[48];
  if (unit == 0 || bytes == std::floor(bytes)) {
    std::snprintf(text, sizeof text, "%.0f %s", bytes, units[unit]);
  } else {
    std::snprintf(text, sizeof text, "%.2f %s", bytes, units[unit]);
  }
  return text;
}

std::string formatSeconds(double seconds) {
  char text[48];
  if (!std::isfinite(seconds) || std::fabs(seconds) >= 1e9) {
    std::snprintf(text, sizeof text, "%.3g s", seconds);
  } else if (seconds < 1.0) {
    std::snprintf(text, sizeof text, "%.0f ms", seconds * 1e3);
  } else if (seconds < 60.0) {
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  } else {
    long total = std::lround(seconds);
    long h = total / 3600, m = total / 60 % 60, s = total % 60;
    if (h > 0) {
      std::snprintf(text, sizeof text, "%ldh%02ldm%02lds", h, m, s);
    } else {
      std::snprintf(text, sizeof text, "%ldm%02lds", m, s);
    }
  }
  return text;
}

std::string formatNanoseconds(double ns) {
  char text[48];
  if (ns < 1e3) {
    std::snprintf(text, sizeof text, "%.0f ns", ns);
  } else if (ns < 1e6) {
    std::snprintf(text, sizeof text, "%.1f us", ns / 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.1f ms", ns / 1e6);
  }
  return text;
}

}  // namespace MorvikSim
