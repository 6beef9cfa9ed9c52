#ifndef MORVIK_SIM_USAGEERROR_H
#define MORVIK_SIM_USAGEERROR_H

#include <stdexcept>
#include <string>

namespace MorvikSim {

// A bad option or value: reported on one line, and the run exits with status 2 before anything
// is allocated.
class UsageError : public std::runtime_error {
 public:
  explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace MorvikSim

#endif
