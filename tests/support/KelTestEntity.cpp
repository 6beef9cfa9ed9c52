#include "support/KelTestEntity.h"

namespace KelTest {

void Gauge::levelIs(U32 value) {
  if (level_ == value) return;
  level_ = value;
  if (notifiees_.empty()) return;
  ++visits_;
  notify<NotifieeConst>([](NotifieeConst* n) { n->onLevel(); });
}

void Gauge::labelIs(const Kel::String& value) {
  if (label_ == value) return;
  label_ = value;
  if (notifiees_.empty()) return;
  ++visits_;
  notify<NotifieeConst>([](NotifieeConst* n) { n->onLabel(); });
}

}  // namespace KelTest
