#ifndef MORVIK_REGION_H
#define MORVIK_REGION_H

#include "Kel/String.h"
#include "Morvik/PhysicalAddress.h"
#include "Morvik/Record.h"

namespace Morvik {

// One physical memory range and the file through which it is mapped.
class Region final : public Record<Region> {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<Region> {
   public:
    virtual void onAddr() {}
    virtual void onSize() {}
    virtual void onVersion() {}
    virtual void onMapFile() {}
  };

  explicit Region(const Kel::Name& name, PhysicalAddress addr = {}, U32 size = 0, U32 version = 0,
                  const Kel::String& mapFile = {})
      : Record(name), addr_(addr), size_(size), version_(version), mapFile_(mapFile) {}

  const char* fwkType() const override { return "Morvik::Region"; }

  PhysicalAddress addr() const { return addr_; }
  U32 size() const { return size_; }
  U32 version() const { return version_; }
  const Kel::String& mapFile() const { return mapFile_; }

  void addrIs(PhysicalAddress value) { attributeIs(addr_, value, &NotifieeConst::onAddr); }
  void sizeIs(U32 value) { attributeIs(size_, value, &NotifieeConst::onSize); }
  void versionIs(U32 value) { attributeIs(version_, value, &NotifieeConst::onVersion); }
  void mapFileIs(const Kel::String& value) {
    attributeIs(mapFile_, value, &NotifieeConst::onMapFile);
  }

 private:
  PhysicalAddress addr_;
  U32 size_;
  U32 version_;
  Kel::String mapFile_;
};

}  // namespace Morvik

#endif
