#include "MorvikLib/MemMap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/TraceCapture.h"
#include "MorvikLib/Trace.h"
#include "ostra/ostra.h"

namespace {

using MorvikLib::doMmap;
using MorvikLib::doMunmap;
using MorvikLib::memMapAccessReadOnly;
using MorvikLib::memMapAccessReadWrite;
using MorvikLib::memMapTypeLocal;
using MorvikLib::memMapTypeRemote;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string kSigMap =
    "U64 MorvikLib::doMmap(Kel::String, U64, U64, U64, MorvikLib::MemMapType, "
    "MorvikLib::MemMapAccess)";
const std::string kSigUnmap = "int MorvikLib::doMunmap(U64, U64, MorvikLib::MemMapType)";

constexpr U64 k4G = U64{1} << 32;
const U64 kPage = static_cast<U64>(sysconf(_SC_PAGESIZE));

std::string hex(U64 value) {
  std::ostringstream out;
  out << std::hex << value;
  return out.str();
}

std::string dec(U64 value) {
  return std::to_string(value);
}

// One trace line as "<level> <file> <function>: <text>", so whole lines compare at once.
std::string line(int level, const std::string& function, const std::string& text) {
  return std::to_string(level) + " MorvikLib " + function + ": " + text;
}

unsigned char* bytes(U64 vaddr) {
  return reinterpret_cast<unsigned char*>(vaddr);
}

std::size_t openDescriptors() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return count;
}

// Runs `call`, which must throw Kel::ErrnoException, and hands the exception back.
Kel::ErrnoException expectErrno(const std::function<void()>& call) {
  try {
    call();
  } catch (const Kel::ErrnoException& e) {
    return e;
  }
  ADD_FAILURE() << "no Kel::ErrnoException";
  return Kel::ErrnoException(0, "none");
}

// Death tests cannot hand captured lines back, so inside one the lines go to standard error.
class EchoSink : public Kel::TraceSink {
 public:
  EchoSink() { install(this); }
  ~EchoSink() override { uninstall(this); }
  void entryIs(const Entry& entry) override {
    std::fprintf(stderr, "%s\n", line(entry.level, entry.function, entry.text).c_str());
  }
};

// Captures the library's traces at levels 0 and 5 and restores the trace levels and
// "SIMULATION_VMID" afterwards.
class MemMapTest : public testing::Test {
 protected:
  void SetUp() override {
    savedLevels_ = MorvikLib::traceHandle().levels();
    MorvikLib::traceHandle().allLevelsIs(false);
    MorvikLib::traceHandle().levelIs(0, true);
    MorvikLib::traceHandle().levelIs(5, true);
    if (const char* vmid = std::getenv("SIMULATION_VMID")) savedVmid_ = vmid;
  }

  void TearDown() override {
    if (savedVmid_) {
      setenv("SIMULATION_VMID", savedVmid_->c_str(), 1);
    } else {
      unsetenv("SIMULATION_VMID");
    }
    for (int level = 0; level < Kel::TraceHandle::kLevels; ++level) {
      MorvikLib::traceHandle().levelIs(level, (savedLevels_ >> level) & 1u);
    }
  }

  std::vector<std::string> lines() {
    std::vector<std::string> result;
    for (const auto& entry : capture_.entries()) {
      EXPECT_EQ(entry.handle, "MorvikLib");
      EXPECT_EQ(entry.file, "MorvikLib");
      result.push_back(line(entry.level, entry.function, entry.text));
    }
    capture_.clear();
    return result;
  }

  Kel::TraceCapture capture_;

 private:
  U32 savedLevels_ = 0;
  std::optional<std::string> savedVmid_;
};

// ---- Simulation -------------------------------------------------------------------------------

// A DMA region on this test's own simulated machine, removed when the test ends.
class Region {
 public:
  Region(const char* name, U32 length) : name_(name) {
    EXPECT_NE(ostra_alloc_func(name, length, "MemMapTest"), 0u) << name;
  }
  ~Region() { ostra_free(name_); }
  Region(const Region&) = delete;
  Region& operator=(const Region&) = delete;

 private:
  const char* name_;
};

class MemMapSimulationTest : public MemMapTest {
 protected:
  void SetUp() override {
    MemMapTest::SetUp();
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    setenv("SIMULATION_VMID", ("memmap-" + std::to_string(getpid()) + "-" + info->name()).c_str(),
           1);
  }

