#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ostra/OstraKey.h"
#include "ostra/OstraMappings.h"
#include "ostra/ostra.h"

namespace {

std::uint8_t* bytesAt(std::uintptr_t addr) {
  return reinterpret_cast<std::uint8_t*>(addr);
}

std::uint32_t pageSize() {
  return static_cast<std::uint32_t>(sysconf(_SC_PAGESIZE));
}

std::string pidText() {
  return std::to_string(getpid());
}

std::string currentVmid() {
  const char* vmid = std::getenv("SIMULATION_VMID");
  return vmid != nullptr ? vmid : "";
}

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
    const char* previous = std::getenv("SIMULATION_VMID");
    if (previous != nullptr) previousVmid_ = previous;
    hadVmid_ = previous != nullptr;
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    useVmid(std::string("ostra-test.") + info->name() + "." + pidText());
  }

  void TearDown() override {
    for (const auto& [vmid, name] : allocated_) {
      useVmid(vmid);
      ostra_free(name.c_str());
    }
    if (hadVmid_) {
      useVmid(previousVmid_);
    } else {
      unsetenv("SIMULATION_VMID");
    }
  }

  std::uint64_t alloc(const std::string& name, std::uint32_t length) {
    const std::uint64_t paddr = ostra_alloc_func(name.c_str(), length, "ostra-test");
    if (paddr != 0) allocated_.emplace_back(currentVmid(), name);
    return paddr;
  }

 private:
  bool hadVmid_ = false;
  std::string previousVmid_;
  std::vector<std::pair<std::string, std::string>> allocated_;
};

TEST_F(OstraTest, TwoMappingsShareBytesAndStartZeroed) {
  ASSERT_NE(alloc("Shared", 3 * pageSize()), 0u);
  const std::uintptr_t writer = ostra_map("Shared", 1, 0, 3 * pageSize());
  const std::uintptr_t reader = ostra_map("Shared", 0, 0, 3 * pageSize());
  ASSERT_NE(writer, 0u);
  ASSERT_NE(reader, 0u);
  EXPECT_NE(writer, reader);
  for (std::uint32_t i = 0; i < 3 * pageSize(); ++i) ASSERT_EQ(bytesAt(reader)[i], 0) << i;
  bytesAt(writer)[0] = 0x11;
  bytesAt(writer)[3 * pageSize() - 1] = 0x22;
  EXPECT_EQ(bytesAt(reader)[0], 0x11);
  EXPECT_EQ(bytesAt(reader)[3 * pageSize() - 1], 0x22);
  EXPECT_EQ(ostra_unmap("Shared", writer, 3 * pageSize()), 0);
  EXPECT_EQ(ostra_unmap("Shared", reader, 3 * pageSize()), 0);
}

