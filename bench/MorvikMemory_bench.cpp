// The mirrored write against the floor it cannot beat: the same two copies made with plain memcpy
// between the same kinds of memory (a caller's buffer, the local shadow, the local region and the
// remote shadow, all DMA regions mapped as the library maps them).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Ptr.h"
#include "MorvikLib/MemMap.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/Trace.h"
#include "Tralux/BlockTimer.h"
#include "Tralux/MsgDesc.h"
#include "Tralux/TraceHandle.h"
#include "ostra/ostra.h"

namespace {

using MorvikLib::MemoryMapping;
using MorvikLib::MorvikMemory;

constexpr U32 kRegion = 1024 * 1024;
constexpr U32 kChunk = 4096;

void* pointer(U64 address) {
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(address));
}

// Both regions of a simulated machine of our own, mapped read-only and as writable shadows, and
// installed in a memory entity. Every page is touched first, so no run pays for page faults.
class Mirror {
 public:
  Mirror() {
    const char* old = std::getenv("SIMULATION_VMID");
    if (old) savedVmid_ = old;
    const std::string vmid = "morvik-bench-" + std::to_string(::getpid());
    ::setenv("SIMULATION_VMID", vmid.c_str(), 1);
    MorvikLib::traceHandle().allLevelsIs(false);
    if (!ostra_alloc_func("MorvikLocal", kRegion, "bench") ||
        !ostra_alloc_func("MorvikRemote", kRegion, "bench")) {
      throw std::runtime_error("cannot allocate the DMA regions");
    }
    const MemoryMapping local = map(MorvikLib::memMapTypeLocal, MorvikLib::memMapAccessReadOnly);
    const MemoryMapping localShadow =
        map(MorvikLib::memMapTypeLocal, MorvikLib::memMapAccessReadWrite);
    const MemoryMapping remote = map(MorvikLib::memMapTypeRemote, MorvikLib::memMapAccessReadOnly);
    const MemoryMapping remoteShadow =
        map(MorvikLib::memMapTypeRemote, MorvikLib::memMapAccessReadWrite);
    memory_->setLocal(local, localShadow);
    memory_->setRemote(remote, remoteShadow);
    std::memset(pointer(localShadow.vaddr()), 0, kRegion);
    std::memset(pointer(remoteShadow.vaddr()), 0, kRegion);
    volatile U8 sink = 0;
    for (U32 i = 0; i < kRegion; i += 4096) {
      sink = sink + static_cast<const U8*>(pointer(local.vaddr()))[i];
      sink = sink + static_cast<const U8*>(pointer(remote.vaddr()))[i];
    }
  }

  ~Mirror() {
    memory_ = nullptr;
    ostra_free("MorvikLocal");
    ostra_free("MorvikRemote");
    if (savedVmid_) {
      ::setenv("SIMULATION_VMID", savedVmid_->c_str(), 1);
    } else {
      ::unsetenv("SIMULATION_VMID");
    }
  }

  MorvikMemory& memory() { return *memory_; }
  U8* localShadow() { return bytes(memory_->localMemoryWritableShadow()); }
  U8* local() { return bytes(memory_->localMemory()); }
  U8* remoteShadow() { return bytes(memory_->remoteMemoryWritableShadow()); }

 private:
  static U8* bytes(const MemoryMapping& m) { return static_cast<U8*>(pointer(m.vaddr())); }
  static MemoryMapping map(MorvikLib::MemMapType type, MorvikLib::MemMapAccess access) {
    const U64 vaddr = MorvikLib::doMmap(Kel::String(), 0, 0, kRegion, type, access);
    if (!vaddr) throw std::runtime_error("cannot map a DMA region");
    return MemoryMapping(type ? "MorvikRemote" : "MorvikLocal", vaddr, kRegion, 0, 0);
  }

  std::optional<std::string> savedVmid_;
  Kel::Ptr<MorvikMemory> memory_ = MorvikLib::morvikMemoryFactory("bench");
};

// Offsets across the whole region at which a write of `size` bytes stays inside one chunk and is
// never a whole chunk, so each write is mirrored at once as one piece.
std::vector<U32> offsetsFor(U32 size) {
  const U32 perChunk = kChunk / size;
  const U32 pad = (kChunk - perChunk * size) / 2;
  std::vector<U32> offsets;
  for (U32 chunk = 0; chunk < kRegion / kChunk; ++chunk) {
    for (U32 k = 0; k < perChunk; ++k) offsets.push_back(chunk * kChunk + pad + k * size);
  }
  return offsets;
}

std::vector<U8> source() {
  std::vector<U8> bytes(kChunk);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<U8>(i * 31 + 7);
  return bytes;
}

void BM_DoWrite(benchmark::State& state) {
  const U32 size = static_cast<U32>(state.range(0));
  Mirror mirror;
  std::vector<U8> data = source();
  const std::vector<U32> offsets = offsetsFor(size);
  std::size_t next = 0;
  for (auto _ : state) {
    mirror.memory().doWrite(offsets[next], data.data(), size);
    if (++next == offsets.size()) next = 0;
    benchmark::ClobberMemory();
  }
  if (mirror.memory().remoteCopyPending()) state.SkipWithError("a write was deferred");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

void BM_TwoMemcpy(benchmark::State& state) {
  const U32 size = static_cast<U32>(state.range(0));
  Mirror mirror;
  std::vector<U8> data = source();
  const std::vector<U32> offsets = offsetsFor(size);
  U8* localShadow = mirror.localShadow();
  const U8* local = mirror.local();
  U8* remoteShadow = mirror.remoteShadow();
  std::size_t next = 0;
  for (auto _ : state) {
    const U32 offset = offsets[next];
    std::memcpy(localShadow + offset, data.data(), size);
    benchmark::ClobberMemory();
    std::memcpy(remoteShadow + offset, local + offset, size);
    if (++next == offsets.size()) next = 0;
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

// What the write path's block timer costs by itself: two time-stamp counter reads and a record.
void BM_BlockTimer(benchmark::State& state) {
  static std::uint32_t messageId = 0;
  static Tralux::MsgDesc desc(Tralux::defaultTraluxHandle().mtTraceFile(), &messageId, "bench",
                              __LINE__, true);
  desc.finish();
  for (auto _ : state) {
    Tralux::BlockTimer timer(desc);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_DoWrite)->Arg(64)->Arg(1024)->Arg(4000);
BENCHMARK(BM_TwoMemcpy)->Arg(64)->Arg(1024)->Arg(4000);
BENCHMARK(BM_BlockTimer);

// A fixed number of writes, for counting instructions under callgrind: the difference between two
// counts cancels the set-up, so the figure does not depend on the machine's noise.
int countedWrites(U32 size, std::size_t writes) {
  Mirror mirror;
  std::vector<U8> data = source();
  const std::vector<U32> offsets = offsetsFor(size);
  for (std::size_t i = 0; i < writes; ++i) {
    mirror.memory().doWrite(offsets[i % offsets.size()], data.data(), size);
  }
  return mirror.memory().remoteCopyPending() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string_view(argv[1]) == "--writes") {
    return countedWrites(static_cast<U32>(std::stoul(argv[2])), std::stoul(argv[3]));
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