  static std::vector<std::string> mapLines(const std::string& region, U64 byteOffset, U64 size,
                                           U64 result) {
    return {line(5, "doMmap", kSigMap + "inSimulation: ostraName " + region),
            line(5, "doMmap",
                 kSigMap + "inSimulation:  ostra_map  " + region + " byteOffset:" +
                     dec(byteOffset) + " size:" + dec(size) + " returns:" + hex(result))};
  }

  static std::vector<std::string> unmapLines(const std::string& region, U64 vaddr, U64 size,
                                             const std::string& err) {
    return {line(5, "doMunmap", kSigUnmap),
            line(5, "doMunmap",
                 kSigUnmap + " inSimulation: ostraName " + region + " vaddr: " + hex(vaddr)),
            line(5, "doMunmap",
                 kSigUnmap + "inSimulation:  ostra_unmap  " + region + " vaddr:" + hex(vaddr) +
                     " size:" + hex(size) + " returns:" + err)};
  }
};

TEST_F(MemMapSimulationTest, ReadWriteAndReadOnlyMappingsShareTheRegionBytes) {
  Region local("MorvikLocal", 3 * 4096);
  Region remote("MorvikRemote", 3 * 4096);

  // File and paddr mean nothing in simulation: every call names something different.
  const U64 rw = doMmap("/nonexistent/a", 0, 100, 200, memMapTypeLocal, memMapAccessReadWrite);
  ASSERT_NE(rw, 0u);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", 100, 200, rw));
  const U64 ro = doMmap("", 0xdead000, 100, 200, memMapTypeLocal, memMapAccessReadOnly);
  ASSERT_NE(ro, 0u);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", 100, 200, ro));
  const U64 whole =
      doMmap("/nonexistent/dev/mem", ~U64{0}, 0, 3 * 4096, memMapTypeLocal, memMapAccessReadOnly);
  const U64 peer = doMmap("", 0, 100, 200, memMapTypeRemote, memMapAccessReadWrite);
  ASSERT_NE(whole, 0u);
  ASSERT_NE(peer, 0u);
  lines();

  for (U32 i = 0; i < 200; ++i) bytes(rw)[i] = static_cast<unsigned char>(i + 1);
  EXPECT_EQ(std::memcmp(bytes(ro), bytes(rw), 200), 0);
  EXPECT_EQ(std::memcmp(bytes(whole) + 100, bytes(rw), 200), 0);
  EXPECT_EQ(bytes(whole)[99], 0);
  EXPECT_EQ(bytes(whole)[300], 0);
  EXPECT_EQ(bytes(peer)[0], 0) << "local and remote are different regions";

  EXPECT_EQ(doMunmap(rw, 200, memMapTypeLocal), 0);
  EXPECT_EQ(lines(), unmapLines("MorvikLocal", rw, 200, "0"));
  EXPECT_EQ(doMunmap(peer, 200, memMapTypeRemote), 0);
  EXPECT_EQ(lines(), unmapLines("MorvikRemote", peer, 200, "0"));
  EXPECT_EQ(doMunmap(ro, 200, memMapTypeLocal), 0);
  EXPECT_EQ(doMunmap(whole, 3 * 4096, memMapTypeLocal), 0);
}

TEST_F(MemMapSimulationTest, AnyNonZeroTypeIsRemote) {
  Region remote("MorvikRemote", 4096);
  const auto oddType = static_cast<MorvikLib::MemMapType>(7);
  const U64 vaddr = doMmap("", 0, 0, 64, oddType, memMapAccessReadWrite);
  ASSERT_NE(vaddr, 0u);
  EXPECT_EQ(lines(), mapLines("MorvikRemote", 0, 64, vaddr));
  EXPECT_EQ(doMunmap(vaddr, 64, oddType), 0);
  EXPECT_EQ(lines(), unmapLines("MorvikRemote", vaddr, 64, "0"));
}

TEST_F(MemMapSimulationTest, MissingRegionOrEmptyRangeReturnsZero) {
  EXPECT_EQ(doMmap("", 0, 0, 4096, memMapTypeLocal, memMapAccessReadWrite), 0u);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", 0, 4096, 0));
  Region local("MorvikLocal", 4096);
  EXPECT_EQ(doMmap("", 0, 0, k4G, memMapTypeLocal, memMapAccessReadWrite), 0u);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", 0, k4G, 0));
  EXPECT_EQ(doMmap("", 0, 4000, 200, memMapTypeLocal, memMapAccessReadOnly), 0u);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", 4000, 200, 0));
}