TEST_F(OstraTest, ForkedChildSharesRegionsWithParent) {
  const std::uint64_t paddr = alloc("Fork", 2 * pageSize());
  ASSERT_NE(paddr, 0u);
  const std::uintptr_t view = ostra_map("Fork", 0, 0, 2 * pageSize());
  ASSERT_NE(view, 0u);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const bool samePaddr = ostra_alloc_func("Fork", 2 * pageSize(), "child") == paddr;
    const std::uintptr_t addr = ostra_map("Fork", 1, pageSize() - 50, 100);
    if (addr != 0) std::memset(bytesAt(addr), 0x5a, 100);
    const bool created = ostra_alloc_func("ForkChild", 64, "child") != 0;
    const std::uintptr_t own = ostra_map("ForkChild", 1, 63, 1);
    if (own != 0) bytesAt(own)[0] = 0x6b;
    _exit(samePaddr && addr != 0 && created && own != 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(bytesAt(view)[pageSize() - 51], 0);
  for (std::uint32_t i = pageSize() - 50; i < pageSize() + 50; ++i)
    EXPECT_EQ(bytesAt(view)[i], 0x5a);
  EXPECT_EQ(bytesAt(view)[pageSize() + 50], 0);
  ASSERT_NE(alloc("ForkChild", 64), 0u);
  const std::uintptr_t childRegion = ostra_map("ForkChild", 0, 0, 64);
  ASSERT_NE(childRegion, 0u);
  EXPECT_EQ(bytesAt(childRegion)[63], 0x6b);
  EXPECT_EQ(ostra_unmap("ForkChild", childRegion, 64), 0);
  EXPECT_EQ(ostra_unmap("Fork", view, 2 * pageSize()), 0);
}

TEST_F(OstraTest, UnalignedRangesMapTheirOwnBytes) {
  const std::uint32_t page = pageSize();
  const std::uint32_t length = 3 * page + 100;
  ASSERT_NE(alloc("Unaligned", length), 0u);
  const std::uintptr_t full = ostra_map("Unaligned", 1, 0, length);
  ASSERT_NE(full, 0u);
  for (std::uint32_t i = 0; i < length; ++i)
    bytesAt(full)[i] = static_cast<std::uint8_t>(i * 131 + 7);
  const std::size_t liveBefore = ostra::MappingRegistry::instance().size();
  const std::pair<std::uint32_t, std::uint32_t> ranges[] = {
      {0, 1},          {1, 1},         {page - 1, 2}, {page, page}, {page + 17, 2 * page},
      {length - 1, 1}, {5, length - 5}};
  for (const auto& [offset, size] : ranges) {
    SCOPED_TRACE(std::to_string(offset) + "+" + std::to_string(size));
    const std::uintptr_t reader = ostra_map("Unaligned", 0, offset, size);
    const std::uintptr_t writer = ostra_map("Unaligned", 1, offset, size);
    ASSERT_NE(reader, 0u);
    ASSERT_NE(writer, 0u);
    EXPECT_EQ(reader % page, offset % page);
    EXPECT_EQ(std::memcmp(bytesAt(reader), bytesAt(full) + offset, size), 0);
    bytesAt(writer)[size - 1] ^= 0xff;
    EXPECT_EQ(bytesAt(full)[offset + size - 1], bytesAt(reader)[size - 1]);
    bytesAt(writer)[size - 1] ^= 0xff;
    EXPECT_EQ(ostra_unmap("Unaligned", reader, size), 0);
    EXPECT_EQ(ostra_unmap("Unaligned", writer, size), 0);
  }
  EXPECT_EQ(ostra::MappingRegistry::instance().size(), liveBefore);
  EXPECT_EQ(ostra_unmap("Unaligned", full, length), 0);
}

TEST_F(OstraTest, MapsOnlyInsideAnExistingRegion) {
  ASSERT_NE(alloc("Bounded", 10000), 0u);
  const struct {
    std::uint32_t offset, length;
    bool maps;
  } cases[] = {{0, 10000, true},        {9999, 1, true},  {0, 10001, false},
               {10000, 1, false},       {9999, 2, false}, {0xffffffffu, 2, false},
               {2, 0xffffffffu, false}, {0, 0, false},    {5000, 0, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.offset) + "+" + std::to_string(c.length));
    const std::uintptr_t addr = ostra_map("Bounded", 0, c.offset, c.length);
    EXPECT_EQ(addr != 0, c.maps);
    if (addr != 0) {
      EXPECT_EQ(ostra_unmap("Bounded", addr, c.length), 0);
    }
  }
  EXPECT_EQ(ostra_map("Missing", 0, 0, 1), 0u);
  EXPECT_EQ(ostra_map(nullptr, 0, 0, 1), 0u);
  EXPECT_EQ(ostra_map("", 0, 0, 1), 0u);
}

TEST_F(OstraTest, UnmapRefusesWhatWasNotMapped) {
  ASSERT_NE(alloc("Known", pageSize()), 0u);
  ASSERT_NE(alloc("Other", pageSize()), 0u);
  const std::uintptr_t addr = ostra_map("Known", 1, 100, 50);
  ASSERT_NE(addr, 0u);
  const struct {
    const char* name;
    std::uintptr_t addr;
    std::uint32_t length;
  } wrong[] = {{"Known", addr, 49},     {"Known", addr, 51}, {"Known", addr - 100, 50},
               {"Known", addr + 1, 50}, {"Other", addr, 50}, {"", addr, 50},
               {nullptr, addr, 50},     {"Known", 0, 50},    {"Known", 0xdead0000, 50}};
  for (const auto& w : wrong) EXPECT_NE(ostra_unmap(w.name, w.addr, w.length), 0);
  const std::string home = currentVmid();
  useVmid(home + ".elsewhere");
  EXPECT_NE(ostra_unmap("Known", addr, 50), 0);
  useVmid(home);
  bytesAt(addr)[49] = 0x42;  // still mapped after every refusal
  EXPECT_EQ(ostra_unmap("Known", addr, 50), 0);
  EXPECT_NE(ostra_unmap("Known", addr, 50), 0);
}

