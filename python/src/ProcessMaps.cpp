#include "ProcessMaps.h"

#include <cinttypes>
#include <cstdio>
#include <memory>

namespace morvikpy {

ProcessMaps ProcessMaps::current() {
  ProcessMaps maps;
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/proc/self/maps", "r"), &std::fclose);
  if (!file) return maps;
  char line[4096];
  while (std::fgets(line, sizeof line, file.get())) {
    Entry entry{};
    char perms[8] = {};
    int pathAt = 0;
    if (std::sscanf(line, "%" SCNx64 "-%" SCNx64 " %7s %*s %*s %*s %n", &entry.start, &entry.end,
                    perms, &pathAt) < 3) {
      continue;
    }
    if (pathAt > 0) {
      entry.path = line + pathAt;
      while (!entry.path.empty() && (entry.path.back() == '\n' || entry.path.back() == ' ')) {
        entry.path.pop_back();
      }
    }
    entry.read = perms[0] == 'r';
    entry.write = perms[1] == 'w';
    maps.entries_.push_back(entry);
  }
  return maps;
}

bool ProcessMaps::covers(U64 start, U64 size, Access access) const {
  if (size == 0) return true;
  const unsigned __int128 end = static_cast<unsigned __int128>(start) + size;
  unsigned __int128 at = start;
  // The kernel lists mappings in address order; a range may span several adjacent ones.
  for (const Entry& entry : entries_) {
    if (entry.end <= at) continue;
    if (entry.start > at) return false;
    if (access != Access::none && !entry.read) return false;
    if (access == Access::write && !entry.write) return false;
    at = entry.end;
    if (at >= end) return true;
  }
  return false;
}

}  // namespace morvikpy

namespace morvikpy {

std::string ProcessMaps::pathAt(U64 address) const {
  for (const Entry& entry : entries_) {
    if (entry.start <= address && address < entry.end) return entry.path;
  }
  return {};
}

}  // namespace morvikpy
