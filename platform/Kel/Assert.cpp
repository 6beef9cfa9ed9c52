#include "Kel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

void assertionFailed(const char* conditionText, const char* functionText, const char* file,
                     int line) {
  std::fprintf(stderr, "Assertion failed: %s\n  in %s\n  at %s:%d\n", conditionText, functionText,
               file, line);
  std::fflush(stderr);
  std::abort();
}

void fatalError(const char* message) {
  std::fprintf(stderr, "Kel fatal error: %s\n", message);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Kel
