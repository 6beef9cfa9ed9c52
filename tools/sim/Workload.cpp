#include "Workload.h"

#include <algorithm>
#include <cstring>

#include "Chassis.h"
#include "Kel/System.h"
#include "Layout.h"
#include "Monitor.h"

namespace MorvikSim {

namespace {

// Keeps the workload's random stream apart from the fault schedule's.
constexpr U64 kStream = 0x776f726b6c6f6164ULL;
constexpr U32 kMaxFill = 512;
constexpr U32 kMaxMove = 512;
constexpr U32 kMinBlock = 16;

}  // namespace

Workload::Workload(Chassis& chassis, Monitor& monitor, const SimOptions& options)
    : chassis_(chassis),
      monitor_(monitor),
      rng_(options.seed ^ kStream),
      meanGap_(options.rate > 0.0 ? 1.0 / options.rate : 0.0),
      mix_(options.mix),
      smallMax_(options.smallMax),
      locality_(options.locality) {
  hot_ = hotZones(options, chassis_.layout());
  U32 largest = smallMax_;
  for (const HotZone& zone : hot_) largest = std::max(largest, zone.size);
  buffer_.resize(largest);
}

Workload::~Workload() {
  stop();
}

void Workload::start(double t0, double stopAt, std::function<void()> onStop) {
  stopAt_ = stopAt;
  onStop_ = std::move(onStop);
  if (meanGap_ <= 0.0) return;
  timer_ = Timer::create([this] { tick(); });
  next_ = t0 + rng_.exponential(meanGap_);
  timer_->at(next_);
}

void Workload::stop() {
  if (timer_) timer_->stop();
  timer_ = nullptr;
}

void Workload::tick() {
  run(pick(), pickFeature());
  if (Kel::System::currentTime() >= stopAt_) {
    stop();
    if (onStop_) onStop_();
    return;
  }
  // Scheduled from the stream's own times, so a late pass on the real clock does not lower the
  // rate; a gap is never zero, so a stopped loop stays at rest.
  next_ += std::max(rng_.exponential(meanGap_), 1e-9);
  timer_->at(next_);
}

// In proportion to their sizes, so that every byte is written about as often.
std::size_t Workload::pickFeature() {
  const Layout& layout = chassis_.layout();
  const U32 at = static_cast<U32>(rng_.below(layout.total()));
  std::size_t f = 0;
  while (f + 1 < layout.features() && layout.offset(f + 1) <= at) ++f;
  return f;
}

OpKind Workload::pick() {
  double r = rng_.real() * mix_.total();
  if ((r -= mix_.small) < 0.0) return OpKind::small;
  if ((r -= mix_.table) < 0.0) return OpKind::table;
  if ((r -= mix_.set) < 0.0) return OpKind::set;
  return mix_.copy > 0.0 ? OpKind::copy : OpKind::small;
}

void Workload::run(OpKind kind, std::size_t feature) {
  switch (kind) {
    case OpKind::small:
      smallWrite(feature);
      break;
    case OpKind::table:
      tableWrite(feature);
      break;
    case OpKind::set:
      fill(feature);
      break;
    case OpKind::copy:
      move(feature);
      break;
  }
}

void Workload::randomBytes(U32 size) {
  for (U32 i = 0; i < size; i += 8) {
    const U64 word = rng_.next();
    std::memcpy(buffer_.data() + i, &word, std::min<U32>(8, size - i));
  }
}

// An offset, a multiple of align, for size bytes inside the feature: in its hot part with the
// chance `locality`, anywhere otherwise.
U32 Workload::place(std::size_t feature, U32 size, U32 align) {
  const U32 featureSize = chassis_.layout().size(feature);
  U32 lo = 0;
  U32 hi = featureSize;
  if (rng_.real() < locality_) {
    lo = hot_[feature].start;
    hi = std::min(featureSize, lo + std::max(hot_[feature].size, size));
    if (hi - lo < size) lo = hi - size;
  }
  const U32 slots = (hi - lo - size) / align + 1;
  return (lo + align - 1) / align * align + static_cast<U32>(rng_.below(slots)) * align;
}

// Mostly a few bytes, sometimes up to smallMax: the smaller of two uniform draws.
void Workload::smallWrite(std::size_t feature) {
  const U32 size = 1 + static_cast<U32>(std::min(rng_.below(smallMax_), rng_.below(smallMax_)));
  const U32 offset = place(feature, size, 1);
  randomBytes(size);
  chassis_.memory(feature)->doWrite(offset, buffer_.data(), size);
  done(OpKind::small, feature, offset, size);
}

void Workload::tableWrite(std::size_t feature) {
  const U32 chunk = chassis_.memory(feature)->remoteCopyChunkSize();
  const U32 offset = place(feature, chunk, chunk);
  randomBytes(chunk);
  chassis_.memory(feature)->doWrite(offset, buffer_.data(), chunk);
  done(OpKind::table, feature, offset, chunk);
}

void Workload::fill(std::size_t feature) {
  const U32 featureSize = chassis_.layout().size(feature);
  const U32 size = static_cast<U32>(
      rng_.between(std::min(kMinBlock, featureSize), std::min(kMaxFill, featureSize)));
  const U32 offset = place(feature, size, 1);
  chassis_.memory(feature)->doSet(offset, static_cast<U32>(rng_.below(256)), size);
  done(OpKind::set, feature, offset, size);
}

// Source and destination never overlap: the library's copy is a plain forward copy.
void Workload::move(std::size_t feature) {
  const U32 featureSize = chassis_.layout().size(feature);
  if (featureSize < 2 * kMinBlock) return smallWrite(feature);
  const U32 size = static_cast<U32>(rng_.between(kMinBlock, std::min(kMaxMove, featureSize / 2)));
  const U32 dst = place(feature, size, 1);
  // Sources before the destination, [0, dst - size], then after it, [dst + size, featureSize -
  // size].
  const U64 before = dst >= size ? dst - size + 1 : 0;
  const U64 after = dst + 2 * U64{size} <= featureSize ? featureSize - size - (dst + size) + 1 : 0;
  if (before + after == 0) return smallWrite(feature);
  const U64 pick = rng_.below(before + after);
  const U32 src = static_cast<U32>(pick < before ? pick : dst + size + (pick - before));
  chassis_.memory(feature)->doCopy(dst, src, size);
  done(OpKind::copy, feature, dst, size);
}

void Workload::done(OpKind kind, std::size_t feature, U32 offset, U32 size) {
  const auto& memory = chassis_.memory(feature);
  monitor_.operation(kind, feature, offset, size, memory->remoteCopyChunkSize(),
                     memory->remoteMemory().vaddr() != 0);
}

}  // namespace MorvikSim
