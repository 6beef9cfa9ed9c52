#include "Units.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "UsageError.h"

namespace MorvikSim {

namespace {

[[noreturn]] void bad(std::string_view what, std::string_view text) {
  throw UsageError("bad " + std::string(what) + " '" + std::string(text) + "'");
}

// The whole text must be one number; strtod alone would accept "12abc" and "nan".
double wholeNumber(std::string_view text, std::string_view what) {
  std::string copy(text);
  if (copy.empty() || std::isspace(static_cast<unsigned char>(copy[0]))) bad(what, text);
  char* end = nullptr;
  errno = 0;
  double value = std::strtod(copy.c_str(), &end);
  if (errno != 0 || end != copy.c_str() + copy.size() || !std::isfinite(value) || value < 0) {
    bad(what, text);
  }
  return value;
}

U64 wholeInteger(std::string_view text, std::string_view what) {
  std::string copy(text);
  if (copy.empty() || copy[0] == '-' || copy[0] == '+' ||
      std::isspace(static_cast<unsigned char>(copy[0]))) {
    bad(what, text);
  }
  char* end = nullptr;
  errno = 0;
  unsigned long long value = std::strtoull(copy.c_str(), &end, 0);
  if (errno != 0 || end != copy.c_str() + copy.size()) bad(what, text);
  return value;
}

bool endsWith(std::string_view text, std::string_view suffix) {
  return text.size() > suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

}  // namespace

U64 parseBytes(std::string_view text) {
  U64 scale = 1;
  std::string_view digits = text;
  if (!text.empty()) {
    switch (text.back()) {
      case 'K':
      case 'k':
        scale = U64{1} << 10;
        break;
      case 'M':
        scale = U64{1} << 20;
        break;
      case 'G':
        scale = U64{1} << 30;
        break;
      default:
        break;
    }
    if (scale != 1) digits.remove_suffix(1);
  }
  U64 value = 0;
  try {
    value = wholeInteger(digits, "size");
  } catch (const UsageError&) {
    bad("size", text);
  }
  if (value > ~U64{0} / scale) bad("size", text);
  return value * scale;
}

double parseSeconds(std::string_view text) {
  double scale = 1.0;
  std::string_view digits = text;
  if (endsWith(text, "ms")) {
    scale = 1e-3;
    digits.remove_suffix(2);
  } else if (endsWith(text, "s")) {
    digits.remove_suffix(1);
  } else if (endsWith(text, "m")) {
    scale = 60.0;
    digits.remove_suffix(1);
  } else if (endsWith(text, "h")) {
    scale = 3600.0;
    digits.remove_suffix(1);
  }
  try {
    return wholeNumber(digits, "duration") * scale;
  } catch (const UsageError&) {
    bad("duration", text);
  }
}

double parseNumber(std::string_view text) {
  return wholeNumber(text, "number");
}

U64 parseCount(std::string_view text) {
  return wholeInteger(text, "count");
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
  if (seconds < 1.0) {
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
