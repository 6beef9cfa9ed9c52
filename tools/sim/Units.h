#ifndef MORVIK_SIM_UNITS_H
#define MORVIK_SIM_UNITS_H

#include <string>
#include <string_view>

#include "Kel/Types.h"

namespace MorvikSim {

// Reading and writing the quantities a user types and reads: byte counts with binary suffixes
// ("64K", "1M", "4096") and chassis durations ("90s", "15m", "1.5h", "3600").
//
// Every number is read as decimal: no 0x, no octal for a leading 0, no inf or nan. A value outside
// [min, max] or not a number at all throws UsageError with one line, "<label> '<text>': want
// <what is accepted>", where label names the option (and the part of its value) being read.

// Seconds: a decimal number with an optional unit ms, s, m or h; no unit means seconds.
double readSeconds(std::string_view label, std::string_view text, double min, double max);
// Bytes: a whole decimal number with an optional suffix K, M or G (powers of 1024; KB and KiB
// also).
U64 readBytes(std::string_view label, std::string_view text, U64 min, U64 max);
// A decimal number, fractions and exponents allowed (rates, weights, shares).
double readNumber(std::string_view label, std::string_view text, double min, double max);
// A whole decimal number.
U64 readCount(std::string_view label, std::string_view text, U64 min, U64 max);

// Throws the UsageError described above.
[[noreturn]] void refuse(std::string_view label, std::string_view text, const std::string& want);
// The text as a one-line message shows it: bytes outside printable ASCII escaped, long texts cut.
std::string shown(std::string_view text, std::size_t most = 60);

// "1.81 MiB", "64 KiB", "512 B".
std::string formatBytes(double bytes);
// "1h00m00s", "5m30s", "12.5 s", "340 ms".
std::string formatSeconds(double seconds);
// Nanoseconds as "312 ns", "4.1 us" or "2.3 ms".
std::string formatNanoseconds(double ns);

}  // namespace MorvikSim

#endif
