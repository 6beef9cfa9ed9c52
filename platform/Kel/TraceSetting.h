#ifndef KEL_TRACESETTING_H
#define KEL_TRACESETTING_H

#include <string_view>

#include "Kel/Types.h"

namespace Kel {

// Reads the operator's trace setting, the text of "KEL_TRACE". The text is a list of parts
// separated by ',' or ';'. A part "Name/items" names a handle (exactly, or "*" for every handle)
// and its first level item; a part without a slash adds one more item to the handle named last,
// so "MorvikLib/0,5,8-9;Other/*" reads as expected. An item is a level 0..31, a range "a-b" with
// a <= b, or "*" for every level. Blanks around parts are ignored. A part that does not read is
// skipped on its own: a typo must not cost the operator the rest of the setting, nor the process.
class TraceSetting {
 public:
  static constexpr int kLevels = 32;

  // The set of levels the text enables for the handle called name, one bit per level.
  static U32 levels(std::string_view text, std::string_view name);

  // The bits one item stands for; 0 when the item does not read.
  static U32 itemLevels(std::string_view item);
};

}  // namespace Kel

#endif
