#include "ostra/OstraMappedBytes.h"

#include <sys/mman.h>

namespace ostra {

MappedBytes::MappedBytes(int fd, std::size_t bytes, int prot) : bytes_(bytes) {
  void* data = mmap(nullptr, bytes, prot, MAP_SHARED, fd, 0);
  if (data != MAP_FAILED) data_ = data;
}

MappedBytes::~MappedBytes() {
  if (data_ != nullptr) munmap(data_, bytes_);
}

}  // namespace ostra
