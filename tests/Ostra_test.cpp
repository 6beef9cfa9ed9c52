#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "ostra/OstraKey.h"
#include "ostra/OstraReclaim.h"
#include "ostra/ostra.h"

namespace {

std::uint8_t* bytesAt(std::uintptr_t addr) {
  return reinterpret_cast<std::uint8_t*>(addr);
}
const std::uint32_t kPage = static_cast<std::uint32_t>(sysconf(_SC_PAGESIZE));
void useVmid(const std::string& vmid) {
  setenv("SIMULATION_VMID", vmid.c_str(), 1);
}
std::string shmPath(const std::string& vmid, const std::string& name) {
  return "/dev/shm" + ostra::objectNameFor(vmid, name);
}

// Every test runs on a machine of its own and frees what it allocated there.
class OstraTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const char* previous = std::getenv("SIMULATION_VMID")) previous_ = previous;
    vmid_ = std::string("ostra-test.") +
            ::testing::UnitTest::GetInstance()->current_test_info()->name() + "." +
            std::to_string(getpid());
    useVmid(vmid_);
  }
  void TearDown() override {
    for (const auto& [vmid, name] : allocated_) {
      useVmid(vmid);
      ostra_free(name.c_str());
    }
    previous_.empty() ? unsetenv("SIMULATION_VMID")
                      : setenv("SIMULATION_VMID", previous_.c_str(), 1);
  }
  std::uint64_t alloc(const std::string& name, std::uint32_t length) {
    const std::uint64_t paddr = ostra_alloc_func(name.c_str(), length, "ostra-test");
    const char* vmid = std::getenv("SIMULATION_VMID");
    if (paddr != 0) allocated_.emplace_back(vmid ? vmid : "", name);
    return paddr;
  }

  std::string vmid_;
  std::string previous_;
  std::vector<std::pair<std::string, std::string>> allocated_;
};

// A region is made once, at a page-aligned address past 4 GiB, and its ranges map its own zeroed
// bytes at any offset, but only inside it.
TEST_F(OstraTest, RegionsAreMadeOnceAndRangesMapTheirOwnZeroedBytesOnlyInsideThem) {
  const std::uint32_t length = 3 * kPage + 100;
  const std::uint64_t paddr = alloc("Unaligned", length);
  ASSERT_NE(paddr, 0u);
  EXPECT_EQ(paddr % kPage, 0u);
  EXPECT_GE(paddr, 1ull << 32);  // a cut to 32 bits would show
  EXPECT_EQ(ostra_alloc_func("Unaligned", 1, nullptr), paddr);
  EXPECT_EQ(ostra_alloc_func("Unaligned", length + 1, "ostra-test"), 0u);
  EXPECT_EQ(ostra_alloc_func("Zero", 0, "ostra-test"), 0u);
  EXPECT_NE(ostra_pa_to_dma(alloc("MorvikLocal", 1)), ostra_pa_to_dma(alloc("MorvikRemote", 1)));
  EXPECT_EQ(ostra_pa_to_dma(0x123456789abcull), 0x56789abcu) << "the low word, offsets and all";
  const std::uintptr_t full = ostra_map("Unaligned", 1, 0, length);
  ASSERT_NE(full, 0u);
  for (std::uint32_t i = 0; i < length; ++i) ASSERT_EQ(bytesAt(full)[i], 0) << i;
  for (std::uint32_t i = 0; i < length; ++i) bytesAt(full)[i] = static_cast<std::uint8_t>(i * 131);
  const std::pair<std::uint32_t, std::uint32_t> ranges[] = {
      {1, 1}, {kPage - 1, 2}, {kPage + 17, 2 * kPage}, {length - 1, 1}, {5, length - 5}};
  for (const auto& [offset, size] : ranges) {
    SCOPED_TRACE(std::to_string(offset) + "+" + std::to_string(size));
    const std::uintptr_t reader = ostra_map("Unaligned", 0, offset, size);
    const std::uintptr_t writer = ostra_map("Unaligned", 1, offset, size);
    ASSERT_TRUE(reader && writer);
    EXPECT_EQ(std::memcmp(bytesAt(reader), bytesAt(full) + offset, size), 0);
    bytesAt(writer)[size - 1] ^= 0xff;
    EXPECT_EQ(bytesAt(full)[offset + size - 1], bytesAt(reader)[size - 1]);
    EXPECT_EQ(ostra_unmap("Unaligned", reader, size), 0);
    EXPECT_EQ(ostra_unmap("Unaligned", writer, size), 0);
  }
  const std::pair<std::uint32_t, std::uint32_t> outside[] = {
      {0, length + 1}, {length, 1}, {length - 1, 2}, {0xffffffffu, 2}, {2, 0xffffffffu}, {5, 0}};
  for (const auto& [offset, size] : outside) EXPECT_EQ(ostra_map("Unaligned", 0, offset, size), 0u);
  EXPECT_EQ(ostra_map("Missing", 0, 0, 1), 0u);
  // An unmap undoes exactly one mapping, on its own machine only.
  EXPECT_NE(ostra_unmap("Unaligned", full, length - 1), 0);
  EXPECT_NE(ostra_unmap("Unaligned", full + 1, length), 0);
  EXPECT_NE(ostra_unmap("Missing", full, length), 0);
  useVmid(vmid_ + ".elsewhere");
  EXPECT_NE(ostra_unmap("Unaligned", full, length), 0);
  useVmid(vmid_);
  EXPECT_EQ(ostra_unmap("Unaligned", full, length), 0);
  EXPECT_NE(ostra_unmap("Unaligned", full, length), 0);
}

