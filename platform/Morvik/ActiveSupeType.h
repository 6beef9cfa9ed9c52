#ifndef MORVIK_ACTIVESUPETYPE_H
#define MORVIK_ACTIVESUPETYPE_H

#include <iosfwd>

#include "Kel/Types.h"

namespace Morvik {

// The supervisor's role as published in the status. Only activeSupeStandby says that this card is
// not the active one; the mirror treats every other value as active, and activeSupeNone (role not
// known yet) also keeps the audit away.
enum ActiveSupeType : U32 {
  activeSupeNone = 0,
  activeSupeActive = 1,
  activeSupeStandby = 2,
};

// The number, in decimal, so that values outside the named ones still read plainly in traces.
std::ostream& operator<<(std::ostream& out, ActiveSupeType value);

}  // namespace Morvik

#endif
