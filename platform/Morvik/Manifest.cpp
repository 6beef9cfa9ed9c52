#include "Morvik/Manifest.h"

namespace Morvik {

void Manifest::manifestIs(const Kel::Name& name, const Kel::Ptr<FeatureManifest>& entry) {
  if (!entry) return manifestDel(name);
  if (manifest_.set(name, entry)) notifyMember(&NotifieeConst::onManifest, name);
}

void Manifest::manifestDel(const Kel::Name& name) {
  // The entry stays alive until its watchers have heard that it left.
  auto leaving = manifest_.remove(name);
  if (leaving) notifyMember(&NotifieeConst::onManifest, name);
}

void Manifest::manifestDelAll() {
  for (const Kel::Name& name : manifest_.keys()) manifestDel(name);
}

}  // namespace Morvik