TEST_F(OstraTest, AllocationFindsTheSameRegionAgain) {
  const std::uint64_t paddr = alloc("Same", 2 * pageSize());
  ASSERT_NE(paddr, 0u);
  EXPECT_EQ(paddr % pageSize(), 0u);
  EXPECT_GE(paddr, 1ull << 32);  // a cut to 32 bits would show
  EXPECT_LT(paddr + 2 * pageSize(), 1ull << 40);
  EXPECT_EQ(ostra_alloc_func("Same", 2 * pageSize(), "another owner"), paddr);
  EXPECT_EQ(ostra_alloc_func("Same", 1, nullptr), paddr);
  EXPECT_EQ(ostra_alloc_func("Same", 2 * pageSize() + 1, "ostra-test"), 0u);
  EXPECT_EQ(ostra_map("Same", 0, 0, 2 * pageSize() + 1), 0u);  // the first length stays
  const std::uint64_t other = alloc("SameNot", 2 * pageSize());
  EXPECT_NE(other, 0u);
  EXPECT_NE(other, paddr);
  EXPECT_EQ(ostra_alloc_func("Zero", 0, "ostra-test"), 0u);
  EXPECT_EQ(ostra_alloc_func(nullptr, 1, "ostra-test"), 0u);
  EXPECT_EQ(ostra_alloc_func("", 1, "ostra-test"), 0u);
  EXPECT_NE(ostra_free("Zero"), 0);
}

TEST_F(OstraTest, ConcurrentCreatorsAgreeAndMappingsStayConsistent) {
  constexpr int kThreads = 8;
  std::atomic<bool> go{false};
  std::vector<std::uint64_t> paddrs(kThreads);
  std::vector<int> failures(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      while (!go.load()) std::this_thread::yield();
      paddrs[t] = ostra_alloc_func("Race", kThreads, "racer");
      for (int round = 0; round < 200; ++round) {
        const std::uintptr_t addr = ostra_map("Race", 1, t, 1);
        if (addr == 0) {
          ++failures[t];
          return;
        }
        bytesAt(addr)[0] = static_cast<std::uint8_t>(t + 1);
        failures[t] += ostra_unmap("Race", addr, 1) != 0;
      }
    });
  }
  go = true;
  for (auto& thread : threads) thread.join();
  const std::uint64_t paddr = alloc("Race", kThreads);
  ASSERT_NE(paddr, 0u);
  const std::uintptr_t view = ostra_map("Race", 0, 0, kThreads);
  ASSERT_NE(view, 0u);
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(paddrs[t], paddr);
    EXPECT_EQ(failures[t], 0);
    EXPECT_EQ(bytesAt(view)[t], t + 1);
  }
  EXPECT_EQ(ostra_unmap("Race", view, kThreads), 0);
}

TEST_F(OstraTest, FreeingKeepsLiveMappingsAndLaterAllocationsStartFresh) {
  const std::uint64_t paddr = alloc("Freed", 64);
  const std::uintptr_t old = ostra_map("Freed", 1, 0, 64);
  ASSERT_NE(old, 0u);
  bytesAt(old)[0] = 0x11;
  EXPECT_EQ(ostra_free("Freed"), 0);
  EXPECT_NE(ostra_free("Freed"), 0);
  EXPECT_EQ(ostra_map("Freed", 0, 0, 64), 0u);
  EXPECT_EQ(bytesAt(old)[0], 0x11);
  EXPECT_EQ(alloc("Freed", 64), paddr);
  const std::uintptr_t fresh = ostra_map("Freed", 0, 0, 64);
  ASSERT_NE(fresh, 0u);
  EXPECT_EQ(bytesAt(fresh)[0], 0);
  EXPECT_EQ(ostra_unmap("Freed", fresh, 64), 0);
  EXPECT_EQ(ostra_unmap("Freed", old, 64), 0);
}

