#include "Layout.h"

#include <set>

#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {

namespace {

constexpr U64 kMinChunk = 64;
constexpr U64 kMaxChunk = U64{16} << 20;

void checkName(const std::string& name, std::set<std::string>& seen) {
  if (name.empty()) throw UsageError("a feature needs a name");
  if (name.find_first_of(":,=@+ ") != std::string::npos) {
    throw UsageError("feature name '" + name + "' may not contain any of \":,=@+ \"");
  }
  if (!seen.insert(name).second) throw UsageError("feature '" + name + "' is listed twice");
}

}  // namespace

void Layout::checkChunkSize(U64 size) {
  if (size < kMinChunk || size > kMaxChunk || (size & (size - 1)) != 0) {
    throw UsageError("chunk size " + std::to_string(size) +
                     " is not a power of two between 64 and 16M");
  }
}

Layout::Layout(const std::vector<Feature>& features, const std::vector<U32>& chunkSizes)
    : features_(features) {
  if (features_.empty()) throw UsageError("the manifest has no features");
  if (chunkSizes.empty()) throw UsageError("no chunk size given");
  for (U32 chunk : chunkSizes) checkChunkSize(chunk);
  std::set<std::string> seen;
  U64 offset = 0;
  for (const Feature& f : features_) {
    checkName(f.name, seen);
    if (f.size == 0) throw UsageError("feature '" + f.name + "' has size 0");
    for (U32 chunk : chunkSizes) {
      if (f.size % chunk != 0) {
        throw UsageError("manifest refused: feature '" + f.name + "' is " + std::to_string(f.size) +
                         " bytes, not a multiple of the " + std::to_string(chunk) +
                         "-byte chunk size");
      }
    }
    offsets_.push_back(static_cast<U32>(offset));
    offset += f.size;
    if (offset > kMaxTotal) {
      throw UsageError("manifest refused: the features add up to more than " +
                       formatBytes(static_cast<double>(kMaxTotal)));
    }
  }
  total_ = static_cast<U32>(offset);
}

std::size_t Layout::find(const std::string& name) const {
  for (std::size_t i = 0; i < features_.size(); ++i) {
    if (features_[i].name == name) return i;
  }
  return features_.size();
}

}  // namespace MorvikSim
