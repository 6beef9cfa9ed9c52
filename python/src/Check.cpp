#include "Check.h"

namespace morvikpy {

Check Check::within(const std::string& step) const {
  Check nested(call_ + ": " + step);
  nested.maps_ = maps_;
  return nested;
}

const ProcessMaps& Check::maps() const {
  if (!*maps_) *maps_ = ProcessMaps::current();
  return **maps_;
}

}  // namespace morvikpy