// Any machine and region name becomes one flat, owner-only object of its own.
TEST_F(OstraTest, EachMachineHasItsOwnFlatOwnerOnlyObjects) {
  std::string everyByte;
  for (int byte = 1; byte <= 0xff; ++byte) everyByte += static_cast<char>(byte);
  const std::string name = "a/../b." + std::to_string(getpid());
  const std::string vmids[] = {
      "", "..", "/", std::string(300, 'v'), std::string(299, 'v') + "w", everyByte};
  const mode_t previousMask = umask(0);
  for (std::size_t i = 0; i < std::size(vmids); ++i) {
    useVmid(vmids[i]);
    ASSERT_NE(alloc(name, 1), 0u) << i;
    EXPECT_EQ(ostra::objectNameFor(vmids[i], name).rfind('/'), 0u) << i;
    struct stat status {};
    ASSERT_EQ(stat(shmPath(vmids[i], name).c_str(), &status), 0) << i;
    EXPECT_EQ(status.st_mode & 07777, 0600u) << i;
    const std::uintptr_t addr = ostra_map(name.c_str(), 1, 0, 1);
    ASSERT_NE(addr, 0u);
    EXPECT_EQ(bytesAt(addr)[0], 0) << "a region of its own: " << i;
    bytesAt(addr)[0] = static_cast<std::uint8_t>(i + 1);
    EXPECT_EQ(ostra_unmap(name.c_str(), addr, 1), 0);
  }
  umask(previousMask);
  unsetenv("SIMULATION_VMID");  // an unset variable is the empty machine
  const std::uintptr_t addr = ostra_map(name.c_str(), 0, 0, 1);
  ASSERT_NE(addr, 0u);
  EXPECT_EQ(bytesAt(addr)[0], 1);
  EXPECT_EQ(ostra_unmap(name.c_str(), addr, 1), 0);
}

// A region outlives its creator, bytes and all: it is debris, and reclaimed, only once no live
// process holds it.
TEST_F(OstraTest, RegionsOutliveTheirCreatorUntilNoLiveProcessHoldsThem) {
  // The child leaves 0x5a across the page boundary.
  const auto madeByChildThatDied = [this](const char* name) {
    const pid_t child = fork();
    if (child == 0) {
      const bool made = ostra_alloc_func(name, 2 * kPage, "child") != 0;
      const std::uintptr_t addr = ostra_map(name, 1, 0, 2 * kPage);
      if (!made || addr == 0) _exit(1);
      std::memset(bytesAt(addr) + kPage - 50, 0x5a, 100);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    allocated_.emplace_back(vmid_, name);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  };
  ASSERT_TRUE(madeByChildThatDied("Debris"));
  ASSERT_TRUE(madeByChildThatDied("Mapped"));
  const std::uintptr_t view = ostra_map("Mapped", 0, 0, 2 * kPage);
  ASSERT_NE(view, 0u);
  EXPECT_EQ(bytesAt(view)[kPage - 51], 0);
  EXPECT_EQ(bytesAt(view)[kPage - 50], 0x5a);
  EXPECT_EQ(bytesAt(view)[kPage + 49], 0x5a);
  EXPECT_EQ(bytesAt(view)[kPage + 50], 0);
  ASSERT_NE(alloc("Mine", kPage), 0u);
  EXPECT_EQ(ostra::reclaimRegion(vmid_, "Mapped"), getpid()) << "a live process maps it";
  EXPECT_EQ(ostra::reclaimRegion(vmid_, "Mine"), getpid()) << "its creator lives";
  EXPECT_EQ(ostra::reclaimRegion("Debris"), 0);
  EXPECT_EQ(ostra::reclaimRegion(vmid_, "Absent"), 0);
  for (const char* name : {"Mapped", "Mine"})
    EXPECT_EQ(access(shmPath(vmid_, name).c_str(), F_OK), 0);
  EXPECT_NE(access(shmPath(vmid_, "Debris").c_str(), F_OK), 0);
  EXPECT_EQ(ostra_unmap("Mapped", view, 2 * kPage), 0);
  EXPECT_EQ(ostra::reclaimRegion(vmid_, "Mapped"), 0) << "now nobody holds it";
}

}  // namespace
