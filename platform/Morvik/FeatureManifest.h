#ifndef MORVIK_FEATUREMANIFEST_H
#define MORVIK_FEATUREMANIFEST_H

#include "Morvik/Record.h"

namespace Morvik {

// One feature's share of the mirrored memory; the record's name is the feature's name.
class FeatureManifest final : public Record<FeatureManifest> {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<FeatureManifest> {
   public:
    virtual void onSize() {}
    virtual void onByteOffset() {}
  };

  explicit FeatureManifest(const Kel::Name& name, U64 size = 0, U64 byteOffset = 0)
      : Record(name), size_(size), byteOffset_(byteOffset) {}

  const char* fwkType() const override { return "Morvik::FeatureManifest"; }

  U64 size() const { return size_; }
  U64 byteOffset() const { return byteOffset_; }

  void sizeIs(const U64& value) { attributeIs(size_, value, &NotifieeConst::onSize); }
  void byteOffsetIs(const U64& value) {
    attributeIs(byteOffset_, value, &NotifieeConst::onByteOffset);
  }

 private:
  U64 size_;
  U64 byteOffset_;
};

}  // namespace Morvik

#endif
