// What a full resynchronisation of the peer's copy costs beside one plain memcpy of the same size.
// The resync is the state machine's own: doSync marks every chunk pending and the activity loop,
// driven by the machine's write clock, copies one chunk per pass until the copier is at rest.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Morvik/FeatureManifest.h"
#include "Morvik/Manifest.h"
#include "Morvik/Region.h"
#include "Morvik/Status.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "MorvikLib/Shadow.h"
#include "MorvikLib/StreamCopy.h"
#include "ostra/ostra.h"

namespace {

constexpr U64 kMiB = 1024 * 1024;

// One simulated chassis whose single feature covers the whole mirrored memory.
class Mirror {
 public:
  explicit Mirror(U32 size) : size_(size) {
    static std::atomic<unsigned> counter{0};
    vmid_ = "morvik-bench-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
    ::setenv("SIMULATION_VMID", vmid_.c_str(), 1);
    Kel::System::virtualTimeIs(true, 1000.0);
    const U64 remote = ostra_alloc_func("MorvikRemote", size, "bench");
    if (!remote) throw std::runtime_error("cannot allocate the peer's memory");
    auto manifest = Kel::allocate<Morvik::Manifest>(Kel::Name("manifest"));
    manifest->manifestIs(Kel::Name("bench"),
                         Kel::allocate<Morvik::FeatureManifest>(Kel::Name("bench"), size, 0));
    auto status = Kel::allocate<Morvik::Status>(Kel::Name("status"));
    status->activeSupeIs(Morvik::activeSupeActive);
    status->remoteMemoryIs(Kel::allocate<Morvik::Region>(
        Kel::Name("remoteMemory"), Morvik::PhysicalAddress(remote), size, 1, "MorvikRemote"));
    memory_ = MorvikLib::morvikMemoryFactory(Kel::Name("bench"));
    sm_ = MorvikLib::morvikMemorySmFactory(Kel::Name("bench"), status, manifest, nullptr, nullptr,
                                           nullptr, memory_);
    fill();
    // The mapping already asked for a resync; one full pass also faults every page in.
    Kel::activityManager()->runUntilRest();
  }

  ~Mirror() {
    sm_ = nullptr;
    memory_ = nullptr;
    ostra_free("MorvikLocal");
    ostra_free("MorvikRemote");
    ::unsetenv("SIMULATION_VMID");
  }

  // The whole resync; returns the passes it took.
  std::size_t resync() {
    const std::uint64_t before = Kel::activityManager()->passes();
    memory_->doSync();
    Kel::activityManager()->runUntilRest();
    return Kel::activityManager()->passes() - before;
  }

  // The resync's copies without the passes around them: every chunk copied as the copier copies it
  // (the same stores, fence and prefetch of the next chunk). A resync's time over this one's is
  // what the passes' own work costs.
  void copyChunks() {
    const U64 chunk = memory_->remoteCopyChunkSize();
    const U64 local = memory_->localMemory().vaddr();
    const U64 remote = memory_->remoteMemory().vaddr();
    const bool prefetch = MorvikLib::streams(size_, chunk);
    for (U64 offset = 0; offset < size_; offset += chunk) {
      MorvikLib::shadow::copy(*memory_, remote + offset, local + offset, static_cast<U32>(chunk));
      if (prefetch && offset + 2 * chunk <= size_) {
        MorvikLib::prefetchChunk(reinterpret_cast<const void*>(local + offset + chunk), chunk);
      }
    }
  }

  bool mirrored() const {
    const U64 local = memory_->localMemory().vaddr();
    const U64 remote = memory_->remoteMemory().vaddr();
    return std::memcmp(reinterpret_cast<const void*>(local), reinterpret_cast<const void*>(remote),
                       size_) == 0;
  }

 private:
  // Local bytes written behind the copier's back (through the shadow), so the resync has real work.
  void fill() {
    auto* bytes = reinterpret_cast<unsigned char*>(memory_->localMemoryWritableShadow().vaddr());
    for (U64 i = 0; i < size_; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + (i >> 12));
  }

  U32 size_;
  std::string vmid_;
  Kel::Ptr<MorvikLib::MorvikMemory> memory_;
  Kel::Ptr<MorvikLib::MorvikMemorySm> sm_;
};

void BM_Resync(benchmark::State& state) {
  const U32 size = static_cast<U32>(state.range(0) * kMiB);
  Mirror mirror(size);
  std::size_t passes = 0;
  for (auto _ : state) passes = mirror.resync();
  if (!mirror.mirrored()) state.SkipWithError("the peer's copy differs after the resync");
  state.counters["passes"] = static_cast<double>(passes);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

void BM_ChunkCopies(benchmark::State& state) {
  const U32 size = static_cast<U32>(state.range(0) * kMiB);
  Mirror mirror(size);
  for (auto _ : state) mirror.copyChunks();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

void BM_Memcpy(benchmark::State& state) {
  const std::size_t size = static_cast<std::size_t>(state.range(0) * kMiB);
  std::vector<unsigned char> from(size, 0x5a);
  std::vector<unsigned char> to(size, 0);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), size);
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

BENCHMARK(BM_Resync)->Arg(1)->Arg(16)->Arg(64)->Arg(256)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ChunkCopies)->Arg(1)->Arg(16)->Arg(64)->Arg(256)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy)->Arg(1)->Arg(16)->Arg(64)->Arg(256)->Unit(benchmark::kMillisecond);

}  // namespace