TEST_F(OstraTest, EachMachineHasItsOwnRegions) {
  const std::string first = currentVmid();
  const std::uint64_t paddr = alloc("Machine", 64);
  const std::uintptr_t mine = ostra_map("Machine", 1, 0, 64);
  ASSERT_NE(mine, 0u);
  bytesAt(mine)[0] = 0xaa;
  useVmid(first + ".peer");
  EXPECT_EQ(ostra_map("Machine", 0, 0, 64), 0u);
  EXPECT_EQ(alloc("Machine", 64), paddr);  // addresses follow the name, not the machine
  const std::uintptr_t peer = ostra_map("Machine", 1, 0, 64);
  ASSERT_NE(peer, 0u);
  EXPECT_EQ(bytesAt(peer)[0], 0);
  EXPECT_NE(ostra_unmap("Machine", mine, 64), 0);  // that mapping belongs to the first machine
  EXPECT_EQ(ostra_unmap("Machine", peer, 64), 0);
  useVmid(first);
  EXPECT_EQ(bytesAt(mine)[0], 0xaa);
  EXPECT_EQ(ostra_unmap("Machine", mine, 64), 0);
}

TEST_F(OstraTest, UnsetMachineIsTheEmptyMachine) {
  const std::string name = "Unset." + pidText();
  unsetenv("SIMULATION_VMID");
  ASSERT_NE(alloc(name, 64), 0u);
  const std::uintptr_t unset = ostra_map(name.c_str(), 1, 0, 64);
  ASSERT_NE(unset, 0u);
  bytesAt(unset)[7] = 0x77;
  useVmid("");
  const std::uintptr_t empty = ostra_map(name.c_str(), 0, 7, 1);
  ASSERT_NE(empty, 0u);
  EXPECT_EQ(bytesAt(empty)[0], 0x77);
  EXPECT_EQ(ostra_unmap(name.c_str(), empty, 1), 0);
  EXPECT_EQ(ostra_unmap(name.c_str(), unset, 64), 0);
  EXPECT_TRUE(access(shmPath("", name).c_str(), F_OK) == 0);
}

std::string everyByte() {
  std::string text;
  for (int byte = 1; byte <= 0xff; ++byte) text += static_cast<char>(byte);
  return text;
}

TEST_F(OstraTest, HostileMachinesAndNamesStayFlatAndDistinct) {
  const std::string vmids[] = {"",
                               "../x",
                               "a/b",
                               "/",
                               "..",
                               "%2f",
                               "../../etc",
                               std::string(300, 'v'),
                               std::string(299, 'v') + "w",
                               everyByte()};
  const std::string names[] = {"../x", "a/b", "/", "%2f", ".", std::string(300, 'n'), everyByte()};
  std::vector<std::pair<std::string, std::string>> regions;
  for (const auto& vmid : vmids) {
    for (const auto& base : names) regions.emplace_back(vmid, base + "." + pidText());
  }
  for (std::size_t i = 0; i < regions.size(); ++i) {
    const auto& [vmid, name] = regions[i];
    SCOPED_TRACE(i);
    useVmid(vmid);
    ASSERT_NE(alloc(name, 1), 0u);
    const std::string object = ostra::objectNameFor(vmid, name);
    EXPECT_EQ(object.rfind('/'), 0u);
    struct stat status {};
    ASSERT_EQ(stat(shmPath(vmid, name).c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    const std::uintptr_t addr = ostra_map(name.c_str(), 1, 0, 1);
    ASSERT_NE(addr, 0u);
    bytesAt(addr)[0] = static_cast<std::uint8_t>(i + 1);
    EXPECT_EQ(ostra_unmap(name.c_str(), addr, 1), 0);
  }
  for (std::size_t i = 0; i < regions.size(); ++i) {
    useVmid(regions[i].first);
    const std::uintptr_t addr = ostra_map(regions[i].second.c_str(), 0, 0, 1);
    ASSERT_NE(addr, 0u);
    EXPECT_EQ(bytesAt(addr)[0], static_cast<std::uint8_t>(i + 1)) << i;
    EXPECT_EQ(ostra_unmap(regions[i].second.c_str(), addr, 1), 0);
  }
}

TEST_F(OstraTest, RegionsAreOwnerOnlyWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0277}}) {
    const std::string name = "Mode" + std::to_string(mask);
    const mode_t previous = umask(mask);
    const std::uint64_t paddr = alloc(name, 64);
    umask(previous);
    ASSERT_NE(paddr, 0u);
    struct stat status {};
    ASSERT_EQ(stat(shmPath(currentVmid(), name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u) << mask;
    EXPECT_EQ(status.st_uid, geteuid());
    const std::uintptr_t addr = ostra_map(name.c_str(), 1, 0, 64);
    EXPECT_NE(addr, 0u) << mask;
    if (addr != 0) {
      EXPECT_EQ(ostra_unmap(name.c_str(), addr, 64), 0);
    }
  }
}

TEST_F(OstraTest, ForeignObjectIsNotTakenForARegion) {
  const std::string path = ostra::objectNameFor(currentVmid(), "Foreign");
  const int fd = shm_open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, 4 * pageSize()), 0);
  const std::vector<std::uint8_t> garbage(pageSize(), 0xff);
  ASSERT_EQ(write(fd, garbage.data(), garbage.size()), static_cast<ssize_t>(garbage.size()));
  close(fd);
  EXPECT_EQ(ostra_alloc_func("Foreign", 1, "ostra-test"), 0u);
  EXPECT_EQ(ostra_map("Foreign", 0, 0, 1), 0u);
  EXPECT_EQ(shm_unlink(path.c_str()), 0);
}

