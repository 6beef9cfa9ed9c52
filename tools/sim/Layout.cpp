#include "Layout.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "Limits.h"
#include "Units.h"
#include "UsageError.h"

namespace MorvikSim {

namespace {

constexpr U64 kMinChunk = 64;
constexpr U64 kMaxChunk = U64{16} << 20;

void checkName(const std::string& name, std::set<std::string>& seen) {
  const bool usable = std::all_of(name.begin(), name.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.';
  });
  if (name.empty() || name.size() > limits::kMaxNameBytes || !usable) {
    refuse("--feature", name, "a NAME of 1 to 64 letters, digits, '_', '-' or '.'");
  }
  if (!seen.insert(name).second) refuse("--feature", name, "every feature NAME once");
}

}  // namespace

void Layout::checkChunkSize(U64 size, std::string_view label) {
  if (size < kMinChunk || size > kMaxChunk || (size & (size - 1)) != 0) {
    refuse(label, std::to_string(size), "a power of two from 64 to 16M");
  }
}

Layout::Layout(const std::vector<Feature>& features, const std::vector<U32>& chunkSizes)
    : features_(features) {
  if (features_.empty()) throw UsageError("the manifest has no features");
  if (features_.size() > limits::kMaxFeatures) throw UsageError("more than 64 features");
  if (chunkSizes.empty()) throw UsageError("no chunk size given");
  for (U32 chunk : chunkSizes) checkChunkSize(chunk);
  std::set<std::string> seen;
  U64 offset = 0;
  for (const Feature& f : features_) {
    checkName(f.name, seen);
    for (U32 chunk : chunkSizes) {
      if (f.size == 0 || f.size % chunk != 0) {
        throw UsageError(
            "manifest refused: --feature " + f.name + " is " + std::to_string(f.size) +
            " bytes, not a whole number of " + std::to_string(chunk) +
            "-byte chunks (the run's chunk sizes: " + "--chunk-sizes and chunk faults)");
      }
    }
    offsets_.push_back(static_cast<U32>(offset));
    offset += f.size;
    if (offset > kMaxTotal) {
      throw UsageError("manifest refused: the --feature sizes add up to more than " +
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
