#ifndef MORVIK_PYTHON_PRECONDITION_H
#define MORVIK_PYTHON_PRECONDITION_H

#include <stdexcept>
#include <string>

#include "Kel/Types.h"

namespace morvikpy {

// A call from a script that the library would answer with an assertion, a fault or a wild store.
// It reaches Python as morvik.PreconditionError before the library has run anything.
class PreconditionFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "<call>: <why>", followed, when the library would have asserted, by its condition text.
[[noreturn]] void refuse(const std::string& call, const std::string& why,
                         const char* assertion = nullptr);

// Whether calls from Python are checked; `with morvik.unchecked():` turns it off for its block.
bool checksOn();
void checksOnIs(bool on);

// "0x7f3a2c001000"
std::string hex(U64 value);
// "60", "1e-300", "nan": a number of seconds as a message shows it.
std::string decimal(double value);
// "[100, 8292)": a byte range as the messages show it; the end is computed without wrapping.
std::string byteRange(U64 start, U64 size);

}  // namespace morvikpy

#endif