TEST_F(MemMapSimulationTest, SizesAndOffsetsKeepTheirLowThirtyTwoBits) {
  Region local("MorvikLocal", 2 * 4096);
  const U64 base = doMmap("", 0, 0, 2 * 4096, memMapTypeLocal, memMapAccessReadWrite);
  ASSERT_NE(base, 0u);
  bytes(base)[4096 + 16] = 0x5a;
  lines();

  const U64 offset = k4G + 4096 + 16;
  const U64 size = 3 * k4G + 64;
  const U64 vaddr = doMmap("", 0, offset, size, memMapTypeLocal, memMapAccessReadOnly);
  ASSERT_NE(vaddr, 0u);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", offset, size, vaddr))
      << "traces show the full figures";
  EXPECT_EQ(bytes(vaddr)[0], 0x5a);

  // The unmap finds the 64-byte mapping only if its size is cut the same way.
  EXPECT_EQ(doMunmap(vaddr, size, memMapTypeLocal), 0);
  EXPECT_EQ(lines(), unmapLines("MorvikLocal", vaddr, size, "0"));
  EXPECT_EQ(doMunmap(base, 2 * 4096, memMapTypeLocal), 0);
}

TEST_F(MemMapSimulationTest, EmptyVariableStillMeansSimulation) {
  setenv("SIMULATION_VMID", "", 1);
  // No region on any machine reaches this far, so nothing shared with other tests is touched.
  const U64 offset = 0xfffff000;
  EXPECT_EQ(doMmap("/nonexistent", 0, offset, 0x2000, memMapTypeRemote, memMapAccessReadWrite), 0u);
  EXPECT_EQ(lines(), mapLines("MorvikRemote", offset, 0x2000, 0));
}

using MemMapSimulationDeathTest = MemMapSimulationTest;

TEST_F(MemMapSimulationDeathTest, StoreThroughReadOnlyMappingFaults) {
  Region local("MorvikLocal", 4096);
  const U64 rw = doMmap("", 0, 0, 4096, memMapTypeLocal, memMapAccessReadWrite);
  const U64 ro = doMmap("", 0, 0, 4096, memMapTypeLocal, memMapAccessReadOnly);
  ASSERT_NE(rw, 0u);
  ASSERT_NE(ro, 0u);
  bytes(rw)[7] = 9;
  ASSERT_EQ(bytes(ro)[7], 9);
  EXPECT_DEATH(*reinterpret_cast<volatile unsigned char*>(ro + 7) = 1, "");
  EXPECT_EQ(bytes(ro)[7], 9);
  doMunmap(ro, 4096, memMapTypeLocal);
  doMunmap(rw, 4096, memMapTypeLocal);
}

TEST_F(MemMapSimulationDeathTest, FailedUnmapIsAnAssertion) {
  Region local("MorvikLocal", 4096);
  const U64 vaddr = doMmap("", 0, 0, 4096, memMapTypeLocal, memMapAccessReadWrite);
  ASSERT_NE(vaddr, 0u);
  const auto unmapDies = [](U64 address, U64 size, MorvikLib::MemMapType type) {
    EchoSink echo;
    doMunmap(address, size, type);
  };
  // An address nobody mapped, the right address under the wrong region, and the wrong length.
  EXPECT_DEATH(unmapDies(0x1000, 4096, memMapTypeLocal),
               AllOf(HasSubstr(unmapLines("MorvikLocal", 0x1000, 4096, "ffffffff")[2]),
                     HasSubstr("err == 0")));
  EXPECT_DEATH(unmapDies(vaddr, 4096, memMapTypeRemote),
               AllOf(HasSubstr(unmapLines("MorvikRemote", vaddr, 4096, "ffffffff")[2]),
                     HasSubstr("err == 0")));
  EXPECT_DEATH(unmapDies(vaddr, 4096 + k4G - 1, memMapTypeLocal), HasSubstr("err == 0"));
  setenv("SIMULATION_VMID", "", 1);
  EXPECT_DEATH(unmapDies(vaddr, 4096, memMapTypeLocal), HasSubstr("err == 0"));
  setenv("SIMULATION_VMID",
         ("memmap-" + std::to_string(getpid()) + "-FailedUnmapIsAnAssertion").c_str(), 1);
  EXPECT_EQ(doMunmap(vaddr, 4096, memMapTypeLocal), 0);
}

