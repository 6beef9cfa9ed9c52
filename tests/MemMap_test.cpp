#include "MorvikLib/MemMap.h"

#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "Kel/Exception.h"
#include "MorvikLib/Trace.h"
#include "support/Capture.h"
#include "support/Regions.h"

namespace {

using namespace MorvikLib;
using Lines = std::vector<std::string>;

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
unsigned char* bytes(U64 vaddr) {
  return reinterpret_cast<unsigned char*>(vaddr);
}
std::size_t openDescriptors() {
  const std::filesystem::directory_iterator fds("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(fds), end(fds)));
}

// One trace line as "<level> <function>: <text>", so whole lines compare at once.
std::string line(int level, const std::string& function, const std::string& text) {
  return std::to_string(level) + " " + function + ": " + text;
}
Lines mapLines(const std::string& region, U64 byteOffset, U64 size, U64 result) {
  return {line(5, "doMmap", kSigMap + "inSimulation: ostraName " + region),
          line(5, "doMmap",
               kSigMap + "inSimulation:  ostra_map  " + region +
                   " byteOffset:" + std::to_string(byteOffset) + " size:" + std::to_string(size) +
                   " returns:" + hex(result))};
}
Lines unmapLines(const std::string& region, U64 vaddr, U64 size, const std::string& err) {
  return {line(5, "doMunmap", kSigUnmap),
          line(5, "doMunmap",
               kSigUnmap + " inSimulation: ostraName " + region + " vaddr: " + hex(vaddr)),
          line(5, "doMunmap",
               kSigUnmap + "inSimulation:  ostra_unmap  " + region + " vaddr:" + hex(vaddr) +
                   " size:" + hex(size) + " returns:" + err)};
}
Lines hardwareLines(U64 paddr, U64 size) {
  return {line(5, "doMmap", kSigMap + " NOT inSimulation"),
          line(5, "doMmap", "paddr is  0x" + hex(paddr) + " size is 0x" + hex(size))};
}

// Death tests cannot hand captured lines back, so inside one the lines go to standard error.
struct EchoSink : Kel::TraceSink {
  EchoSink() : replaced(Kel::exchangeSink(this)) {}
  ~EchoSink() override { Kel::exchangeSink(replaced); }
  void entryIs(const Kel::TraceEntry& e) override {
    std::fprintf(stderr, "%s\n", line(e.level, e.function, e.text).c_str());
  }
  Kel::TraceSink* const replaced;
};

// Traces at levels 0 and 5 are captured; every test starts on a simulated machine of its own and
// has a regular file standing in for the device file: four pages, page p filled with 'a' + p.
class MemMapTest : public testing::Test {
 protected:
  void SetUp() override {
    savedLevels_ = traceHandle().levels();
    traceHandle().levelsIs((1u << 0) | (1u << 5));
    file_ = testing::TempDir() + "memmap-XXXXXX";
    const int fd = mkstemp(file_.data());
    for (U64 page = 0; page < 4; ++page) {
      const std::string fill(kPage, static_cast<char>('a' + page));
      ASSERT_EQ(write(fd, fill.data(), fill.size()), static_cast<ssize_t>(fill.size()));
    }
    close(fd);
  }
  void TearDown() override {
    unlink(file_.c_str());
    simulation();  // the regions are freed on their own machine
    traceHandle().levelsIs(savedLevels_);
  }
  void simulation() { setenv("SIMULATION_VMID", regions_.vmid().c_str(), 1); }
  Lines lines() {
    Lines result;
    for (const auto& e : capture_.entries()) {
      EXPECT_EQ(e.handle + "/" + e.file, "MorvikLib/MorvikLib");
      result.push_back(line(e.level, e.function, e.text));
    }
    capture_.clear();
    return result;
  }
  // Runs `call`, which must throw Kel::ErrnoException (only the errno id bit) with `context`.
  static int errnoOf(const std::function<void()>& call, const std::string& context) {
    try {
      call();
    } catch (const Kel::ErrnoException& e) {
      EXPECT_EQ(e.context().stdString(), context);
      EXPECT_EQ(e.message(), Kel::errorString(e.errnum()));
      EXPECT_EQ(e.ids().bits(), 1u << 29);
      return e.errnum();
    }
    ADD_FAILURE() << "no Kel::ErrnoException";
    return 0;
  }

  // "MorvikLocal" of two pages and "MorvikRemote" of one; first, so that it outlives the capture.
  MorvikTest::Regions regions_{MorvikTest::Regions::Kind::simulated, 2 * 4096, 4096};
  MorvikTest::TraceCapture capture_;
  std::string file_;
  U32 savedLevels_ = 0;
};

TEST_F(MemMapTest, SimulationMapsRegionBytesWithExactTraces) {
  // File and paddr mean nothing in simulation; any non-zero type is remote.
  const U64 rw = doMmap("/nonexistent/a", 0, 100, 200, memMapTypeLocal, memMapAccessReadWrite);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", 100, 200, rw));
  const U64 peer = doMmap("", 0xdead000, 0, 64, static_cast<MemMapType>(7), memMapAccessReadWrite);
  EXPECT_EQ(lines(), mapLines("MorvikRemote", 0, 64, peer));
  // Offsets and sizes keep their low 32 bits; the traces show the full figures.
  const U64 offset = k4G + 99, size = 3 * k4G + 64;
  const U64 ro = doMmap("", 0, offset, size, memMapTypeLocal, memMapAccessReadOnly);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", offset, size, ro));
  ASSERT_TRUE(rw && peer && ro);
  bytes(rw)[0] = 0x5a;
  EXPECT_EQ(bytes(ro)[0], 0);
  EXPECT_EQ(bytes(ro)[1], 0x5a);
  EXPECT_EQ(bytes(peer)[0], 0) << "local and remote are different regions";
  EXPECT_EQ(doMmap("", 0, 8000, 200, memMapTypeLocal, memMapAccessReadOnly), 0u);
  EXPECT_EQ(lines(), mapLines("MorvikLocal", 8000, 200, 0));

  EXPECT_EQ(doMunmap(ro, size, memMapTypeLocal), 0);  // finds the 64-byte mapping only if cut alike
  EXPECT_EQ(lines(), unmapLines("MorvikLocal", ro, size, "0"));
  EXPECT_EQ(doMunmap(peer, 64, static_cast<MemMapType>(7)), 0);
  EXPECT_EQ(lines(), unmapLines("MorvikRemote", peer, 64, "0"));
  EXPECT_EQ(doMunmap(rw, 200, memMapTypeLocal), 0);
}

// Every path closes the descriptor it opened before it returns, the failing ones included.
TEST_F(MemMapTest, HardwareMapsTheFileAtPaddrWhateverTheByteOffsetAndFailuresThrowAndTrace) {
  unsetenv("SIMULATION_VMID");
  const std::size_t before = openDescriptors();
  const U64 vaddr = doMmap(file_, kPage, 12345, kPage, memMapTypeRemote, memMapAccessReadWrite);
  EXPECT_EQ(openDescriptors(), before);
  Lines expected = hardwareLines(kPage, kPage);
  expected.push_back(line(5, "doMmap", " mmap returns:0x" + hex(vaddr)));
  EXPECT_EQ(lines(), expected);
  EXPECT_EQ(bytes(vaddr)[0], 'b');
  // That the mapping is shared, stores reaching the file, the device runs of the memory model show.
  EXPECT_EQ(doMunmap(vaddr, kPage, memMapTypeLocal), 0);
  EXPECT_EQ(lines(), Lines{line(5, "doMunmap", kSigUnmap)});

  const std::string missing = file_ + ".missing";
  EXPECT_EQ(errnoOf([&] { doMmap(missing, 0, 0, kPage, memMapTypeLocal, memMapAccessReadWrite); },
                    "opening file"),
            ENOENT);
  EXPECT_EQ(lines(), (Lines{line(5, "doMmap", kSigMap + " NOT inSimulation"),
                            line(0, "doMmap", "Unable to open " + missing)}));
  // Opened read-write whatever the access asked for: a directory never opens that way.
  const std::string dir = testing::TempDir();
  EXPECT_EQ(errnoOf([&] { doMmap(dir, 0, 0, kPage, memMapTypeLocal, memMapAccessReadOnly); },
                    "opening file"),
            EISDIR);
  EXPECT_EQ(lines().back(), line(0, "doMmap", "Unable to open " + dir));
  // A size cut to zero, an unaligned paddr, and an offset past any file.
  const std::pair<U64, U64> failing[] = {{0, k4G}, {1, kPage}, {~U64{0} & ~(kPage - 1), kPage}};
  for (const auto& [paddr, size] : failing) {
    EXPECT_NE(
        errnoOf([&] { doMmap(file_, paddr, 0, size, memMapTypeLocal, memMapAccessReadWrite); },
                "mmaping file"),
        0);
    Lines expected = hardwareLines(paddr, size);
    expected.push_back(line(0, "doMmap", "Failed to mmap " + file_));
    EXPECT_EQ(lines(), expected);
  }
  EXPECT_EQ(openDescriptors(), before);

  // Sizes keep their low 32 bits: two pages map, and the unmap of 4 GiB + 1 page takes only one.
  const U64 two = doMmap(file_, 0, 0, k4G + 2 * kPage, memMapTypeLocal, memMapAccessReadWrite);
  EXPECT_EQ(lines()[1], hardwareLines(0, k4G + 2 * kPage)[1]);
  EXPECT_EQ(doMunmap(two, k4G + kPage, memMapTypeLocal), 0);
  EXPECT_NE(msync(bytes(two), kPage, MS_ASYNC), 0);
  lines();
  const U64 odd = two + kPage + 1;
  EXPECT_EQ(errnoOf([&] { doMunmap(odd, k4G + kPage, memMapTypeLocal); }, "munmap failed"), EINVAL);
  EXPECT_EQ(
      lines(),
      (Lines{line(5, "doMunmap", kSigUnmap),
             line(0, "doMunmap",
                  kSigUnmap + " Failed to unmmap " + hex(odd) + " size " + hex(k4G + kPage))}));
  EXPECT_EQ(bytes(two)[kPage], 'b') << "the second page survives both unmaps";
  EXPECT_EQ(doMunmap(two + kPage, kPage, memMapTypeLocal), 0);
}

// A store through a read-only mapping faults (no text); a failed simulated unmap is an assertion.
using MemMapDeathTest = MemMapTest;

TEST_F(MemMapDeathTest, ReadOnlyStoresFaultAndFailedSimulatedUnmapsAssert) {
  const U64 simRw = doMmap("", 0, 0, 4096, memMapTypeLocal, memMapAccessReadWrite);
  const U64 simRo = doMmap("", 0, 0, 4096, memMapTypeLocal, memMapAccessReadOnly);
  unsetenv("SIMULATION_VMID");
  const U64 hwRo = doMmap(file_, 3 * kPage, 0, kPage, memMapTypeLocal, memMapAccessReadOnly);
  const U64 hwOdd =
      doMmap(file_, 3 * kPage, 0, kPage, memMapTypeLocal, static_cast<MemMapAccess>(2));
  simulation();
  ASSERT_TRUE(simRw && simRo && hwRo && hwOdd);
  const auto store = [](U64 vaddr) { *reinterpret_cast<volatile unsigned char*>(vaddr) = 1; };
  const auto unmap = [](U64 vaddr, U64 size, MemMapType type) {
    EchoSink echo;
    doMunmap(vaddr, size, type);
  };
  const auto fails = [&](const std::string& region, U64 vaddr, U64 size) {
    return testing::AllOf(testing::HasSubstr(unmapLines(region, vaddr, size, "ffffffff")[2]),
                          testing::HasSubstr("Assertion failed: err == 0"));
  };
  EXPECT_DEATH(store(simRo), "");
  EXPECT_DEATH(store(hwRo), "");
  EXPECT_DEATH(store(hwOdd), "");
  EXPECT_DEATH(unmap(0x1000, 4096, memMapTypeLocal), fails("MorvikLocal", 0x1000, 4096));
  EXPECT_DEATH(unmap(simRw, 4096, memMapTypeRemote), fails("MorvikRemote", simRw, 4096));
  EXPECT_DEATH(unmap(simRw, 4096 + k4G - 1, memMapTypeLocal),
               fails("MorvikLocal", simRw, 4096 + k4G - 1));
  setenv("SIMULATION_VMID", "", 1);
  EXPECT_DEATH(unmap(simRw, 4096, memMapTypeLocal), fails("MorvikLocal", simRw, 4096));
  simulation();
  for (U64 vaddr : {simRw, simRo}) EXPECT_EQ(doMunmap(vaddr, 4096, memMapTypeLocal), 0);
  for (U64 vaddr : {hwRo, hwOdd}) EXPECT_EQ(munmap(bytes(vaddr), kPage), 0);
}

}  // namespace
