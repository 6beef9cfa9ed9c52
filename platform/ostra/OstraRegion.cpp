#include "ostra/OstraRegion.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace ostra {

namespace {

// A creator publishes its header microseconds after creating the object; one that has not done
// so by then has died, and its region stays unusable until freed.
constexpr auto kCreatorGrace = std::chrono::seconds(2);
constexpr int kYieldsBeforeSleeping = 100;
// An object freed between our failed create and our open sends us round again; bounded in case
// another process keeps freeing it.
constexpr int kAllocateAttempts = 8;

HeaderState awaitHeader(int fd, const RegionKey& key, RegionInfo& info) {
  const auto deadline = std::chrono::steady_clock::now() + kCreatorGrace;
  for (int round = 0;; ++round) {
    const HeaderState state = readRegionHeader(fd, key, info);
    if (state != HeaderState::pending) return state;
    if (std::chrono::steady_clock::now() >= deadline) return HeaderState::bad;
    if (round < kYieldsBeforeSleeping) {
      std::this_thread::yield();
    } else {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }
}

}  // namespace

Region Region::allocate(const RegionKey& key, std::uint32_t length, std::string_view owner) {
  const char* object = key.objectName.c_str();
  for (int attempt = 0; attempt < kAllocateAttempts; ++attempt) {
    UniqueFd created(shm_open(object, O_RDWR | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR));
    if (created.valid()) return create(std::move(created), key, length, owner);
    if (errno != EEXIST) return Region();
    UniqueFd existing(shm_open(object, O_RDONLY, 0));
    if (!existing.valid() && errno == ENOENT) continue;
    Region region = fromExisting(std::move(existing), key);
    if (region.valid() && region.info_.length < length) return Region();
    return region;
  }
  return Region();
}

Region Region::open(const RegionKey& key, bool writable) {
  return fromExisting(UniqueFd(shm_open(key.objectName.c_str(), writable ? O_RDWR : O_RDONLY, 0)),
                      key);
}

Region Region::create(UniqueFd fd, const RegionKey& key, std::uint32_t length,
                      std::string_view owner) {
  if (!writeRegionHeader(fd.get(), key, length, owner)) {
    shm_unlink(key.objectName.c_str());
    return Region();
  }
  return fromExisting(std::move(fd), key);
}

Region Region::fromExisting(UniqueFd fd, const RegionKey& key) {
  if (!fd.valid()) return Region();
  RegionInfo info;
  if (awaitHeader(fd.get(), key, info) != HeaderState::ready) return Region();
  return Region(std::move(fd), info);
}

}  // namespace ostra
