#include "ostra/OstraReclaim.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "ostra/OstraFd.h"
#include "ostra/OstraKey.h"
#include "ostra/OstraRegion.h"

namespace ostra {

namespace {

bool alive(std::uint64_t pid, std::uint64_t start) {
  return pid != 0 && start != 0 && processStart(static_cast<pid_t>(pid)) == start;
}

// A mapping of an object removed since shows as "(deleted)" and is not the region's.
bool mapsObject(pid_t pid, const std::string& path) {
  std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.size() >= path.size() &&
        line.compare(line.size() - path.size(), path.size(), path) == 0 &&
        line[line.size() - path.size() - 1] == ' ') {
      return true;
    }
  }
  return false;
}

pid_t processMapping(const std::string& objectName) {
  const std::string path = "/dev/shm" + objectName;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    const auto pid = static_cast<pid_t>(std::atol(name.c_str()));
    if (pid > 0 && name.find_first_not_of("0123456789") == std::string::npos &&
        mapsObject(pid, path)) {
      return pid;
    }
  }
  return 0;
}

}  // namespace

// Allocates nothing: regions are made on paths that should not touch the heap for it.
std::uint64_t processStart(pid_t pid) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  const UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
  char stat[1024];
  const ssize_t n = fd.valid() ? ::read(fd.get(), stat, sizeof stat - 1) : -1;
  if (n <= 0) return 0;
  stat[n] = '\0';
  // "pid (comm) state ppid ...": the name may hold blanks and parentheses, so the fields are
  // counted from the last ')'; the start time is the 22nd field.
  const char* field = std::strrchr(stat, ')');
  for (int i = 2; field != nullptr && i < 22; ++i) field = std::strchr(field + 1, ' ');
  return field != nullptr ? std::strtoull(field + 1, nullptr, 10) : 0;
}

pid_t reclaimRegion(std::string_view vmid, std::string_view name) {
  const RegionKey key{std::string(vmid), std::string(name), objectNameFor(vmid, name)};
  if (!UniqueFd(shm_open(key.objectName.c_str(), O_RDONLY, 0)).valid()) return 0;
  const Region region = Region::open(key, false);
  if (region.valid() && alive(region.info().creatorPid, region.info().creatorStart)) {
    return static_cast<pid_t>(region.info().creatorPid);
  }
  if (const pid_t mapper = processMapping(key.objectName)) return mapper;
  shm_unlink(key.objectName.c_str());
  return 0;
}

pid_t reclaimRegion(const char* name) {
  const std::optional<RegionKey> key = currentKey(name);
  return key ? reclaimRegion(key->vmid, key->name) : 0;
}

}  // namespace ostra
