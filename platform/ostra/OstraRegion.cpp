#include "ostra/OstraRegion.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "ostra/OstraReclaim.h"

namespace ostra {

namespace {

// A shared mapping of the start of a file, unmapped when it goes; null when it could not be had.
auto mapStart(int fd, std::size_t bytes, int prot) {
  void* data = mmap(nullptr, bytes, prot, MAP_SHARED, fd, 0);
  auto unmap = [bytes](void* p) { munmap(p, bytes); };
  return std::unique_ptr<void, decltype(unmap)>(data == MAP_FAILED ? nullptr : data, unmap);
}

enum class HeaderState { ready, pending, bad };

constexpr std::uint64_t kMagic = 0x3147455241525453ull;  // "STRAREG1"
constexpr std::uint32_t kLayout = 2;
constexpr std::size_t kOwnerBytes = 256;

// The start of every region object; the machine and region name follow it, then padding up to
// headerBytes, then the region's bytes.
struct RegionHeader {
  std::uint64_t magic;
  std::uint32_t layout;
  std::uint32_t headerBytes;
  std::uint64_t length;
  std::uint64_t paddr;
  std::uint32_t vmidBytes;
  std::uint32_t nameBytes;
  std::uint64_t creatorPid;
  std::uint64_t creatorStart;
  char owner[kOwnerBytes];
};

std::string_view ownerOf(const RegionHeader& header) {
  return {header.owner, strnlen(header.owner, kOwnerBytes)};
}

char* keyBytes(RegionHeader* header) {
  return reinterpret_cast<char*>(header + 1);
}

std::uint64_t headerBytesFor(const RegionKey& key) {
  return roundUpToPage(sizeof(RegionHeader) + key.vmid.size() + key.name.size());
}

void fillHeader(RegionHeader* header, const RegionKey& key, std::uint32_t length,
                std::string_view owner) {
  header->layout = kLayout;
  header->headerBytes = static_cast<std::uint32_t>(headerBytesFor(key));
  header->length = length;
  header->paddr = physicalAddressFor(key.name);
  header->vmidBytes = static_cast<std::uint32_t>(key.vmid.size());
  header->nameBytes = static_cast<std::uint32_t>(key.name.size());
  header->creatorPid = static_cast<std::uint64_t>(getpid());
  header->creatorStart = processStart(getpid());
  const std::size_t ownerBytes = std::min(owner.size(), kOwnerBytes - 1);
  std::memcpy(header->owner, owner.data(), ownerBytes);
  header->owner[ownerBytes] = '\0';
  std::memcpy(keyBytes(header), key.vmid.data(), key.vmid.size());
  std::memcpy(keyBytes(header) + key.vmid.size(), key.name.data(), key.name.size());
}

std::uint64_t loadMagic(RegionHeader* header) {
  return std::atomic_ref<std::uint64_t>(header->magic).load(std::memory_order_acquire);
}

bool plausible(const RegionHeader& header, const RegionKey& key, std::uint64_t fileBytes) {
  return header.layout == kLayout && header.headerBytes % pageBytes() == 0 &&
         header.vmidBytes == key.vmid.size() && header.nameBytes == key.name.size() &&
         header.headerBytes >= sizeof(RegionHeader) + header.vmidBytes + header.nameBytes &&
         fileBytes >= header.headerBytes + roundUpToPage(header.length);
}

// Two machine/name pairs may hash to the same object name; the stored key tells them apart.
bool sameKey(int fd, std::uint32_t headerBytes, const RegionKey& key) {
  auto view = mapStart(fd, headerBytes, PROT_READ);
  if (!view) return false;
  const char* stored = keyBytes(static_cast<RegionHeader*>(view.get()));
  return std::string_view(stored, key.vmid.size()) == key.vmid &&
         std::string_view(stored + key.vmid.size(), key.name.size()) == key.name;
}

// Sizes a freshly created object and fills its header; the header is published (its magic
// stored) last, so readers never see half of it.
bool writeHeader(int fd, const RegionKey& key, std::uint32_t length, std::string_view owner) {
  const std::uint64_t headerBytes = headerBytesFor(key);
  // shm_open applies the umask; set the mode outright so it is exactly owner read-write.
  if (fchmod(fd, S_IRUSR | S_IWUSR) != 0) return false;
  if (ftruncate(fd, static_cast<off_t>(headerBytes + roundUpToPage(length))) != 0) return false;
  auto view = mapStart(fd, headerBytes, PROT_READ | PROT_WRITE);
  if (!view) return false;
  auto* header = static_cast<RegionHeader*>(view.get());
  fillHeader(header, key, length, owner);
  std::atomic_ref<std::uint64_t>(header->magic).store(kMagic, std::memory_order_release);
  return true;
}

// pending while the creator has not published the header yet; bad when the object is not a
// region of `key` (another layout, a hash collision, a truncated object).
HeaderState readHeader(int fd, const RegionKey& key, RegionInfo& info) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return HeaderState::bad;
  const auto fileBytes = static_cast<std::uint64_t>(status.st_size);
  if (fileBytes < pageBytes()) return HeaderState::pending;  // not sized by its creator yet
  auto view = mapStart(fd, pageBytes(), PROT_READ);
  if (!view) return HeaderState::bad;
  auto* header = static_cast<RegionHeader*>(view.get());
  const std::uint64_t magic = loadMagic(header);
  if (magic == 0) return HeaderState::pending;
  if (magic != kMagic || !plausible(*header, key, fileBytes)) return HeaderState::bad;
  if (!sameKey(fd, header->headerBytes, key)) return HeaderState::bad;
  info = RegionInfo{header->length,     header->paddr,        header->headerBytes,
                    header->creatorPid, header->creatorStart, std::string(ownerOf(*header))};
  return HeaderState::ready;
}

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
    const HeaderState state = readHeader(fd, key, info);
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
  if (!writeHeader(fd.get(), key, length, owner)) {
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
