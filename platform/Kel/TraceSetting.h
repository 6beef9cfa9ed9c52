#ifndef KEL_TRACESETTING_H
#define KEL_TRACESETTING_H

#include <string_view>

#include "Kel/Types.h"

namespace Kel {

// The set of levels, one bit per level, that the operator's trace setting (the text of
// "KEL_TRACE") enables for the handle called name.
//
// The text is a list of parts separated by ',' or ';'. A part "Name/item" names a handle (exactly,
// or "*" for every handle) and its first level item; a part without a slash adds one more item to
// the handle named last, so "MorvikLib/0,5,8-9;Other/*" reads as expected. An item is a level
// 0..31, a range "a-b" with a <= b, or "*" for every level. Blanks around parts are ignored. A
// part that does not read is skipped on its own: a typo must not cost the operator the rest of
// the setting, nor the process.
U32 traceLevels(std::string_view text, std::string_view name);

}  // namespace Kel

#endif
