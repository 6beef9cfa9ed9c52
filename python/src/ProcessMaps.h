#ifndef MORVIK_PYTHON_PROCESSMAPS_H
#define MORVIK_PYTHON_PROCESSMAPS_H

#include <string>
#include <vector>

#include "Kel/Types.h"

namespace morvikpy {

// The process's memory mappings as /proc/self/maps lists them at one moment: what a buffer
// address, a mapping handed to the library or a store the library is about to make can be checked
// against.
class ProcessMaps {
 public:
  enum class Access { none, read, write };  // none: mapped, whatever its protection

  static ProcessMaps current();

  // Whether every byte of [start, start + size) lies in mappings allowing `access`; an empty
  // range is covered wherever it starts.
  bool covers(U64 start, U64 size, Access access) const;
  // The file mapped at `address` ("/dev/shm/...", "/dev/mem"); empty for anonymous memory or none.
  std::string pathAt(U64 address) const;

 private:
  struct Entry {
    U64 start;
    U64 end;
    bool read;
    bool write;
    std::string path;
  };

  std::vector<Entry> entries_;
};

}  // namespace morvikpy

#endif
