#ifndef MORVIK_MANIFEST_H
#define MORVIK_MANIFEST_H

#include <map>

#include "Kel/Name.h"
#include "Kel/Ptr.h"
#include "Morvik/FeatureManifest.h"
#include "Morvik/Record.h"
#include "Morvik/Region.h"

namespace Morvik {

// The layout of the mirrored memory: every feature's range, and where the whole lies on this card.
class Manifest final : public Record<Manifest> {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<Manifest> {
   public:
    virtual void onManifest(const Kel::Name&) {}
    virtual void onManifestkelImmediate() {}
    virtual void onManifest() {}
    virtual void onFixedSystem() {}
    virtual void onLocalMemory() {}
    virtual void onPlatform() {}
  };

  using FeatureManifests = std::map<Kel::Name, Kel::Ptr<FeatureManifest>>;

  explicit Manifest(const Kel::Name& name) : Record(name) {}

  const char* fwkType() const override { return "Morvik::Manifest"; }

  // In name order.
  const FeatureManifests& manifest() const { return manifest_; }
  // Null when the feature has no entry.
  Kel::Ptr<FeatureManifest> manifest(const Kel::Name& name) const {
    return member(manifest_, name);
  }
  U8 fixedSystem() const { return fixedSystem_; }
  const Kel::Ptr<Region const>& localMemory() const { return localMemory_; }
  U32 platform() const { return platform_; }

  // A null entry removes the feature.
  void manifestIs(const Kel::Name& name, const Kel::Ptr<FeatureManifest>& entry) {
    if (!entry) return manifestDel(name);
    memberIs(manifest_, name, entry, &NotifieeConst::onManifest);
  }
  void manifestDel(const Kel::Name& name) {
    memberDel(manifest_, name, &NotifieeConst::onManifest);
  }
  void fixedSystemIs(U8 value) { attributeIs(fixedSystem_, value, &NotifieeConst::onFixedSystem); }
  void localMemoryIs(const Kel::Ptr<Region const>& value) {
    attributeIs(localMemory_, value, &NotifieeConst::onLocalMemory);
  }
  void platformIs(U32 value) { attributeIs(platform_, value, &NotifieeConst::onPlatform); }

 private:
  FeatureManifests manifest_;
  U8 fixedSystem_ = 0;
  Kel::Ptr<Region const> localMemory_;
  U32 platform_ = 0;
};

}  // namespace Morvik

#endif
