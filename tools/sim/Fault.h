#ifndef MORVIK_SIM_FAULT_H
#define MORVIK_SIM_FAULT_H

#include <optional>
#include <string>

#include "Kel/Types.h"

namespace MorvikSim {

// One fault the user (or the default schedule) asks for, at a time in chassis seconds from the
// start of the run.
struct Fault {
  enum class Kind { corrupt, silent, away, chunk };

  Kind kind = Kind::corrupt;
  double at = 0.0;
  // corrupt, silent: the feature; empty means one chosen from the seed.
  std::string feature;
  // corrupt: the byte offset inside the feature; unset means one chosen from the seed.
  std::optional<U32> offset;
  // silent, away: how long; 0 means the default for the kind.
  double duration = 0.0;
  // chunk: the new chunk size; 0 means the next one of the run's chunk sizes.
  U32 chunkSize = 0;
  // away: publish no record at all instead of a record whose address is 0.
  bool nullRecord = false;
};

const char* kindName(Fault::Kind kind);

}  // namespace MorvikSim

#endif
