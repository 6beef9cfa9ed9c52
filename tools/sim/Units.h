#ifndef MORVIK_SIM_UNITS_H
#define MORVIK_SIM_UNITS_H

#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace MorvikSim {

// Reading and writing the quantities a user types and reads: byte counts with binary suffixes
// ("64K", "1M", "4096") and chassis durations ("90s", "15m", "1.5h", "3600").
// The parsers throw UsageError with a one-line message that names the offending text.

// Bytes: a decimal or 0x-prefixed count, with an optional K, M or G suffix (powers of 1024).
U64 parseBytes(std::string_view text);
// Seconds: a number with an optional unit ms, s, m or h; no unit means seconds.
double parseSeconds(std::string_view text);
// A non-negative decimal number (rates, weights).
double parseNumber(std::string_view text);
// A decimal unsigned integer.
U64 parseCount(std::string_view text);

// "1.81 MiB", "64 KiB", "512 B".
std::string formatBytes(double bytes);
// "1h00m00s", "5m30s", "12.5 s", "340 ms".
std::string formatSeconds(double seconds);
// Nanoseconds as "312 ns", "4.1 us" or "2.3 ms".
std::string formatNanoseconds(double ns);

}  // namespace MorvikSim

#endif
