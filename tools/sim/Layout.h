#ifndef MORVIK_SIM_LAYOUT_H
#define MORVIK_SIM_LAYOUT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Types.h"
#include "SimOptions.h"

namespace MorvikSim {

// The manifest the simulator publishes: the features back to back, in the order given, from
// offset 0 of the mirrored memory.
class Layout {
 public:
  // The largest mirrored memory a run may ask for; both copies live in shared memory.
  static constexpr U64 kMaxTotal = U64{1} << 30;

  // Throws UsageError when the manifest cannot be published: no features, duplicate or unusable
  // names, empty features, a total beyond kMaxTotal, or a feature that is not a whole number of
  // chunks for one of the chunk sizes the run uses (the copier and the audit work in whole chunks).
  Layout(const std::vector<Feature>& features, const std::vector<U32>& chunkSizes);

  std::size_t features() const { return features_.size(); }
  const std::string& name(std::size_t i) const { return features_.at(i).name; }
  U32 size(std::size_t i) const { return features_.at(i).size; }
  U32 offset(std::size_t i) const { return offsets_.at(i); }
  U32 total() const { return total_; }
  // The feature index of a name, or features() when there is none.
  std::size_t find(const std::string& name) const;

  // Throws UsageError unless size is a power of two within the supported range; the message
  // names the size with `label`.
  static void checkChunkSize(U64 size, std::string_view label = "chunk size");

 private:
  std::vector<Feature> features_;
  std::vector<U32> offsets_;
  U32 total_ = 0;
};

}  // namespace MorvikSim

#endif