// ---- Hardware ---------------------------------------------------------------------------------

// A regular file standing in for the device file: four pages, page p filled with the byte 'a' + p.
class MemMapHardwareTest : public MemMapTest {
 protected:
  void SetUp() override {
    MemMapTest::SetUp();
    unsetenv("SIMULATION_VMID");
    std::string pattern = testing::TempDir() + "memmap-XXXXXX";
    int fd = mkstemp(pattern.data());
    ASSERT_GE(fd, 0);
    file_ = pattern;
    for (U64 page = 0; page < 4; ++page) {
      const std::string fill(kPage, static_cast<char>('a' + page));
      ASSERT_EQ(write(fd, fill.data(), fill.size()), static_cast<ssize_t>(fill.size()));
    }
    close(fd);
    lines();
  }

  void TearDown() override {
    if (!file_.empty()) unlink(file_.c_str());
    MemMapTest::TearDown();
  }

  char fileByte(U64 offset) const {
    char c = 0;
    int fd = open(file_.c_str(), O_RDONLY);
    EXPECT_EQ(pread(fd, &c, 1, static_cast<off_t>(offset)), 1);
    close(fd);
    return c;
  }

  static std::vector<std::string> mapLines(U64 paddr, U64 size) {
    return {line(5, "doMmap", kSigMap + " NOT inSimulation"),
            line(5, "doMmap", "paddr is  0x" + hex(paddr) + " size is 0x" + hex(size))};
  }

  std::vector<std::string> mappedLines(U64 paddr, U64 size, U64 vaddr) const {
    auto expected = mapLines(paddr, size);
    expected.push_back(line(5, "doMmap", " mmap returns:0x" + hex(vaddr)));
    return expected;
  }

  std::string file_;
};

TEST_F(MemMapHardwareTest, SharedMappingReachesTheFile) {
  const std::size_t before = openDescriptors();
  const U64 vaddr = doMmap(file_, kPage, 12345, kPage, memMapTypeLocal, memMapAccessReadWrite);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(lines(), mappedLines(kPage, kPage, vaddr));

  EXPECT_EQ(bytes(vaddr)[0], 'b');
  EXPECT_EQ(bytes(vaddr)[kPage - 1], 'b');
  bytes(vaddr)[5] = 'Z';
  EXPECT_EQ(fileByte(kPage + 5), 'Z');

  EXPECT_EQ(doMunmap(vaddr, kPage, memMapTypeLocal), 0);
  EXPECT_THAT(lines(), ElementsAre(line(5, "doMunmap", kSigUnmap)));
  EXPECT_EQ(fileByte(kPage + 5), 'Z');
}

TEST_F(MemMapHardwareTest, ByteOffsetAndTypeDoNotMoveTheMapping) {
  const U64 first = doMmap(file_, 2 * kPage, 0, kPage, memMapTypeLocal, memMapAccessReadOnly);
  const U64 second =
      doMmap(file_, 2 * kPage, 3 * kPage + 17, kPage, memMapTypeRemote, memMapAccessReadOnly);
  EXPECT_EQ(bytes(first)[0], 'c');
  EXPECT_EQ(bytes(second)[0], 'c');
  EXPECT_EQ(std::memcmp(bytes(first), bytes(second), kPage), 0);
  doMunmap(first, kPage, memMapTypeLocal);
  doMunmap(second, kPage, memMapTypeRemote);
}

TEST_F(MemMapHardwareTest, SizesKeepTheirLowThirtyTwoBits) {
  const U64 size = k4G + 2 * kPage;
  const U64 vaddr = doMmap(file_, 0, 0, size, memMapTypeLocal, memMapAccessReadWrite);
  EXPECT_EQ(lines(), mappedLines(0, size, vaddr));
  EXPECT_EQ(bytes(vaddr)[kPage], 'b');

  // Only the first page goes; the second stays readable.
  EXPECT_EQ(doMunmap(vaddr, k4G + kPage, memMapTypeLocal), 0);
  EXPECT_NE(msync(bytes(vaddr), kPage, MS_ASYNC), 0);
  EXPECT_EQ(msync(bytes(vaddr + kPage), kPage, MS_ASYNC), 0);
  EXPECT_EQ(bytes(vaddr)[kPage], 'b');
  EXPECT_EQ(doMunmap(vaddr + kPage, kPage, memMapTypeLocal), 0);
}

