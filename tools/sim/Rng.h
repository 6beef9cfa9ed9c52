#ifndef MORVIK_SIM_RNG_H
#define MORVIK_SIM_RNG_H

#include <cmath>

#include "Kel/Types.h"

namespace MorvikSim {

// A small generator whose sequence is fixed by its seed on every platform and standard library
// (xoshiro256** seeded through splitmix64), so a seed names one run exactly.
class Rng {
 public:
  explicit Rng(U64 seed) {
    for (U64& word : state_) word = splitmix(seed);
  }

  U64 next() {
    const U64 result = rotl(state_[1] * 5, 7) * 9;
    const U64 t = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= t;
    state_[3] = rotl(state_[3], 45);
    return result;
  }

  // Uniform in [0, bound); 0 when bound is 0.
  U64 below(U64 bound) {
    if (bound == 0) return 0;
    // Rejection keeps it unbiased; the loop almost never repeats.
    const U64 limit = ~U64{0} - (~U64{0} % bound);
    U64 value;
    do value = next();
    while (value >= limit);
    return value % bound;
  }

  // Uniform in [lo, hi].
  U64 between(U64 lo, U64 hi) { return lo + below(hi - lo + 1); }

  // Uniform in [0, 1).
  double real() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

  // Exponentially distributed with this mean: the gaps of a Poisson stream.
  double exponential(double mean) { return -mean * std::log1p(-real()); }

 private:
  static U64 rotl(U64 x, int k) { return (x << k) | (x >> (64 - k)); }
  static U64 splitmix(U64& x) {
    U64 z = (x += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }

  U64 state_[4];
};

}  // namespace MorvikSim

#endif
