#include "Kel/Entity.h"

namespace Kel {

void Entity::zeroReferencesIs(bool) {
  notify<EntityNotifiee>([](EntityNotifiee* n) { n->onZeroReferences(); });
}

}  // namespace Kel