TEST_F(MemMapHardwareTest, OpenFailureThrowsAndTracesTheFile) {
  const std::string missing = file_ + ".missing";
  const std::size_t before = openDescriptors();
  auto e =
      expectErrno([&] { doMmap(missing, 0, 0, kPage, memMapTypeLocal, memMapAccessReadWrite); });
  EXPECT_EQ(e.errnum(), ENOENT);
  EXPECT_EQ(e.context().stdString(), "opening file");
  EXPECT_EQ(e.message(), Kel::errorString(ENOENT));
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THAT(lines(), ElementsAre(line(5, "doMmap", kSigMap + " NOT inSimulation"),
                                   line(0, "doMmap", "Unable to open " + missing)));

  // Opened read-write whatever the access asked for: a directory never opens that way.
  const std::string directory = testing::TempDir();
  e = expectErrno([&] { doMmap(directory, 0, 0, kPage, memMapTypeLocal, memMapAccessReadOnly); });
  EXPECT_EQ(e.errnum(), EISDIR);
  EXPECT_EQ(e.context().stdString(), "opening file");
  EXPECT_EQ(lines().back(), line(0, "doMmap", "Unable to open " + directory));
}

struct MmapFailure {
  const char* what;
  U64 paddr;
  U64 size;
};

TEST_F(MemMapHardwareTest, MmapFailureThrowsAndClosesTheDescriptor) {
  const std::vector<MmapFailure> cases = {
      {"size cut to zero", 0, k4G},
      {"unaligned paddr", 1, kPage},
      {"offset past any file", ~U64{0} & ~(kPage - 1), kPage},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::size_t before = openDescriptors();
    auto e = expectErrno(
        [&] { doMmap(file_, c.paddr, 0, c.size, memMapTypeLocal, memMapAccessReadWrite); });
    EXPECT_NE(e.errnum(), 0);
    EXPECT_EQ(e.context().stdString(), "mmaping file");
    EXPECT_EQ(e.message(), Kel::errorString(e.errnum()));
    EXPECT_EQ(openDescriptors(), before);
    auto expected = mapLines(c.paddr, c.size);
    expected.push_back(line(0, "doMmap", "Failed to mmap " + file_));
    EXPECT_EQ(lines(), expected);
  }
}

TEST_F(MemMapHardwareTest, MunmapFailureThrowsAndTraces) {
  const U64 vaddr = doMmap(file_, 0, 0, kPage, memMapTypeLocal, memMapAccessReadWrite);
  lines();
  const U64 size = k4G + kPage;
  auto e = expectErrno([&] { doMunmap(vaddr + 1, size, memMapTypeLocal); });
  EXPECT_EQ(e.errnum(), EINVAL);
  EXPECT_EQ(e.context().stdString(), "munmap failed");
  EXPECT_THAT(lines(), ElementsAre(line(5, "doMunmap", kSigUnmap),
                                   line(0, "doMunmap",
                                        kSigUnmap + " Failed to unmmap " + hex(vaddr + 1) +
                                            " size " + hex(size))));
  EXPECT_EQ(bytes(vaddr)[0], 'a') << "the mapping survives the failed unmap";
  EXPECT_EQ(doMunmap(vaddr, kPage, memMapTypeLocal), 0);
}

using MemMapHardwareDeathTest = MemMapHardwareTest;

TEST_F(MemMapHardwareDeathTest, StoreThroughReadOnlyMappingFaults) {
  const U64 ro = doMmap(file_, 3 * kPage, 0, kPage, memMapTypeLocal, memMapAccessReadOnly);
  ASSERT_EQ(bytes(ro)[0], 'd');
  const auto readOnlyType = static_cast<MorvikLib::MemMapAccess>(2);
  const U64 odd = doMmap(file_, 3 * kPage, 0, kPage, memMapTypeLocal, readOnlyType);
  ASSERT_EQ(bytes(odd)[0], 'd');
  EXPECT_DEATH(*reinterpret_cast<volatile unsigned char*>(ro) = 1, "");
  EXPECT_DEATH(*reinterpret_cast<volatile unsigned char*>(odd) = 1, "");
  EXPECT_EQ(fileByte(3 * kPage), 'd');
  doMunmap(ro, kPage, memMapTypeLocal);
  doMunmap(odd, kPage, memMapTypeLocal);
}

}  // namespace
