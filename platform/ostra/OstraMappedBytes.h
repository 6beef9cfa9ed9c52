#ifndef OSTRA_OSTRAMAPPEDBYTES_H
#define OSTRA_OSTRAMAPPEDBYTES_H

#include <cstddef>

namespace ostra {

// A shared mapping of the start of a file, unmapped when it goes; used for region headers only.
class MappedBytes {
 public:
  MappedBytes(int fd, std::size_t bytes, int prot);
  MappedBytes(const MappedBytes&) = delete;
  MappedBytes& operator=(const MappedBytes&) = delete;
  ~MappedBytes();

  bool valid() const { return data_ != nullptr; }
  void* data() const { return data_; }

 private:
  void* data_ = nullptr;
  std::size_t bytes_ = 0;
};

}  // namespace ostra

#endif
