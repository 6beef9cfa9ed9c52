#ifndef TESTS_SUPPORT_KELTESTENTITY_H
#define TESTS_SUPPORT_KELTESTENTITY_H

#include "Kel/Entity.h"
#include "Kel/Name.h"
#include "Kel/NotifieeConstOf.h"
#include "Kel/NotifieeList.h"
#include "Kel/String.h"
#include "Kel/Types.h"

namespace KelTest {

// A small entity written the way the library writes its own: each setter compares, stores, and
// visits the notifiee list only when the value changed and someone listens.
class Gauge : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeConstOf<Gauge> {
   public:
    virtual void onLevel() {}
    virtual void onLabel() {}
  };

  explicit Gauge(const Kel::Name& name) : name_(name) {}

  Kel::NotifieeList* notifieeList() const override { return &notifiees_; }
  Kel::Name name() const override { return name_; }
  void nameIsFromBackup(const Kel::Name& name) override { name_ = name; }
  const char* fwkType() const override { return "KelTest::Gauge"; }

  U32 level() const { return level_; }
  const Kel::String& label() const { return label_; }
  void levelIs(U32 value);
  void labelIs(const Kel::String& value);

  // How many times a setter reached the notifiee list, for the early-return cases.
  int visits() const { return visits_; }

 private:
  Kel::Name name_;
  U32 level_ = 0;
  Kel::String label_;
  int visits_ = 0;
  mutable Kel::NotifieeList notifiees_;
};

}  // namespace KelTest

#endif
