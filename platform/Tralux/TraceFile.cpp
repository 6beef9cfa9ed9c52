#include "Tralux/TraceFile.h"

namespace Tralux {

TraceFile::TraceFile(const TraceHandle& handle, std::thread::id owner)
    : handle_(handle), owner_(owner) {}

}  // namespace Tralux
