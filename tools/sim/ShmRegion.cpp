#include "ShmRegion.h"

#include "ostra/ostra.h"

namespace MorvikSim {

U64 ShmRegion::allocate(U32 length, const char* owner) {
  const U64 paddr = ostra_alloc_func(name_.c_str(), length, owner);
  if (paddr != 0) owned_ = true;
  return paddr;
}

const U8* ShmRegion::view(U32 length) {
  if (view_ == 0) {
    view_ = ostra_map(name_.c_str(), 0, 0, length);
    viewLength_ = view_ != 0 ? length : 0;
  }
  return reinterpret_cast<const U8*>(view_);
}

void ShmRegion::release() {
  if (view_ != 0) ostra_unmap(name_.c_str(), view_, viewLength_);
  view_ = 0;
  viewLength_ = 0;
  if (owned_) ostra_free(name_.c_str());
  owned_ = false;
}

}  // namespace MorvikSim