TEST(OstraDmaTest, DmaAddressIsTheLowWordOfThePhysicalAddress) {
  const std::pair<std::uint64_t, std::uint32_t> cases[] = {{0, 0},
                                                           {0xffffffffull, 0xffffffffu},
                                                           {1ull << 32, 0},
                                                           {0x123456789000ull, 0x56789000u},
                                                           {~0ull, 0xffffffffu}};
  for (const auto& [paddr, dma] : cases) EXPECT_EQ(ostra_pa_to_dma(paddr), dma) << paddr;
}

TEST_F(OstraTest, DmaAddressesKeepOffsetsAndDifferPerRegion) {
  const std::uint64_t local = alloc("MorvikLocal", 1 << 20);
  const std::uint64_t remote = alloc("MorvikRemote", 1 << 20);
  ASSERT_NE(local, 0u);
  ASSERT_NE(remote, 0u);
  EXPECT_NE(ostra_pa_to_dma(local), ostra_pa_to_dma(remote));
  for (const std::uint32_t offset : {0u, 1u, 4095u, 4096u, (1u << 20) - 1}) {
    EXPECT_EQ(ostra_pa_to_dma(local + offset), ostra_pa_to_dma(local) + offset);
    EXPECT_EQ(ostra_pa_to_dma(local + offset), ostra_pa_to_dma(local + offset));
  }
}

using OstraDeathTest = OstraTest;

TEST_F(OstraDeathTest, StoreFaultsOnlyThroughReadOnlyMappings) {
  ASSERT_NE(alloc("Guarded", 2 * pageSize()), 0u);
  const std::uintptr_t readOnly = ostra_map("Guarded", 0, pageSize() + 3, 10);
  const std::uintptr_t writable = ostra_map("Guarded", 1, pageSize() + 3, 10);
  ASSERT_NE(readOnly, 0u);
  ASSERT_NE(writable, 0u);
  // Freed first: a re-executed death-test child would otherwise leave its own region behind.
  EXPECT_EQ(ostra_free("Guarded"), 0);
  EXPECT_EXIT((*reinterpret_cast<volatile std::uint8_t*>(writable) = 1, _exit(0)),
              ::testing::ExitedWithCode(0), "");
  EXPECT_DEATH(*reinterpret_cast<volatile std::uint8_t*>(readOnly) = 1, "");
  EXPECT_EQ(ostra_unmap("Guarded", readOnly, 10), 0);
  EXPECT_EQ(ostra_unmap("Guarded", writable, 10), 0);
}

}  // namespace
