// What the README's Python script does, in C++ against the installed package: maps simulated
// regions through the memory state machine, writes through the memory entity, lets the background
// copier run, and reads the peer's copy back.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Kel/ActivityManager.h"
#include "Kel/Allocate.h"
#include "Kel/System.h"
#include "Morvik/ActiveSupeType.h"
#include "Morvik/FeatureManifest.h"
#include "Morvik/Manifest.h"
#include "Morvik/Region.h"
#include "Morvik/Status.h"
#include "MorvikLib/MorvikMemory.h"
#include "MorvikLib/MorvikMemorySm.h"
#include "ostra/ostra.h"

namespace {

constexpr U32 kSize = 16384;
constexpr U32 kOffset = 100;
constexpr U32 kLength = 8192;

// Plays the other agents: the peer's memory, the manifest, and the status of the active card.
struct Records {
  Kel::Ptr<Morvik::Manifest> manifest = Kel::allocate<Morvik::Manifest>(Kel::Name("manifest"));
  Kel::Ptr<Morvik::Status> status = Kel::allocate<Morvik::Status>(Kel::Name("status"));

  Records() {
    const U64 peer = ostra_alloc_func("MorvikRemote", kSize, "mirror_demo");
    manifest->manifestIs(Kel::Name("demo"),
                         Kel::allocate<Morvik::FeatureManifest>(Kel::Name("demo"), kSize, 0));
    status->activeSupeIs(Morvik::activeSupeActive);
    status->remoteMemoryIs(Kel::allocate<Morvik::Region>(Kel::Name("remoteMemory"), peer, kSize, 1,
                                                         Kel::String("MorvikRemote")));
  }
};

}  // namespace

int main() {
  // A simulated machine of our own: the memories are DMA regions instead of /dev/mem.
  const std::string machine = "mirror-demo-" + std::to_string(getpid());
  setenv("SIMULATION_VMID", machine.c_str(), 1);
  Kel::System::virtualTimeIs(true, 1000.0);
  bool same = false;
  {
    Records records;
    // The feature's memory and its state machine, which maps both sides at once.
    auto memory = MorvikLib::morvikMemoryFactory(Kel::Name("demo"));
    auto sm = MorvikLib::morvikMemorySmFactory(Kel::Name("demo"), records.status, records.manifest,
                                               nullptr, nullptr, nullptr, memory);
    std::printf("local ready: %d remote ready: %d\n", memory->localMemoryReady(),
                memory->remoteMemoryReady());

    // Two chunks' worth; the background copier mirrors them, one chunk per pass.
    std::vector<unsigned char> data(kLength);
    for (U32 i = 0; i < kLength; ++i) data[i] = static_cast<unsigned char>(i);
    memory->doWrite(kOffset, data.data(), kLength);
    std::printf("copy pending: %d\n", memory->remoteCopyPending());
    Kel::activityManager()->runUntilRest();

    std::vector<unsigned char> back(kLength);
    memory->doReadRemoteTest(kOffset, back.data(), kLength);
    same = back == data && !memory->remoteCopyPending();
    std::printf(same ? "peer holds the same bytes\n" : "peer differs\n");
    // Leaving the block releases the state machine, then the memory, which unmaps both sides.
  }
  ostra_free("MorvikLocal");
  ostra_free("MorvikRemote");
  return same ? 0 : 1;
}
